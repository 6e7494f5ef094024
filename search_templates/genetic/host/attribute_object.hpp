// A C++ record as an object of the host: what the library reads by attributes, statistics above
// all.
//
//   attribute_object("Statistics", {{"sharpe", 1.25}, {"quality_score", 0.75}})
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The mapping is shared: what is changed in it later shows in the object.
[[nodiscard]] inline Value attribute_object(std::string type_name, Mapping attributes) {
  class Object : public HostObject {
   public:
    Object(std::string name, Mapping given)
        : type_name_(std::move(name)), attributes_(std::move(given)) {}

    [[nodiscard]] std::string type_name() const override { return type_name_; }
    [[nodiscard]] std::optional<Value> attribute(std::string_view name) const override {
      return attributes_.find(name);
    }

   private:
    std::string type_name_;
    Mapping attributes_;
  };
  return make_object<Object>(std::move(type_name), std::move(attributes));
}

}  // namespace varnholt::genetic
