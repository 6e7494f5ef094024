// The words and signs of a formula.
#pragma once

#include <cstddef>
#include <string_view>

namespace varnholt::embedded {

enum class TokenKind { Number, Name, Sign, End };

struct FormulaToken {
  TokenKind kind = TokenKind::End;
  std::string_view text;
  std::size_t offset = 0;  // In the formula, in bytes.
  double number = 0.0;     // Of a number.

  [[nodiscard]] bool is_sign(std::string_view sign) const {
    return kind == TokenKind::Sign && text == sign;
  }
};

// Goes through a formula, which must outlive it.
class FormulaTokens {
 public:
  // The formula begins in `first_line`, for its errors.
  FormulaTokens(std::string_view formula, std::size_t first_line);

  [[nodiscard]] const FormulaToken& current() const { return current_; }

  // Goes on behind the current token. Throws FormulaError for what begins none: the signs are
  // + - * / ^ ** ( ) , ? : ! < > <= >= == != && ||.
  void advance();

  // Throws FormulaError.
  [[noreturn]] void refuse(std::size_t offset, std::string_view problem,
                           std::string_view remedy) const;

 private:
  void read_number();

  std::string_view formula_;
  std::size_t first_line_;
  FormulaToken current_;
};

}  // namespace varnholt::embedded
