// The files of a store: which they are, who they are, and how a new one is made. Method: files and
// links in a folder of the test's own.
#include "hosts/embedded/store/store_files.hpp"

#include <algorithm>
#include <fstream>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/hosts/embedded/store/fault_helpers.hpp"
#include "tests/hosts/embedded/store/store_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;

class StoreFiles : public StoreTest {
 protected:
  [[nodiscard]] std::string in_folder(const char* name) const { return (folder_ / name).string(); }
};

TEST_F(StoreFiles, ANewFileIsForItsOwnerAlone) {
  const mode_t before = ::umask(0);
  const bool made = make_private_file(path_);
  ::umask(before);
  ASSERT_TRUE(made);
  EXPECT_EQ(fs::status(path_).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_FALSE(make_private_file(path_)) << "it is there";
  EXPECT_FALSE(make_private_file(in_folder("none/runs.db")));
}

TEST_F(StoreFiles, AFileIsKnownByWhatNoNameChanges) {
  EXPECT_FALSE(identity_of(path_).has_value());
  ASSERT_TRUE(make_private_file(path_));
  const FileIdentity file = identity_of(path_).value();
  EXPECT_EQ(file.names, 1U);
  fs::rename(path_, in_folder("moved.db"));
  ASSERT_TRUE(make_private_file(path_));
  EXPECT_TRUE(identity_of(in_folder("moved.db"))->is_same_file(file));
  EXPECT_FALSE(identity_of(path_)->is_same_file(file));
  fs::create_hard_link(path_, in_folder("second.db"));
  EXPECT_EQ(identity_of(path_)->names, 2U);
}

TEST_F(StoreFiles, AnotherUserIsKnownByItsLock) {
  const SqliteRunStore store(path_);
  EXPECT_FALSE(is_used_by_others(in_folder("none.db")));
  EXPECT_EQ(in_process([&] { EXPECT_TRUE(is_used_by_others(path_)); }), 0);
}

TEST_F(StoreFiles, WhatIsBesideALinkAndBesideItsTargetBelongsToTheStore) {
  ASSERT_TRUE(make_private_file(path_));
  fs::create_symlink(path_, in_folder("link.db"));
  const std::vector<fs::path> files = files_of_store(in_folder("link.db"));
  for (const char* const suffix : {"", "-wal", "-shm", "-journal"}) {
    EXPECT_THAT(files, Contains(fs::path(path_ + suffix)));
    EXPECT_THAT(files, Contains(fs::path(in_folder("link.db") + suffix)));
  }
}

TEST_F(StoreFiles, TheNameOfALogLeadsToItsDatabase) {
  EXPECT_FALSE(database_beside(path_ + "-wal").has_value()) << "there is no such database";
  std::ofstream(path_) << "SQLite format 3 and more";
  std::ofstream(in_folder("text")) << "SQLite is a database";
  EXPECT_EQ(database_beside(path_ + "-wal"), fs::path(path_));
  EXPECT_EQ(database_beside(path_ + "-shm"), fs::path(path_));
  EXPECT_EQ(database_beside(path_ + "-journal"), fs::path(path_));
  EXPECT_FALSE(database_beside(path_).has_value());
  EXPECT_FALSE(database_beside(path_ + "-other").has_value());
  EXPECT_FALSE(database_beside(in_folder("text") + "-wal").has_value());
}

}  // namespace
}  // namespace varnholt::embedded::test
