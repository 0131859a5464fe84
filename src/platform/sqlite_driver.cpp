// The embedded engine: SQLite through its C API. It stands in for Access/Jet database files, so
// declared column types keep the Jet vocabulary (TEXT(50), LONG, BIT, CURRENCY, DATETIME) and
// map to the codes the Jet provider reported (type_map.h with the Jet vocabulary); a MEMO is
// declared TEXT, which reads back as a memo, because SQLite would give MEMO numeric affinity.
//
// Values: a Boolean is stored as -1 / 0 (Jet's True and False, so "WHERE fFlag = -1" keeps
// working); a date as the text "YYYY-MM-DD HH:MM:SS" and read back as a Date when the column is
// declared as a date (a number there is the OLE day number that files converted from Jet hold);
// currency as a real. A DECIMAL/NUMERIC column has numeric affinity: SQLite
// keeps a whole number as a 64-bit integer and turns any other number into a real (15
// significant digits survive). Such a column reads back exactly as a Decimal when the stored
// value is an integer or text; a stored real stays a double, as that is all the file holds. Foreign
// keys are enforced, as Jet enforced its relationships. A busy or locked file fails at once with
// 0x80004005, so that the data store's retry loop (with its own sleeps) decides how long to wait.
#include <sqlite3.h>

#include <cctype>
#include <chrono>
#include <cstring>

#include "platform/driver.h"
#include "platform/errors.h"
#include "platform/sql_text.h"
#include "platform/table_rebuild.h"
#include "platform/type_map.h"

