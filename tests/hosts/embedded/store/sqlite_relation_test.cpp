// Goal: the tables of columns and the tables of the file are the same, and every column is bound
// from and read into its own member.
// Method: the columns that SQLite tells of a fresh file; a small relation of the test's own, whose
// columns stand in another order than the table's.
#include "hosts/embedded/store/sqlite_relation.hpp"

#include <array>
#include <set>

#include <gmock/gmock.h>

#include "hosts/embedded/store/store_relations.hpp"
#include "tests/hosts/embedded/store/store_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;

struct Inner {
  double weight = 0;
  std::optional<std::string> note;
};

struct Sample {
  std::int64_t id = 0;
  std::string name;
  bool good = false;
  std::optional<Inner> inner;
};

constexpr std::array kColumns = {
    column<Sample, &Sample::inner, &Inner::note>("note", Written::Later),
    column<Sample, &Sample::good>("good"),
    column<Sample, &Sample::inner, &Inner::weight>("weight", Written::Later),
    column<Sample, &Sample::name>("name"),
    column<Sample, &Sample::id>("id", Written::ByTheStore),
};
constexpr Relation<Sample> kSamples{"samples", kColumns};

class RelationTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    database_.emplace(path_, 0);
    database_->execute(
        "CREATE TABLE samples (id INTEGER PRIMARY KEY, name TEXT, good INTEGER, weight REAL, "
        "note TEXT)",
        "making it");
  }

  Sample written_and_read(const Sample& sample) {
    SqliteStatement insertion(*database_, insert_into(kSamples), "inserting");
    SqliteUse insert(insertion);
    EXPECT_EQ(bind_columns(insert, kSamples, Written::AtInsertion, sample).change(), 1);
    const std::string sql = "UPDATE samples SET " + assignments(kSamples) + " WHERE name = :which";
    SqliteStatement change(*database_, sql, "changing");
    SqliteUse update(change);
    bind_columns(update, kSamples, Written::Later, sample);
    EXPECT_EQ(update.bind("which", sample.name).change(), 1);
    SqliteStatement selection(*database_, select_from(kSamples) + "WHERE name = :name", "reading");
    SqliteUse row(selection);
    EXPECT_TRUE(row.bind("name", sample.name).step());
    return read_row(row, kSamples);
  }

  std::optional<SqliteDatabase> database_;
};

TEST_F(RelationTest, EveryColumnFindsItsMember) {
  const Sample read = written_and_read({7, "first", true, Inner{0.5, "a note"}});
  EXPECT_EQ(read.id, 1) << "the store's own";
  EXPECT_EQ(read.name, "first");
  EXPECT_TRUE(read.good);
  ASSERT_TRUE(read.inner.has_value());
  EXPECT_EQ(read.inner->weight, 0.5);
  EXPECT_EQ(read.inner->note, "a note");
}

TEST_F(RelationTest, AnAbsentMemberIsNullAndComesBackAbsent) {
  EXPECT_FALSE(written_and_read({0, "without", false, std::nullopt}).inner.has_value());
  const Sample half = written_and_read({0, "half", false, Inner{0.25, std::nullopt}});
  ASSERT_TRUE(half.inner.has_value());
  EXPECT_EQ(half.inner->note, std::nullopt);
  EXPECT_EQ(
      database_->query_integer("SELECT count(*) FROM samples WHERE weight IS NULL", "counting"), 1);
}

TEST_F(RelationTest, StatementsNameTheColumnsInTheOrderOfTheTable) {
  EXPECT_EQ(select_from(kSamples), "SELECT note, good, weight, name, id FROM samples ");
  EXPECT_EQ(insert_into(kSamples), "INSERT INTO samples (good, name) VALUES (:good, :name)");
  EXPECT_EQ(assignments(kSamples), "note = :note, weight = :weight");
}

TEST_F(RelationTest, ANameThatAStatementDoesNotHaveIsToldAtOnce) {
  SqliteStatement statement(*database_, "SELECT name FROM samples WHERE id = :id", "reading");
  SqliteUse use(statement);
  EXPECT_THROW(use.bind("di", std::int64_t{1}), std::logic_error);
  EXPECT_FALSE(use.bind("id", std::int64_t{1}).step());
  EXPECT_THROW(static_cast<void>(use.text("nmae")), std::logic_error);
}

// The columns of a table that a relation does not have.
template <typename Record>
std::set<std::string> columns_besides(SqliteDatabase& database, const Relation<Record>& relation) {
  std::set<std::string> names;
  SqliteStatement statement(
      database, std::string("SELECT name FROM pragma_table_xinfo('") + relation.name + "')",
      "reading its columns");
  SqliteUse rows(statement);
  while (rows.step())
    names.insert(rows.text("name"));
  for (const Column<Record>& entry : relation.columns)
    EXPECT_EQ(names.erase(entry.name), 1U) << relation.name << "." << entry.name;
  return names;
}

TEST_F(RelationTest, TheStoresRelationsHaveTheColumnsOfItsTables) {
  const std::string path = (folder_ / "store.db").string();
  const SqliteRunStore store(path);
  SqliteDatabase database(path, 1000);
  EXPECT_THAT(columns_besides(database, run_relation()), IsEmpty());
  EXPECT_THAT(columns_besides(database, evaluation_relation()), UnorderedElementsAreArray({"id"}));
  EXPECT_THAT(columns_besides(database, attempt_relation()), IsEmpty());
  // What only the store itself reads.
  EXPECT_THAT(columns_besides(database, submission_relation()),
              UnorderedElementsAreArray({"evaluation_id", "pnl", "settled_order"}));
}

}  // namespace
}  // namespace varnholt::embedded::test
