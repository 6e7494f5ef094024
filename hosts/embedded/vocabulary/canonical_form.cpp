#include "hosts/embedded/vocabulary/canonical_form.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hosts/embedded/vocabulary/graph_node.hpp"

namespace varnholt::embedded {
namespace {

using genetic::List;
using genetic::Value;

// A node with what is below it, free to be taken apart.
struct Term {
  std::string name;
  std::string type;
  std::vector<Term> children = {};

  [[nodiscard]] bool is(std::string_view function) const {
    return name == function && type == kRotationType;
  }
  friend bool operator==(const Term& left, const Term& right) {
    return left.name == right.name && left.type == right.type && left.children == right.children;
  }
  friend bool operator<(const Term& left, const Term& right) {
    if (left.name != right.name) return left.name < right.name;
    return std::lexicographical_compare(left.children.begin(), left.children.end(),
                                        right.children.begin(), right.children.end());
  }
};

constexpr std::string_view kNeg = "arith_neg";
constexpr std::string_view kAdd = "arith_add";
constexpr std::string_view kSub = "arith_sub";
constexpr std::string_view kMul = "arith_mul";
constexpr std::string_view kDiv = "arith_div";

// f(-x) = -f(x) to the last bit: x stands in nothing but sums, products, quotients and functions
// that are odd themselves.
constexpr auto kOdd = std::to_array<std::string_view>(
    {"arith_log", "arith_sign", "arith_tanh", "cross_demean", "cross_scale", "cross_winsorize",
     "cross_zscore", "group_demean", "group_zscore", "ts_decay", "ts_delay", "ts_delta", "ts_ema",
     "ts_mean", "ts_skew", "ts_sum", "ts_zscore"});
// f(-x) = f(x).
constexpr auto kEven = std::to_array<std::string_view>({"arith_abs", "ts_kurtosis", "ts_std"});
// f(-x) = -g(x), and f(-x) = g(x).
using Pair = std::pair<std::string_view, std::string_view>;
constexpr auto kMirrored = std::to_array<Pair>({{"ts_min", "ts_max"}, {"ts_max", "ts_min"}});
constexpr auto kMirroredPlaces =
    std::to_array<Pair>({{"ts_argmin", "ts_argmax"}, {"ts_argmax", "ts_argmin"}});
constexpr auto kMirroredOfTwo =
    std::to_array<Pair>({{"arith_min", "arith_max"}, {"arith_max", "arith_min"}});
// f(-x, -y) = f(x, y).
constexpr auto kEvenInBoth = std::to_array<std::string_view>({kMul, kDiv, "ts_covariance"});
// f(f(x)) = f(x), where the settings are the same too.
constexpr auto kIdempotent =
    std::to_array<std::string_view>({"arith_abs", "arith_sign", "cross_rank", "group_rank"});
// f(x, y) = f(y, x), to the last bit.
constexpr auto kCommutative = std::to_array<std::string_view>(
    {kAdd, kMul, "arith_max", "arith_min", "comparison_eq", "comparison_ne", "logic_and",
     "logic_or", "ts_covariance", "ts_correlation"});
// f(x, y) = g(y, x).
constexpr auto kTurned =
    std::to_array<Pair>({{"comparison_lt", "comparison_gt"}, {"comparison_le", "comparison_ge"}});
// 0 or 1.
constexpr auto kTruth = std::to_array<std::string_view>(
    {"comparison_eq", "comparison_ge", "comparison_gt", "comparison_le", "comparison_lt",
     "comparison_ne", "logic_and", "logic_not", "logic_or"});
constexpr auto kNeverNegative = std::to_array<std::string_view>(
    {"arith_abs", "cross_rank", "group_rank", "ts_argmax", "ts_argmin", "ts_rank", "ts_std"});
// Over one day they are the value of the day.
constexpr auto kOfOneDay = std::to_array<std::string_view>(
    {"ts_decay", "ts_ema", "ts_max", "ts_mean", "ts_min", "ts_product", "ts_quantile", "ts_sum"});

bool contains(const auto& names, const Term& term) {
  return term.type == kRotationType &&
         std::find(names.begin(), names.end(), term.name) != names.end();
}

std::optional<std::string_view> partner(const auto& pairs, const Term& term) {
  for (const auto& [name, other] : pairs) {
    if (term.is(name)) return other;
  }
  return std::nullopt;
}

std::optional<double> constant_of(const Term& term) {
  return term.type == kConstantType ? constant_value(term.name) : std::nullopt;
}

bool is_constant(const Term& term, double number) {
  return constant_of(term) == number;
}

// There is one zero: its sign means nothing.
Term constant_term(double number) {
  return {number_text(number == 0.0 ? 0.0 : number), std::string(kConstantType)};
}

Term window_term(std::int64_t days) {
  return {std::to_string(days), std::string(kWindowType)};
}

Term read_term(const Value& value) {
  const GraphNode node = read_graph_node(value, GraphPlace{});
  Term term{node.name, node.type};
  term.children.reserve(node.children.size());
  for (std::size_t i = 0; i < node.children.size(); ++i)
    term.children.push_back(read_term(node.children.at(i)));
  return term;
}

Value written(const Term& term) {
  List children(term.children.size());
  for (const Term& child : term.children)
    children.append(written(child));
  return make_graph_node(term.name, term.type, std::move(children));
}

// Builds terms from the leaves up. Whatever is built is in its form, so each step looks at the
// outermost functions only.
class Builder {
 public:
  Builder(const Vocabulary& vocabulary, const CanonicalOptions& options)
      : vocabulary_(vocabulary), options_(options) {}