namespace zt::platform {

namespace {

// The query of a "CREATE VIEW name [(columns)] AS query" text: what follows the first AS that
// stands outside quotes and parentheses.
std::string ViewQuery(const std::string& create) {
  int depth = 0;
  for (std::size_t i = 0; i < create.size(); ++i) {
    const char c = create[i];
    if (c == '\'' || c == '"' || c == '`' || c == '[') {
      const char close = c == '[' ? ']' : c;
      const std::size_t end = create.find(close, i + 1);
      if (end == std::string::npos) break;
      i = end;
    } else if (c == '(') {
      ++depth;
    } else if (c == ')') {
      --depth;
    } else if (depth == 0 && (c == 'A' || c == 'a') && i + 1 < create.size() &&
               (create[i + 1] == 'S' || create[i + 1] == 's') && i > 0 &&
               std::isspace(static_cast<unsigned char>(create[i - 1])) &&
               (i + 2 == create.size() || std::isspace(static_cast<unsigned char>(create[i + 2])) ||
                create[i + 2] == '(')) {
      std::size_t from = i + 2;
      while (from < create.size() && std::isspace(static_cast<unsigned char>(create[from]))) ++from;
      return create.substr(from);
    }
  }
  return create;
}

enum class Kind { kAuto, kBool, kInt, kDouble, kDecimal, kCurrency, kDate, kText, kBinary };

Kind KindOf(std::int32_t ado) {
  switch (ado) {
    case 11:
      return Kind::kBool;
    case 2:
    case 3:
    case 16:
    case 17:
    case 20:
      return Kind::kInt;
    case 4:
    case 5:
      return Kind::kDouble;
    case 131:
      return Kind::kDecimal;
    case 6:
      return Kind::kCurrency;
    case 7:
    case 133:
    case 134:
    case 135:
      return Kind::kDate;
    case 128:
    case 204:
    case 205:
      return Kind::kBinary;
    default:
      return Kind::kText;
  }
}

int Digits(const char* p, int n) {
  int v = 0;
  for (int i = 0; i < n; ++i) {
    if (p[i] < '0' || p[i] > '9') return -1;
    v = v * 10 + (p[i] - '0');
  }
  return v;
}

// "YYYY-MM-DD", "YYYY-MM-DD HH:MM:SS" (a "T" or fractions accepted), "HH:MM:SS".
std::optional<Date> ParseDateText(const char* s, std::size_t n) {
  int y = 0, mo = 0, d = 0, h = 0, mi = 0, se = 0;
  if (n >= 10 && s[4] == '-' && s[7] == '-') {
    y = Digits(s, 4), mo = Digits(s + 5, 2), d = Digits(s + 8, 2);
    if (y < 0 || mo < 1 || d < 1) return std::nullopt;
    if (n >= 19 && (s[10] == ' ' || s[10] == 'T') && s[13] == ':' && s[16] == ':') {
      h = Digits(s + 11, 2), mi = Digits(s + 14, 2), se = Digits(s + 17, 2);
      if (h < 0 || mi < 0 || se < 0) return std::nullopt;
      // A fraction of a second: ".5", ".123456" (up to microseconds kept).
      if (n > 20 && s[19] == '.') {
        Date date = Date::FromParts(y, mo, d, h, mi, se);
        double frac = 0, scale = 0.1;
        for (std::size_t i = 20; i < n && s[i] >= '0' && s[i] <= '9'; ++i, scale /= 10)
          frac += (s[i] - '0') * scale;
        date.serial += (date.serial < 0 ? -frac : frac) / 86400.0;
        return date;
      }
    } else if (n != 10) {
      return std::nullopt;
    }
    return Date::FromParts(y, mo, d, h, mi, se);
  }
  if (n == 8 && s[2] == ':' && s[5] == ':') {
    h = Digits(s, 2), mi = Digits(s + 3, 2), se = Digits(s + 6, 2);
    if (h < 0 || mi < 0 || se < 0) return std::nullopt;
    return Date{(h * 3600 + mi * 60 + se) / 86400.0};
  }
  return std::nullopt;
}

std::string DateText(const Date& d) {
  return DateTimeText(d.serial);
}

const DriverQuirks& SqliteQuirks() {
  static const DriverQuirks q = [] {
    DriverQuirks x;
    x.engine = "SQLite";
    x.quote = QuoteStyle::kBrackets;
    x.bracket_escapes = false;  // [..] ends at the first "]"
    x.transactional_ddl = true;
    x.has_schemas = false;
    x.row_identity = "rowid";
    return x;
  }();
  return q;
}

class SqliteConnection;

class SqliteStatement : public StatementBackend {
 public:
  SqliteStatement(SqliteConnection& conn, sqlite3_stmt* st) : conn_(conn), st_(st) {}
  ~SqliteStatement() override { sqlite3_finalize(st_); }

  int ParameterCount() override { return sqlite3_bind_parameter_count(st_); }
  void Bind(int index, const Variant& v) override;
  void BindBytes(int index, const std::string& bytes) override;
  void Execute() override;
  const std::vector<ColumnInfo>& Columns() override { return columns_; }
  bool Fetch() override;
  Variant Get(int col) override;
  std::int64_t RowsAffected() override { return affected_; }

 private:
  void Describe();
  // The number of primary-key columns of `table` (0 when it cannot be read).
  int KeyColumns(const char* database, const char* table);
  [[noreturn]] void Fail(int rc);

  SqliteConnection& conn_;
  sqlite3_stmt* st_;
  std::vector<ColumnInfo> columns_;
  std::vector<Kind> kinds_;
  bool described_ = false;
  bool pending_row_ = false;  // Execute stepped onto a row that Fetch has not handed out
  bool done_ = true;
  bool stepped_ = false;
  std::int64_t affected_ = -1;
};

class SqliteConnection : public ConnectionBackend {
 public:
  explicit SqliteConnection(const ConnectParams& p)
      : source_(p.provider.empty() ? "SQLite" : p.provider) {
    const std::string path = p.data_source.empty() ? ":memory:" : p.data_source;
    const int flags =
        (p.read_only ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) |
        SQLITE_OPEN_NOMUTEX;
    const int rc = sqlite3_open_v2(path.c_str(), &db_, flags, nullptr);
    if (rc != SQLITE_OK) {
      const std::string msg = db_ ? sqlite3_errmsg(db_) : "out of memory";
      sqlite3_close_v2(db_);
      db_ = nullptr;
      RaiseSqlite(source_, rc, msg + ": " + path);
    }
    sqlite3_extended_result_codes(db_, 1);
    Exec("PRAGMA foreign_keys = ON");
  }
  ~SqliteConnection() override { sqlite3_close_v2(db_); }

