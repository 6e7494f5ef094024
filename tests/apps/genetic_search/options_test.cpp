// Goal: each argument reaches its setting, and each mistake is an error with its name and remedy.
// Method: command lines given as words.
#include "apps/genetic_search/options.hpp"

#include <sstream>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/genetic_search/usage_error.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::app::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using Words = std::vector<std::string>;

RunCommand parse_run(Words words) {
  words.insert(words.begin(), "run");
  return std::get<RunCommand>(parse_command_line(words));
}

std::string usage_error(const Words& words) {
  try {
    static_cast<void>(parse_command_line(words));
  } catch (const UsageError& error) {
    return error.what();
  }
  return "no error";
}

std::string shown_text(const Words& words) {
  return std::get<ShowText>(parse_command_line(words)).text;
}

TEST(Options, LeaveTheHostsDefaults) {
  const RunCommand run = parse_run({"--prices", "p.csv"});
  const embedded::SearchOptions defaults;
  EXPECT_EQ(run.search.prices, "p.csv");
  EXPECT_EQ(run.search.database, kDefaultDatabase);
  EXPECT_EQ(run.search.jobs, std::nullopt);
  EXPECT_FALSE(run.search.batch_size.has_value());
  EXPECT_EQ(run.search.generations, std::nullopt);
  EXPECT_EQ(run.search.candidates, std::nullopt);
  EXPECT_EQ(run.search.seconds, std::nullopt);
  EXPECT_EQ(run.search.seed, std::nullopt);
  EXPECT_EQ(run.search.worker_memory_limit_bytes, std::nullopt);
  EXPECT_EQ(run.search.graphs.max_depth, defaults.graphs.max_depth);
  EXPECT_EQ(run.config_file, std::nullopt);
  for (const auto& [option, threshold] : run.overrides.thresholds)
    EXPECT_EQ(threshold, std::nullopt) << option;
  EXPECT_EQ(run.overrides.era, std::nullopt);
  EXPECT_EQ(run.overrides.pool_name, std::nullopt);
  EXPECT_EQ(run.search.timeout_seconds, defaults.timeout_seconds);
  EXPECT_EQ(run.search.best_count, kDefaultBestCount);
  EXPECT_FALSE(run.json);
  EXPECT_FALSE(run.quiet);
}

TEST(Options, ReachTheirSettings) {
  const RunCommand run = parse_run(
      {"--prices=p.csv", "--db=d.db", "--jobs=3", "--batch-size=64", "--generations=4",
       "--candidates=5", "--seconds=6.5", "--seed=9223372036854775807", "--max-depth=7",
       "--max-nodes=8", "--max-window=9", "--cost-bps=1.5", "--timeout=2.5", "--worker-memory=2",
       "--isolation=chunk", "--nice=19", "--best=0", "--json", "--quiet"});
  EXPECT_EQ(run.search.database, "d.db");
  EXPECT_EQ(run.search.jobs, 3);
  EXPECT_EQ(run.search.batch_size->integer(), 64);
  EXPECT_EQ(run.search.generations, 4);
  EXPECT_EQ(run.search.candidates, 5);
  EXPECT_EQ(run.search.seconds, 6.5);
  EXPECT_EQ(run.search.seed, 9223372036854775807U);
  EXPECT_EQ(run.search.graphs.max_depth, 7);
  EXPECT_EQ(run.search.graphs.max_nodes, 8U);
  EXPECT_EQ(run.search.graphs.max_window, 9);
  EXPECT_EQ(run.search.cost_basis_points, 1.5);
  EXPECT_EQ(run.search.timeout_seconds, 2.5);
  EXPECT_EQ(run.search.worker_memory_limit_bytes, 2 * 1024 * 1024);
  EXPECT_EQ(run.search.isolation, embedded::Isolation::Chunk);
  EXPECT_EQ(parse_run({"--prices=p", "--isolation=candidate"}).search.isolation,
            embedded::Isolation::Candidate);
  EXPECT_EQ(run.search.worker_nice, 19);
  EXPECT_EQ(run.search.best_count, 0);
  EXPECT_TRUE(run.json);
  EXPECT_TRUE(run.quiet);
}