  // The term with children that are in their form.
  [[nodiscard]] Term built(Term term) const {
    if (term.type != kRotationType) return term;
    for (const Step step :
         {&Builder::without_neutral, &Builder::of_negation, &Builder::of_signs, &Builder::of_same,
          &Builder::of_extremes, &Builder::of_windows, &Builder::in_order}) {
      if (std::optional<Term> other = (this->*step)(term)) return *std::move(other);
    }
    return term;
  }

  [[nodiscard]] Term form_of(Term term) const {
    for (Term& child : term.children)
      child = form_of(std::move(child));
    return built(std::move(term));
  }

 private:
  // Another term with the same value, or nothing where the step has nothing to do.
  using Step = std::optional<Term> (Builder::*)(const Term& term) const;

  [[nodiscard]] bool may_use(std::string_view function) const {
    const FunctionEntry* const entry = vocabulary_.find_function(function);
    return entry != nullptr && entry->weight > 0.0;
  }

  [[nodiscard]] Term call(std::string_view function, std::vector<Term> children) const {
    return built({std::string(function), std::string(kRotationType), std::move(children)});
  }

  // The same function of another first panel.
  [[nodiscard]] Term with_first(const Term& term, Term first) const {
    std::vector<Term> children = term.children;
    children.front() = std::move(first);
    return call(term.name, std::move(children));
  }

  // -term without a negation of its own.
  [[nodiscard]] std::optional<Term> absorbed_negation(const Term& term) const {
    if (term.is(kNeg)) return term.children[0];
    if (term.is(kSub)) return call(kSub, {term.children[1], term.children[0]});
    if (term.is(kAdd)) {
      const std::optional<double> number = constant_of(term.children[0]);
      if (!number || !may_use(kSub)) return std::nullopt;
      return call(kSub, {constant_term(-*number), term.children[1]});
    }
    if (term.is(kMul) || term.is(kDiv)) return with_negative_constant(term);
    if (!contains(kOdd, term)) return std::nullopt;
    std::optional<Term> first = absorbed_negation(term.children[0]);
    if (!first) return std::nullopt;
    return with_first(term, *std::move(first));
  }

  [[nodiscard]] std::optional<Term> with_negative_constant(const Term& term) const {
    std::vector<Term> children = term.children;
    for (Term& child : children) {
      const std::optional<double> number = constant_of(child);
      if (!number) continue;
      child = constant_term(-*number);
      return call(term.name, std::move(children));
    }
    return std::nullopt;
  }

  // --- the steps ---