  const DriverQuirks& Quirks() const override { return SqliteQuirks(); }

  // An SQLite file stands in for a Jet file: its declared types keep the Jet vocabulary, so
  // that the DAO view reads the same type codes back.
  std::unique_ptr<StatementBackend> Prepare(const std::string& written) override {
    // Jet's MEMO would get numeric affinity, which turns the text "007" into the number 7.
    const std::string sql = WithTextAffinity(written);
    sqlite3_stmt* st = nullptr;
    const int rc = sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &st, nullptr);
    if (rc != SQLITE_OK) Fail(rc);
    if (!st) {  // blank text or only a comment
      throw ZtError(hr::kCommand, source_, "The command text holds no statement.");
    }
    return std::make_unique<SqliteStatement>(*this, st);
  }

  void BeginTransaction() override { Exec("BEGIN"); }
  void Commit() override { Exec("COMMIT"); }
  void Rollback() override {
    if (!sqlite3_get_autocommit(db_)) Exec("ROLLBACK");
  }
  void SetCommandTimeout(int seconds) override { timeout_seconds_ = seconds; }
  bool IsAlive() override { return db_ != nullptr; }
  Variant LastInsertId() override {
    return Variant(static_cast<std::int64_t>(sqlite3_last_insert_rowid(db_)));
  }

  std::vector<std::string> PrimaryKeyColumns(const std::string& table) override {
    std::vector<std::string> out;
    const RowSet rs =
        Query("SELECT name FROM pragma_table_info(?) WHERE pk > 0 ORDER BY pk", {Variant(table)});
    for (const auto& row : rs.rows) out.push_back(row[0].ToText());
    return out;
  }

  RowSet Schema(SchemaKind kind, const SchemaRestrictions& r) override;
  std::unique_ptr<BulkWriterBackend> BeginBulk(const std::string& table,
                                               const std::vector<std::string>& columns) override;

  // Arms the time-out of the statement about to run.
  void StartClock() {
    if (timeout_seconds_ <= 0) {
      sqlite3_progress_handler(db_, 0, nullptr, nullptr);
      return;
    }
    deadline_ = std::chrono::steady_clock::now() + std::chrono::seconds(timeout_seconds_);
    sqlite3_progress_handler(db_, 10000, &SqliteConnection::Progress, this);
  }

  void StopClock() { sqlite3_progress_handler(db_, 0, nullptr, nullptr); }

  [[noreturn]] void Fail(int rc) {
    std::string msg = sqlite3_errmsg(db_);
    if ((rc & 0xff) == SQLITE_INTERRUPT) msg = "Query timeout expired";
    RaiseSqlite(source_, rc, msg);
  }
  sqlite3* db() { return db_; }

 private:
  static int Progress(void* self) {
    return std::chrono::steady_clock::now() > static_cast<SqliteConnection*>(self)->deadline_;
  }
  void Exec(const char* sql) {
    const int rc = sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
    if (rc != SQLITE_OK) Fail(rc);
  }