TEST(Options, ReachTheirGates) {
  const std::map<std::string_view, std::optional<double>> gates =
      parse_run({"--prices=p", "--min-sharpe", "-1", "--min-gross-sharpe=0.2", "--max-turnover=0.3",
                 "--max-weight=0.4", "--max-net-exposure=0.5", "--min-gross-exposure=0.6"})
          .overrides.thresholds;
  EXPECT_EQ(gates.at("--min-sharpe"), -1.0);
  EXPECT_EQ(gates.at("--min-gross-sharpe"), 0.2);
  EXPECT_EQ(gates.at("--max-turnover"), 0.3);
  EXPECT_EQ(gates.at("--max-weight"), 0.4);
  EXPECT_EQ(gates.at("--max-net-exposure"), 0.5);
  EXPECT_EQ(gates.at("--min-gross-exposure"), 0.6);
}

TEST(Options, ReachTheLimitsOfRepairs) {
  const RunCommand defaults = parse_run({"--prices=p"});
  EXPECT_FALSE(defaults.search.max_improvement_candidates.has_value());
  EXPECT_FALSE(defaults.search.max_improvement_rounds.has_value());
  EXPECT_FALSE(defaults.search.max_improvement_depth.has_value());
  const RunCommand run =
      parse_run({"--prices=p", "--repairs=0", "--repair-rounds=2", "--repair-depth=3"});
  EXPECT_EQ(run.search.max_improvement_candidates->integer(), 0);
  EXPECT_EQ(run.search.max_improvement_rounds->integer(), 2);
  EXPECT_EQ(run.search.max_improvement_depth->integer(), 3);
  EXPECT_THROW(static_cast<void>(parse_run({"--prices=p", "--repairs=-1"})), UsageError);
}

TEST(Options, ReachTheConfiguration) {
  const RunCommand run =
      parse_run({"--prices=p", "--config", "c.toml", "--era", "2", "--pool", "mine"});
  EXPECT_EQ(run.config_file, "c.toml");
  EXPECT_EQ(run.overrides.era, 2);
  EXPECT_EQ(run.overrides.pool_name, "mine");
}

TEST(Options, HandTheTemplatesSettingsOnAsTexts) {
  const RunCommand run =
      parse_run({"--prices=p", "--elite-fraction=0.5", "--diversity-weight=-7",
                 "--parsimony-weight=-1", "--restart-threshold=3",
                 "--operator-rates=crossover=0.4,hoist_mutation=0", "--seeds=seeds.json"});
  EXPECT_EQ(run.search.elite_fraction->text(), "0.5");
  EXPECT_EQ(run.search.diversity_weight->text(), "-7");  // The template refuses it.
  EXPECT_EQ(run.search.parsimony_weight->text(), "-1");
  EXPECT_EQ(run.search.restart_threshold->integer(), 3);
  EXPECT_EQ(genetic::repr(*run.search.operator_rates),
            "{'crossover': '0.4', 'hoist_mutation': '0'}");
  EXPECT_EQ(run.search.seeds, "seeds.json");
}

TEST(Options, RefuseRatesOfAnotherForm) {
  for (const char* rates : {"crossover", "crossover=", "=0.4", "crossover=0.4,", "",
                            "crossover=\u0660.\u0665", "crossover=1_0", "crossover=abc"}) {
    EXPECT_THROW(static_cast<void>(parse_run({"--prices=p", "--operator-rates", rates})),
                 UsageError)
        << rates;
  }
}

// The template's conversion would take digits of any script.
TEST(Options, ReadDigitsOfAsciiOnly) {
  for (const char* text :
       {"\u0660.\u0665", "\uff11", "1_0", " 1", "1 ", "0x1", "", "abc", "1e400"}) {
    for (const char* name : {"--elite-fraction", "--diversity-weight", "--parsimony-weight",
                             "--seconds", "--batch-size", "--jobs", "--seed"}) {
      EXPECT_THROW(static_cast<void>(parse_run({"--prices=p", name, text})), UsageError)
          << name << " " << text;
    }
  }
}