  // Constants that change nothing, or nothing but the sign.
  [[nodiscard]] std::optional<Term> without_neutral(const Term& term) const {
    if (term.children.size() != 2) return std::nullopt;
    const Term& x = term.children[0];
    const Term& y = term.children[1];
    if (term.is(kAdd) && is_constant(x, 0.0)) return y;
    if ((term.is(kAdd) || term.is(kSub)) && is_constant(y, 0.0)) return x;
    if (term.is(kMul) && is_constant(x, 1.0)) return y;
    const bool is_power = term.is("arith_power") || term.is("arith_signed_power");
    if ((term.is(kMul) || term.is(kDiv) || is_power) && is_constant(y, 1.0)) return x;
    if (may_use(kNeg)) {
      if (term.is(kSub) && is_constant(x, 0.0)) return call(kNeg, {y});
      if (term.is(kMul) && is_constant(x, -1.0)) return call(kNeg, {y});
      if ((term.is(kMul) || term.is(kDiv)) && is_constant(y, -1.0)) return call(kNeg, {x});
    }
    if (term.is(kAdd) && may_use(kSub)) {
      for (const std::size_t place : {0U, 1U}) {
        const std::optional<double> number = constant_of(term.children[place]);
        if (number && *number < 0.0)
          return call(kSub, {term.children[1 - place], constant_term(-*number)});
      }
    }
    const std::optional<double> taken = term.is(kSub) ? constant_of(y) : std::nullopt;
    if (taken && *taken < 0.0 && may_use(kAdd)) return call(kAdd, {constant_term(-*taken), x});
    return std::nullopt;
  }

  [[nodiscard]] std::optional<Term> of_negation(const Term& term) const {
    return term.is(kNeg) ? absorbed_negation(term.children[0]) : std::nullopt;
  }

  // Negations of panels: outwards, where two of them meet and are gone.
  [[nodiscard]] std::optional<Term> of_signs(const Term& term) const {
    if (contains(kEven, term)) return of_even(term);
    const Term& x = term.children[0];
    const bool is_first = x.is(kNeg);
    const bool is_second = term.children.size() > 1 && term.children[1].is(kNeg);
    if (is_first) {
      const std::optional<std::string_view> mirror = partner(kMirrored, term);
      if (mirror && may_use(*mirror)) {
        return call(kNeg, {call(*mirror, {x.children[0], term.children[1]})});
      }
      const std::optional<std::string_view> place = partner(kMirroredPlaces, term);
      if (place && may_use(*place)) return call(*place, {x.children[0], term.children[1]});
      if (contains(kOdd, term)) return call(kNeg, {with_first(term, x.children[0])});
      const bool has_constant = term.children.size() == 2 && constant_of(term.children[1]);
      if (has_constant && (term.is(kMul) || term.is(kDiv)))
        return with_negative_constant(with_plain_first(term));
    }
    if (is_second && constant_of(x) && (term.is(kMul) || term.is(kDiv))) {
      return call(term.name, {constant_term(-*constant_of(x)), term.children[1].children[0]});
    }
    if (is_first && is_second && contains(kEvenInBoth, term)) {
      std::vector<Term> children = term.children;
      children[0] = x.children[0];
      children[1] = term.children[1].children[0];
      return call(term.name, std::move(children));
    }
    if (is_first && is_second) {
      if (const std::optional<std::string_view> mirror = partner(kMirroredOfTwo, term)) {
        if (!may_use(*mirror)) return std::nullopt;
        return call(kNeg, {call(*mirror, {x.children[0], term.children[1].children[0]})});
      }
      if (term.is(kAdd)) {
        return call(kNeg, {call(kAdd, {x.children[0], term.children[1].children[0]})});
      }
    }
    if (term.is(kAdd) && may_use(kSub)) {
      if (is_second) return call(kSub, {x, term.children[1].children[0]});
      if (is_first) return call(kSub, {term.children[1], x.children[0]});
    }
    if (term.is(kSub) && is_second && may_use(kAdd)) {
      return call(kAdd, {x, term.children[1].children[0]});
    }
    return std::nullopt;
  }

