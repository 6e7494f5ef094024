// Goal: every end of a search has its exit code, its text, and its place where that text goes.
// Method: searches that throw, with the standard descriptors going into files.
#include "apps/genetic_search/run_command.hpp"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "apps/genetic_search/error_report.hpp"
#include "apps/genetic_search/exit_codes.hpp"
#include "apps/genetic_search/program.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/config/host_config_error.hpp"
#include "hosts/embedded/market/price_file_error.hpp"
#include "hosts/embedded/search/signal_export.hpp"
#include "hosts/embedded/store/sqlite_database.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "tests/apps/genetic_search/samples.hpp"

namespace varnholt::app::test {
namespace {

using embedded::InterruptFlag;
using embedded::SearchObserver;
using embedded::SearchOptions;
using embedded::SearchSummary;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;

// A standard descriptor that goes into a file for as long as this lives.
class Redirected {
 public:
  Redirected(int descriptor, const std::string& path) : descriptor_(descriptor), path_(path) {
    saved_ = dup(descriptor);
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (saved_ < 0 || file < 0 || dup2(file, descriptor) < 0) throw std::runtime_error("no file");
    close(file);
  }
  ~Redirected() {
    dup2(saved_, descriptor_);
    close(saved_);
  }
  Redirected(const Redirected&) = delete;
  Redirected& operator=(const Redirected&) = delete;

  [[nodiscard]] std::string text() const {
    std::ifstream file(path_);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }

 private:
  int descriptor_;
  std::string path_;
  int saved_;
};

struct Ended {
  int exit_code;
  std::string text;
  std::string errors;
};

Ended run(const RunSearch& search, const std::vector<std::string>& more = {},
          const std::string& text_path = {}) {
  const std::string stem =
      std::filesystem::temp_directory_path() / ("genetic-search-test-" + std::to_string(getpid()));
  std::vector<std::string> arguments = {"run", "--prices", "p.csv", "--db", "d.db"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  Ended ended;
  {
    const Redirected text(STDOUT_FILENO, text_path.empty() ? stem + ".out" : text_path);
    const Redirected errors(STDERR_FILENO, stem + ".err");
    ended.exit_code = run_program(arguments, search);
    if (text_path.empty()) ended.text = text.text();
    ended.errors = errors.text();
  }
  std::filesystem::remove(stem + ".out");
  std::filesystem::remove(stem + ".err");
  return ended;
}

template <typename Error>
RunSearch throwing(const Error& error, bool after_start) {
  return [error, after_start](const SearchOptions&, SearchObserver& observer,
                              const InterruptFlag&) -> SearchSummary {
    if (after_start) observer.on_started(samples::started());
    throw error;
  };
}

SearchSummary succeed(const SearchOptions& /*options*/, SearchObserver& observer,
                      const InterruptFlag& /*interrupt*/) {
  observer.on_started(samples::started());
  return samples::summary();
}

template <typename Error>
class InputErrors : public ::testing::Test {
 public:
  static Error make() {
    if constexpr (std::is_same_v<Error, embedded::PriceFileError>) {
      return {{"p.csv", 3, 2, "close", "abc"}, "is no number", "correct it"};
    } else if constexpr (std::is_same_v<Error, embedded::StoreError>) {
      return {"d.db", "is no store", "name another"};
    } else if constexpr (std::is_same_v<Error, embedded::HostConfigError>) {
      return {{"c.toml", 4, 16, "gates.turnover_max", "3.5"}, "is out of range", "write another"};
    } else {
      return Error("p.csv is wrong; correct it");
    }
  }
};

using InputErrorKinds =
    ::testing::Types<UsageError, embedded::PriceFileError, embedded::StoreError, genetic::TypeError,
                     genetic::ValueError, std::invalid_argument, embedded::HostConfigError,
                     embedded::ExportError>;
TYPED_TEST_SUITE(InputErrors, InputErrorKinds);

TYPED_TEST(InputErrors, AreBadInputBeforeTheSearchBegins) {
  const Ended ended = run(throwing(TestFixture::make(), false));
  EXPECT_EQ(ended.exit_code, kExitBadInput);
  EXPECT_EQ(ended.text, "");
  EXPECT_EQ(ended.errors, "genetic-search: " + std::string(TestFixture::make().what()) + "\n");
}

TYPED_TEST(InputErrors, AreFailuresOnceItHasBegun) {
  EXPECT_EQ(run(throwing(TestFixture::make(), true)).exit_code, kExitFailure);
}

TEST(RunCommand, TellsAnyOtherErrorAsAFailure) {
  const Ended ended = run(throwing(std::runtime_error("broken"), false));
  EXPECT_EQ(ended.exit_code, kExitFailure);
  EXPECT_EQ(ended.errors, "genetic-search: broken\n");
}

TEST(RunCommand, EndsWith130AtTheSecondInterrupt) {
  const Ended ended = run(throwing(embedded::InterruptedAtOnce(), true));
  EXPECT_EQ(ended.exit_code, kExitInterrupted);
  EXPECT_EQ(ended.errors,
            "genetic-search: ended at once; what was recorded until then is in d.db\n");
}

TEST(RunCommand, TellsThatNothingIsStoredWhenItIsInterruptedBeforeTheRun) {
  const Ended ended = run(throwing(embedded::InterruptedAtOnce(), false));
  EXPECT_EQ(ended.exit_code, kExitInterrupted);
  EXPECT_EQ(ended.errors, "genetic-search: ended before the run began; nothing was stored\n");
}

// Whatever the search does: a phase that never looks for an interrupt is left as a kill leaves it.
TEST(RunCommand, IsOverSecondsAfterTheSecondInterruptThoughNobodyLooksForIt) {
  const pid_t child = fork();
  if (child == 0) {
    const auto never_ends = [](const SearchOptions&, SearchObserver&,
                               const InterruptFlag&) -> SearchSummary {
      raise(SIGINT);
      raise(SIGINT);
      while (true)
        pause();
    };
    _exit(run_program({"run", "--prices", "p.csv", "--db", "d.db"}, never_ends));
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), kExitInterrupted);
}

TEST(RunCommand, EndsWith130AlsoWhenTheSearchDidNotSeeTheSecondInterrupt) {
  const Ended ended = run(
      [](const SearchOptions& options, SearchObserver& observer, const InterruptFlag& interrupt) {
        raise(SIGINT);
        raise(SIGINT);
        return succeed(options, observer, interrupt);
      });
  EXPECT_EQ(ended.exit_code, kExitInterrupted);
}

TEST(RunCommand, TellsTheEnd) {
  const Ended ended = run(succeed);
  EXPECT_EQ(ended.exit_code, kExitDone);
  EXPECT_THAT(ended.text, AllOf(HasSubstr("prices  prices.csv"), EndsWith("was reached.\n")));
  EXPECT_EQ(ended.errors, "");
}

TEST(RunCommand, HandsTheOptionsToTheSearch) {
  SearchOptions given;
  const Ended ended = run(
      [&given](const SearchOptions& options, SearchObserver& observer,
               const InterruptFlag& interrupt) {
        given = options;
        return succeed(options, observer, interrupt);
      },
      {"--generations", "3", "--json"});
  EXPECT_EQ(given.generations, 3);
  EXPECT_EQ(given.prices, "p.csv");
  EXPECT_FALSE(given.config.gates.min_sharpe.has_value()) << "it is made of the days";
  EXPECT_THAT(ended.text, HasSubstr("\n{\"event\":\"metrics\""));
}

TEST(RunCommand, HandsTheConfigurationToTheSearch) {
  const std::string path = std::filesystem::temp_directory_path() /
                           ("genetic-search-config-" + std::to_string(getpid()) + ".toml");
  std::ofstream(path) << "[gates]\nsharpe_min = 1.5\nturnover_max = 0.5\n[market]\nid = 4\n";
  embedded::HostConfig given;
  const Ended ended = run(
      [&given](const SearchOptions& options, SearchObserver& observer,
               const InterruptFlag& interrupt) {
        given = options.config;
        return succeed(options, observer, interrupt);
      },
      {"--config", path, "--max-turnover", "0.25", "--pool", "mine", "--era", "2"});
  std::filesystem::remove(path);
  EXPECT_EQ(ended.exit_code, kExitDone) << ended.errors;
  EXPECT_EQ(given.gates.min_sharpe, 1.5);
  EXPECT_EQ(given.gates.max_turnover, 0.25);
  EXPECT_EQ(given.market_id, 4);
  EXPECT_EQ(given.pool.name, "mine");
  EXPECT_EQ(given.eras.era, 2);
}

TEST(RunCommand, RefusesAConfigurationBeforeItSearches) {
  const RunSearch never = [](const SearchOptions&, SearchObserver&,
                             const InterruptFlag&) -> SearchSummary {
    throw std::runtime_error("the search was begun");
  };
  const Ended missing = run(never, {"--config", "/nowhere/c.toml"});
  EXPECT_EQ(missing.exit_code, kExitBadInput);
  EXPECT_THAT(missing.errors, HasSubstr("/nowhere/c.toml: "));
  const Ended era = run(never, {"--era", "4"});
  EXPECT_EQ(era.exit_code, kExitBadInput);
  EXPECT_THAT(era.errors, HasSubstr("--era 4 is beyond the 3 train eras"));
}

TEST(RunCommand, FailsWithoutAMetricsRecord) {
  const Ended ended = run([](const SearchOptions&, SearchObserver&, const InterruptFlag&) {
    SearchSummary summary = samples::summary();
    summary.metrics = genetic::Value();
    return summary;
  });
  EXPECT_EQ(ended.exit_code, kExitFailure);
  EXPECT_THAT(ended.errors, HasSubstr("without a metrics record"));
}

TEST(RunCommand, EndsTheSearchInGoodOrderWhenItsOutputIsLost) {
  int requests = 0;
  const Ended ended = run(
      [&requests](const SearchOptions& options, SearchObserver& observer,
                  const InterruptFlag& interrupt) {
        SearchSummary summary = succeed(options, observer, interrupt);
        requests = interrupt.requests;
        return summary;
      },
      {}, "/dev/full");
  EXPECT_EQ(requests, 1);
  EXPECT_EQ(ended.exit_code, kExitFailure);
  EXPECT_THAT(ended.errors, HasSubstr("cannot write to standard output: No space left"));
}

TEST(ErrorReport, TellsTheCausesBehindAnError) {
  try {
    try {
      throw std::runtime_error("the disk is full");
    } catch (...) {
      std::throw_with_nested(std::runtime_error("the end was not stored"));
    }
  } catch (const std::exception& error) {
    EXPECT_EQ(error_text(error), "the end was not stored: the disk is full");
  }
}

TEST(ErrorReport, HasAWordForAnErrorWithoutAText) {
  EXPECT_EQ(error_text(std::runtime_error("")), "an error without a text");
}

}  // namespace
}  // namespace varnholt::app::test
