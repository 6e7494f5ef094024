// The tables of the store, and the decision whether a file is a store. docs/store-schema.md
// describes them for readers with other programs.
#pragma once

#include "hosts/embedded/store/sqlite_database.hpp"

namespace varnholt::embedded {

// "VGEN" in ASCII, in the file's application_id.
inline constexpr std::int64_t kStoreApplicationId = 0x5647454e;
// The file's user_version.
inline constexpr std::int64_t kStoreSchemaVersion = 4;

// Makes the tables in an empty file, accepts a file of this schema version, and brings one of an
// earlier version up to it, in one transaction and without losing a row. Throws StoreError for a
// file of another program or of an unknown version, and leaves such a file as it is.
// Afterwards the connection writes ahead (WAL) with synchronous=NORMAL: what is committed survives
// the death of the process at once, and a loss of power up to the last checkpoint; neither can
// damage the file.
void prepare_schema(SqliteDatabase& database);

}  // namespace varnholt::embedded