  std::string source_;
  sqlite3* db_ = nullptr;
  int timeout_seconds_ = 0;
  std::chrono::steady_clock::time_point deadline_;
};

void SqliteStatement::Fail(int rc) {
  conn_.Fail(rc);
}

void SqliteStatement::BindBytes(int index, const std::string& bytes) {
  Bind(index, Variant::Null());  // resets the statement when it has run
  const int rc = sqlite3_bind_blob64(st_, index + 1, bytes.data(), bytes.size(), SQLITE_TRANSIENT);
  if (rc != SQLITE_OK) Fail(rc);
}

void SqliteStatement::Bind(int index, const Variant& v) {
  if (stepped_) {  // binding needs a reset statement, even one that ran to its end
    sqlite3_reset(st_);
    stepped_ = false;
    pending_row_ = false;
    done_ = true;
  }
  const int i = index + 1;
  int rc = SQLITE_OK;
  switch (v.Type()) {
    case VarType::Empty:
    case VarType::Null:
      rc = sqlite3_bind_null(st_, i);
      break;
    case VarType::Boolean:
      rc = sqlite3_bind_int(st_, i, v.ToBool() ? -1 : 0);
      break;
    case VarType::Long:
    case VarType::LongLong:
      rc = sqlite3_bind_int64(st_, i, v.ToInt64());
      break;
    case VarType::Double:
    case VarType::Currency:
      rc = sqlite3_bind_double(st_, i, v.ToDouble());
      break;
    case VarType::Decimal: {
      // A whole number as an integer; else the exact text, which the column's affinity decides on.
      const Decimal* d = v.AsDecimal();
      if (d->scale == 0 && d->hi == 0 && d->lo <= static_cast<std::uint64_t>(INT64_MAX)) {
        rc = sqlite3_bind_int64(st_, i, d->ToInt64());
        break;
      }
      const std::string t = d->ToText();
      rc = sqlite3_bind_text(st_, i, t.data(), static_cast<int>(t.size()), SQLITE_TRANSIENT);
      break;
    }
    case VarType::Date: {
      const std::string t = DateText(Date{v.ToDouble()});
      rc = sqlite3_bind_text(st_, i, t.data(), static_cast<int>(t.size()), SQLITE_TRANSIENT);
      break;
    }
    case VarType::String: {
      const std::string* s = v.AsString();
      rc = sqlite3_bind_text(st_, i, s->data(), static_cast<int>(s->size()), SQLITE_TRANSIENT);
      break;
    }
    default:
      RaiseAdo(AdoError::kDataConversion, "SQLite",
               "(parameter " + std::to_string(index + 1) + ")");
  }
  if (rc != SQLITE_OK) Fail(rc);
}

void SqliteStatement::Execute() {
  sqlite3_reset(st_);
  conn_.StartClock();
  const sqlite3_int64 before = sqlite3_total_changes64(conn_.db());
  const int rc = sqlite3_step(st_);
  // The time-out covers the statement up to its first row, as a command's time-out always did;
  // the fetches after it may take as long as the reader (a table copy streams for minutes).
  conn_.StopClock();
  stepped_ = true;
  pending_row_ = rc == SQLITE_ROW;
  done_ = rc == SQLITE_DONE;
  if (!pending_row_ && !done_) {
    sqlite3_reset(st_);
    done_ = true;
    Fail(rc);
  }
  // DDL leaves sqlite3_changes() at the last DML's count, so a step that changed nothing counts
  // 0. One that changed rows counts its own (sqlite3_changes), not those its triggers changed
  // in other tables, which the total holds as well.
  if (sqlite3_stmt_readonly(st_))
    affected_ = -1;
  else if (sqlite3_total_changes64(conn_.db()) == before)
    affected_ = 0;
  else
    affected_ =
        done_ ? sqlite3_changes64(conn_.db()) : sqlite3_total_changes64(conn_.db()) - before;
  if (!described_) Describe();
}

void SqliteStatement::Describe() {
  described_ = true;
  const int n = sqlite3_column_count(st_);
  columns_.resize(static_cast<std::size_t>(n));
  kinds_.resize(static_cast<std::size_t>(n));
  for (int c = 0; c < n; ++c) {
    ColumnInfo& ci = columns_[static_cast<std::size_t>(c)];
    ci.name = sqlite3_column_name(st_, c);
    const char* decl = sqlite3_column_decltype(st_, c);
    const char* table = sqlite3_column_table_name(st_, c);
    const char* origin = sqlite3_column_origin_name(st_, c);
    if (decl) {
      const TypeMapping t = MapSqliteTypeName(decl);
      ci.type = t.ado_type;
      ci.defined_size = t.defined_size;
      ci.attributes = t.attributes;
      ci.precision = t.precision;
      ci.scale = t.scale;
      ci.auto_increment = t.auto_increment;
      kinds_[static_cast<std::size_t>(c)] = KindOf(t.ado_type);
    } else {
      // An expression: its type is that of its first value (an integer count or maximum reads
      // as a Long, as it did on Jet).
      const int st = pending_row_ ? sqlite3_column_type(st_, c) : SQLITE_NULL;
      ci.type = st == SQLITE_INTEGER ? 3 : st == SQLITE_FLOAT ? 5 : st == SQLITE_BLOB ? 205 : 202;
      ci.defined_size = st == SQLITE_INTEGER ? 4 : st == SQLITE_FLOAT ? 8 : 255;
      if (ci.type != 202) ci.attributes |= attr::kFixed;
      kinds_[static_cast<std::size_t>(c)] = Kind::kAuto;
    }
    ci.attributes |= attr::kMayBeNull;
    if (table && origin) {
      ci.base_table = table;
      ci.base_column = origin;
      int notnull = 0, pk = 0, autoinc = 0;
      const char *type = nullptr, *coll = nullptr;
      if (sqlite3_table_column_metadata(conn_.db(), sqlite3_column_database_name(st_, c), table,
                                        origin, &type, &coll, &notnull, &pk,
                                        &autoinc) == SQLITE_OK) {
        ci.key_column = pk != 0;
        // An INTEGER PRIMARY KEY is the row id: the engine numbers it, as Jet's COUNTER did.
        // Only a key of that one column: each column of a longer key is given by the rows.
        if (autoinc || (pk && type && strcasecmp(type, "INTEGER") == 0 &&
                        KeyColumns(sqlite3_column_database_name(st_, c), table) == 1))
          ci.auto_increment = true;
        if (!notnull && !pk)
          ci.attributes |= attr::kIsNullable;
        else
          ci.attributes &= ~attr::kMayBeNull;
      }
      ci.attributes |= attr::kUpdatable;
      if (ci.key_column) ci.attributes |= attr::kKeyColumn;
    } else {
      ci.attributes |= attr::kIsNullable;
    }
  }
}

int SqliteStatement::KeyColumns(const char* database, const char* table) {
  sqlite3_stmt* q = nullptr;
  int n = 0;
  if (sqlite3_prepare_v2(conn_.db(), "SELECT COUNT(*) FROM pragma_table_info(?1, ?2) WHERE pk > 0",
                         -1, &q, nullptr) == SQLITE_OK) {
    sqlite3_bind_text(q, 1, table, -1, SQLITE_STATIC);
    sqlite3_bind_text(q, 2, database ? database : "main", -1, SQLITE_STATIC);
    if (sqlite3_step(q) == SQLITE_ROW) n = sqlite3_column_int(q, 0);
  }
  sqlite3_finalize(q);
  return n;
}

bool SqliteStatement::Fetch() {
  if (pending_row_) {
    pending_row_ = false;
    return true;
  }
  if (done_) return false;
  const int rc = sqlite3_step(st_);
  if (rc == SQLITE_ROW) return true;
  done_ = true;
  if (rc != SQLITE_DONE) {
    sqlite3_reset(st_);
    Fail(rc);
  }
  return false;
}

Variant SqliteStatement::Get(int col) {
  const Kind k = kinds_[static_cast<std::size_t>(col)];
  switch (sqlite3_column_type(st_, col)) {
    case SQLITE_NULL:
      return Variant::Null();
    case SQLITE_INTEGER: {
      const sqlite3_int64 v = sqlite3_column_int64(st_, col);
      if (k == Kind::kBool) return Variant(v != 0);
      // A whole number past the currency range (any integer fits the file) stays exact as a
      // decimal rather than wrap around.
      if (k == Kind::kCurrency) {
        constexpr sqlite3_int64 kMaxUnits = INT64_MAX / 10000;
        if (v >= -kMaxUnits && v <= kMaxUnits) return Variant(Currency{v * 10000});
        return Variant(Decimal::FromInt64(v));
      }
      if (k == Kind::kDouble) return Variant(static_cast<double>(v));
      // Files converted from Jet keep dates as OLE day numbers; the column's NUMERIC affinity
      // turns a midnight (45000.0) into an integer.
      if (k == Kind::kDate) return Variant(Date{static_cast<double>(v)});
      if (k == Kind::kDecimal) return Variant(Decimal::FromInt64(v));
      if (v >= INT32_MIN && v <= INT32_MAX) return Variant(static_cast<std::int32_t>(v));
      return Variant(static_cast<std::int64_t>(v));
    }
    case SQLITE_FLOAT: {
      const double d = sqlite3_column_double(st_, col);
      if (k == Kind::kCurrency) return Variant(Currency::FromDouble(d));
      if (k == Kind::kBool) return Variant(d != 0);
      if (k == Kind::kDate) return Variant(Date{d});
      return Variant(d);
    }
    case SQLITE_TEXT: {
      const char* p = reinterpret_cast<const char*>(sqlite3_column_text(st_, col));
      const std::size_t n = static_cast<std::size_t>(sqlite3_column_bytes(st_, col));
      if (k == Kind::kDate)
        if (auto d = ParseDateText(p, n)) return Variant(*d);
      if (k == Kind::kDecimal)
        if (auto d = Decimal::TryParse(std::string_view(p, n))) return Variant(*d);
      return Variant(std::string_view(p, n));
    }
    default: {
      const void* p = sqlite3_column_blob(st_, col);
      const int n = sqlite3_column_bytes(st_, col);
      return Variant(std::string(static_cast<const char*>(p), static_cast<std::size_t>(n)));
    }
  }
}

// Schema rowsets from SQLite's own catalogue. There is no catalog or schema level: both columns
// are Null, as the Jet provider reported them. A rowid alias (INTEGER PRIMARY KEY) has no index
// of its own, so the indexes rowset shows it as Jet's "PrimaryKey" index.
RowSet SqliteConnection::Schema(SchemaKind kind, const SchemaRestrictions& r) {
  const Variant null = Variant::Null();
  std::string where = " WHERE m.type IN ('table', 'view')";
  std::vector<Variant> params;
  if (r.table) {
    where += " AND m.name = ? COLLATE NOCASE";
    params.emplace_back(*r.table);
  }
  // A catalog or schema restriction other than empty matches nothing here.
  const bool none = (r.catalog && !r.catalog->empty()) || (r.schema && !r.schema->empty());
  RowSet out;
  switch (kind) {
    case SchemaKind::kTables: {
      out.columns = TablesRowsetColumns();
      if (none) break;
      const RowSet rs =
          Query("SELECT m.name, m.type FROM sqlite_master m" + where + " ORDER BY m.name", params);
      for (const auto& row : rs.rows) {
        const std::string name = row[0].ToText();
        std::string type = row[1].ToText() == "view" ? "VIEW" : "TABLE";
        if (name.rfind("sqlite_", 0) == 0) type = "SYSTEM TABLE";
        if (r.extra && *r.extra != type) continue;
        out.rows.push_back({null, null, row[0], Variant(type), null, null, null, null, null});
      }
      break;
    }
    case SchemaKind::kColumns: {
      out.columns = ColumnsRowsetColumns();
      if (none) break;
      if (r.extra) {
        where += " AND p.name = ? COLLATE NOCASE";
        params.emplace_back(*r.extra);
      }
      const RowSet rs = Query(
          "SELECT m.name, p.cid, p.name, p.type, p.\"notnull\", p.dflt_value, p.pk FROM "
          "sqlite_master m JOIN pragma_table_info(m.name) p" +
              where + " ORDER BY m.name, p.cid",
          params);
      for (const auto& row : rs.rows) {
        const TypeMapping t = MapSqliteTypeName(row[3].ToText());
        const bool nullable = row[4].ToInt32() == 0 && row[6].ToInt32() == 0;
        std::int32_t flags = t.attributes | attr::kUpdatable | attr::kUnknownUpdatable;
        if (nullable) flags |= attr::kIsNullable | attr::kMayBeNull;
        const bool text = t.ado_type == 130 || t.ado_type == 202 || t.ado_type == 203;
        const bool binary = t.ado_type == 128 || t.ado_type == 204 || t.ado_type == 205;
        out.rows.push_back({null, null, row[0], row[2], Variant(row[1].ToInt32() + 1),
                            Variant(!row[5].IsNull()), row[5], Variant(flags), Variant(nullable),
                            Variant(t.ado_type), text || binary ? Variant(t.defined_size) : null,
                            text     ? Variant(t.defined_size * 2)
                            : binary ? Variant(t.defined_size)
                                     : null,
                            t.precision == 255 ? null : Variant(t.precision),
                            t.scale == 255 ? null : Variant(t.scale), null, null});
      }
      break;
    }
    case SchemaKind::kIndexes: {
      out.columns = IndexRowsetColumns();
      if (none) break;
      // Declared indexes and the automatic ones of PRIMARY KEY / UNIQUE constraints.
      std::string iw = where;
      std::vector<Variant> ip = params;
      if (r.extra) {
        iw += " AND l.name = ?";
        ip.emplace_back(*r.extra);
      }
      const RowSet rs = Query(
          "SELECT m.name, l.name, l.\"unique\", l.origin, i.seqno, i.name FROM sqlite_master m "
          "JOIN pragma_index_list(m.name) l JOIN pragma_index_info(l.name) i" +
              iw + " ORDER BY m.name, l.name, i.seqno",
          ip);
      for (const auto& row : rs.rows) {
        const bool pk = row[3].ToText() == "pk";
        out.rows.push_back(
            IndexRow(null, null, row[0].ToText(), pk ? std::string("PrimaryKey") : row[1].ToText(),
                     pk, row[2].ToInt32() != 0, false, row[4].ToInt32() + 1, row[5].ToText()));
      }
      if (r.extra && *r.extra != "PrimaryKey") break;
      const RowSet rowid = Query(
          "SELECT m.name, p.name FROM sqlite_master m JOIN pragma_table_info(m.name) p" + where +
              " AND p.pk = 1 AND upper(p.type) = 'INTEGER' AND (SELECT count(*) FROM "
              "pragma_table_info(m.name) q WHERE q.pk > 0) = 1 AND NOT EXISTS (SELECT 1 FROM "
              "pragma_index_list(m.name) l WHERE l.origin = 'pk')",
          params);
      for (const auto& row : rowid.rows)
        out.rows.push_back(IndexRow(null, null, row[0].ToText(), "PrimaryKey", true, true, false, 1,
                                    row[1].ToText()));
      break;
    }
    case SchemaKind::kPrimaryKeys: {
      out.columns = PrimaryKeysRowsetColumns();
      if (none) break;
      const RowSet rs = Query(
          "SELECT m.name, p.name, p.pk FROM sqlite_master m JOIN pragma_table_info(m.name) p" +
              where + " AND p.pk > 0 ORDER BY m.name, p.pk",
          params);
      for (const auto& row : rs.rows)
        out.rows.push_back({null, null, row[0], row[1], null, null, row[2], Variant("PrimaryKey")});
      break;
    }
    case SchemaKind::kViews: {
      out.columns = ViewsRowsetColumns();
      if (none) break;
      const RowSet rs =
          Query("SELECT name, sql FROM sqlite_master WHERE type = 'view' ORDER BY name");
      for (const auto& row : rs.rows)
        out.rows.push_back(
            ViewRow(null, null, row[0].ToText(), Variant(ViewQuery(row[1].ToText()))));
      break;
    }
    case SchemaKind::kForeignKeys: {
      out.columns = ForeignKeysRowsetColumns();
      if (none) break;
      // SQLite names no relationship; a reference without columns means the parent's key.
      const RowSet rs = Query(
          "SELECT m.name, f.id, f.seq, f.\"table\", f.\"from\", f.\"to\", f.on_update, "
          "f.on_delete FROM sqlite_master m JOIN pragma_foreign_key_list(m.name) f WHERE "
          "m.type = 'table' ORDER BY m.name, f.id, f.seq");
      for (const auto& row : rs.rows) {
        ForeignKeyColumn k;
        k.fk_table = row[0].ToText();
        k.ordinal = row[2].ToInt32() + 1;
        k.pk_table = row[3].ToText();
        k.fk_column = row[4].ToText();
        if (row[5].IsNull()) {
          const auto key = PrimaryKeyColumns(k.pk_table);
          const auto at = static_cast<std::size_t>(k.ordinal - 1);
          k.pk_column = at < key.size() ? key[at] : std::string();
        } else {
          k.pk_column = row[5].ToText();
        }
        k.update_rule = row[6].ToText();
        k.delete_rule = row[7].ToText();
        out.rows.push_back(ForeignKeyRow(null, null, k));
      }
      break;
    }
  }
  return out;
}

// Rows for one table in one transaction (or in the caller's). A value of a column declared
// binary (LONGBINARY, BLOB, VARBINARY ...) is bound as a blob: bound as text it would take
// SQLite's TEXT class, which other programs read as text, cut at its first NUL.
class SqliteBulk : public BulkWriterBackend {
 public:
  SqliteBulk(SqliteConnection& conn, const std::string& table,
             const std::vector<std::string>& columns, std::vector<bool> binary)
      : prepared_(conn.Prepare(InsertText(conn.Quirks(), table, columns, 1))),
        st_(*prepared_),
        binary_(std::move(binary)),
        tx_(conn) {}
  void AddRow(const std::vector<Variant>& values) override {
    tx_.RequireOpen();
    try {
      for (std::size_t i = 0; i < values.size(); ++i) {
        const std::string* bytes = binary_[i] ? values[i].AsString() : nullptr;
        if (bytes)
          st_.BindBytes(static_cast<int>(i), *bytes);
        else
          st_.Bind(static_cast<int>(i), values[i]);
      }
      st_.Execute();
    } catch (const ZtError&) {
      tx_.Abandon();
      throw;
    }
  }
  void Finish() override {
    if (tx_.Open()) tx_.Commit();
  }

