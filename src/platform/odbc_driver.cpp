// The unixODBC driver.
//
// Everything that differs between the ODBC target drivers lives in the family table below; the
// code after it only asks the family. Values are read with SQLGetData after each fetch: slower
// than bound arrays, but every driver here supports it, and MDB Tools and FreeTDS both have
// trouble with block cursors.
#include "platform/odbc_driver.h"

#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>

#include "platform/errors.h"
#include "platform/sql_text.h"
#include "platform/type_map.h"

namespace zt::platform::odbc {
namespace {

bool IEquals(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

bool IContains(std::string_view hay, std::string_view needle) {
  return std::search(hay.begin(), hay.end(), needle.begin(), needle.end(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         }) != hay.end();
}

bool Ok(SQLRETURN rc) {
  return rc == SQL_SUCCESS || rc == SQL_SUCCESS_WITH_INFO;
}

SQLCHAR* Text(const std::string& s) {
  return reinterpret_cast<SQLCHAR*>(const_cast<char*>(s.c_str()));
}

DriverQuirks Quirks(std::string engine, QuoteStyle quote) {
  DriverQuirks q;
  q.engine = std::move(engine);
  q.quote = quote;
  q.one_row_delete = OneRowDeleteOf(q.engine);
  return q;
}

// ---------------------------------------------------------------------------------------------
// The family table. First match of a word in the Driver= name wins.
//
//   added_keys          keys appended to the connection string unless the caller gave them:
//                       MariaDB Option=2, so that UPDATE reports matched rows (the driver counts
//                       changed rows, and rewriting a row with its own values would look like a
//                       lost update) and CHARSET=utf8mb4, as text is handed over as UTF-8
//                       whatever the server's default is; FreeTDS TDS_Version, without which no
//                       login time-out is honoured at all and a silent server hangs the caller for
//                       good, and ClientCharset=UTF-8, since text is handed over as UTF-8 (the
//                       default charset turns what Latin-1 cannot hold into "?"); psqlODBC
//                       BoolsAsChar=0, else booleans arrive as the text "1"/"0".
//   login_timeout       seconds given as SQL_ATTR_LOGIN_TIMEOUT before connecting, unless the
//                       connection string or Connection::ConnectionTimeout names others
//   login_timeout_key   the connection-string key that carries the login time-out, for drivers
//                       that ignore SQL_ATTR_LOGIN_TIMEOUT: the MariaDB driver waits for the
//                       server's greeting for good without CONN_TIMEOUT
//   read_timeout_keys   keys that bound each read and write on the socket, for drivers whose
//                       statements are not ended by SQL_ATTR_QUERY_TIMEOUT; given the command
//                       time-out the connection was opened with plus kReadTimeoutMargin, so the
//                       server's own "statement time-out" arrives first and only a server that
//                       stopped answering is cut off. None when that time-out was 0 (no limit).
//                       The driver reads these keys only when connecting: a longer time-out set
//                       later does not lift the bound, so long jobs open with theirs.
//   catalog_is_db       catalog functions get the current database as catalog; the MariaDB
//                       driver searches every database of the server without it
//   has_pk_function     SQLPrimaryKeys exists
//   jet_vocabulary      type names are Access's (TEXT is a 255-character text, not a memo)
//   default_schema_sql  the statement that names the connection's default schema
//   last_insert_id_sql  the statement that reads the number the last INSERT generated (SQL
//                       Server: @@IDENTITY, since SCOPE_IDENTITY() is empty in a new batch)
//   timeout_sql         the command time-out as a session setting, the seconds appended: the
//                       MariaDB driver ignores SQL_ATTR_QUERY_TIMEOUT
//   timeout_natives     native error codes that mean "the time-out ended the statement"
//   session_sql         run once after the login, to make the session read SQL text the way the
//                       layer writes it
//   bulk_parameters     bulk loads send many rows per INSERT, up to this many parameters a
//                       statement (under the engine's limit); 0 sends one row per INSERT
//   liveness            a statement that costs the server nothing ("" : ask only the driver)
// ---------------------------------------------------------------------------------------------
std::vector<Family> MakeFamilies() {
  std::vector<Family> t;

  Family maria{.quirks = Quirks("MariaDB", QuoteStyle::kBackticks),
               .match = {"mariadb", "mysql", "maodbc", "myodbc"},
               .added_keys = {{"Option", "2"}, {"CHARSET", "utf8mb4"}},
               .login_timeout_key = "CONN_TIMEOUT",
               .read_timeout_keys = {"READ_TIMEOUT", "WRITE_TIMEOUT"},
               .catalog_is_db = true,
               .last_insert_id_sql = "SELECT LAST_INSERT_ID()",
               .timeout_sql = "SET SESSION max_statement_time = ",
               // The library doubles a quote inside a literal and nothing else; a backslash
               // that the server took as an escape would let a value such as "8\" end its
               // literal early and run the rest of the text as SQL.
               .session_sql =
                   "SET SESSION sql_mode = CONCAT(@@SESSION.sql_mode, "
                   "',NO_BACKSLASH_ESCAPES')",
               .timeout_natives = {1969, 3024},
               // MariaDB's driver grows its parameter buffer a little at a time, so a very long
               // statement costs more in copying than it saves in round trips: 6,000
               // parameters a statement load faster than 30,000.
               .bulk_parameters = 6000};
  maria.quirks.transactional_ddl = false;
  maria.quirks.backslash_escapes = false;  // the session runs with NO_BACKSLASH_ESCAPES
  maria.quirks.mysql_comments = true;
  maria.quirks.has_schemas = false;
  t.push_back(maria);

  Family tds{.quirks = Quirks("SQL Server", QuoteStyle::kBrackets),
             .match = {"freetds", "tdsodbc", "sql server", "msodbcsql"},
             .added_keys = {{"TDS_Version", "7.4"}, {"ClientCharset", "UTF-8"}},
             .default_schema_sql = "SELECT SCHEMA_NAME()",
             .last_insert_id_sql = "SELECT @@IDENTITY",
             .bulk_parameters = 2000};
  tds.quirks.row_identity = "";
  t.push_back(tds);

  Family oracle{.quirks = Quirks("Oracle", QuoteStyle::kDoubleQuotes),
                .match = {"oracle", "sqora"},
                .default_schema_sql = "SELECT USER FROM DUAL",
                .liveness = "SELECT 1 FROM DUAL"};
  oracle.quirks.fold = NameFolding::kUpper;
  t.push_back(oracle);

  Family mdb{.quirks = Quirks("Access", QuoteStyle::kBrackets),
             .match = {"mdbtools", "mdbodbc"},
             .login_timeout = 0,
             .has_pk_function = false,
             .jet_vocabulary = true,
             .liveness = ""};
  mdb.quirks.read_only = true;
  mdb.quirks.index_rowset = false;
  mdb.quirks.has_schemas = false;
  t.push_back(mdb);

  Family psql{.quirks = Quirks("PostgreSQL", QuoteStyle::kDoubleQuotes),
              .match = {"postgresql", "psqlodbc"},
              .added_keys = {{"BoolsAsChar", "0"}},
              .default_schema_sql = "SELECT current_schema()",
              .last_insert_id_sql = "SELECT lastval()",
              .bulk_parameters = 30000};
  psql.quirks.dollar_quotes = true;
  psql.quirks.escape_strings = true;
  psql.quirks.fold = NameFolding::kLower;
  t.push_back(psql);

  Family lite{.quirks = Quirks("SQLite", QuoteStyle::kBrackets),
              .match = {"sqlite"},
              .login_timeout = 0,
              .last_insert_id_sql = "SELECT last_insert_rowid()",
              .bulk_parameters = 30000};
  lite.quirks.has_schemas = false;
  lite.quirks.bracket_escapes = false;
  lite.quirks.row_identity = "rowid";
  t.push_back(lite);
  return t;
}

// ---------------------------------------------------------------------------------------------
// Types. A column's codes come from the driver's name of its type through the table every
// driver shares (MapTypeName), so "VARCHAR(50)" means the same on every engine. Names that
// table does not know (MDB Tools' "Long Integer", psqlODBC's "unknown") fall back to the ODBC
// SQL type below. The ODBC 2 date codes (9, 10, 11) still come from older drivers.
// ---------------------------------------------------------------------------------------------
struct TypeRow {
  short sql_type;
  std::int32_t ado_type;
  std::int64_t fixed_size;  // 0: the column's own size (text, binary)
  std::int32_t attributes;
};

constexpr std::int32_t kFixed = attr::kFixed, kLong = attr::kLong;
constexpr TypeRow kTypeTable[] = {
    {SQL_CHAR, 130, 0, kFixed},         {SQL_VARCHAR, 202, 0, 0},
    {SQL_LONGVARCHAR, 203, 0, kLong},   {SQL_WCHAR, 130, 0, kFixed},
    {SQL_WVARCHAR, 202, 0, 0},          {SQL_WLONGVARCHAR, 203, 0, kLong},
    {SQL_DECIMAL, 131, 19, kFixed},     {SQL_NUMERIC, 131, 19, kFixed},
    {SQL_SMALLINT, 2, 2, kFixed},       {SQL_INTEGER, 3, 4, kFixed},
    {SQL_REAL, 4, 4, kFixed},           {SQL_FLOAT, 5, 8, kFixed},
    {SQL_DOUBLE, 5, 8, kFixed},         {SQL_BIT, 11, 2, kFixed},
    {SQL_TINYINT, 17, 1, kFixed},       {SQL_BIGINT, 20, 8, kFixed},
    {SQL_BINARY, 128, 0, kFixed},       {SQL_VARBINARY, 204, 0, 0},
    {SQL_LONGVARBINARY, 205, 0, kLong}, {SQL_TYPE_DATE, 133, 6, kFixed},
    {SQL_TYPE_TIME, 134, 6, kFixed},    {SQL_TYPE_TIMESTAMP, 135, 16, kFixed},
    {SQL_DATE, 133, 6, kFixed},         {SQL_TIME, 134, 6, kFixed},
    {SQL_TIMESTAMP, 135, 16, kFixed},   {SQL_GUID, 72, 16, kFixed},
};

const TypeRow* RowFor(short sql_type) {
  for (const auto& row : kTypeTable)
    if (row.sql_type == sql_type) return &row;
  return nullptr;
}

// The codes of a column described by the driver as `type_name` / `sql_type`.
TypeMapping MapColumn(const std::string& type_name, short sql_type, std::int64_t size,
                      std::int32_t digits, bool jet) {
  TypeMapping m = MapTypeName(type_name, size, static_cast<std::int32_t>(size), digits, jet);
  if (m.ado_type != 200) return m;
  if (const TypeRow* row = RowFor(sql_type)) {
    m.ado_type = row->ado_type;
    m.defined_size = row->fixed_size != 0 ? row->fixed_size : size;
    m.attributes = row->attributes;
    if (m.ado_type == 131) {
      m.precision = static_cast<std::int32_t>(size);
      m.scale = digits;
    }
  }
  return m;
}

std::int32_t Attributes(const TypeMapping& m, bool nullable, bool writable) {
  std::int32_t a = m.attributes;
  if (writable) a |= attr::kUpdatable | attr::kUnknownUpdatable;
  if (nullable) a |= attr::kIsNullable | attr::kMayBeNull;
  return a;
}

// ---------------------------------------------------------------------------------------------
// Values
// ---------------------------------------------------------------------------------------------

// One value of the current row, read as the column's type asks.
Variant ReadValue(SQLHSTMT stmt, SQLUSMALLINT col, short sql_type, bool currency) {
  SQLLEN ind = 0;
  switch (sql_type) {
    case SQL_BIT: {
      unsigned char b = 0;
      if (!Ok(SQLGetData(stmt, col, SQL_C_BIT, &b, sizeof b, &ind)) || ind == SQL_NULL_DATA)
        return Variant::Null();
      return Variant(b != 0);
    }
    case SQL_TINYINT:
    case SQL_SMALLINT:
    case SQL_INTEGER: {
      SQLINTEGER v = 0;
      if (!Ok(SQLGetData(stmt, col, SQL_C_SLONG, &v, sizeof v, &ind)) || ind == SQL_NULL_DATA)
        return Variant::Null();
      return Variant(static_cast<std::int32_t>(v));
    }
    case SQL_BIGINT: {
      SQLBIGINT v = 0;
      if (!Ok(SQLGetData(stmt, col, SQL_C_SBIGINT, &v, sizeof v, &ind)) || ind == SQL_NULL_DATA)
        return Variant::Null();
      return Variant(static_cast<std::int64_t>(v));
    }
    case SQL_REAL:
    case SQL_FLOAT:
    case SQL_DOUBLE: {
      double v = 0;
      if (!Ok(SQLGetData(stmt, col, SQL_C_DOUBLE, &v, sizeof v, &ind)) || ind == SQL_NULL_DATA)
        return Variant::Null();
      if (currency) return Variant(Currency::FromDouble(v));
      return Variant(v);
    }
    case SQL_TYPE_DATE:
    case SQL_TYPE_TIMESTAMP:
    case SQL_DATE:
    case SQL_TIMESTAMP: {
      SQL_TIMESTAMP_STRUCT ts{};
      if (!Ok(SQLGetData(stmt, col, SQL_C_TYPE_TIMESTAMP, &ts, sizeof ts, &ind)) ||
          ind == SQL_NULL_DATA)
        return Variant::Null();
      Date d = Date::FromParts(ts.year, ts.month, ts.day, ts.hour, ts.minute, ts.second);
      if (d.serial >= 0) d.serial += ts.fraction / 1e9 / 86400.0;
      return Variant(d);
    }
    case SQL_DECIMAL:
    case SQL_NUMERIC: {
      // Fetched as text, never as SQL_C_DOUBLE: the driver's text is the exact value.
      const Variant text = ReadValue(stmt, col, SQL_VARCHAR, false);
      const std::string* s = text.AsString();
      if (!s) return text;
      // A value wider than 28 decimals or 96 bits (DECIMAL(65,30)) stays text, digits intact.
      const auto d = Decimal::TryParse(*s);
      if (!d) return text;
      return currency ? Variant(d->ToCurrency()) : Variant(*d);
    }
    default:
      break;
  }
  const bool binary =
      sql_type == SQL_BINARY || sql_type == SQL_VARBINARY || sql_type == SQL_LONGVARBINARY;
  const SQLSMALLINT ctype = binary ? SQL_C_BINARY : SQL_C_CHAR;
  // Long values come in pieces: each call fills the buffer and says 01004 until the last one.
  std::string out;
  char buf[8192];
  for (;;) {
    SQLRETURN rc = SQLGetData(stmt, col, ctype, buf, sizeof buf, &ind);
    if (rc == SQL_NO_DATA || !Ok(rc)) break;
    if (ind == SQL_NULL_DATA) return Variant::Null();
    const std::size_t room = binary ? sizeof buf : sizeof buf - 1;
    const std::size_t got = (ind == SQL_NO_TOTAL || static_cast<std::size_t>(ind) > room)
                                ? room
                                : static_cast<std::size_t>(ind);
    out.append(buf, got);
    if (rc == SQL_SUCCESS) break;
  }
  return Variant(std::move(out));
}

// A bound input parameter; the buffers live as long as the statement's execution.
struct Param {
  SQLSMALLINT c_type = SQL_C_CHAR;
  SQLSMALLINT sql_type = SQL_VARCHAR;
  SQLULEN size = 1;
  SQLSMALLINT digits = 0;  // decimal digits of a NUMERIC parameter
  SQLLEN ind = 0;
  std::string text;
  SQLBIGINT i64 = 0;
  double dbl = 0;
  unsigned char bit = 0;
  SQL_TIMESTAMP_STRUCT ts{};

  explicit Param(const Variant& v) {
    switch (v.Type()) {
      case VarType::Empty:
      case VarType::Null:
        ind = SQL_NULL_DATA;
        break;
      case VarType::Boolean:
        c_type = SQL_C_BIT;
        sql_type = SQL_BIT;
        bit = v.ToBool() ? 1 : 0;
        break;
      case VarType::Long:
      case VarType::LongLong:
        c_type = SQL_C_SBIGINT;
        sql_type = SQL_BIGINT;
        i64 = v.ToInt64();
        size = 19;
        break;
      case VarType::Currency:
      case VarType::Decimal: {
        // Exact text into a NUMERIC parameter: precision is the digit count, scale the decimals.
        const Decimal dec = v.ToDecimal();
        text = dec.ToText();
        ind = static_cast<SQLLEN>(text.size());
        sql_type = SQL_NUMERIC;
        digits = dec.scale;
        std::size_t n = 0;
        for (char c : text) n += c >= '0' && c <= '9' ? 1 : 0;
        size = std::max<SQLULEN>(n, static_cast<SQLULEN>(digits) + 1);
        break;
      }
      case VarType::Double:
        c_type = SQL_C_DOUBLE;
        sql_type = SQL_DOUBLE;
        dbl = v.ToDouble();
        size = 15;
        break;
      case VarType::Date: {
        // A fraction of a second goes as text, which every server reads into its timestamp
        // type whole; the timestamp structure's fraction field is one that drivers drop.
        text = DateTimeText(v.ToDouble());
        if (text.find('.') != std::string::npos) {
          ind = static_cast<SQLLEN>(text.size());
          size = text.size();
          break;
        }
        text.clear();
        int y, mo, d, h, mi, s;
        Date{v.ToDouble()}.ToParts(y, mo, d, h, mi, s);
        c_type = SQL_C_TYPE_TIMESTAMP;
        sql_type = SQL_TYPE_TIMESTAMP;
        ts.year = static_cast<SQLSMALLINT>(y);
        ts.month = static_cast<SQLUSMALLINT>(mo);
        ts.day = static_cast<SQLUSMALLINT>(d);
        ts.hour = static_cast<SQLUSMALLINT>(h);
        ts.minute = static_cast<SQLUSMALLINT>(mi);
        ts.second = static_cast<SQLUSMALLINT>(s);
        size = 19;
        break;
      }
      default:
        text = v.ToText();
        ind = static_cast<SQLLEN>(text.size());
        size = std::max<SQLULEN>(1, text.size());
        if (text.size() > 4000) sql_type = SQL_LONGVARCHAR;
        break;
    }
  }
  SQLPOINTER data() {
    switch (c_type) {
      case SQL_C_SBIGINT:
        return &i64;
      case SQL_C_DOUBLE:
        return &dbl;
      case SQL_C_BIT:
        return &bit;
      case SQL_C_TYPE_TIMESTAMP:
        return &ts;
      default:
        return text.data();
    }
  }
};

// A statement handle that is freed with the object.
class Handle {
 public:
  explicit Handle(SQLHDBC dbc) { SQLAllocHandle(SQL_HANDLE_STMT, dbc, &h_); }
  ~Handle() {
    if (h_) SQLFreeHandle(SQL_HANDLE_STMT, h_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  SQLHSTMT get() const { return h_; }

 private:
  SQLHSTMT h_ = SQL_NULL_HSTMT;
};

SQLHENV Environment() {
  // One environment for the process: it holds no per-connection state, and unixODBC loads each
  // driver library once per environment.
  static SQLHENV env = [] {
    SQLHENV h = SQL_NULL_HENV;
    SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &h);
    SQLSetEnvAttr(h, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    return h;
  }();
  return env;
}

// Seconds a socket read waits beyond the command time-out before the server counts as gone.
constexpr int kReadTimeoutMargin = 10;

int LoginTimeout(const ConnectParams& params, const Family& family) {
  return params.login_timeout > 0 ? params.login_timeout : family.login_timeout;
}

}  // namespace

const Family& FamilyForDriver(std::string_view driver_name) {
  static const std::vector<Family> kFamilies = MakeFamilies();
  static const Family kGeneric{.quirks = Quirks("ODBC", QuoteStyle::kDoubleQuotes), .liveness = ""};
  for (const auto& f : kFamilies)
    for (const auto& word : f.match)
      if (IContains(driver_name, word)) return f;
  return kGeneric;
}

std::string ConnectionStringFor(const ConnectParams& params, const Family& family) {
  std::string s = params.OdbcConnectionString();
  const ConnectionKeys given = SplitConnectionString(s);
  auto add = [&](const std::string& key, const std::string& value) {
    if (!FindKey(given, key)) s += key + "=" + OdbcQuote(value) + ";";
  };
  for (const auto& [key, value] : family.added_keys) add(key, value);
  const int login = LoginTimeout(params, family);
  if (!family.login_timeout_key.empty() && login > 0)
    add(family.login_timeout_key, std::to_string(login));
  if (params.read_timeout > 0)
    for (const auto& key : family.read_timeout_keys)
      add(key, std::to_string(params.read_timeout + kReadTimeoutMargin));
  return s;
}

std::int32_t AdoTypeFor(short sql_type) {
  const TypeRow* row = RowFor(sql_type);
  return row ? row->ado_type : 200;
}

std::vector<DiagRecord> CollectDiagnostics(short handle_type, void* handle) {
  std::vector<DiagRecord> out;
  if (handle == nullptr) return out;
  for (SQLSMALLINT i = 1; i <= 20; ++i) {  // a confused driver can repeat records forever
    SQLCHAR state[6] = {0};
    SQLINTEGER native = 0;
    std::vector<SQLCHAR> msg(1024);
    SQLSMALLINT len = 0;
    SQLRETURN rc = SQLGetDiagRec(handle_type, handle, i, state, &native, msg.data(),
                                 static_cast<SQLSMALLINT>(msg.size()), &len);
    if (rc == SQL_SUCCESS_WITH_INFO && len >= static_cast<SQLSMALLINT>(msg.size())) {
      msg.resize(static_cast<std::size_t>(len) + 1);
      rc = SQLGetDiagRec(handle_type, handle, i, state, &native, msg.data(),
                         static_cast<SQLSMALLINT>(msg.size()), &len);
    }
    if (!Ok(rc)) break;
    DiagRecord r;
    r.sqlstate = reinterpret_cast<const char*>(state);
    r.native = native;
    r.message = DriverMessage(reinterpret_cast<const char*>(msg.data()));
    out.push_back(std::move(r));
  }
  return out;
}

void RaiseDiagnostics(const std::string& source, const Family& family,
                      const std::vector<DiagRecord>& records) {
  // The first record that is not a warning (01xxx) decides the number; some drivers put a
  // warning first. MDB Tools leaves the state empty, which the table treats as a general failure.
  const DiagRecord* primary = nullptr;
  for (const auto& r : records)
    if (r.sqlstate.compare(0, 2, "01") != 0) {
      primary = &r;
      break;
    }
  if (!primary && !records.empty()) primary = &records.front();
  if (!primary) RaiseSqlState(source, "HY000", 0, "The ODBC driver reported a failure");
  std::string message = primary->message;
  for (const auto& r : records)
    if (&r != primary && !r.message.empty() && r.message != primary->message)
      message += "\n" + r.message;
  const auto& natives = family.timeout_natives;
  const bool timeout = std::find(natives.begin(), natives.end(), primary->native) != natives.end();
  RaiseSqlState(source, primary->sqlstate, primary->native, message,
                timeout ? ErrorCategory::kTimeout : ErrorCategory::kNone);
}

// ---------------------------------------------------------------------------------------------
// Backend
// ---------------------------------------------------------------------------------------------
namespace {

class OdbcConnection;

class OdbcStatement : public StatementBackend {
 public:
  OdbcStatement(OdbcConnection& conn, std::string sql);
  int ParameterCount() override;
  void Bind(int index, const Variant& value) override;
  void Execute() override;
  const std::vector<ColumnInfo>& Columns() override { return columns_; }
  bool Fetch() override;
  Variant Get(int col) override;
  std::int64_t RowsAffected() override { return rows_affected_; }

 private:
  void Describe();

  OdbcConnection& conn_;
  Handle stmt_;
  std::string sql_;
  std::vector<Variant> binds_;
  std::vector<ColumnInfo> columns_;
  std::vector<short> sql_types_;
  std::vector<Variant> row_;
  std::int64_t rows_affected_ = -1;
  bool at_end_ = true;
};

class OdbcConnection : public ConnectionBackend {
 public:
  explicit OdbcConnection(const ConnectParams& params);
  ~OdbcConnection() override;

  const DriverQuirks& Quirks() const override { return quirks_; }
  std::unique_ptr<StatementBackend> Prepare(const std::string& sql) override {
    return std::make_unique<OdbcStatement>(*this, sql);
  }
  void BeginTransaction() override;
  void Commit() override { EndTransaction(SQL_COMMIT); }
  void Rollback() override { EndTransaction(SQL_ROLLBACK); }
  void SetCommandTimeout(int seconds) override;
  bool IsAlive() override;
  std::string CurrentCatalog() override;
  std::string DefaultSchema() override;
  RowSet Schema(SchemaKind kind, const SchemaRestrictions& r) override;
  Variant LastInsertId() override;
  std::unique_ptr<BulkWriterBackend> BeginBulk(const std::string& table,
                                               const std::vector<std::string>& columns) override;

  // Throws the error for the diagnostics of a handle (`what` when the driver gave none).
  [[noreturn]] void Fail(SQLSMALLINT type, SQLHANDLE h, const std::string& what) const {
    auto records = CollectDiagnostics(type, h);
    if (records.empty()) records.push_back({"HY000", 0, what});
    RaiseDiagnostics(source_, family_, records);
  }
  [[noreturn]] void RefuseWrite() const { RaiseReadOnly(source_, family_.quirks.engine); }
  const std::string& source() const { return source_; }
  SQLHDBC dbc() const { return dbc_; }
  // Makes the command time-out effective on the server when the family needs that; returns
  // the seconds for SQL_ATTR_QUERY_TIMEOUT.
  int ApplyTimeout();
  const Family& family() const { return family_; }

 private:
  void SetAutoCommit(bool on);
  void EndTransaction(SQLSMALLINT how);
  std::optional<std::string> ScalarText(const std::string& sql);
  // Runs one catalog function on a fresh statement and buffers its rows (none when the driver
  // gave no result set).
  template <class Call>
  std::vector<std::vector<Variant>> Catalog(Call&& call, const char* what);
  std::optional<std::string> CatalogArg(const SchemaRestrictions& r);
  std::optional<std::string> SchemaArg(const SchemaRestrictions& r);
  std::vector<std::vector<Variant>> Tables(const SchemaRestrictions& r, const char* types);
  RowSet TablesRowset(const SchemaRestrictions& r);
  RowSet ColumnsRowset(const SchemaRestrictions& r);
  RowSet IndexesRowset(const SchemaRestrictions& r);
  RowSet PrimaryKeysRowset(const SchemaRestrictions& r);

  const Family& family_;
  DriverQuirks quirks_;
  std::string source_;
  SQLHDBC dbc_ = SQL_NULL_HDBC;
  bool in_transaction_ = false;
  int timeout_ = 0;
  int applied_timeout_ = 0;
};

OdbcConnection::OdbcConnection(const ConnectParams& params)
    : family_(FamilyForDriver(params.odbc_driver)),
      quirks_(family_.quirks),
      source_(params.provider.empty() ? "MSDASQL" : params.provider) {
  if (params.read_only) quirks_.read_only = true;
  if (!Ok(SQLAllocHandle(SQL_HANDLE_DBC, Environment(), &dbc_)))
    Fail(SQL_HANDLE_ENV, Environment(), "Cannot allocate an ODBC connection handle");
  const int login = LoginTimeout(params, family_);
  if (login > 0)
    SQLSetConnectAttr(dbc_, SQL_ATTR_LOGIN_TIMEOUT,
                      reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(login)), 0);
  const std::string text = ConnectionStringFor(params, family_);
  SQLCHAR out[2048];
  SQLSMALLINT out_len = 0;
  SQLRETURN rc = SQLDriverConnect(dbc_, nullptr, Text(text), SQL_NTS, out, sizeof out, &out_len,
                                  SQL_DRIVER_NOPROMPT);
  if (!Ok(rc)) {
    auto records = CollectDiagnostics(SQL_HANDLE_DBC, dbc_);
    SQLFreeHandle(SQL_HANDLE_DBC, dbc_);
    dbc_ = SQL_NULL_HDBC;
    if (records.empty()) records.push_back({"08001", 0, "Unable to connect to data source"});
    // A login that ran out of time is a failed connection like any other ("Login timeout
    // expired" came as 0x80004005), so the data store's retry list applies to it too.
    for (auto& r : records)
      if (r.sqlstate == "HYT00" || r.sqlstate == "HYT01") r.sqlstate = "08001";
    RaiseDiagnostics(source_, family_, records);
  }
  if (!family_.session_sql.empty()) {
    Handle st(dbc_);
    if (!Ok(SQLExecDirect(st.get(), Text(family_.session_sql), SQL_NTS)))
      Fail(SQL_HANDLE_STMT, st.get(), "Cannot prepare the session");
  }
}

OdbcConnection::~OdbcConnection() {
  if (!dbc_) return;
  if (in_transaction_) SQLEndTran(SQL_HANDLE_DBC, dbc_, SQL_ROLLBACK);
  SQLDisconnect(dbc_);
  SQLFreeHandle(SQL_HANDLE_DBC, dbc_);
}

void OdbcConnection::SetAutoCommit(bool on) {
  const SQLULEN v = on ? SQL_AUTOCOMMIT_ON : SQL_AUTOCOMMIT_OFF;
  if (!Ok(SQLSetConnectAttr(dbc_, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(v), 0)))
    Fail(SQL_HANDLE_DBC, dbc_, "Cannot change the commit mode");
}

void OdbcConnection::BeginTransaction() {
  if (quirks_.read_only) RefuseWrite();
  SetAutoCommit(false);
  in_transaction_ = true;
}

void OdbcConnection::EndTransaction(SQLSMALLINT how) {
  SQLRETURN rc = SQLEndTran(SQL_HANDLE_DBC, dbc_, how);
  in_transaction_ = false;
  if (!Ok(rc)) {
    auto records = CollectDiagnostics(SQL_HANDLE_DBC, dbc_);
    SetAutoCommit(true);
    if (records.empty()) records.push_back({"HY000", 0, "Ending the transaction failed"});
    try {
      RaiseDiagnostics(source_, family_, records);
    } catch (const ZtError& e) {
      if (how == SQL_COMMIT) RaiseCommitFailure(e);
      throw;
    }
  }
  SetAutoCommit(true);
}

std::optional<std::string> OdbcConnection::ScalarText(const std::string& sql) {
  Handle st(dbc_);
  if (!Ok(SQLExecDirect(st.get(), Text(sql), SQL_NTS)) || !Ok(SQLFetch(st.get())))
    return std::nullopt;
  Variant v = ReadValue(st.get(), 1, SQL_VARCHAR, false);
  if (v.IsNull()) return std::nullopt;
  return v.ToText();
}

bool OdbcConnection::IsAlive() {
  SQLUINTEGER dead = SQL_CD_FALSE;
  if (Ok(SQLGetConnectAttr(dbc_, SQL_ATTR_CONNECTION_DEAD, &dead, 0, nullptr)) &&
      dead == SQL_CD_TRUE)
    return false;
  if (family_.liveness.empty()) return true;
  Handle st(dbc_);
  return Ok(SQLExecDirect(st.get(), Text(family_.liveness), SQL_NTS));
}

std::string OdbcConnection::CurrentCatalog() {
  SQLCHAR buf[512] = {0};
  SQLINTEGER len = 0;
  if (Ok(SQLGetConnectAttr(dbc_, SQL_ATTR_CURRENT_CATALOG, buf, sizeof buf - 1, &len)))
    return reinterpret_cast<const char*>(buf);
  return {};
}

std::string OdbcConnection::DefaultSchema() {
  if (!quirks_.has_schemas || family_.default_schema_sql.empty()) return {};
  return ScalarText(family_.default_schema_sql).value_or("");
}

void OdbcConnection::SetCommandTimeout(int seconds) {
  // Only remembered here: callers restore the time-out from destructors, so this must neither
  // fail nor cost a round trip. Statements apply it when they run.
  timeout_ = std::max(0, seconds);
}

int OdbcConnection::ApplyTimeout() {
  if (!family_.timeout_sql.empty() && applied_timeout_ != timeout_) {
    const std::string sql = family_.timeout_sql + std::to_string(timeout_);
    Handle st(dbc_);
    if (!Ok(SQLExecDirect(st.get(), Text(sql), SQL_NTS)))
      Fail(SQL_HANDLE_STMT, st.get(), "Cannot set the command time-out");
    applied_timeout_ = timeout_;
  }
  return timeout_;
}

Variant OdbcConnection::LastInsertId() {
  if (family_.last_insert_id_sql.empty()) return Variant::Null();
  Handle st(dbc_);
  if (!Ok(SQLExecDirect(st.get(), Text(family_.last_insert_id_sql), SQL_NTS)) ||
      !Ok(SQLFetch(st.get())))
    return Variant::Null();
  Variant v = ReadValue(st.get(), 1, SQL_BIGINT, false);
  // Keys of INT columns come back as Long, so a re-read by key compares like for like.
  if (!v.IsNull() && v.ToInt64() >= INT32_MIN && v.ToInt64() <= INT32_MAX)
    return Variant(static_cast<std::int32_t>(v.ToInt64()));
  return v;
}

// ---------------------------------------------------------------------------------------------
// Statements
// ---------------------------------------------------------------------------------------------

OdbcStatement::OdbcStatement(OdbcConnection& conn, std::string sql)
    : conn_(conn), stmt_(conn.dbc()), sql_(std::move(sql)) {
  // A driver that can only read must never be handed a write: MDB Tools would print a parse
  // error and go on, and a later version might not refuse at all.
  if (conn_.Quirks().read_only && FirstKeyword(sql_) != "SELECT") conn_.RefuseWrite();
  if (!stmt_.get()) conn_.Fail(SQL_HANDLE_DBC, conn_.dbc(), "Cannot allocate a statement");
  if (!Ok(SQLPrepare(stmt_.get(), Text(sql_), SQL_NTS)))
    conn_.Fail(SQL_HANDLE_STMT, stmt_.get(), "Cannot prepare the statement");
}

int OdbcStatement::ParameterCount() {
  SQLSMALLINT n = 0;
  if (Ok(SQLNumParams(stmt_.get(), &n))) return n;
  return static_cast<int>(std::count(sql_.begin(), sql_.end(), '?'));
}

void OdbcStatement::Bind(int index, const Variant& value) {
  if (index < 0) RaiseSqlState(conn_.source(), "07009", 0, "Invalid parameter index");
  if (static_cast<std::size_t>(index) >= binds_.size())
    binds_.resize(static_cast<std::size_t>(index) + 1);
  binds_[static_cast<std::size_t>(index)] = value;
}

void OdbcStatement::Execute() {
  SQLFreeStmt(stmt_.get(), SQL_CLOSE);
  columns_.clear();
  sql_types_.clear();
  at_end_ = true;
  rows_affected_ = -1;
  const SQLULEN timeout = static_cast<SQLULEN>(conn_.ApplyTimeout());
  SQLSetStmtAttr(stmt_.get(), SQL_ATTR_QUERY_TIMEOUT, reinterpret_cast<SQLPOINTER>(timeout), 0);

  std::vector<Param> params;
  params.reserve(binds_.size());
  for (const auto& v : binds_) params.emplace_back(v);
  SQLFreeStmt(stmt_.get(), SQL_RESET_PARAMS);
  for (std::size_t i = 0; i < params.size(); ++i) {
    Param& p = params[i];
    if (!Ok(SQLBindParameter(stmt_.get(), static_cast<SQLUSMALLINT>(i + 1), SQL_PARAM_INPUT,
                             p.c_type, p.sql_type, p.size, p.digits, p.data(),
                             static_cast<SQLLEN>(p.text.size()), &p.ind)))
      conn_.Fail(SQL_HANDLE_STMT, stmt_.get(), "Cannot bind a parameter");
  }
  SQLRETURN rc = SQLExecute(stmt_.get());
  if (rc == SQL_NO_DATA) {
    // sqliteodbc and psqlODBC answer a searched UPDATE or DELETE that touched nothing this way.
    rows_affected_ = 0;
    return;
  }
  if (!Ok(rc)) conn_.Fail(SQL_HANDLE_STMT, stmt_.get(), "The statement failed");
  SQLSMALLINT ncols = 0;
  if (Ok(SQLNumResultCols(stmt_.get(), &ncols)) && ncols > 0) {
    at_end_ = false;
    Describe();
  } else {
    SQLLEN n = -1;
    if (Ok(SQLRowCount(stmt_.get(), &n))) rows_affected_ = n;
  }
}

void OdbcStatement::Describe() {
  SQLSMALLINT ncols = 0;
  SQLNumResultCols(stmt_.get(), &ncols);
  const bool writable = !conn_.Quirks().read_only;
  for (SQLUSMALLINT i = 1; i <= static_cast<SQLUSMALLINT>(ncols); ++i) {
    SQLCHAR name[512] = {0};
    SQLSMALLINT name_len = 0, sql_type = 0, digits = 0, nullable = 0;
    SQLULEN size = 0;
    SQLDescribeCol(stmt_.get(), i, name, sizeof name, &name_len, &sql_type, &size, &digits,
                   &nullable);
    auto text_attr = [&](SQLUSMALLINT field) {
      SQLCHAR buf[512] = {0};
      SQLSMALLINT len = 0;
      if (!Ok(SQLColAttribute(stmt_.get(), i, field, buf, sizeof buf, &len, nullptr)))
        return std::string();
      return std::string(reinterpret_cast<const char*>(buf));
    };
    SQLLEN auto_unique = 0;
    SQLColAttribute(stmt_.get(), i, SQL_DESC_AUTO_UNIQUE_VALUE, nullptr, 0, nullptr, &auto_unique);
    const TypeMapping m =
        MapColumn(text_attr(SQL_DESC_TYPE_NAME), sql_type, static_cast<std::int64_t>(size), digits,
                  conn_.family().jet_vocabulary);
    ColumnInfo c;
    c.name = reinterpret_cast<const char*>(name);
    c.type = m.ado_type;
    c.defined_size = m.defined_size;
    c.precision = m.precision;
    c.scale = m.scale;
    c.attributes = Attributes(m, nullable != SQL_NO_NULLS, writable);
    c.base_table = text_attr(SQL_DESC_BASE_TABLE_NAME);
    c.base_column = text_attr(SQL_DESC_BASE_COLUMN_NAME);
    c.auto_increment = auto_unique == SQL_TRUE;
    columns_.push_back(std::move(c));
    sql_types_.push_back(sql_type);
  }
}

bool OdbcStatement::Fetch() {
  if (at_end_) return false;
  SQLRETURN rc = SQLFetch(stmt_.get());
  if (rc == SQL_NO_DATA) {
    at_end_ = true;
    return false;
  }
  if (!Ok(rc)) {
    at_end_ = true;
    conn_.Fail(SQL_HANDLE_STMT, stmt_.get(), "Fetching a row failed");
  }
  // Some drivers only let a row's columns be read once and in order: read them all now.
  row_.clear();
  for (std::size_t i = 0; i < sql_types_.size(); ++i)
    row_.push_back(ReadValue(stmt_.get(), static_cast<SQLUSMALLINT>(i + 1), sql_types_[i],
                             columns_[i].type == 6));
  return true;
}

Variant OdbcStatement::Get(int col) {
  if (col < 0 || static_cast<std::size_t>(col) >= row_.size()) return Variant();
  return row_[static_cast<std::size_t>(col)];
}

// ---------------------------------------------------------------------------------------------
// Schema rowsets from the ODBC catalog functions, with the OLE DB column names.
// ---------------------------------------------------------------------------------------------

bool Matches(const std::optional<std::string>& restriction, const Variant& value) {
  if (!restriction) return true;
  return IEquals(*restriction, value.IsNull() || value.IsEmpty() ? "" : value.ToText());
}

// sqliteodbc gives '' where other drivers give NULL for an absent catalog or schema.
Variant NullIfBlank(const Variant& v) {
  return v.IsNull() || v.IsEmpty() || (v.IsString() && v.AsString()->empty()) ? Variant::Null() : v;
}

template <class Call>
std::vector<std::vector<Variant>> OdbcConnection::Catalog(Call&& call, const char* what) {
  Handle st(dbc_);
  SQLRETURN rc = call(st.get());
  if (!Ok(rc)) Fail(SQL_HANDLE_STMT, st.get(), what);
  std::vector<std::vector<Variant>> rows;
  SQLSMALLINT ncols = 0;
  // Probing the column count first is what keeps MDB Tools' empty SQLStatistics from crashing
  // in the fetch; it costs nothing with the other drivers.
  if (!Ok(SQLNumResultCols(st.get(), &ncols)) || ncols <= 0) return rows;
  std::vector<short> types;
  for (SQLUSMALLINT i = 1; i <= static_cast<SQLUSMALLINT>(ncols); ++i) {
    SQLSMALLINT t = 0;
    SQLDescribeCol(st.get(), i, nullptr, 0, nullptr, &t, nullptr, nullptr, nullptr);
    types.push_back(t);
  }
  while (Ok(SQLFetch(st.get()))) {
    std::vector<Variant> row;
    for (std::size_t i = 0; i < types.size(); ++i)
      row.push_back(ReadValue(st.get(), static_cast<SQLUSMALLINT>(i + 1), types[i], false));
    rows.push_back(std::move(row));
  }
  return rows;
}

std::optional<std::string> OdbcConnection::CatalogArg(const SchemaRestrictions& r) {
  if (r.catalog) return r.catalog;
  if (family_.catalog_is_db) return CurrentCatalog();
  return std::nullopt;
}

std::optional<std::string> OdbcConnection::SchemaArg(const SchemaRestrictions& r) {
  if (!quirks_.has_schemas || !r.schema) return std::nullopt;
  if (r.schema->empty()) return DefaultSchema();
  return r.schema;
}

// SQLCHAR* for an optional argument (nullptr: no restriction).
SQLCHAR* Arg(const std::optional<std::string>& s) {
  return s ? Text(*s) : nullptr;
}

std::vector<std::vector<Variant>> OdbcConnection::Tables(const SchemaRestrictions& r,
                                                         const char* types) {
  const auto cat = CatalogArg(r), sch = SchemaArg(r);
  // Table names are passed as patterns ("_" matches any character) and some drivers ignore
  // them: the exact match is made here.
  auto rows = Catalog(
      [&](SQLHSTMT h) {
        return SQLTables(h, Arg(cat), SQL_NTS, Arg(sch), SQL_NTS, Arg(r.table), SQL_NTS,
                         reinterpret_cast<SQLCHAR*>(const_cast<char*>(types)), types ? SQL_NTS : 0);
      },
      "Listing the tables failed");
  std::erase_if(rows, [&](const auto& row) {
    return row.size() < 4 || !Matches(r.table, row[2]) || !Matches(sch, row[1]);
  });
  return rows;
}

RowSet OdbcConnection::TablesRowset(const SchemaRestrictions& r) {
  RowSet rs;
  rs.columns = TablesRowsetColumns();
  const Variant null = Variant::Null();
  for (auto& row : Tables(r, nullptr)) {
    if (!Matches(r.extra, row[3])) continue;
    rs.rows.push_back({NullIfBlank(row[0]), NullIfBlank(row[1]), row[2], row[3], null,
                       row.size() > 4 ? NullIfBlank(row[4]) : null, null, null, null});
  }
  return rs;
}

RowSet OdbcConnection::ColumnsRowset(const SchemaRestrictions& r) {
  RowSet rs;
  rs.columns = ColumnsRowsetColumns();
  const auto cat = CatalogArg(r), sch = SchemaArg(r);
  const Variant null = Variant::Null();
  // One table at a time: name arguments are patterns, and MDB Tools needs an exact table name.
  for (const auto& t : Tables(r, nullptr)) {
    const std::string table = t[2].ToText();
    auto cols = Catalog(
        [&](SQLHSTMT h) {
          return SQLColumns(h, Arg(cat), SQL_NTS, Arg(sch), SQL_NTS, Text(table), SQL_NTS, nullptr,
                            0);
        },
        "Listing the columns failed");
    std::int32_t ordinal = 0;
    for (auto& c : cols) {
      if (c.size() < 13 || !IEquals(c[2].ToText(), table)) continue;
      ++ordinal;
      if (!Matches(r.extra, c[3])) continue;
      const short sql_type = c[4].IsNull() ? SQL_VARCHAR : static_cast<short>(c[4].ToInt32());
      const std::int64_t size = c[6].IsNull() ? 0 : c[6].ToInt64();
      const std::int32_t digits = c[8].IsNull() ? 0 : c[8].ToInt32();
      const TypeMapping m =
          MapColumn(c[5].ToText(), sql_type, size, digits, family_.jet_vocabulary);
      const bool nullable = !c[10].IsNull() && c[10].ToInt32() != SQL_NO_NULLS;
      const bool is_text = m.ado_type == 129 || m.ado_type == 130 || m.ado_type >= 200;
      const Variant def = NullIfBlank(c[12]);
      const Variant octets = c.size() > 15 ? c[15] : null;
      rs.rows.push_back({NullIfBlank(c[0]), NullIfBlank(c[1]), c[2], c[3], Variant(ordinal),
                         Variant(!def.IsNull()), def,
                         Variant(Attributes(m, nullable, !quirks_.read_only)), Variant(nullable),
                         Variant(m.ado_type), is_text ? Variant(m.defined_size) : null,
                         is_text && !octets.IsNull() ? Variant(octets.ToInt64()) : null,
                         m.precision == 255 ? null : Variant(m.precision),
                         m.scale == 255 ? null : Variant(m.scale),
                         m.ado_type == 135 ? Variant(digits) : null, NullIfBlank(c[11])});
    }
  }
  return rs;
}

RowSet OdbcConnection::PrimaryKeysRowset(const SchemaRestrictions& r) {
  RowSet rs;
  rs.columns = PrimaryKeysRowsetColumns();
  if (!family_.has_pk_function) return rs;
  const auto cat = CatalogArg(r), sch = SchemaArg(r);
  for (const auto& t : Tables(r, nullptr)) {
    const std::string table = t[2].ToText();
    auto keys = Catalog(
        [&](SQLHSTMT h) {
          return SQLPrimaryKeys(h, Arg(cat), SQL_NTS, Arg(sch), SQL_NTS, Text(table), SQL_NTS);
        },
        "Listing the primary keys failed");
    std::sort(keys.begin(), keys.end(),
              [](const auto& a, const auto& b) { return a[4].ToInt32() < b[4].ToInt32(); });
    for (auto& k : keys)
      rs.rows.push_back({NullIfBlank(k[0]), NullIfBlank(k[1]), k[2], k[3], Variant::Null(),
                         Variant::Null(), Variant(k[4].ToInt32()),
                         k.size() > 5 ? NullIfBlank(k[5]) : Variant::Null()});
  }
  return rs;
}

RowSet OdbcConnection::IndexesRowset(const SchemaRestrictions& r) {
  RowSet rs;
  rs.columns = IndexRowsetColumns();
  if (!quirks_.index_rowset) return rs;
  // The rowset's own restriction order is catalog, schema, INDEX_NAME, TYPE, TABLE_NAME; the
  // layer hands the table in `table` and the index name in `extra`.
  const auto cat = CatalogArg(r), sch = SchemaArg(r);
  for (const auto& t : Tables(r, "TABLE")) {
    const std::string table = t[2].ToText();
    SchemaRestrictions pk_r = r;
    pk_r.table = table;
    std::vector<std::string> pk_cols;
    std::string pk_name;
    for (const auto& k : PrimaryKeysRowset(pk_r).rows) {
      pk_cols.push_back(k[3].ToText());
      if (!k[7].IsNull()) pk_name = k[7].ToText();
    }
    auto stats = Catalog(
        [&](SQLHSTMT h) {
          return SQLStatistics(h, Arg(cat), SQL_NTS, Arg(sch), SQL_NTS, Text(table), SQL_NTS,
                               SQL_INDEX_ALL, SQL_QUICK);
        },
        "Listing the indexes failed");
    // Which unique index is the primary key: the one named like the key's constraint, else the
    // one with exactly the key's columns.
    std::vector<std::string> names;
    for (const auto& s : stats)
      if (s.size() >= 9 && !s[6].IsNull() && s[6].ToInt32() != SQL_TABLE_STAT &&
          std::find(names.begin(), names.end(), s[5].ToText()) == names.end())
        names.push_back(s[5].ToText());
    auto columns_of = [&](const std::string& index) {
      std::vector<std::string> cols;
      for (const auto& s : stats)
        if (s.size() >= 9 && !s[5].IsNull() && s[5].ToText() == index)
          cols.push_back(s[8].ToText());
      return cols;
    };
    std::string pk_index;
    for (const auto& n : names)
      if (!pk_name.empty() && n == pk_name) pk_index = n;
    if (pk_index.empty() && !pk_cols.empty())
      for (const auto& n : names)
        if (columns_of(n) == pk_cols) {
          pk_index = n;
          break;
        }
    for (const auto& s : stats) {
      if (s.size() < 9 || s[6].IsNull() || s[6].ToInt32() == SQL_TABLE_STAT) continue;
      const std::string name = s[5].ToText();
      if (!Matches(r.extra, s[5])) continue;
      const bool unique = !s[3].IsNull() && s[3].ToInt32() == 0;
      rs.rows.push_back(IndexRow(NullIfBlank(s[0]), NullIfBlank(s[1]), s[2].ToText(), name,
                                 name == pk_index, unique, s[6].ToInt32() == SQL_INDEX_CLUSTERED,
                                 s[7].ToInt32(), s[8].ToText()));
    }
  }
  return rs;
}

RowSet OdbcConnection::Schema(SchemaKind kind, const SchemaRestrictions& r) {
  switch (kind) {
    case SchemaKind::kTables:
      return TablesRowset(r);
    case SchemaKind::kColumns:
      return ColumnsRowset(r);
    case SchemaKind::kIndexes:
      return IndexesRowset(r);
    case SchemaKind::kPrimaryKeys:
      return PrimaryKeysRowset(r);
    case SchemaKind::kViews:
    case SchemaKind::kForeignKeys:
      // ODBC's catalog functions give neither a view's text nor every key at once.
      return ConnectionBackend::Schema(kind, r);
  }
  return {};
}

// ---------------------------------------------------------------------------------------------
// Bulk loads: rows are gathered and sent as one INSERT with many VALUES lists, all inside one
// transaction, so a load costs a round trip per few hundred rows instead of one per row.
// ---------------------------------------------------------------------------------------------
class MultiRowBulk : public BulkWriterBackend {
 public:
  MultiRowBulk(OdbcConnection& conn, const std::string& table,
               const std::vector<std::string>& columns)
      : conn_(conn),
        table_(table),
        columns_(columns),
        batch_rows_(
            std::max<std::size_t>(1, static_cast<std::size_t>(conn.family().bulk_parameters) /
                                         std::max<std::size_t>(1, columns.size()))),
        tx_(conn) {}
  void AddRow(const std::vector<Variant>& values) override {
    tx_.RequireOpen();
    pending_.insert(pending_.end(), values.begin(), values.end());
    if (pending_.size() >= batch_rows_ * columns_.size()) Send();
  }
  void Finish() override {
    if (!tx_.Open()) return;
    Send();
    tx_.Commit();
  }

 private:
  void Send() {
    if (pending_.empty()) return;
    const std::size_t rows = pending_.size() / columns_.size();
    try {
      // Full batches share one prepared statement; the shorter last one is prepared once.
      std::unique_ptr<StatementBackend>& st = rows == batch_rows_ ? full_ : tail_;
      if (!st || &st == &tail_)
        st = conn_.Prepare(InsertText(conn_.Quirks(), table_, columns_, rows));
      for (std::size_t i = 0; i < pending_.size(); ++i) st->Bind(static_cast<int>(i), pending_[i]);
      st->Execute();
    } catch (const ZtError&) {
      tx_.Abandon();
      throw;
    }
    pending_.clear();
  }

  OdbcConnection& conn_;
  std::string table_;
  std::vector<std::string> columns_;
  std::size_t batch_rows_;
  std::vector<Variant> pending_;
  std::unique_ptr<StatementBackend> full_, tail_;
  ScopedTransaction tx_;
};

std::unique_ptr<BulkWriterBackend> OdbcConnection::BeginBulk(
    const std::string& table, const std::vector<std::string>& columns) {
  if (family_.bulk_parameters <= 0) return ConnectionBackend::BeginBulk(table, columns);
  return std::make_unique<MultiRowBulk>(*this, table, columns);
}

}  // namespace
}  // namespace zt::platform::odbc

namespace zt::platform {
std::unique_ptr<ConnectionBackend> OpenOdbcDriver(const ConnectParams& p) {
  return std::make_unique<odbc::OdbcConnection>(p);
}
}  // namespace zt::platform
