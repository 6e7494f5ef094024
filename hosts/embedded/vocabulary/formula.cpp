#include "hosts/embedded/vocabulary/formula.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <utility>

#include "hosts/embedded/vocabulary/formula_builder.hpp"
#include "hosts/embedded/vocabulary/formula_names.hpp"
#include "hosts/embedded/vocabulary/formula_tokens.hpp"
#include "hosts/embedded/vocabulary/formula_words.hpp"
#include "hosts/embedded/vocabulary/graph_node.hpp"

namespace varnholt::embedded {

using genetic::Value;

namespace {

// Parentheses and operators before their operand; each is a few calls on the stack.
constexpr int kDeepestNesting = 200;

struct Operator {
  std::string_view sign;
  std::string_view word;  // The same in letters, if there is one.
  std::string_view function;
};

constexpr auto kOr = std::to_array<Operator>({{"||", "or", "logic_or"}});
constexpr auto kAnd = std::to_array<Operator>({{"&&", "and", "logic_and"}});
constexpr auto kComparisons = std::to_array<Operator>({{"<", "", "comparison_lt"},
                                                       {">", "", "comparison_gt"},
                                                       {"<=", "", "comparison_le"},
                                                       {">=", "", "comparison_ge"},
                                                       {"==", "", "comparison_eq"},
                                                       {"!=", "", "comparison_ne"}});
constexpr auto kSums = std::to_array<Operator>({{"+", "", "arith_add"}, {"-", "", "arith_sub"}});
constexpr auto kProducts =
    std::to_array<Operator>({{"*", "", "arith_mul"}, {"/", "", "arith_div"}});

// What the parameter of an abbreviation stands for.
struct Binding {
  char parameter;
  FormulaPart part;
};

class FormulaParser {
 public:
  FormulaParser(std::string_view text, const Vocabulary& vocabulary, const GraphLimits& limits,
                std::size_t first_line)
      : FormulaParser(text, vocabulary, limits, first_line, {}) {}

  Value graph() {
    FormulaPart part = whole();
    if (part.is_number()) {
      tokens_.refuse(part.offset, "the formula is nothing but a number",
                     "write a feature, such as close, or a function of one");
    }
    return std::move(part.graph);
  }

 private:
  FormulaParser(std::string_view text, const Vocabulary& vocabulary, const GraphLimits& limits,
                std::size_t first_line, std::vector<Binding> bindings)
      : vocabulary_(vocabulary),
        limits_(limits),
        tokens_(text, first_line),
        builder_(vocabulary, limits, tokens_),
        bindings_(std::move(bindings)) {}

  // Counts how deep the parser is in itself.
  class Nested {
   public:
    explicit Nested(FormulaParser& parser) : parser_(parser) {
      if (++parser_.nesting_ <= kDeepestNesting) return;
      parser_.tokens_.refuse(
          parser_.token().offset,
          "the formula is nested deeper than " + std::to_string(kDeepestNesting) + " levels",
          "write it with fewer parentheses");
    }
    Nested(const Nested&) = delete;
    Nested& operator=(const Nested&) = delete;
    ~Nested() { --parser_.nesting_; }

   private:
    FormulaParser& parser_;
  };

  [[nodiscard]] const FormulaToken& token() const { return tokens_.current(); }

  bool take_sign(std::string_view sign) {
    if (!token().is_sign(sign)) return false;
    tokens_.advance();
    return true;
  }

  FormulaPart whole() {
    if (token().kind == TokenKind::End) {
      tokens_.refuse(token().offset, "there is no formula", "write one, such as rank(close)");
    }
    FormulaPart part = choice();
    if (token().kind != TokenKind::End) refuse_more();
    return part;
  }

  [[noreturn]] void refuse_more() const {
    const std::string shown = "\"" + shown_name(token().text) + "\"";
    if (token().is_sign(")")) {
      tokens_.refuse(token().offset, "the parenthesis was never opened", "remove it");
    }
    tokens_.refuse(token().offset, shown + " does not follow from what stands before it",
                   "write an operator between the two, or end the formula here");
  }

  FormulaPart choice() {
    const Nested nested(*this);
    FormulaPart condition = any_of(kOr, &FormulaParser::conjunction);
    const std::size_t offset = token().offset;
    if (!take_sign("?")) return condition;
    FormulaPart then = choice();
    if (!take_sign(":")) {
      tokens_.refuse(token().offset, "a choice has no second half",
                     "write it as condition ? x : y");
    }
    FormulaPart otherwise = choice();
    return builder_.operation("arith_if", {condition, then, otherwise}, offset);
  }

  FormulaPart conjunction() { return any_of(kAnd, &FormulaParser::comparison); }

  FormulaPart comparison() {
    FormulaPart left = sum();
    const Operator* const found = operator_of(kComparisons);
    if (found == nullptr) return left;
    const std::size_t offset = token().offset;
    tokens_.advance();
    FormulaPart right = sum();
    if (operator_of(kComparisons) != nullptr) {
      tokens_.refuse(token().offset, "two comparisons stand in a row",
                     "join them with &&, or put one in parentheses");
    }
    return builder_.operation(found->function, {left, right}, offset);
  }

