// What an evaluation costs: processor nanoseconds for each function of the vocabulary, and for each
// of a list of expressions, on a panel of made-up prices; with a digest of the values, so that two
// builds can be compared bit for bit.
//
//   bench_evaluator draw COUNT
//       writes random expressions; expressions.txt holds what COUNT = 200 gave
//   bench_evaluator functions INSTRUMENTS DAYS [FOLDER]
//   bench_evaluator expressions INSTRUMENTS DAYS FILE [FOLDER]
//       measures, and writes one JSON object a line; with a folder also the values, as files of raw
//       doubles, column by column, for compare_with_peers.py
//   bench_evaluator memory
//       writes the speed of a triad a[i] = b[i] + s c[i], in bytes a nanosecond
//
// Times are the least of several turns, divided by the cells of the panel.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/system/digest.hpp"
#include "hosts/embedded/system/memory_advice.hpp"
#include "hosts/embedded/vocabulary/canonical_form.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"
#include "hosts/embedded/vocabulary/mapped.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "tests/hosts/embedded/synthetic_universe.hpp"

namespace varnholt::embedded {
namespace {

constexpr int kSeed = 17;
constexpr double kLeastKnownShare = 0.8;
constexpr int kTurns = 3;
constexpr double kShortestNanoseconds = 3e7;  // Of all turns of a function together.
constexpr std::array<Eigen::Index, 5> kWindows = {2, 3, 5, 20, 120};
// A small universe is one of chosen companies, whose histories are whole; a large one has gaps.
constexpr Eigen::Index kFewInstruments = 50;
constexpr std::string_view kSector = "sector";
constexpr int kSectors = 11;

MarketData market_of(Eigen::Index instruments, Eigen::Index days) {
  test::SyntheticUniverseOptions options;
  options.instruments = instruments;
  options.days = days;
  if (instruments < kFewInstruments) options.late_start_share = options.gap_share = 0.0;
  MarketData data = test::make_synthetic_universe(options);
  GroupPanel sectors(days, instruments);
  for (Eigen::Index column = 0; column < instruments; ++column)
    sectors.col(column).setConstant(static_cast<int>(column) % kSectors);
  data.groups.emplace(kSector, std::move(sectors));
  return data;
}

Evaluator evaluator_of(Eigen::Index instruments, Eigen::Index days) {
  EvaluatorOptions options;
  options.book.delay_days = 1;
  options.book.least_known_share = kLeastKnownShare;
  if (instruments >= kLeastNeutralInstruments) options.book.neutralize = kNeutralizeMarket;
  return Evaluator(market_of(instruments, days), options);
}

double processor_nanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double nanoseconds_of(const std::function<void()>& work) {
  const double start = processor_nanoseconds();
  work();
  return processor_nanoseconds() - start;
}

double least_nanoseconds(const std::function<void()>& work) {
  double least = std::numeric_limits<double>::infinity();
  double all = 0.0;
  for (int turn = 0; turn < kTurns || all < kShortestNanoseconds; ++turn) {
    const double passed = nanoseconds_of(work);
    least = std::min(least, passed);
    all += passed;
  }
  return least;
}

// Every unknown value has the same bits here, as a reader cannot tell one from another.
std::string digest_of(Panel values) {
  values = values.isNaN().select(std::numeric_limits<double>::quiet_NaN(), values);
  const auto bytes = static_cast<std::size_t>(values.size()) * sizeof(double);
  return sha256_hex({reinterpret_cast<const char*>(values.data()), bytes}).substr(0, 16);
}

// Writes panels into a folder, or nowhere where it has no name.
class ValueFiles {
 public:
  explicit ValueFiles(std::string folder) : folder_(std::move(folder)) {}

  void write(const std::string& name, const Panel& panel) const {
    if (folder_.empty()) return;
    const std::string path = folder_ + "/" + name + ".f64";
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(panel.data()),
               static_cast<std::streamsize>(panel.size()) * std::streamsize{sizeof(double)});
    file.close();
    if (!file)
      throw std::runtime_error(path +
                               " cannot be written; name a folder that is there and has room");
  }

