// What the hand-made hosts of the tests share: one ordered log of calls, and short ways to write
// the answers that a test wants.
#pragma once

#include <deque>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic::test {

// Every call that reached a scripted host, in order, as "object.operation(argument, ...)". The
// arguments stand in their repr form; keyword arguments as name=repr.
class CallLog {
 public:
  void add(std::string line) {
    if (!is_muted_) lines_.push_back(std::move(line));
  }
  void add(std::string_view name, std::initializer_list<Value> positional,
           const Mapping& keywords = Mapping()) {
    add(name, std::span(positional.begin(), positional.size()), keywords);
  }
  void add(std::string_view name, std::span<const Value> positional, const Mapping& keywords) {
    if (is_muted_) return;
    std::string line(name);
    line += '(';
    for (const Value& value : positional) {
      if (line.back() != '(') line += ", ";
      append_repr(line, value);
    }
    MappingCursor cursor(keywords);
    while (const auto entry = cursor.next()) {
      if (line.back() != '(') line += ", ";
      line += str(entry->key) + "=";
      append_repr(line, entry->value);
    }
    add(line + ")");
  }

  [[nodiscard]] const std::vector<std::string>& lines() const noexcept { return lines_; }
  // The lines without their arguments.
  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const std::string& line : lines_)
      names.push_back(line.substr(0, line.find('(')));
    return names;
  }
  // How many calls reached the operation of this name.
  [[nodiscard]] std::size_t count(std::string_view name) const {
    std::size_t count = 0;
    for (const std::string& line : lines_)
      if (std::string_view(line).substr(0, line.find('(')) == name) ++count;
    return count;
  }
  void clear() noexcept { lines_.clear(); }
  // From now on nothing is written: for runs that are too long for a log.
  void mute() noexcept { is_muted_ = true; }

 private:
  std::vector<std::string> lines_;
  bool is_muted_ = false;
};

// An answer that is the same at every call, whatever its arguments.
template <typename T>
[[nodiscard]] auto always(T answer) {
  return [answer = std::move(answer)](const auto&...) { return answer; };
}

// One answer a call, in order. A call too many is a std::logic_error, so that a test that
// miscounts fails loudly.
template <typename T>
[[nodiscard]] auto in_turn(std::initializer_list<T> answers) {
  return [queue = std::make_shared<std::deque<T>>(answers)](const auto&...) {
    if (queue->empty()) throw std::logic_error("the scripted host has no answer left");
    T answer = std::move(queue->front());
    queue->pop_front();
    return answer;
  };
}
[[nodiscard]] inline auto in_turn(std::initializer_list<Value> answers) {
  return in_turn<Value>(answers);
}

// An operation that fails in the same way at every call, whatever it should return.
template <typename E>
class Failing {
 public:
  explicit Failing(E error) : error_(std::move(error)) {}

  // NOLINTNEXTLINE(google-explicit-constructor): it is assigned to an answer as a function is.
  template <typename Result, typename... Arguments>
  operator std::function<Result(Arguments...)>() const {
    return [error = error_](Arguments...) -> Result { throw E(error); };
  }

 private:
  E error_;
};
template <typename E>
[[nodiscard]] Failing<E> failing(E error) {
  return Failing<E>(std::move(error));
}

// A callable that writes itself into the log and answers by a function.
class ScriptedCallable : public CallableBody {
 public:
  using Function = std::function<Value(std::span<const Value>, const Mapping&)>;

  ScriptedCallable(CallLog& log, std::string name, Function function,
                   std::optional<std::vector<Parameter>> signature)
      : log_(log),
        name_(std::move(name)),
        function_(std::move(function)),
        signature_(std::move(signature)) {}

  Value call(std::span<const Value> positional, const Mapping& keywords) override {
    log_.add(name_, positional, keywords);
    return function_(positional, keywords);
  }
  [[nodiscard]] std::optional<std::vector<Parameter>> signature() const override {
    log_.add(name_ + ".signature()");
    return signature_;
  }

 private:
  CallLog& log_;
  std::string name_;
  Function function_;
  std::optional<std::vector<Parameter>> signature_;
};

[[nodiscard]] inline Callable scripted_callable(
    CallLog& log, std::string name, ScriptedCallable::Function function,
    std::optional<std::vector<Parameter>> signature = std::nullopt) {
  return Callable(std::make_shared<ScriptedCallable>(log, std::move(name), std::move(function),
                                                     std::move(signature)));
}

// A walk that writes every step and its own release into the log.
class ScriptedIterator : public ValueIterator {
 public:
  using Next = std::function<std::optional<Value>()>;

  ScriptedIterator(CallLog& log, std::string name, Next next)
      : log_(log), name_(std::move(name)), next_(std::move(next)) {}
  ScriptedIterator(const ScriptedIterator&) = delete;
  ScriptedIterator& operator=(const ScriptedIterator&) = delete;
  ~ScriptedIterator() override { log_.add(name_ + ".release()"); }

  [[nodiscard]] std::optional<Value> next() override {
    log_.add(name_ + ".next()");
    return next_();
  }

 private:
  CallLog& log_;
  std::string name_;
  Next next_;
};

// An object of the host that has these attributes and no others, for example a statistics object.
// The mapping is shared: a test that keeps it can change the attributes later.
class ScriptedObject : public HostObject {
 public:
  ScriptedObject(Mapping attributes, CallLog* log, std::string type_name)
      : attributes_(std::move(attributes)), log_(log), type_name_(std::move(type_name)) {}

  [[nodiscard]] std::string type_name() const override { return type_name_; }
  [[nodiscard]] std::optional<Value> attribute(std::string_view name) const override {
    if (log_ != nullptr) log_->add(type_name_ + "." + std::string(name));
    return attributes_.find(name);
  }

 private:
  Mapping attributes_;
  CallLog* log_;
  std::string type_name_;
};

// With a log, every read of an attribute is written there as "type_name.attribute".
[[nodiscard]] inline Value scripted_object(Mapping attributes, CallLog* log = nullptr,
                                           std::string type_name = "Record") {
  return make_object<ScriptedObject>(std::move(attributes), log, std::move(type_name));
}

}  // namespace varnholt::genetic::test