  FormulaPart sum() { return any_of(kSums, &FormulaParser::product); }
  FormulaPart product() { return any_of(kProducts, &FormulaParser::prefixed); }

  // Operands joined by operators of one strength, from the left.
  template <std::size_t kCount>
  FormulaPart any_of(const std::array<Operator, kCount>& operators,
                     FormulaPart (FormulaParser::*operand)()) {
    FormulaPart left = (this->*operand)();
    while (const Operator* const found = operator_of(operators)) {
      const std::size_t offset = token().offset;
      tokens_.advance();
      FormulaPart right = (this->*operand)();
      left = builder_.operation(found->function, {left, right}, offset);
    }
    return left;
  }

  template <std::size_t kCount>
  [[nodiscard]] const Operator* operator_of(const std::array<Operator, kCount>& operators) const {
    for (const Operator& candidate : operators) {
      if (token().is_sign(candidate.sign)) return &candidate;
      const bool is_word = !candidate.word.empty() && token().kind == TokenKind::Name &&
                           in_lower_case(token().text) == candidate.word;
      if (is_word) return &candidate;
    }
    return nullptr;
  }

  FormulaPart prefixed() {
    const Nested nested(*this);
    const std::size_t offset = token().offset;
    if (take_sign("-")) return builder_.operation("arith_neg", {prefixed()}, offset);
    if (take_sign("+")) return prefixed();
    const bool is_not = token().kind == TokenKind::Name && in_lower_case(token().text) == "not";
    if (is_not || token().is_sign("!")) {
      tokens_.advance();
      return builder_.operation("logic_not", {prefixed()}, offset);
    }
    return power();
  }

  FormulaPart power() {
    FormulaPart base = primary();
    const std::size_t offset = token().offset;
    if (!take_sign("^") && !take_sign("**")) return base;
    return builder_.operation("arith_power", {base, prefixed()}, offset);
  }

  FormulaPart primary() {
    const FormulaToken met = token();
    if (met.kind == TokenKind::Number) {
      tokens_.advance();
      return builder_.number(met.number, met.offset);
    }
    if (met.kind == TokenKind::Name) {
      tokens_.advance();
      return token().is_sign("(") ? called(met) : named(met);
    }
    if (take_sign("(")) {
      FormulaPart inner = choice();
      close_parenthesis(met.offset);
      return inner;
    }
    tokens_.refuse(met.offset,
                   met.kind == TokenKind::End
                       ? std::string("the formula ends where a value is expected")
                       : "\"" + shown_name(met.text) + "\" stands where a value is expected",
                   "write a number, a feature, a function or a part in parentheses");
  }

  void close_parenthesis(std::size_t opened) {
    if (take_sign(")")) return;
    if (token().kind == TokenKind::End) {
      tokens_.refuse(opened, "the parenthesis is never closed", "close it with )");
    }
    refuse_more();
  }

  // --- names ---

  FormulaPart named(const FormulaToken& met) {
    for (const Binding& binding : bindings_) {
      if (met.text == std::string_view(&binding.parameter, 1)) return at(binding.part, met.offset);
    }
    if (const NamedFormula* const formula = vocabulary_.find_formula(met.text)) {
      return builder_.copy_of(formula->graph, met.offset);
    }
    const std::string word = in_lower_case(met.text);
    const FeatureEntry* feature = vocabulary_.find_feature(met.text);
    if (feature == nullptr) feature = vocabulary_.find_feature(name_of_word(word));
    if (feature != nullptr) return builder_.feature(*feature, met.offset);
    if (const Abbreviation* const short_form = find_abbreviation(word, 0)) {
      return expanded(*short_form, {}, met.offset);
    }
    if (const std::optional<int> days = days_of_volume(word)) {
      return expanded(*find_abbreviation("adv", 1), {builder_.number(*days, met.offset)},
                      met.offset);
    }
    const NameProblem problem = problem_of_name(met.text, vocabulary_);
    tokens_.refuse(met.offset, problem.problem, problem.remedy);
  }

  // The days of "adv20".
  static std::optional<int> days_of_volume(std::string_view word) {
    if (!word.starts_with("adv")) return std::nullopt;
    return window_of(word.substr(3));
  }

  static FormulaPart at(FormulaPart part, std::size_t offset) {
    part.offset = offset;
    return part;
  }

  // The abbreviation with its parameters. Its errors are told at the place of its name.
  FormulaPart expanded(const Abbreviation& short_form, const std::vector<FormulaPart>& parts,
                       std::size_t offset) {
    const Nested nested(*this);
    std::vector<Binding> bindings;
    for (std::size_t i = 0; i < parts.size(); ++i)
      bindings.push_back({short_form.parameters[i], parts[i]});
    try {
      FormulaParser inner(short_form.formula, vocabulary_, limits_, 1, std::move(bindings));
      return at(inner.whole(), offset);
    } catch (const FormulaError& error) {
      const std::string& text = error.text();
      const std::size_t begin = text.find(": ") + 2;
      const std::size_t middle = text.find("; ", begin);
      tokens_.refuse(offset,
                     "\"" + std::string(short_form.name) + "\" stands for " +
                         std::string(short_form.formula) + ", and " +
                         text.substr(begin, middle - begin),
                     text.substr(middle + 2, text.find('\n') - middle - 2));
    }
  }

