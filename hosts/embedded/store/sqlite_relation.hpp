// A relation as one table of its columns: the name of each beside the member that it is bound from
// and read into. Statements are made from the table, and values find their columns by name, so a
// new column is one line of one table (and a step of the schema).
#pragma once

#include <optional>
#include <span>
#include <string>
#include <type_traits>

#include "hosts/embedded/store/sqlite_database.hpp"

namespace varnholt::embedded {

// What writes a column.
enum class Written {
  AtInsertion,  // The statement that makes the row, from the record.
  Later,        // A statement of its own, from the record.
  ByTheStore,   // The database itself, or a statement that takes it from elsewhere in the store.
};

template <typename Record>
struct Column {
  const char* name;
  Written written;
  void (*bind)(SqliteUse& use, const char* name, const Record& record);
  void (*read)(SqliteUse& row, const char* name, Record& record);
};

template <typename Record>
struct Relation {
  const char* name;
  std::span<const Column<Record>> columns;
};

template <typename Type>
inline constexpr bool kIsOptional = false;
template <typename Type>
inline constexpr bool kIsOptional<std::optional<Type>> = true;

// The member at the end of a path of members, bound: NULL where an optional one on the way is
// absent.
template <auto First, auto... Rest, typename Record>
void bind_member(SqliteUse& use, const char* name, const Record& record) {
  const auto& member = record.*First;
  using Member = std::remove_cvref_t<decltype(member)>;
  if constexpr (sizeof...(Rest) == 0) {
    use.bind(name, member);
  } else if constexpr (kIsOptional<Member>) {
    if (member) return bind_member<Rest...>(use, name, *member);
    use.bind_null(name);
  } else {
    bind_member<Rest...>(use, name, member);
  }
}

// The same, read: an optional member on the way comes to be with the first column that is not NULL.
template <auto First, auto... Rest, typename Record>
void read_member(SqliteUse& row, const char* name, Record& record) {
  auto& member = record.*First;
  using Member = std::remove_cvref_t<decltype(member)>;
  if constexpr (sizeof...(Rest) == 0) {
    row.read(name, member);
  } else if constexpr (kIsOptional<Member>) {
    if (row.is_null(name)) return;
    if (!member) member.emplace();
    read_member<Rest...>(row, name, *member);
  } else {
    read_member<Rest...>(row, name, member);
  }
}

// column<Record, &Record::start, &Start::seed>("seed").
template <typename Record, auto... Path>
constexpr Column<Record> column(const char* name, Written written = Written::AtInsertion) {
  return {name, written, &bind_member<Path...>, &read_member<Path...>};
}

// The names of the columns that are written so, each after the mark: "seed, eras", ":seed, :eras".
template <typename Record>
std::string names_written(const Relation<Record>& relation, Written written,
                          const char* mark = "") {
  std::string names;
  for (const Column<Record>& entry : relation.columns) {
    if (entry.written != written) continue;
    names.append(names.empty() ? "" : ", ").append(mark).append(entry.name);
  }
  return names;
}

// "SELECT id, seed, eras FROM runs ", which a condition may follow.
template <typename Record>
std::string select_from(const Relation<Record>& relation) {
  std::string names;
  for (const Column<Record>& entry : relation.columns)
    names.append(names.empty() ? "" : ", ").append(entry.name);
  return "SELECT " + names + " FROM " + relation.name + " ";
}

// "INSERT INTO runs (seed, eras) VALUES (:seed, :eras)".
template <typename Record>
std::string insert_into(const Relation<Record>& relation) {
  return std::string("INSERT INTO ") + relation.name + " (" +
         names_written(relation, Written::AtInsertion) + ") VALUES (" +
         names_written(relation, Written::AtInsertion, ":") + ")";
}

// "score = :score, settled_at = :settled_at": the columns that are written later.
template <typename Record>
std::string assignments(const Relation<Record>& relation) {
  std::string text;
  for (const Column<Record>& entry : relation.columns) {
    if (entry.written != Written::Later) continue;
    text.append(text.empty() ? "" : ", ").append(entry.name).append(" = :").append(entry.name);
  }
  return text;
}

// Binds the columns that are written so. The record must live until the last step.
template <typename Record>
SqliteUse& bind_columns(SqliteUse& use, const Relation<Record>& relation, Written written,
                        const Record& record) {
  for (const Column<Record>& entry : relation.columns) {
    if (entry.written == written) entry.bind(use, entry.name, record);
  }
  return use;
}

// The row that a statement made by select_from() has stepped to.
template <typename Record>
Record read_row(SqliteUse& row, const Relation<Record>& relation) {
  Record record;
  for (const Column<Record>& entry : relation.columns)
    entry.read(row, entry.name, record);
  return record;
}

}  // namespace varnholt::embedded
