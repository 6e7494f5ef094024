// A C++ function as an iterator.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Gives what `next` gives, until that is nothing.
[[nodiscard]] inline std::unique_ptr<ValueIterator> make_iterator(
    std::function<std::optional<Value>()> next) {
  class Iterator : public ValueIterator {
   public:
    explicit Iterator(std::function<std::optional<Value>()> function)
        : function_(std::move(function)) {}

    [[nodiscard]] std::optional<Value> next() override { return function_(); }

   private:
    std::function<std::optional<Value>()> function_;
  };
  return std::make_unique<Iterator>(std::move(next));
}

}  // namespace varnholt::genetic