TEST(Options, GraphsMayBeAsLargeAsAnEvaluatorTakesThem) {
  EXPECT_EQ(
      parse_run({"--prices=p", "--max-nodes=1000", "--max-depth=100"}).search.graphs.max_nodes,
      1000U);
  EXPECT_THROW(static_cast<void>(parse_run({"--prices=p", "--max-nodes=1001"})), UsageError);
  EXPECT_THROW(static_cast<void>(parse_run({"--prices=p", "--max-depth=101"})), UsageError);
}

TEST(Options, ReadNumbersAsDecimal) {
  EXPECT_EQ(parse_run({"--prices=p", "--jobs=010"}).search.jobs, 10);
  EXPECT_EQ(parse_run({"--prices=p", "--jobs=+2"}).search.jobs, 2);
  EXPECT_EQ(parse_run({"--prices=p", "--seconds=1e-3"}).search.seconds, 0.001);
}

TEST(Options, LetTheLastOfARepeatedOneCount) {
  EXPECT_EQ(parse_run({"--prices=p", "--seed=1", "--seed=2"}).search.seed, 2U);
}

TEST(Options, NameSeveralPriceFiles) {
  embedded::PriceSource both("p");
  both.add("q");
  EXPECT_EQ(parse_run({"--prices=p", "--prices=q", "--seed=1"}).search.prices, both);
  EXPECT_EQ(parse_run({"--prices", "p", "q", "--seed=1"}).search.prices, both);
  const auto eval = std::get<EvalCommand>(
      parse_command_line({"eval", "--prices", "p", "close", "--prices", "q", "open"}));
  EXPECT_EQ(eval.search.prices, both);
  EXPECT_EQ(eval.formulas, (Words{"close", "open"}));
  const auto check = std::get<CheckPricesCommand>(parse_command_line({"check-prices", "p", "q"}));
  EXPECT_EQ(check.prices, both);
  EXPECT_THROW(static_cast<void>(parse_run({"--prices="})), UsageError);
}

struct Mistake {
  Words words;
  const char* told;
};

class OptionMistakes : public ::testing::TestWithParam<Mistake> {};

TEST_P(OptionMistakes, AreToldWithNameAndRemedy) {
  const std::string text = usage_error(GetParam().words);
  EXPECT_THAT(text, HasSubstr(GetParam().told));
  EXPECT_THAT(text, HasSubstr("--help"));
}