 private:
  std::unique_ptr<StatementBackend> prepared_;
  StatementBackend& st_;
  std::vector<bool> binary_;
  ScopedTransaction tx_;
};

std::unique_ptr<BulkWriterBackend> SqliteConnection::BeginBulk(
    const std::string& table, const std::vector<std::string>& columns) {
  const RowSet declared = Query("SELECT name, type FROM pragma_table_info(?)", {Variant(table)});
  std::vector<bool> binary;
  for (const std::string& column : columns) {
    bool is_binary = false;
    for (const auto& row : declared.rows)
      if (sqlite3_stricmp(row[0].ToText().c_str(), column.c_str()) == 0) {
        const std::int32_t t = MapSqliteTypeName(row[1].ToText()).ado_type;
        is_binary = t == 128 || t == 204 || t == 205;
      }
    binary.push_back(is_binary);
  }
  return std::make_unique<SqliteBulk>(*this, table, columns, std::move(binary));
}

std::unique_ptr<ConnectionBackend> OpenSqlite(const ConnectParams& p) {
  return std::make_unique<SqliteConnection>(p);
}

}  // namespace

std::unique_ptr<ConnectionBackend> OpenSqliteDriver(const ConnectParams& p) {
  return OpenSqlite(p);
}

}  // namespace zt::platform