  void write_columns(const MarketData& data) const {
    write("close", data.close);
    for (const NamedPanel& named : kOptionalPanels) {
      if (const auto& panel = data.*named.panel) write(std::string(named.name), *panel);
    }
  }

 private:
  std::string folder_;
};

// A function with the arguments that it is measured with: returns, ranges of the day, closes.
struct FunctionCall {
  const FunctionEntry& entry;
  const FeaturePanels& features;
  Window window;

  [[nodiscard]] const Panel& x() const { return *features.find("returns"); }
  [[nodiscard]] const Panel& y() const { return *features.find("range"); }
  [[nodiscard]] const Panel& z() const { return *features.find("close"); }
  [[nodiscard]] double number() const { return entry.range.drawn[1]; }

  Panel operator()(ElementFunction f) const { return mapped(f, std::array{&x(), &y(), &z()}); }
  Panel operator()(OnePanelFunction f) const { return f(x()); }
  Panel operator()(WindowFunction f) const { return f(x(), window); }
  Panel operator()(TwoPanelWindowFunction f) const { return f(x(), y(), window); }
  Panel operator()(NumberFunction f) const { return f(x(), number()); }
  Panel operator()(NumberWindowFunction f) const { return f(x(), number(), window); }
  Panel operator()(GroupFunction f) const { return f(x(), features.group(std::string(kSector))); }
};

void measure_functions(Eigen::Index instruments, Eigen::Index days, const ValueFiles& files) {
  MarketData data = market_of(instruments, days);
  files.write_columns(data);
  const FeaturePanels features(std::move(data));
  const auto cells = static_cast<double>(instruments * days);
  for (const FunctionEntry& entry : features.vocabulary().functions) {
    for (const Eigen::Index window : kWindows) {
      const FunctionCall call{entry, features, Window(window, kLeastKnownShare)};
      Panel result;
      // A peer that is called again and again has one panel to write: so has this.
      const double nanoseconds = least_nanoseconds([&] {
        result.resize(0, 0);
        result = std::visit(call, entry.function);
      });
      std::string name(entry.name);
      if (entry.needs_window()) name += "_" + std::to_string(window);
      std::printf("{\"function\": \"%s\", \"nanoseconds\": %.4f, \"digest\": \"%s\"}\n",
                  name.c_str(), nanoseconds / cells, digest_of(result).c_str());
      files.write(name, result);
      if (!entry.needs_window()) break;
    }
  }
}

std::string text_of(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(path + " cannot be read; name a file of expressions");
  return {std::istreambuf_iterator<char>(file), {}};
}

void measure_expressions(Eigen::Index instruments, Eigen::Index days, const std::string& path,
                         const ValueFiles& files) {
  files.write_columns(market_of(instruments, days));
  const Evaluator evaluator = evaluator_of(instruments, days);
  const auto cells = static_cast<double>(instruments * days);
  const std::string text = text_of(path);
  const std::vector<FormulaLine> texts = formula_lines(text);
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const Expression expression =
        evaluator.compile(parse_formula(texts[i].text, evaluator.vocabulary()));
    Panel signal;
    Panel weights;
    BacktestResult result;
    double of_signal = std::numeric_limits<double>::infinity();
    double of_weights = of_signal;
    double of_backtest = of_signal;
    for (int turn = 0; turn < kTurns; ++turn) {
      of_signal =
          std::min(of_signal, nanoseconds_of([&] { signal = evaluator.signal(expression); }));
      Panel given = signal;  // The weights are made in its place.
      of_weights = std::min(of_weights,
                            nanoseconds_of([&] { weights = evaluator.weights(std::move(given)); }));
      of_backtest = std::min(of_backtest, nanoseconds_of([&] {
                               result = backtest_weights(weights, evaluator.close(),
                                                         evaluator.options().book);
                             }));
    }
    const Panel net = result.net_returns;
    std::printf(
        "{\"expression\": %zu, \"nodes\": %zu, \"signal\": %.4f, \"weights\": %.4f, "
        "\"backtest\": %.4f, \"sharpe\": %.17g, \"digest\": \"%s\", \"net_digest\": \"%s\"}\n",
        i, expression.shape.node_count, of_signal / cells, of_weights / cells, of_backtest / cells,
        result.statistics.sharpe, digest_of(signal).c_str(), digest_of(net).c_str());
    files.write("expression_" + std::to_string(i), signal);
  }
}

