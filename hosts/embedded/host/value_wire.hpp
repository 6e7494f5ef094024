// Open data as bytes, on its way between two processes of this program.
//
// One byte tells what a value is; its own bytes follow: the 64 bits of a number as they are in
// memory, of a text the number of its bytes and then these, of a container the number of its
// entries and then each of them, of a mapping key and value by turns. So the order of keys, keys
// that are no texts, and every bit of a real come through, and no number is written out in digits.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <Eigen/Core>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// Whether the value is absent, a boolean, an integer of 64 bits, a real or a text; then its bytes
// stand behind the others.
[[nodiscard]] bool append_scalar(std::string& bytes, const genetic::Value& value);

// The same for any value. A tuple arrives as a list. genetic::TypeError for an object that has no
// JSON text.
void append_value(std::string& bytes, const genetic::Value& value);

// The bytes of numbers, as they are in memory, and the numbers of such bytes: genetic::ValueError
// for those of half a number.
[[nodiscard]] std::string number_bytes(const Eigen::ArrayXd& numbers);
[[nodiscard]] Eigen::ArrayXd numbers_from(std::string_view bytes);

// Takes values from bytes, which outlive it.
class ValueReader {
 public:
  explicit ValueReader(std::string_view bytes) : rest_(bytes) {}

  [[nodiscard]] bool is_at_end() const { return rest_.empty(); }
  // genetic::ValueError for bytes that are no value.
  [[nodiscard]] genetic::Value next();

 private:
  [[nodiscard]] std::string_view take(std::size_t size);
  [[nodiscard]] std::string_view sized();
  template <typename Number>
  [[nodiscard]] Number number();
  [[nodiscard]] genetic::Value list();
  [[nodiscard]] genetic::Value mapping();

  std::string_view rest_;
};

}  // namespace varnholt::embedded