INSTANTIATE_TEST_SUITE_P(
    All, OptionMistakes,
    ::testing::Values(
        Mistake{{}, "no command is given"}, Mistake{{"bogus"}, "unknown argument \"bogus\""},
        Mistake{{"run"}, "name one with --prices FILE"},
        Mistake{{"run", "--prices"}, "--prices: 1 required FILE missing"},
        Mistake{{"run", "--prices="}, "--prices"},
        Mistake{{"run", "--prices", ""}, "--prices wants the name of a file"},
        Mistake{{"run", "--prices=p", "--bogus"}, "unknown argument \"--bogus\""},
        Mistake{{"run", "--prices=p", "--seed=1", "extra"}, "unknown argument \"extra\""},
        Mistake{{"run", "--prices=p", "--jobs=0"},
                "--jobs wants a whole number from 1 to 4096, not \"0\""},
        Mistake{{"run", "--prices=p", "--isolation=none"},
                "--isolation wants candidate or chunk, not \"none\""},
        Mistake{{"run", "--prices=p", "--jobs=2.5"}, "--jobs wants a whole number"},
        Mistake{{"run", "--prices=p", "--jobs=0x10"}, "--jobs wants a whole number"},
        Mistake{{"run", "--prices=p", "--generations=0"},
                "--generations wants a whole number from 1, not \"0\""},
        Mistake{{"run", "--prices=p", "--candidates=-1"}, "--candidates wants a whole number"},
        Mistake{{"run", "--prices=p", "--seed=9223372036854775808"}, "--seed wants a whole number"},
        Mistake{{"run", "--prices=p", "--seconds=0"},
                "--seconds wants a number above 0, not \"0\""},
        Mistake{{"run", "--prices=p", "--seconds=nan"}, "--seconds wants a number"},
        Mistake{{"run", "--prices=p", "--seconds=inf"}, "--seconds wants a number"},
        Mistake{{"run", "--prices=p", "--seconds=1s"}, "--seconds wants a number"},
        Mistake{{"run", "--prices=p", "--cost-bps=10001"},
                "--cost-bps wants a number from 0 to 10000, not \"10001\""},
        Mistake{{"run", "--prices=p", "--min-sharpe=high"},
                "--min-sharpe wants a number, not \"high\""},
        Mistake{{"run", "--prices=p", "--max-turnover=-0.1"}, "--max-turnover wants a number"},
        Mistake{{"run", "--prices=p", "--json=3"}, "json"},
        Mistake{{"run", "--prices=p", "--config", ""}, "--config wants the name of a file"},
        Mistake{{"run", "--prices=p", "--era=0"}, "--era wants a whole number from 1 to 1000"},
        Mistake{{"run", "--prices=p", "--pool", ""}, "--pool wants 1 to 100 printable ASCII"},
        Mistake{{"run", "--prices=p", "--pool", "caf\xc3\xa9"}, "--pool wants 1 to 100 printable"},
        Mistake{{"run", "--prices=p", "--pool", std::string(101, 'a')}, "--pool wants 1 to 100"},
        Mistake{{"signals"}, "name the file of --db after signals"},
        Mistake{{"signals", "a", "b"}, "unknown argument \"b\""},
        Mistake{
            {"signals", "a", "--sort", "luck"},
            "--sort wants one of sharpe, holdout, quality, return, turnover, drawdown, novelty, "
            "correlation, not \"luck\""},
        Mistake{{"signals", "a", "--run=0"}, "--run wants a whole number from 1, not \"0\""},
        Mistake{{"show"}, "name the file of --db after show"},
        Mistake{{"show", "a"}, "no id is given"}, Mistake{{"show", "a", "1-2", "c"}, "\"c\""},
        Mistake{{"export", "a"}, "no id is given"},
        Mistake{{"export", "a", "1-2"}, "name one with --weights FILE"},
        Mistake{{"export", "a", "1-2", "--weights", ""}, "--weights wants the name of a file"},
        Mistake{{"attempts"}, "name the file of --db after attempts"},
        Mistake{{"attempts", "a", "--limit", "0"}, "--limit wants a whole number from 1"},
        Mistake{{"replay", "a"}, "no attempt is given"},
        Mistake{{"replay", "a", "1-2"}, "ATTEMPT wants a whole number from 1"},
        Mistake{{"check-prices"}, "name it after check-prices"},
        Mistake{{"check-prices", "a", "--list=-1"}, "--list wants a whole number from 0"}));

TEST(Options, PointToThePageOfTheCommand) {
  EXPECT_THAT(usage_error({"run"}), HasSubstr("\"genetic-search run --help\""));
  EXPECT_THAT(usage_error({"check-prices"}), HasSubstr("\"genetic-search check-prices --help\""));
  EXPECT_THAT(usage_error({}), HasSubstr("\"genetic-search --help\""));
}

TEST(Options, ShowAMistakeOnOneShortLine) {
  const std::string text = usage_error({"run", "--jobs", std::string(1000, '7') + "\n\x1b[2J"});
  EXPECT_LT(text.size(), 200U);
  EXPECT_EQ(text.find('\n'), std::string::npos);
}

TEST(Options, TellWhatToCheck) {
  const auto check =
      std::get<CheckPricesCommand>(parse_command_line({"check-prices", "p.csv", "--list", "3"}));
  EXPECT_EQ(check.prices, "p.csv");
  EXPECT_EQ(check.list_limit, 3U);
}

TEST(Options, TellWhatToList) {
  const auto plain = std::get<SignalsCommand>(parse_command_line({"signals", "runs.db"}));
  EXPECT_EQ(plain.database, "runs.db");
  EXPECT_EQ(plain.run, std::nullopt);
  EXPECT_EQ(plain.pool, std::nullopt);
  EXPECT_FALSE(plain.all || plain.json);
  const auto all = std::get<SignalsCommand>(parse_command_line(
      {"signals", "runs.db", "--run", "3", "--pool", "mine", "--all", "--json"}));
  EXPECT_EQ(all.run, 3);
  EXPECT_EQ(all.pool, "mine");
  EXPECT_TRUE(all.all && all.json);
  EXPECT_EQ(plain.sort, std::nullopt);
  EXPECT_EQ(plain.limit, std::nullopt);
  const auto best = std::get<SignalsCommand>(
      parse_command_line({"signals", "runs.db", "--sort", "novelty", "--limit", "3", "--min-sharpe",
                          "-0.5", "--max-turnover", "0.2"}));
  EXPECT_EQ(best.sort, "novelty");
  EXPECT_EQ(best.limit, 3);
  EXPECT_EQ(best.bounds.find("sharpe")->second, -0.5);
  EXPECT_EQ(best.bounds.find("turnover")->second, 0.2);
  EXPECT_EQ(best.bounds.find("novelty")->second, std::nullopt);
}