  // --- calls ---

  // The name was met, and "(" follows.
  FormulaPart called(const FormulaToken& met) {
    const std::string word = in_lower_case(met.text);
    const FunctionEntry* function = vocabulary_.find_function(met.text);
    if (function == nullptr) function = vocabulary_.find_function(name_of_word(word));
    const bool is_short_form = std::any_of(
        abbreviations().begin(), abbreviations().end(),
        [&](const Abbreviation& entry) { return entry.name == word && !entry.parameters.empty(); });
    if (is_short_form && vocabulary_.find_function(met.text) == nullptr) {
      return called_short_form(met, word, function);
    }
    if (function == nullptr) {
      const NameProblem problem = problem_of_function(met.text, vocabulary_);
      tokens_.refuse(met.offset, problem.problem, problem.remedy);
    }
    return called_function(met, *function);
  }

  FormulaPart called_function(const FormulaToken& met, const FunctionEntry& function) {
    const std::size_t opened = token().offset;
    tokens_.advance();
    std::vector<FormulaBuilder::Argument> arguments;
    for (const ArgumentKind kind : function.arguments()) {
      if (!arguments.empty() && !take_sign(",")) refuse_count(met, function, opened);
      if (token().is_sign(")")) refuse_count(met, function, opened);
      arguments.push_back(argument(kind, function));
    }
    if (token().is_sign(",")) refuse_count(met, function, opened);
    close_parenthesis(opened);
    return builder_.call(function, std::move(arguments), met.offset);
  }

  FormulaBuilder::Argument argument(ArgumentKind kind, const FunctionEntry& function) {
    if (kind == ArgumentKind::Group) return {{}, group()};
    FormulaPart part = choice();
    const std::size_t offset = part.offset;
    if (kind == ArgumentKind::Data) return {std::move(part), {}};
    Value setting = kind == ArgumentKind::Days ? builder_.window(part)
                                               : builder_.number_setting(part, function);
    return {{{}, 0.0, {1, 1}, offset}, std::move(setting)};
  }

  Value group() {
    const FormulaToken met = token();
    if (met.kind == TokenKind::Name) {
      // As in IndClass.sector.
      constexpr std::string_view kPrefix = "indclass.";
      const std::string word = in_lower_case(met.text);
      const std::string* found = vocabulary_.find_group(met.text);
      if (found == nullptr) {
        const std::string_view name = word;
        found = vocabulary_.find_group(name.substr(name.starts_with(kPrefix) ? kPrefix.size() : 0));
      }
      tokens_.advance();
      if (found != nullptr) return make_graph_node(*found, kGroupType, genetic::List());
    }
    const NameProblem problem = problem_of_group(met.text, vocabulary_);
    tokens_.refuse(met.offset, problem.problem, problem.remedy);
  }

  [[noreturn]] void refuse_count(const FormulaToken& met, const FunctionEntry& function,
                                 std::size_t opened) {
    if (token().kind == TokenKind::End) close_parenthesis(opened);
    if (!token().is_sign(")") && !token().is_sign(",")) refuse_more();
    const bool is_more = token().is_sign(",");
    tokens_.refuse(is_more ? token().offset : met.offset,
                   std::string(function.name) + " takes " + std::to_string(function.child_count()) +
                       (function.child_count() == 1 ? " argument" : " arguments") +
                       (is_more ? ", and here is one more" : ", and some are missing"),
                   "write " + call_text(function));
  }

  // `function` is the one that the name stands for with another number of arguments, if any.
  FormulaPart called_short_form(const FormulaToken& met, const std::string& word,
                                const FunctionEntry* function) {
    const std::size_t opened = token().offset;
    tokens_.advance();
    std::vector<FormulaPart> parts;
    do {
      parts.push_back(choice());
    } while (take_sign(","));
    close_parenthesis(opened);
    if (const Abbreviation* const short_form = find_abbreviation(word, parts.size())) {
      return expanded(*short_form, parts, met.offset);
    }
    if (function != nullptr && function->child_count() == 1 && parts.size() == 1) {
      return builder_.operation(function->name, parts, met.offset);
    }
    const NameProblem problem = problem_of_count(word, parts.size());
    tokens_.refuse(met.offset, problem.problem, problem.remedy);
  }

  const Vocabulary& vocabulary_;
  const GraphLimits& limits_;
  FormulaTokens tokens_;
  FormulaBuilder builder_;
  std::vector<Binding> bindings_;
  int nesting_ = 0;
};

}  // namespace

Value parse_formula(std::string_view text, const Vocabulary& vocabulary, const GraphLimits& limits,
                    std::size_t first_line) {
  return FormulaParser(text, vocabulary, limits, first_line).graph();
}

}  // namespace varnholt::embedded
