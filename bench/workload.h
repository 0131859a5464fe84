// A synthetic help-desk data store for benchmarks: a calls table of N rows with a key, an index
// and 16 mixed columns
// (texts of varied length in several scripts, a memo, dates, -1/0 Booleans, Long, Double,
// Currency, Nulls, about 10% repeated call numbers), a user table, settings and field
// definitions. The same seed gives the same store, byte for byte.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zt::bench {

// One column of a generated table, with its declared type for an SQLite file (the Jet
// vocabulary) and for the server engines.
struct WorkloadColumn {
  std::string name;
  std::string sqlite_type;  // "LONG", "TEXT(100)", "MEMO", "DATETIME", "BIT", "DOUBLE", ...
  std::string server_type;  // "INTEGER", "VARCHAR(100)", "TEXT", "TIMESTAMP", "BOOLEAN", ...
};

struct WorkloadTable {
  std::string name;
  std::vector<WorkloadColumn> columns;
  std::vector<std::string> indexed;  // columns with an index of their own ("IN_<table>_<column>")
};

// tblCalls, tblUser, tblSettings and tblFields.
const std::vector<WorkloadTable>& WorkloadTables();
const WorkloadTable& WorkloadTableNamed(const std::string& name);

// "CREATE TABLE [name] (...)" for an SQLite file (`server` false) or a server engine, where
// `boolean_type` is that engine's Boolean ("BOOLEAN" on PostgreSQL, "BIT(1)" or "TINYINT" on
// MariaDB) and `money_type` its currency.
std::string CreateTableSql(const WorkloadTable& table, bool server,
                           const std::string& boolean_type = "BOOLEAN",
                           const std::string& money_type = "NUMERIC(19,4)");

// "CREATE INDEX [IN_table_column] ON [table] ([column])" for each of the table's indexed columns.
std::vector<std::string> CreateIndexSql(const WorkloadTable& table);

// Writes the store into a new SQLite file at `path` (an existing file is replaced): `calls`
// rows of tblCalls, one user per 50 calls (at least 10), 200 settings and 120 field
// definitions, with prepared inserts in one transaction.
void WriteHelpDeskStore(const std::string& path, std::int64_t calls, std::uint64_t seed);

}  // namespace zt::bench