TEST(Options, TellWhatToShow) {
  const auto show =
      std::get<ShowCommand>(parse_command_line({"show", "runs.db", "3-17", "--json"}));
  EXPECT_EQ(show.database, "runs.db");
  EXPECT_EQ(show.eval_id, "3-17");
  EXPECT_TRUE(show.json);
}

TEST(Options, TellWhatToExport) {
  const auto given = std::get<ExportCommand>(
      parse_command_line({"export", "runs.db", "3-17", "--weights", "w.csv"}));
  EXPECT_EQ(given.database, "runs.db");
  EXPECT_EQ(given.eval_id, "3-17");
  EXPECT_EQ(given.weights, "w.csv");
  EXPECT_EQ(given.prices, std::nullopt);
  EXPECT_FALSE(given.force);
  const auto forced = std::get<ExportCommand>(parse_command_line(
      {"export", "runs.db", "3-17", "--weights=w.csv", "--prices=p.csv", "--force"}));
  EXPECT_EQ(forced.prices, "p.csv");
  EXPECT_TRUE(forced.force);
}

TEST(Options, TellWhichAttemptsToList) {
  const auto plain = std::get<AttemptsCommand>(parse_command_line({"attempts", "runs.db"}));
  EXPECT_EQ(plain.database, "runs.db");
  EXPECT_EQ(plain.run, std::nullopt);
  EXPECT_EQ(plain.disposition, std::nullopt);
  EXPECT_EQ(plain.limit, std::nullopt);
  EXPECT_FALSE(plain.json);
  const auto all = std::get<AttemptsCommand>(parse_command_line(
      {"attempts", "runs.db", "--run=3", "--ended=open", "--limit=7", "--json"}));
  EXPECT_EQ(all.run, 3);
  EXPECT_EQ(all.disposition, "open");
  EXPECT_EQ(all.limit, 7);
  EXPECT_TRUE(all.json);
}

TEST(Options, TellWhatToReplay) {
  const auto replay = std::get<ReplayCommand>(
      parse_command_line({"replay", "runs.db", "42", "--prices=p.csv", "--json"}));
  EXPECT_EQ(replay.database, "runs.db");
  EXPECT_EQ(replay.attempt, 42);
  EXPECT_EQ(replay.prices, "p.csv");
  EXPECT_TRUE(replay.json);
}

TEST(Options, TellTheVersion) {
  EXPECT_THAT(shown_text({"--version"}), ::testing::MatchesRegex("genetic-search [0-9.]+\n"));
}

