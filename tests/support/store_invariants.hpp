// An independent reader of a store: it looks at the file with SQL of its own and tells every
// violation of what must hold in any store (store_invariants.sql).
#pragma once

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <sqlite3.h>

namespace varnholt::embedded::test {

// The violations in the file, one a text; none in a sound store. Throws std::runtime_error for a
// file that cannot be read.
inline std::vector<std::string> store_violations(const std::string& path) {
  std::ifstream file(VARNHOLT_SOURCE_DIR "/tests/support/store_invariants.sql", std::ios::binary);
  const std::string sql{std::istreambuf_iterator<char>(file), {}};
  sqlite3* database = nullptr;
  std::vector<std::string> violations;
  const auto require = [&](bool holds) {
    if (holds) return;
    const std::string text = ::sqlite3_errmsg(database);
    ::sqlite3_close(database);
    throw std::runtime_error("store " + path + ": " + text);
  };
  require(::sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK);
  require(::sqlite3_busy_timeout(database, 5000) == SQLITE_OK);
  require(::sqlite3_exec(database, "PRAGMA query_only = ON", nullptr, nullptr, nullptr) ==
          SQLITE_OK);
  int statements = 0;
  for (const char* rest = sql.c_str(); *rest != '\0';) {
    sqlite3_stmt* statement = nullptr;
    require(::sqlite3_prepare_v2(database, rest, -1, &statement, &rest) == SQLITE_OK);
    if (statement == nullptr) continue;  // The comment at the end, or a blank.
    ++statements;
    int result = SQLITE_ROW;
    while ((result = ::sqlite3_step(statement)) == SQLITE_ROW) {
      const unsigned char* const text = ::sqlite3_column_text(statement, 0);
      violations.emplace_back(text != nullptr ? reinterpret_cast<const char*>(text) : "(null)");
    }
    ::sqlite3_finalize(statement);
    require(result == SQLITE_DONE);
  }
  require(statements > 10);  // A file of statements that is not there holds none.
  ::sqlite3_close(database);
  return violations;
}

}  // namespace varnholt::embedded::test