// Breaks a formula behind commas; a line that begins with a blank goes on with the one before it.
std::string in_lines(const std::string& formula) {
  constexpr std::size_t kLongest = 100;
  std::string lines;
  std::size_t begin = 0;
  while (formula.size() - begin > kLongest) {
    const std::size_t end = formula.rfind(' ', begin + kLongest - 2);
    lines.append(formula, begin, end - begin).append("\n");
    begin = end;
  }
  return lines.append(formula, begin);
}

void draw_expressions(std::size_t count) {
  constexpr Eigen::Index kInstruments = 2;
  constexpr Eigen::Index kDays = 10;
  const Evaluator evaluator = evaluator_of(kInstruments, kDays);
  genetic::TwisterGenerators generators;
  const auto generator = generators.seeded(genetic::Value(kSeed));
  RandomGraphOptions options;
  options.keeps_units = true;
  for (std::size_t i = 0; i < count; ++i) {
    const genetic::Value graph = random_graph(*generator, evaluator.vocabulary(), options);
    std::puts(in_lines(expression_text(canonical_form(graph, evaluator.vocabulary()))).c_str());
  }
}

void measure_memory() {
  constexpr Eigen::Index kEntries = 20'000'000;
  constexpr double kBytes = 3.0 * 8.0 * static_cast<double>(kEntries);
  constexpr double kFactor = 3.0;
  const Eigen::ArrayXd b = Eigen::ArrayXd::Constant(kEntries, 1.0);
  const Eigen::ArrayXd c = Eigen::ArrayXd::Constant(kEntries, 2.0);
  Eigen::ArrayXd a = Eigen::ArrayXd::Zero(kEntries);
  const double nanoseconds = least_nanoseconds([&] { a = b + kFactor * c; });
  std::printf("{\"triad_bytes_a_nanosecond\": %.4f, \"last\": %g}\n", kBytes / nanoseconds,
              a(kEntries - 1));
}

// As a worker of a search does before it evaluates.
void keep_panels(Eigen::Index instruments, Eigen::Index days) {
  keep_freed_panels(static_cast<std::size_t>(instruments * days) * sizeof(double));
}

int run(const std::vector<std::string>& words) {
  const auto size = [&](std::size_t place) {
    return static_cast<Eigen::Index>(std::stol(words.at(place)));
  };
  const auto folder = [&](std::size_t place) {
    return ValueFiles(words.size() > place ? words[place] : std::string());
  };
  const std::string part = words.empty() ? std::string() : words.front();
  if (part == "draw" && words.size() == 2) {
    draw_expressions(static_cast<std::size_t>(size(1)));
  } else if (part == "functions" && words.size() >= 3) {
    keep_panels(size(1), size(2));
    measure_functions(size(1), size(2), folder(3));
  } else if (part == "expressions" && words.size() >= 4) {
    keep_panels(size(1), size(2));
    measure_expressions(size(1), size(2), words[3], folder(4));
  } else if (part == "memory") {
    measure_memory();
  } else {
    throw std::invalid_argument(
        "say draw COUNT, functions INSTRUMENTS DAYS [FOLDER], expressions INSTRUMENTS DAYS FILE "
        "[FOLDER], or memory");
  }
  return 0;
}

}  // namespace
}  // namespace varnholt::embedded

int main(int argc, char** argv) {
  try {
    return varnholt::embedded::run({argv + 1, argv + argc});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_evaluator: %s\n", error.what());
    return 2;
  }
}