TEST(Options, HaveAHelpForEachCommand) {
  EXPECT_THAT(shown_text({"--help"}), AllOf(HasSubstr("run"), HasSubstr("check-prices")));
  EXPECT_THAT(shown_text({"check-prices", "--help"}), HasSubstr("check-prices FILE"));
  EXPECT_THAT(shown_text({"signals", "--help"}),
              AllOf(HasSubstr("Usage: genetic-search signals DB [options]"), HasSubstr("--run N"),
                    HasSubstr("--pool NAME"), HasSubstr("--all"), HasSubstr("--json")));
  EXPECT_THAT(shown_text({"show", "--help"}),
              AllOf(HasSubstr("Usage: genetic-search show DB ID [options]"), HasSubstr("--json")));
  EXPECT_THAT(shown_text({"export", "--help"}),
              AllOf(HasSubstr("Usage: genetic-search export DB ID --weights FILE [options]"),
                    HasSubstr("--prices FILE"), HasSubstr("--force"), HasSubstr("Exit codes")));
  EXPECT_THAT(shown_text({"attempts", "--help"}),
              AllOf(HasSubstr("Usage: genetic-search attempts DB [options]"), HasSubstr("--run N"),
                    HasSubstr("--ended HOW"), HasSubstr("--limit N"), HasSubstr("--json")));
  EXPECT_THAT(shown_text({"replay", "--help"}),
              AllOf(HasSubstr("Usage: genetic-search replay DB ATTEMPT [options]"),
                    HasSubstr("--prices FILE"), HasSubstr("--json"), HasSubstr("Exit codes")));
  const std::string help = shown_text({"run", "--help"});
  for (const char* option : {"--prices",
                             "--db",
                             "--generations",
                             "--candidates",
                             "--seconds",
                             "--batch-size",
                             "--seed",
                             "--max-depth",
                             "--max-nodes",
                             "--max-window",
                             "--cost-bps",
                             "--config",
                             "--era",
                             "--pool",
                             "--min-sharpe",
                             "--min-gross-sharpe",
                             "--max-turnover",
                             "--max-weight",
                             "--max-net-exposure",
                             "--min-gross-exposure",
                             "--jobs",
                             "--isolation",
                             "--timeout",
                             "--worker-memory",
                             "--nice",
                             "--best",
                             "--json",
                             "--quiet",
                             "--help"}) {
    EXPECT_THAT(help, HasSubstr(std::string(option))) << option;
  }
  const embedded::SearchOptions defaults;
  EXPECT_THAT(
      help,
      AllOf(HasSubstr(
                "Default: 2\n                             standard errors of the days searched."),
            HasSubstr(fmt::format("Default: {}.", defaults.graphs.max_depth)),
            HasSubstr("Exit codes")));
}

TEST(Options, HaveAHelpThatFitsAnOldTerminal) {
  for (const Words& words :
       {Words{"--help"}, Words{"run", "--help"}, Words{"check-prices", "--help"},
        Words{"signals", "--help"}, Words{"show", "--help"}, Words{"export", "--help"},
        Words{"attempts", "--help"}, Words{"replay", "--help"}}) {
    std::istringstream lines(shown_text(words));
    for (std::string line; std::getline(lines, line);)
      EXPECT_LE(line.size(), 80U) << line;
  }
}

TEST(Options, UnitsAreOnOrOff) {
  const auto units = [](Words words) {
    words.insert(words.begin(), {"run", "--prices", "p.csv"});
    return std::get<RunCommand>(parse_command_line(words)).overrides.units;
  };
  EXPECT_EQ(units({}), std::nullopt);
  EXPECT_EQ(units({"--units", "on"}), true);
  EXPECT_EQ(units({"--units=off"}), false);
  EXPECT_THAT(usage_error({"run", "--prices", "p.csv", "--units", "1"}),
              HasSubstr("--units wants on or off, not \"1\""));
}

TEST(Options, OfEvalTakeFormulasThatBeginWithAMinus) {
  const auto eval = [](Words words) {
    words.insert(words.begin(), {"eval", "--prices", "p.csv", "--min-sharpe", "-5"});
    return std::get<EvalCommand>(parse_command_line(words));
  };
  const EvalCommand command =
      eval({"-1 * rank(close)", "-rank(close)", "-returns", "close", "--cost-bps=2", "--json"});
  EXPECT_EQ(command.formulas.size(), 4U);
  EXPECT_EQ(command.overrides.thresholds.at("--min-sharpe"), -5.0);
  EXPECT_EQ(command.search.cost_basis_points, 2.0);
  EXPECT_TRUE(command.json);
  EXPECT_FALSE(command.database.has_value());
  EXPECT_EQ(eval({"--file", "f.txt"}).file, "f.txt");
  EXPECT_THAT(usage_error({"eval", "close"}), HasSubstr("no price file is given"));
  EXPECT_THAT(usage_error({"eval", "--prices", "p.csv"}), HasSubstr("no formula is given"));
  EXPECT_THAT(usage_error({"eval", "close", "--prices", "p.csv", "-z"}), HasSubstr("-z"));
}

}  // namespace
}  // namespace varnholt::app::test