  // The first panel without its negation, as it is, not built.
  static Term with_plain_first(Term term) {
    Term inner = std::move(term.children[0].children[0]);
    term.children[0] = std::move(inner);
    return term;
  }

  [[nodiscard]] std::optional<Term> of_even(const Term& term) const {
    const Term& x = term.children[0];
    if (x.is(kNeg)) return with_first(term, x.children[0]);
    if (x.is(kSub) && x.children[1] < x.children[0]) {
      Term turned = x;
      std::swap(turned.children[0], turned.children[1]);
      return with_first(term, built(std::move(turned)));
    }
    if (term.is("arith_abs") && (contains(kNeverNegative, x) || contains(kTruth, x))) return x;
    return std::nullopt;
  }

  // Functions that change nothing the second time.
  [[nodiscard]] std::optional<Term> of_same(const Term& term) const {
    const Term& x = term.children[0];
    if (term.is("arith_sign") && contains(kTruth, x)) return x;
    if (!contains(kIdempotent, term) || x.name != term.name || x.type != term.type) {
      return std::nullopt;
    }
    const bool same_settings = std::equal(term.children.begin() + 1, term.children.end(),
                                          x.children.begin() + 1, x.children.end());
    return same_settings ? std::optional(x) : std::nullopt;
  }

  [[nodiscard]] std::optional<Term> of_extremes(const Term& term) const {
    if (!term.is("arith_min") && !term.is("arith_max")) return std::nullopt;
    for (const std::size_t place : {0U, 1U}) {
      const Term& x = term.children[place];
      const Term& y = term.children[1 - place];
      if (x == y) return x;
      if (y.name != term.name || y.type != term.type) continue;
      if (x == y.children[0] || x == y.children[1]) return y;
      const std::optional<double> outer = constant_of(x);
      // In their order a constant comes first, if there is one.
      const std::optional<double> inner = constant_of(y.children[0]);
      if (!outer || !inner) continue;
      const double kept =
          term.is("arith_min") ? std::min(*outer, *inner) : std::max(*outer, *inner);
      return call(term.name, {constant_term(kept), y.children[1]});
    }
    return std::nullopt;
  }

  [[nodiscard]] std::optional<Term> of_windows(const Term& term) const {
    if (term.children.back().type != kWindowType) return std::nullopt;
    const std::int64_t outer = window_of(term.children.back().name).value_or(0);
    if (outer == 1 && contains(kOfOneDay, term)) return term.children[0];
    const bool is_delay = term.is("ts_delay");
    if (!is_delay && !term.is("ts_max") && !term.is("ts_min")) return std::nullopt;
    const Term& x = term.children[0];
    if (!x.is(term.name)) return std::nullopt;
    const std::int64_t inner = window_of(x.children.back().name).value_or(0);
    const std::int64_t both = is_delay ? inner + outer : inner + outer - 1;
    const bool is_exact = is_delay || (needs_all(inner) && needs_all(outer) && needs_all(both));
    if (both > options_.max_window || !is_exact) return std::nullopt;
    return call(term.name, {x.children[0], window_term(both)});
  }

  [[nodiscard]] bool needs_all(std::int64_t days) const {
    return Window(days, options_.least_known_share).least_known == days;
  }

  [[nodiscard]] std::optional<Term> in_order(const Term& term) const {
    if (const std::optional<std::string_view> other = partner(kTurned, term)) {
      if (may_use(*other)) return call(*other, {term.children[1], term.children[0]});
    }
    if (!contains(kCommutative, term) || !(term.children[1] < term.children[0])) {
      return std::nullopt;
    }
    Term turned = term;
    std::swap(turned.children[0], turned.children[1]);
    return turned;
  }

  const Vocabulary& vocabulary_;
  const CanonicalOptions& options_;
};

}  // namespace

Value canonical_form(const Value& graph, const Vocabulary& vocabulary,
                     const CanonicalOptions& options) {
  return written(Builder(vocabulary, options).form_of(read_term(graph)));
}

}  // namespace varnholt::embedded
