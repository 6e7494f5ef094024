// Goal: ends are synced together, none waits too long, and nothing is synced twice.
// Method: a table that counts its syncs, and a clock of the test's own.
#include "hosts/embedded/attempts/end_sync.hpp"

#include <stdexcept>

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

class CountingTable : public AttemptTable {
 public:
  std::int64_t create(const NewAttemptRow& /*attempt*/, double /*at*/) override { return 1; }
  void mark(std::int64_t /*id*/, AttemptStep /*step*/, double /*at*/) override {}
  bool end(std::int64_t /*id*/, const AttemptEndRow& /*end*/, double /*at*/) override {
    return true;
  }
  std::int64_t open_marker(const NewMarker& /*marker*/, double /*at*/) override { return 1; }
  void close_marker(std::int64_t /*id*/, double /*at*/) override {}
  void sync() override {
    if (fails) throw std::runtime_error("the disk refuses");
    ++syncs;
  }
  std::optional<std::int64_t> open_attempt(std::int64_t /*run*/,
                                           const std::string& /*graph_key*/) override {
    return std::nullopt;
  }
  std::optional<AttemptRecord> find(std::int64_t /*id*/) override { return std::nullopt; }
  std::vector<AttemptRecord> list(const AttemptFilter& /*filter*/) override { return {}; }
  std::vector<DispositionCount> dispositions(const AttemptFilter& /*filter*/) override {
    return {};
  }
  std::int64_t open_markers(std::int64_t /*run*/) override { return 0; }

  int syncs = 0;
  bool fails = false;
};

class EndSyncTest : public ::testing::Test {
 protected:
  CountingTable table_;
  double now_ = 100.0;
  EndSync sync_{table_, [this] { return now_; }};
};

TEST_F(EndSyncTest, SyncsSoManyEndsTogether) {
  for (int i = 0; i < kEndsTogether - 1; ++i)
    sync_.note_end();
  EXPECT_EQ(table_.syncs, 0);
  sync_.note_end();
  EXPECT_EQ(table_.syncs, 1);
  for (int i = 0; i < kEndsTogether; ++i)
    sync_.note_end();
  EXPECT_EQ(table_.syncs, 2);
}

TEST_F(EndSyncTest, TheFirstOfThemWaitsNoLongerThanItMay) {
  sync_.note_end();
  now_ += kLongestWaitSeconds / 2;
  sync_.note_end();
  sync_.sync_if_due();
  EXPECT_EQ(table_.syncs, 0);
  now_ += kLongestWaitSeconds;
  sync_.sync_if_due();
  EXPECT_EQ(table_.syncs, 1);
  now_ += 10 * kLongestWaitSeconds;
  sync_.sync_if_due();
  EXPECT_EQ(table_.syncs, 1) << "nothing waits";
  sync_.note_end();
  EXPECT_EQ(table_.syncs, 1) << "the wait begins anew";
}

TEST_F(EndSyncTest, SyncsWhenAskedAndOnlyWhatWaits) {
  sync_.sync();
  EXPECT_EQ(table_.syncs, 0);
  sync_.note_end();
  sync_.sync();
  sync_.sync();
  EXPECT_EQ(table_.syncs, 1);
}

TEST_F(EndSyncTest, WhatCouldNotBeSyncedStillWaits) {
  sync_.note_end();
  table_.fails = true;
  EXPECT_THROW(sync_.sync(), std::runtime_error);
  table_.fails = false;
  sync_.sync();
  EXPECT_EQ(table_.syncs, 1);
}

}  // namespace
}  // namespace varnholt::embedded::test
