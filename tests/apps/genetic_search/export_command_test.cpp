// Goal: export finds the prices of its run, and writes its file or nothing.
// Method: a store whose run names a small price file, and the flag that a signal would count up.
#include "apps/genetic_search/export_command.hpp"

#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/search/signal_export.hpp"
#include "hosts/embedded/system/digest.hpp"
#include "hosts/embedded/system/read_file.hpp"
#include "tests/apps/genetic_search/captured.hpp"
#include "tests/apps/genetic_search/sample_store.hpp"

namespace varnholt::app::test {
namespace {

using ::testing::HasSubstr;

class ExportCommandTest : public samples::StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    std::ofstream(in_folder("prices.csv")) << "date,AAA,BBB\n2020-01-01,1,2\n2020-01-02,2,2\n";
    command_.database = in_folder("runs.db");
    command_.eval_id = "1-1";
    command_.weights = in_folder("w.csv");
    embedded::SqliteRunStore store(command_.database.string());
    embedded::RunStart start = samples::run_start();
    start.price_digest = embedded::sha256_hex(embedded::read_file(in_folder("prices.csv")).bytes);
    start.price_path = in_folder("prices.csv");
    store.record_evaluations(store.begin_run(start),
                             {samples::evaluation(1, R"({"origin":"fresh"})")});
    start.price_path.clear();
    store.record_evaluations(store.begin_run(start),
                             {samples::evaluation(1, R"({"origin":"fresh"})")});
  }

  void run() { export_command(command_, {text_.output, messages_.output}, interrupt_); }

  [[nodiscard]] bool is_written() const { return std::filesystem::exists(command_.weights); }

  ExportCommand command_;
  embedded::InterruptFlag interrupt_;
  Captured text_{interrupt_};
  Captured messages_{interrupt_};
};

TEST_F(ExportCommandTest, FindsThePricesWhereTheRunFoundThem) {
  run();
  EXPECT_EQ(text_.take(), in_folder("w.csv").string() +
                              ": the weights of 1-1 on 2 days, 2020-01-01 to 2020-01-02, in 2 "
                              "instruments\n");
  EXPECT_TRUE(is_written());
}

TEST_F(ExportCommandTest, AsksForPricesThatTheStoreDoesNotName) {
  command_.eval_id = "2-1";
  try {
    run();
    FAIL() << "no error";
  } catch (const embedded::ExportError& error) {
    EXPECT_THAT(error.what(),
                HasSubstr("where the price file prices.csv was; name it with --prices FILE"));
  }
  EXPECT_FALSE(is_written());
  command_.prices = in_folder("prices.csv");
  run();
  EXPECT_TRUE(is_written());
}

TEST_F(ExportCommandTest, EndsAtAnInterruptWithoutAFile) {
  interrupt_.requests = 1;
  EXPECT_THROW(run(), embedded::InterruptedAtOnce);
  EXPECT_FALSE(is_written());
  EXPECT_EQ(text_.take(), "");
}

TEST_F(ExportCommandTest, WritesOverNothingThatItReads) {
  command_.force = true;
  // The log of a store that is named by a link stands beside the store.
  std::filesystem::create_symlink(in_folder("runs.db"), in_folder("link.db"));
  std::ofstream(in_folder("runs.db-wal")).flush();
  for (const char* const database : {"runs.db", "link.db"}) {
    command_.database = in_folder(database);
    command_.weights = in_folder("runs.db-wal");
    EXPECT_THROW(run(), embedded::ExportError) << database;
  }
  // Nor that of another store.
  std::filesystem::copy(in_folder("runs.db"), in_folder("other.db"));
  command_.weights = in_folder("other.db-wal");
  EXPECT_THROW(run(), embedded::ExportError);
  EXPECT_FALSE(is_written());
  for (const char* name : {"prices.csv", "runs.db"}) {
    command_.weights = in_folder(name);
    const auto size = std::filesystem::file_size(command_.weights);
    EXPECT_THROW(run(), embedded::ExportError) << name;
    EXPECT_EQ(std::filesystem::file_size(command_.weights), size);
  }
}

}  // namespace
}  // namespace varnholt::app::test
