// What is written down of a run: its prices are read once, so that the digest names the very bytes
// that are searched.
// Method: a pipe in place of the price file, and another file there for whoever opens it again.
#include "hosts/embedded/search/run_description.hpp"

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/embedded/system/digest.hpp"
#include "hosts/embedded/system/read_file.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using RunDescriptionTest = FolderTest;

TEST_F(RunDescriptionTest, ThePricesAreReadOnceAndTheDigestIsOfThoseBytes) {
  write_prices(in_folder("prices.csv"), small_universe());
  const std::string bytes = read_file(in_folder("prices.csv")).bytes;
  std::ofstream(in_folder("others.csv")) << bytes << '\n';
  SearchOptions options;
  const std::filesystem::path path = in_folder("pipe");
  options.prices = path;
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const pid_t writer = fork();
  if (writer == 0) {
    std::ofstream pipe(path, std::ios::binary);  // Waits for the reader.
    std::filesystem::rename(in_folder("others.csv"), path);
    pipe << bytes << std::flush;
    _exit(0);
  }
  const RunData data(options);
  EXPECT_EQ(data.digest, sha256_hex(bytes));
  EXPECT_EQ(data.whole.symbols, small_universe().symbols);
  EXPECT_EQ(waitpid(writer, nullptr, 0), writer);
}

class NeutralizeTest : public FolderTest {
 protected:
  [[nodiscard]] RunData data(Eigen::Index instruments, const char* neutralize) const {
    SyntheticUniverseOptions universe;
    universe.instruments = instruments;
    universe.days = 200;
    SearchOptions options;
    options.prices = in_folder("prices.csv");
    write_prices(options.prices.named().front(), make_synthetic_universe(universe));
    if (neutralize != nullptr) options.neutralize = neutralize;
    return RunData(options);
  }
};

TEST_F(NeutralizeTest, TheNumberOfInstrumentsDecidesWhereNothingIsSaid) {
  EXPECT_EQ(data(9, nullptr).book.neutralize, "none");
  EXPECT_EQ(data(10, nullptr).book.neutralize, "market");
  EXPECT_EQ(data(9, "market").book.neutralize, "market");
  EXPECT_EQ(data(10, "none").book.neutralize, "none");
}

TEST_F(NeutralizeTest, OtherRulesAreOtherKeys) {
  const RunData none = data(9, "none");
  const RunData market = data(9, "market");
  EXPECT_NE(none.data_key, market.data_key);
  EXPECT_NE(none.evaluation_key, market.evaluation_key);
  EXPECT_EQ(none.data_key, data(9, nullptr).data_key);
}

TEST_F(NeutralizeTest, AStoredRunHasItsRule) {
  RunStart start;
  start.settings_json = R"({"delay_days":1,"neutralize":"sector"})";
  EXPECT_EQ(book_rules_of(start).neutralize, "sector");
  start.settings_json = R"({"delay_days":1})";
  EXPECT_EQ(book_rules_of(start).neutralize, "none") << "as in the versions that knew no other";
}

}  // namespace
}  // namespace varnholt::embedded::test
