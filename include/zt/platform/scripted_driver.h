// A scripted database driver for tests: it records every statement a connection sends and
// answers from a script (rows, row counts, errors). It is how statement texts for engines that
// cannot run here (SQL Server, Oracle) are checked: the code under test opens its connection
// as usual, and the test reads back what was sent.
//
//   auto script = std::make_shared<zt::platform::DriverScript>();
//   script->On("SELECT name FROM sysobjects", ScriptedAnswer::Rows({"name"}, {{"tblA"}}))
//         .On("DROP TABLE", ScriptedAnswer::Error(-2147217865, "Cannot drop the table"));
//   zt::platform::ScopedScriptedProvider sql_server("MSOLEDBSQL", script);
//   ... code that opens "Provider=MSOLEDBSQL;Data Source=srv;..." and runs statements ...
//   EXPECT_EQ(script->Statements(), (std::vector<std::string>{"SELECT name FROM sysobjects"}));
//
// A connection string "Provider=Scripted;Data Source=NAME" reaches the script registered under
// NAME without any change to the provider table.
//
// Scripts and registrations belong to the calling thread, like every connection of the library.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zt/error.h"
#include "zt/export.h"
#include "zt/variant.h"

namespace zt::platform {

// One answer of a script.
struct ZT_EXPORT ScriptedAnswer {
  // Result columns; empty when the statement returns no rows.
  std::vector<std::string> columns;
  // ADO DataTypeEnum code per column. Missing entries are taken from the first non-null value
  // of the column (Long 3, LongLong 20, Double 5, Currency 6, Date 7, Boolean 11, text 202).
  std::vector<std::int32_t> column_types;
  std::vector<std::vector<Variant>> rows;
  // The table every result column comes from ("" for none), as a driver reports a column's base
  // table: a recordset over the answer can then write its changes back to that table.
  std::string base_table;
  // What RowsAffected reports for a statement without rows.
  std::int64_t records_affected = 0;
  // When set, the statement fails with this error instead (the Source is filled with the
  // connection's provider when empty).
  std::optional<ErrorInfo> error;

  static ScriptedAnswer Rows(std::vector<std::string> columns,
                             std::vector<std::vector<Variant>> rows);
  static ScriptedAnswer Affected(std::int64_t records);
  static ScriptedAnswer Error(std::int32_t number, std::string description);
};

// How the scripted engine behaves towards the layer above it.
enum class ScriptedQuoting { kBrackets, kDoubleQuotes, kBackticks };
struct ZT_EXPORT ScriptedEngine {
  std::string name = "SQL Server";
  ScriptedQuoting quoting = ScriptedQuoting::kBrackets;  // what `[name]` is rewritten to
  bool transactional_ddl = true;
  bool has_schemas = true;
  std::string default_schema = "dbo";
  std::string catalog;  // "" : the connection's Database
};

// A statement as the driver received it: after `[name]` rewriting, "?" for parameters.
struct ZT_EXPORT ScriptedStatement {
  std::string sql;
  std::vector<Variant> parameters;  // the values bound when it was executed
};

// The connection parameters a scripted connection was opened with (never the password).
struct ZT_EXPORT ScriptedConnect {
  std::string provider;
  std::string data_source;
  std::string database;
  std::string user;
  bool has_password = false;
  bool integrated_security = false;
  int login_timeout = 0;
};

class ZT_EXPORT DriverScript {
 public:
  enum class Match { kExact, kPrefix, kContains, kRegex };

  // Answers statements that match `pattern` (by `how`; kRegex is ECMAScript, whole text) with
  // `answer`. Rules are tried in the order they were added. With `times` > 0 the rule answers
  // that many statements and is then used up; 0 keeps it forever. Returns *this. A regular
  // expression that does not compile throws ZtError 5 and adds no rule.
  DriverScript& On(std::string pattern, ScriptedAnswer answer, Match how = Match::kPrefix,
                   int times = 0);
  // The answer to statements no rule matches (at first: no rows, 0 records affected).
  DriverScript& Otherwise(ScriptedAnswer answer);
  // Makes every open fail with this error (Source: the provider).
  DriverScript& FailOpen(std::int32_t number, std::string description);
  // The rows of a schema rowset (20 tables, 4 columns, 12 indexes, 28 primary keys); the
  // answer's columns are the rowset's column names. Rows are filtered by the TABLE_NAME and
  // TABLE_SCHEMA restrictions of the call, and by its fourth (TABLE_TYPE, COLUMN_NAME,
  // INDEX_NAME). A rowset without an answer is queried through
  // information_schema statements, which the script sees and answers like any other.
  DriverScript& Schema(int rowset, ScriptedAnswer answer);
  DriverScript& Engine(ScriptedEngine engine);
  // What the liveness check of open connections reports (true at first).
  DriverScript& Alive(bool alive);

  // Statements in the order they were executed (a prepared statement run twice appears twice).
  const std::vector<ScriptedStatement>& Sent() const { return sent_; }
  // The texts of Sent().
  std::vector<std::string> Statements() const;
  // Everything in order: "open", "close", "begin", "commit", "rollback", "timeout N", and
  // "exec " + statement text.
  const std::vector<std::string>& Events() const { return events_; }
  const std::vector<ScriptedConnect>& Connects() const { return connects_; }
  // Forgets what was recorded; the rules stay.
  void ClearLog();

  struct Rule {
    std::string pattern;
    Match how;
    ScriptedAnswer answer;
    int remaining;  // 0 = forever
  };

 private:
  friend class ScriptedConnection;
  friend class ScriptedStatementBackend;
  // Records the statement and returns the answer of the first matching rule.
  ScriptedAnswer Answer(const std::string& sql, const std::vector<Variant>& parameters);
  const ScriptedAnswer* SchemaAnswer(int rowset) const;

  std::vector<Rule> rules_;
  ScriptedAnswer otherwise_;
  std::optional<ErrorInfo> open_error_;
  std::vector<std::pair<int, ScriptedAnswer>> schema_;
  ScriptedEngine engine_;
  bool alive_ = true;
  std::vector<ScriptedStatement> sent_;
  std::vector<std::string> events_;
  std::vector<ScriptedConnect> connects_;
};

// Registers `script` under `name` for the calling thread (replacing an earlier one). A
// connection uses the script registered under its provider name, else under its Data Source.
ZT_EXPORT void RegisterDriverScript(const std::string& name, std::shared_ptr<DriverScript> script);
ZT_EXPORT void UnregisterDriverScript(const std::string& name);

// While it lives, connections whose provider is `provider` ("MSOLEDBSQL", "OraOLEDB.Oracle")
// open on `script` instead of their real driver, on the calling thread only: the provider name
// is put in front of every provider table of this thread and taken out again when this ends.
class ZT_EXPORT ScopedScriptedProvider {
 public:
  ScopedScriptedProvider(std::string provider, std::shared_ptr<DriverScript> script);
  ~ScopedScriptedProvider();
  ScopedScriptedProvider(const ScopedScriptedProvider&) = delete;
  ScopedScriptedProvider& operator=(const ScopedScriptedProvider&) = delete;

 private:
  std::string provider_;
};

}  // namespace zt::platform
