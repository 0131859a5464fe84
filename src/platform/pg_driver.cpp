// The native PostgreSQL driver, on libpq. Registered as "postgresql".
//
// Parameters travel as text and the server types them from the statement; results come back as
// text and become Variants by their column's type (kPgTypes). A statement with parameters is
// prepared on the server once and executed as often as the caller binds new values. Bulk loads
// go through COPY ... FROM STDIN, one stream for any number of rows (parameter arrays through
// psqlODBC run one row at a time, about 33,000 rows a second).
#include <libpq-fe.h>
#include <poll.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "platform/driver.h"
#include "platform/errors.h"
#include "platform/sql_text.h"
#include "platform/type_map.h"

namespace zt::platform {
namespace {

// ---------------------------------------------------------------------------------------------
// Types: type OID -> the name the shared type table knows, and how the value's text is read.
// The ADO codes themselves come from MapTypeName, so a PostgreSQL "varchar(50)" and a MariaDB
// "VARCHAR(50)" give the same field. Types not listed are read as text (adVarWChar).
// ---------------------------------------------------------------------------------------------
enum class ValueKind {
  kText,
  kBoolean,
  kInt32,
  kInt64,
  kDouble,
  kSingle,  // real: read at single precision, so a float keeps the one value it is
  kDecimal,
  kMoney,
  kDateTime,
  kBytes
};

struct PgType {
  unsigned oid;
  const char* name;
  ValueKind kind;
};

constexpr PgType kPgTypes[] = {
    {16, "boolean", ValueKind::kBoolean},
    {17, "bytea", ValueKind::kBytes},
    {18, "char(1)", ValueKind::kText},
    {19, "varchar(64)", ValueKind::kText},
    {20, "bigint", ValueKind::kInt64},
    {21, "smallint", ValueKind::kInt32},
    {23, "integer", ValueKind::kInt32},
    {25, "text", ValueKind::kText},
    {26, "bigint", ValueKind::kInt64},
    {114, "text", ValueKind::kText},
    {142, "text", ValueKind::kText},
    {700, "real", ValueKind::kSingle},
    {701, "double precision", ValueKind::kDouble},
    {790, "money", ValueKind::kMoney},
    {1042, "char", ValueKind::kText},
    {1043, "varchar", ValueKind::kText},
    {1082, "date", ValueKind::kDateTime},
    {1083, "time", ValueKind::kText},
    {1114, "timestamp", ValueKind::kDateTime},
    {1184, "timestamptz", ValueKind::kDateTime},
    {1560, "bit", ValueKind::kBoolean},
    {1700, "numeric", ValueKind::kDecimal},
    {2950, "uuid", ValueKind::kText},
    {3802, "text", ValueKind::kText},
};

const PgType& TypeForOid(Oid oid) {
  static constexpr PgType kUnknown{0, "varchar", ValueKind::kText};
  for (const auto& t : kPgTypes)
    if (t.oid == oid) return t;
  return kUnknown;
}

// The codes of a result column from its type and type modifier.
TypeMapping MapResultColumn(const PgType& t, int typmod) {
  std::int64_t length = 0;
  std::int32_t precision = 0, scale = 0;
  if ((t.oid == 1042 || t.oid == 1043) && typmod >= 4) length = typmod - 4;
  if (t.oid == 1700 && typmod >= 4) {
    precision = ((typmod - 4) >> 16) & 0xffff;
    scale = (typmod - 4) & 0xffff;
  }
  // An unbounded varchar is a long text, as the shared table says for server engines.
  return MapTypeName(t.name, length, precision, scale);
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 0;
}

// "2024-02-01 13:45:30.123+01" or "2024-02-01" -> an OLE date; the text itself for values an
// OLE date cannot hold (infinity, BC).
Variant DateFromText(std::string_view s) {
  int y = 0, mo = 0, d = 0, h = 0, mi = 0;
  double sec = 0;
  const std::string buf(s);
  const int n = std::sscanf(buf.c_str(), "%d-%d-%d %d:%d:%lf", &y, &mo, &d, &h, &mi, &sec);
  if ((n != 3 && n != 6) || buf.find("BC") != std::string::npos) return Variant(buf);
  const int whole = static_cast<int>(sec);
  Date date = Date::FromParts(y, mo, d, h, mi, whole);
  if (date.serial >= 0) date.serial += (sec - whole) / 86400.0;
  return Variant(date);
}

Variant ValueFromText(ValueKind kind, const char* text, int length) {
  const std::string_view s(text, static_cast<std::size_t>(length));
  switch (kind) {
    case ValueKind::kBoolean:
      return Variant(s == "t" || s == "1");
    case ValueKind::kInt32: {
      std::int32_t v = 0;
      std::from_chars(s.data(), s.data() + s.size(), v);
      return Variant(v);
    }
    case ValueKind::kInt64: {
      std::int64_t v = 0;
      std::from_chars(s.data(), s.data() + s.size(), v);
      return Variant(v);
    }
    case ValueKind::kDouble:
      if (s == "NaN" || s == "Infinity" || s == "-Infinity") return Variant(std::string(s));
      return Variant(std::strtod(text, nullptr));
    case ValueKind::kSingle:
      // The server writes a real's shortest text ("0.15"); read as a double that would be
      // another number than the float stored, which is 0.15000000596046448.
      if (s == "NaN" || s == "Infinity" || s == "-Infinity") return Variant(std::string(s));
      return Variant(static_cast<double>(std::strtof(text, nullptr)));
    case ValueKind::kDecimal: {
      // numeric comes as its exact text; NaN, the infinities and values past 28 decimals or 96
      // bits (numeric allows far more) stay text rather than lose digits.
      if (auto d = Decimal::TryParse(s)) return Variant(*d);
      return Variant(std::string(s));
    }
    case ValueKind::kMoney: {
      // The text follows lc_monetary ("$1,234.50", "-$3.00"): keep sign, digits and the point.
      std::string digits;
      bool negative = false;
      for (char c : s) {
        if (c == '-' || c == '(') negative = true;
        if ((c >= '0' && c <= '9') || c == '.') digits += c;
      }
      if (negative) digits.insert(0, 1, '-');
      return Variant(Decimal::Parse(digits).ToCurrency());
    }
    case ValueKind::kDateTime:
      return DateFromText(s);
    case ValueKind::kBytes: {
      // bytea_output "hex": "\x" and two digits a byte.
      if (s.size() < 2 || s[0] != '\\' || s[1] != 'x') return Variant(std::string(s));
      std::string out;
      out.reserve((s.size() - 2) / 2);
      for (std::size_t i = 2; i + 1 < s.size(); i += 2)
        out += static_cast<char>(HexDigit(s[i]) * 16 + HexDigit(s[i + 1]));
      return Variant(std::move(out));
    }
    case ValueKind::kText:
      break;
  }
  return Variant(std::string(s));
}

// "YYYY-MM-DD hh:mm:ss[.ffffff]", which every DateStyle reads the same way.
std::string IsoDateText(Date date) {
  return DateTimeText(date.serial);
}

// The text form of a parameter or COPY field; nullopt for SQL NULL.
std::optional<std::string> ParameterText(const Variant& v) {
  switch (v.Type()) {
    case VarType::Empty:
    case VarType::Null:
      return std::nullopt;
    case VarType::Boolean:
      return std::string(v.ToBool() ? "true" : "false");
    case VarType::Date:
      return IsoDateText(Date{v.ToDouble()});
    case VarType::Double: {
      char buf[32];
      const auto r = std::to_chars(buf, buf + sizeof buf, v.ToDouble());
      return std::string(buf, r.ptr);
    }
    default:  // currency and decimals in their exact text
      return v.ToText();
  }
}

struct ResultDeleter {
  void operator()(PGresult* r) const { PQclear(r); }
};
using Result = std::unique_ptr<PGresult, ResultDeleter>;

// ---------------------------------------------------------------------------------------------
// Connection
// ---------------------------------------------------------------------------------------------

// What the catalog says about one column of a table, for result fields.
struct BaseColumn {
  std::string table, column;
  bool not_null = false, key = false, auto_increment = false;
};

// A statement whose rows arrive one at a time while the caller reads them. libpq runs one query
// at a time on a connection, so anything else that needs the connection first has the stream
// buffer the rest of its rows (Buffer); a copy reads its source without other work on it and so
// never buffers.
class RowStream {
 public:
  virtual void Buffer() = 0;

 protected:
  ~RowStream() = default;
};

class PgConnection : public ConnectionBackend {
 public:
  explicit PgConnection(const ConnectParams& p);
  ~PgConnection() override { PQfinish(pg_); }

  const DriverQuirks& Quirks() const override { return quirks_; }
  std::unique_ptr<StatementBackend> Prepare(const std::string& sql) override;
  void BeginTransaction() override { Command("BEGIN"); }
  void Commit() override {
    try {
      Command("COMMIT");
    } catch (const ZtError& e) {
      RaiseCommitFailure(e);
    }
  }
  void Rollback() override {
    // A rollback also takes back a SET made inside the transaction.
    applied_timeout_ = -1;
    relations_.reset();  // and a table made inside it
    Command("ROLLBACK");
  }
  void SetCommandTimeout(int seconds) override;
  bool IsAlive() override;
  std::string CurrentCatalog() override { return PQdb(pg_); }
  std::string DefaultSchema() override;
  RowSet Schema(SchemaKind kind, const SchemaRestrictions& r) override;
  Variant LastInsertId() override;
  std::string CatalogSpelling(const std::string& name, bool unquoted) override;
  void BeginStatement(const std::string& sql) override;
  std::unique_ptr<BulkWriterBackend> BeginBulk(const std::string& table,
                                               const std::vector<std::string>& columns) override;

  // The connection for a new request: a statement still streaming rows buffers them first.
  PGconn* conn() {
    if (RowStream* s = stream_) {
      stream_ = nullptr;
      s->Buffer();
    }
    return pg_;
  }
  // The connection as it is, for the streaming statement's own reads.
  PGconn* raw() const { return pg_; }
  void StartStream(RowStream* s) {
    conn();
    stream_ = s;
  }
  void EndStream(RowStream* s) {
    if (stream_ == s) stream_ = nullptr;
  }
  int Timeout() const { return timeout_; }
  // Sets statement_timeout for what follows (`seconds` 0: none) unless it is set so already.
  void ApplyTimeoutOf(int seconds);
  const std::string& source() const { return source_; }
  // Throws the error of a failed result (or of the connection when `r` is null).
  [[noreturn]] void Fail(const PGresult* r) const;
  // Checks a result: returns it when it is one of the good states, throws otherwise.
  Result Check(PGresult* r) const;
  void Command(const char* sql) { Check(PQexec(conn(), sql)); }
  std::string NextStatementName() { return "zt_stmt_" + std::to_string(++statements_); }
  const BaseColumn* Base(Oid table, int column);
  // Drops what was read from the catalog (after DDL or SET on this connection).
  void ForgetCatalog() {
    bases_.clear();
    default_schema_.clear();
    relations_.reset();
    missing_.clear();
  }
  void ApplyTimeout();

 private:
  DriverQuirks quirks_;
  std::string source_;
  PGconn* pg_ = nullptr;
  RowStream* stream_ = nullptr;
  int statements_ = 0;
  std::string default_schema_;
  std::string schema_;  // the schema the connection string asked for, "" for the server's
  std::map<Oid, std::map<int, BaseColumn>> bases_;
  // The names of the user's schemas, relations, columns, indexes and constraints, read when
  // first needed: each as spelled, and each lower-cased name with its spelling.
  struct Spelling {
    std::string owner;  // the lower-case name of the table a column, index or key belongs to
    std::string spelled;
  };
  struct Spellings {
    std::unordered_set<std::string> exact;
    std::unordered_map<std::string, std::vector<Spelling>> caseless;  // by lower-case name
    std::uint64_t read_at = 0;                                        // prepares_ when read
  };
  // Of the spellings of one lower-case name, the one `name` means: the only one; else the one
  // belonging to a table the statement names; else `name` itself; else the lower-case one.
  std::string Choose(const std::vector<Spelling>& spellings, const std::string& name) const;
  // The lower-case words of the statement being prepared (BeginStatement).
  std::unordered_set<std::string> statement_words_;
  // Reads relations_ (and keywords_ the first time); false when the server refuses.
  bool ReadCatalog();
  std::uint64_t prepares_ = 0;               // statements prepared so far
  std::unordered_set<std::string> missing_;  // lower-case names a fresh read did not hold
  // The server's keywords (lower case), which an unquoted word is never taken for a name as.
  std::optional<std::unordered_set<std::string>> keywords_;
  std::optional<Spellings> relations_;
  int timeout_ = 0;
  int applied_timeout_ = 0;
};

// True when libpq takes `keyword` in its connection parameters.
bool KnownLibpqKeyword(const std::string& keyword) {
  static const std::set<std::string> known = [] {
    std::set<std::string> out;
    if (PQconninfoOption* options = PQconndefaults()) {
      for (PQconninfoOption* o = options; o->keyword; ++o) out.insert(o->keyword);
      PQconninfoFree(options);
    }
    return out;
  }();
  return known.count(keyword) > 0;
}

DriverQuirks PgQuirks() {
  DriverQuirks q;
  q.engine = "PostgreSQL";
  q.quote = QuoteStyle::kDoubleQuotes;
  q.fold = NameFolding::kCatalog;
  q.max_name_bytes = 63;  // NAMEDATALEN - 1
  q.transactional_ddl = true;
  q.has_schemas = true;
  q.dollar_quotes = true;
  q.escape_strings = true;
  q.row_identity = "ctid";
  q.row_identity_moves = true;
  return q;
}

PgConnection::PgConnection(const ConnectParams& p)
    : quirks_(PgQuirks()), source_(p.provider.empty() ? "PostgreSQL" : p.provider) {
  quirks_.read_only = p.read_only;
  const std::string port = p.port ? std::to_string(p.port) : std::string();
  const std::string timeout = std::to_string(p.login_timeout > 0 ? p.login_timeout : 15);
  std::vector<const char*> keys = {
      "host",           "port", "dbname", "user", "password", "connect_timeout", "application_name",
      "client_encoding"};
  std::vector<const char*> values = {
      p.data_source.c_str(), port.c_str(),    p.database.c_str(), p.user.c_str(),
      p.password.c_str(),    timeout.c_str(), "ZtDBTools",        "UTF8"};
  // Items of the connection string that libpq knows (sslmode, sslrootcert, ...) go to it as
  // they are; "Schema" makes that schema the one names are found and made in.
  std::string schema_option;
  for (const auto& [key, value] : p.extra) {
    const std::string k = AsciiLower(key);
    if (k == "schema") {
      // The options text is split at blanks, and a backslash keeps one inside the value.
      for (char c : QuoteIdentifier(value, PgQuirks())) {
        if (c == ' ' || c == '\\') schema_option += '\\';
        schema_option += c;
      }
      schema_ = value;
    } else if (k != "options" && KnownLibpqKeyword(k)) {
      keys.push_back(key.c_str());
      values.push_back(value.c_str());
    }
  }
  // DateStyle ISO keeps timestamps readable whatever the server's default is; a read-only
  // connection is read-only on the server too, so a function that writes is refused as well.
  const std::string options = std::string("-c DateStyle=ISO,MDY") +
                              (p.read_only ? " -c default_transaction_read_only=on" : "") +
                              (schema_option.empty() ? "" : " -c search_path=" + schema_option);
  keys.push_back("options");
  values.push_back(options.c_str());
  keys.push_back(nullptr);
  values.push_back(nullptr);
  pg_ = PQconnectdbParams(keys.data(), values.data(), 0);
  if (PQstatus(pg_) != CONNECTION_OK) {
    const std::string message = DriverMessage(pg_ ? PQerrorMessage(pg_) : "out of memory");
    // libpq gives no SQLSTATE for a failed start-up; its text tells a refused login apart.
    const bool login = message.find("authentication failed") != std::string::npos ||
                       message.find("password") != std::string::npos;
    PQfinish(pg_);
    pg_ = nullptr;
    RaiseSqlState(source_, login ? "28000" : "08001", 0, message);
  }
  PQsetNoticeProcessor(
      pg_, [](void*, const char*) {}, nullptr);
  if (!schema_.empty() && DefaultSchema() != schema_) {
    // A search path naming a missing schema is no error to PostgreSQL; tables would be looked
    // for and made elsewhere.
    PQfinish(pg_);
    pg_ = nullptr;
    RaiseSqlState(
        source_, "3F000", 0,
        "The schema '" + schema_ + "' does not exist in the database '" + p.database + "'.");
  }
}

void PgConnection::Fail(const PGresult* r) const {
  const char* code = r ? PQresultErrorField(r, PG_DIAG_SQLSTATE) : nullptr;
  std::string state = code ? code : "";
  const std::string message = DriverMessage(r ? PQresultErrorMessage(r) : PQerrorMessage(pg_));
  if (state.empty()) state = PQstatus(pg_) == CONNECTION_BAD ? "08006" : "HY000";
  // PostgreSQL's own error code is its SQLSTATE: it stands where other engines put a number.
  throw EngineError(source_, state, 0, message, state);
}

Result PgConnection::Check(PGresult* raw) const {
  Result r(raw);
  const ExecStatusType st = r ? PQresultStatus(r.get()) : PGRES_FATAL_ERROR;
  if (st == PGRES_COMMAND_OK || st == PGRES_TUPLES_OK || st == PGRES_COPY_IN) return r;
  Fail(r.get());
}

void PgConnection::SetCommandTimeout(int seconds) {
  // Only remembered here: callers restore the time-out from destructors, so this must neither
  // fail nor cost a round trip. ApplyTimeout makes it effective before the next statement.
  timeout_ = std::max(0, seconds);
}

void PgConnection::ApplyTimeout() {
  ApplyTimeoutOf(timeout_);
}

void PgConnection::ApplyTimeoutOf(int seconds) {
  if (applied_timeout_ == seconds) return;
  Command(("SET statement_timeout = " + std::to_string(seconds * 1000)).c_str());
  applied_timeout_ = seconds;
}

bool PgConnection::IsAlive() {
  if (PQstatus(conn()) != CONNECTION_OK) return false;
  // A transaction that failed refuses every statement until it is rolled back, yet the server
  // is there: it just answered.
  if (PQtransactionStatus(conn()) == PQTRANS_INERROR) return true;
  Result r(PQexec(conn(), "SELECT 1"));
  return r && PQresultStatus(r.get()) == PGRES_TUPLES_OK;
}

std::string PgConnection::DefaultSchema() {
  if (default_schema_.empty()) {
    Result r = Check(PQexec(conn(), "SELECT current_schema()"));
    if (PQntuples(r.get()) == 1 && !PQgetisnull(r.get(), 0, 0))
      default_schema_ = PQgetvalue(r.get(), 0, 0);
  }
  return default_schema_;
}

Variant PgConnection::LastInsertId() {
  // lastval() fails when no sequence was used in this session, and a failure would abort the
  // caller's transaction: inside one it runs under a savepoint.
  const bool in_tx = PQtransactionStatus(conn()) == PQTRANS_INTRANS;
  if (in_tx) Result(PQexec(conn(), "SAVEPOINT zt_lastval"));
  Result r(PQexec(conn(), "SELECT lastval()"));
  const bool ok = r && PQresultStatus(r.get()) == PGRES_TUPLES_OK && PQntuples(r.get()) == 1;
  if (in_tx)
    Result(PQexec(conn(), ok ? "RELEASE SAVEPOINT zt_lastval"
                             : "ROLLBACK TO SAVEPOINT zt_lastval; RELEASE SAVEPOINT zt_lastval"));
  if (!ok) return Variant::Null();
  const std::int64_t v = std::atoll(PQgetvalue(r.get(), 0, 0));
  // A serial column is an integer: hand back a Long so a re-read by key compares like for like.
  if (v >= INT32_MIN && v <= INT32_MAX) return Variant(static_cast<std::int32_t>(v));
  return Variant(v);
}

bool PgConnection::ReadCatalog() {
  // The schemas of the search path (less pg_catalog): another schema's tables are not what an
  // unqualified name reaches, and other sessions' schemas may hold the same names.
  static const char* const kNames =
      "WITH s AS (SELECT oid FROM pg_namespace WHERE nspname = ANY (current_schemas(false))) "
      "SELECT c.relname, c.relname FROM pg_class c WHERE c.relnamespace IN (SELECT oid FROM s) "
      "AND c.relkind IN ('r', 'v', 'm', 'p', 'f', 'S') "
      "UNION ALL SELECT t.relname, i.relname FROM pg_index x JOIN pg_class i ON i.oid = "
      "x.indexrelid JOIN pg_class t ON t.oid = x.indrelid WHERE t.relnamespace IN (SELECT oid "
      "FROM s) "
      "UNION ALL SELECT c.relname, a.attname FROM pg_attribute a JOIN pg_class c ON c.oid = "
      "a.attrelid WHERE c.relnamespace IN (SELECT oid FROM s) AND a.attnum > 0 AND NOT "
      "a.attisdropped AND c.relkind IN ('r', 'v', 'm', 'p', 'f') "
      "UNION ALL SELECT coalesce(t.relname, ''), k.conname FROM pg_constraint k LEFT JOIN "
      "pg_class t ON t.oid = k.conrelid WHERE k.connamespace IN (SELECT oid FROM s) "
      "UNION ALL SELECT '', nspname FROM pg_namespace WHERE nspname NOT LIKE 'pg\\_%'";
  // A failed read (a transaction the server has already aborted) leaves names as written: the
  // statement itself then reports what is wrong.
  if (!keywords_) {
    Result k(PQexec(conn(), "SELECT word FROM pg_get_keywords()"));
    if (!k || PQresultStatus(k.get()) != PGRES_TUPLES_OK) return false;
    keywords_.emplace();
    for (int i = 0; i < PQntuples(k.get()); ++i) keywords_->insert(PQgetvalue(k.get(), i, 0));
  }
  Result r(PQexec(conn(), kNames));
  if (!r || PQresultStatus(r.get()) != PGRES_TUPLES_OK) return false;
  Spellings names;
  names.read_at = prepares_;
  for (int i = 0; i < PQntuples(r.get()); ++i) {
    std::string spelled = PQgetvalue(r.get(), i, 1);
    names.caseless[AsciiLower(spelled)].push_back({AsciiLower(PQgetvalue(r.get(), i, 0)), spelled});
    names.exact.insert(std::move(spelled));
  }
  relations_ = std::move(names);
  return true;
}

std::string PgConnection::CatalogSpelling(const std::string& name, bool unquoted) {
  const std::string key = AsciiLower(name);
  if (!relations_ && !ReadCatalog()) return {};
  if (unquoted && keywords_->count(key)) return {};
  // Names are read once until this connection runs DDL (ForgetCatalog). A name the copy does
  // not hold may have been made since by another session: the catalog is read again, at most
  // once per statement, and a name still missing then is not looked for again.
  auto it = relations_->caseless.find(key);
  if (it == relations_->caseless.end() && relations_->read_at != prepares_ &&
      !missing_.count(key)) {
    if (!ReadCatalog()) return {};
    it = relations_->caseless.find(key);
    if (it == relations_->caseless.end()) missing_.insert(key);
  }
  if (it == relations_->caseless.end()) return {};
  const std::string chosen = Choose(it->second, name);
  // An unquoted word is folded by the server to `key`: it is quoted only when it means another
  // spelling.
  if (unquoted) return chosen == key ? std::string() : chosen;
  return chosen;
}

std::string PgConnection::Choose(const std::vector<Spelling>& spellings,
                                 const std::string& name) const {
  auto all_same = [&](auto&& keep) {
    std::string found;
    for (const Spelling& s : spellings) {
      if (!keep(s)) continue;
      if (!found.empty() && found != s.spelled) return std::string();
      found = s.spelled;
    }
    return found;
  };
  // Columns of different tables may differ in case alone ("nid" here, "nId" there): the table
  // the statement names decides.
  if (std::string only = all_same([](const Spelling&) { return true; }); !only.empty()) return only;
  if (std::string named = all_same(
          [&](const Spelling& s) { return !s.owner.empty() && statement_words_.count(s.owner); });
      !named.empty())
    return named;
  for (const Spelling& s : spellings)
    if (s.spelled == name) return name;
  const std::string key = AsciiLower(name);
  for (const Spelling& s : spellings)
    if (s.spelled == key) return key;
  return spellings.front().spelled;
}

void PgConnection::BeginStatement(const std::string& sql) {
  // Every word and quoted or bracketed name, lower-cased: more than the tables it names, which
  // does no harm, as only a table's name can match a table's.
  statement_words_.clear();
  std::string word;
  bool quoted = false;
  char close = 0;
  for (char c : sql) {
    if (quoted) {
      if (c == close) {
        statement_words_.insert(AsciiLower(word));
        word.clear();
        quoted = false;
      } else {
        word += c;
      }
    } else if (c == '[' || c == '"') {
      if (!word.empty()) statement_words_.insert(AsciiLower(word));
      word.clear();
      quoted = true;
      close = c == '[' ? ']' : '"';
    } else if (std::isalnum(static_cast<unsigned char>(c)) || c == '_' ||
               static_cast<unsigned char>(c) >= 0x80) {
      word += c;
    } else if (!word.empty()) {
      statement_words_.insert(AsciiLower(word));
      word.clear();
    }
  }
  if (!word.empty()) statement_words_.insert(AsciiLower(word));
}

const BaseColumn* PgConnection::Base(Oid table, int column) {
  if (table == InvalidOid || column <= 0) return nullptr;
  auto it = bases_.find(table);
  if (it == bases_.end()) {
    // One catalog read per table until this connection runs DDL (see ForgetCatalog); DDL from
    // other sessions is not seen meanwhile, as with any provider's cached metadata.
    const std::string oid = std::to_string(table);
    const char* params[] = {oid.c_str()};
    Result r = Check(PQexecParams(
        conn(),
        "SELECT a.attnum, c.relname, a.attname, a.attnotnull, "
        "COALESCE(a.attnum = ANY (i.indkey::int2[]), false), "
        "a.attidentity <> '' OR COALESCE(pg_get_expr(d.adbin, d.adrelid) LIKE 'nextval(%', false) "
        "FROM pg_attribute a JOIN pg_class c ON c.oid = a.attrelid "
        "LEFT JOIN pg_index i ON i.indrelid = c.oid AND i.indisprimary "
        "LEFT JOIN pg_attrdef d ON d.adrelid = a.attrelid AND d.adnum = a.attnum "
        "WHERE a.attrelid = $1::oid AND a.attnum > 0 AND NOT a.attisdropped",
        1, nullptr, params, nullptr, nullptr, 0));
    std::map<int, BaseColumn> cols;
    for (int i = 0; i < PQntuples(r.get()); ++i) {
      BaseColumn b{PQgetvalue(r.get(), i, 1), PQgetvalue(r.get(), i, 2),
                   PQgetvalue(r.get(), i, 3)[0] == 't', PQgetvalue(r.get(), i, 4)[0] == 't',
                   PQgetvalue(r.get(), i, 5)[0] == 't'};
      cols[std::atoi(PQgetvalue(r.get(), i, 0))] = std::move(b);
    }
    it = bases_.emplace(table, std::move(cols)).first;
  }
  auto c = it->second.find(column);
  return c == it->second.end() ? nullptr : &c->second;
}

// ---------------------------------------------------------------------------------------------
// Statements
// ---------------------------------------------------------------------------------------------

class PgStatement : public StatementBackend, private RowStream {
 public:
  PgStatement(PgConnection& conn, const std::string& sql) : conn_(conn) {
    int count = 0;
    sql_ = RewritePlaceholders(sql, conn.Quirks(), &count);
    params_ = count;
    has_params_ = count > 0;
  }
  ~PgStatement() override {
    Discard();
    if (!name_.empty() && PQstatus(conn_.raw()) == CONNECTION_OK &&
        PQtransactionStatus(conn_.conn()) != PQTRANS_INERROR)
      Result(PQexec(conn_.conn(), ("DEALLOCATE " + name_).c_str()));
  }
  void StreamRows() override { stream_ = true; }

  // Counted in the text: a statement run once costs one round trip, not a prepare, a
  // description, an execution and a DEALLOCATE (a copy's catalog reads are mostly such).
  int ParameterCount() override { return params_; }
  void Bind(int index, const Variant& value) override {
    if (index < 0 || index > 65535)
      RaiseSqlState(conn_.source(), "07009", 0, "Invalid parameter index " + std::to_string(index));
    if (static_cast<std::size_t>(index) >= binds_.size())
      binds_.resize(static_cast<std::size_t>(index) + 1);
    binds_[static_cast<std::size_t>(index)] = ParameterText(value);
  }
  // Parameters go as text, which ends at a NUL: bytes go in bytea's hex form ("\x" and two
  // digits a byte), which the server reads back into the same bytes.
  void BindBytes(int index, const std::string& bytes) override {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string text = "\\x";
    text.reserve(2 + bytes.size() * 2);
    for (unsigned char b : bytes) {
      text += kHex[b >> 4];
      text += kHex[b & 15];
    }
    Bind(index, Variant::Null());
    binds_[static_cast<std::size_t>(index)] = std::move(text);
  }
  void Execute() override;
  const std::vector<ColumnInfo>& Columns() override { return columns_; }
  bool Fetch() override {
    if (streaming_) return FetchStreamed();
    if (!result_ || row_ + 1 >= PQntuples(result_.get())) {
      row_ = result_ ? PQntuples(result_.get()) : 0;
      return false;
    }
    ++row_;
    return true;
  }
  Variant Get(int col) override {
    if (!result_ || col < 0 || col >= static_cast<int>(kinds_.size()) || row_ < 0 ||
        row_ >= PQntuples(result_.get()))
      return Variant();
    if (PQgetisnull(result_.get(), row_, col)) return Variant::Null();
    return ValueFromText(kinds_[static_cast<std::size_t>(col)],
                         PQgetvalue(result_.get(), row_, col),
                         PQgetlength(result_.get(), row_, col));
  }
  std::int64_t RowsAffected() override { return rows_affected_; }

 private:
  void PrepareOnServer() {
    if (!name_.empty()) return;
    const std::string name = conn_.NextStatementName();
    conn_.Check(PQprepare(conn_.conn(), name.c_str(), sql_.c_str(), 0, nullptr));
    name_ = name;
    shape_ = conn_.Check(PQdescribePrepared(conn_.conn(), name_.c_str()));
    params_ = PQnparams(shape_.get());
  }
  void Describe(const PGresult* r);
  std::vector<const char*> BoundValues() const {
    std::vector<const char*> values(static_cast<std::size_t>(params_), nullptr);
    for (std::size_t i = 0; i < values.size() && i < binds_.size(); ++i)
      if (binds_[i]) values[i] = binds_[i]->c_str();
    return values;
  }
  void ExecuteStreamed();
  void WaitForFirstRow(int seconds);
  bool FetchStreamed();
  // Takes one result of the stream: true for a row, false at its end; raises its error.
  bool Take(Result r);
  // Reads what the server still sends for this query, and drops it.
  void Finish() {
    while (PGresult* r = PQgetResult(conn_.raw())) PQclear(r);
    live_ = false;
    conn_.EndStream(this);
  }
  void Buffer() override {
    while (live_) {
      Result r(PQgetResult(conn_.raw()));
      const ExecStatusType st = r ? PQresultStatus(r.get()) : PGRES_TUPLES_OK;
      if (st == PGRES_SINGLE_TUPLE) {
        buffered_.push_back(std::move(r));
        continue;
      }
      if (st != PGRES_TUPLES_OK) buffered_.push_back(std::move(r));  // the error, raised in turn
      Finish();
    }
  }
  // Ends this execution's rows. Rows still coming are stopped on the server rather than read
  // to the end (a copy that gives up half-way through a large table), except inside a
  // transaction, which a cancelled query would abort for the caller.
  void Discard() {
    if (live_ && !in_transaction_) Cancel();
    if (live_) Finish();
    buffered_.clear();
    streaming_ = false;
  }
  void Cancel() {
    if (PGcancel* c = PQgetCancel(conn_.raw())) {
      char message[256];
      PQcancel(c, message, sizeof message);
      PQfreeCancel(c);
    }
  }

  PgConnection& conn_;
  std::string sql_;
  bool has_params_ = false;
  std::string name_;
  int params_ = 0;
  int executions_ = 0;
  std::vector<std::optional<std::string>> binds_;
  Result result_;
  Result shape_;                 // the prepared statement's description
  bool stream_ = false;          // the caller reads the rows once, forward
  bool streaming_ = false;       // this execution's rows come one at a time
  bool live_ = false;            // ... and the server is still sending them
  bool in_transaction_ = false;  // ... inside the caller's transaction
  std::deque<Result> buffered_;
  std::vector<ColumnInfo> columns_;
  std::vector<ValueKind> kinds_;
  int row_ = -1;
  std::int64_t rows_affected_ = -1;
};

bool IsQueryWord(const std::string& w) {
  return w == "SELECT" || w == "WITH" || w == "VALUES" || w == "SHOW";
}

void PgStatement::Execute() {
  Discard();
  const std::string word = FirstKeyword(sql_);
  const bool query = IsQueryWord(word);
  if (conn_.Quirks().read_only && !query) RaiseReadOnly(conn_.source(), "PostgreSQL");
  if (!query && word != "INSERT" && word != "UPDATE" && word != "DELETE") conn_.ForgetCatalog();
  result_.reset();
  columns_.clear();
  kinds_.clear();
  row_ = -1;
  rows_affected_ = -1;
  if (stream_ && query) return ExecuteStreamed();
  conn_.ApplyTimeout();
  if (has_params_ && name_.empty() && executions_++ == 0) {
    // The first execution goes as an unnamed statement; one that runs again is prepared.
    const std::vector<const char*> values = BoundValues();
    result_ = conn_.Check(PQexecParams(conn_.conn(), sql_.c_str(), params_, nullptr, values.data(),
                                       nullptr, nullptr, 0));
  } else if (has_params_) {
    PrepareOnServer();
    const std::vector<const char*> values = BoundValues();
    result_ = conn_.Check(
        PQexecPrepared(conn_.conn(), name_.c_str(), params_, values.data(), nullptr, nullptr, 0));
  } else {
    result_ = conn_.Check(
        PQexecParams(conn_.conn(), sql_.c_str(), 0, nullptr, nullptr, nullptr, nullptr, 0));
  }
  if (PQresultStatus(result_.get()) == PGRES_TUPLES_OK) {
    Describe(result_.get());
  } else {
    const char* n = PQcmdTuples(result_.get());
    if (n && *n) rows_affected_ = std::atoll(n);
  }
}

// A query read once, forward: the rows come one at a time (libpq's single-row mode) so that a
// table of any size is read in flat memory. The columns are described from the prepared
// statement before the rows start, as the catalog cannot be asked while they arrive.
void PgStatement::ExecuteStreamed() {
  PrepareOnServer();
  Describe(shape_.get());
  // The time-out covers the query up to its first row (WaitForFirstRow), not the reading of
  // the rows, which takes as long as the reader does.
  const int seconds = conn_.Timeout();
  conn_.ApplyTimeoutOf(0);
  const std::vector<const char*> values = BoundValues();
  PGconn* pg = conn_.conn();
  in_transaction_ = PQtransactionStatus(pg) != PQTRANS_IDLE;
  if (!PQsendQueryPrepared(pg, name_.c_str(), params_, values.data(), nullptr, nullptr, 0))
    conn_.Fail(nullptr);
  PQsetSingleRowMode(pg);
  streaming_ = true;
  live_ = true;
  conn_.StartStream(this);
  WaitForFirstRow(seconds);
}

void PgStatement::WaitForFirstRow(int seconds) {
  if (seconds <= 0) return;
  PGconn* pg = conn_.raw();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (PQisBusy(pg)) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd fd{PQsocket(pg), POLLIN, 0};
    const int ready = left.count() > 0 ? poll(&fd, 1, static_cast<int>(left.count())) : 0;
    if (ready == 0) {
      // Out of time: the server stops the query, and the stream ends with a time-out.
      Cancel();
      Finish();
      RaiseSqlState(conn_.source(), "57014", 0, "Query timeout expired");
    }
    if (ready > 0 && !PQconsumeInput(pg)) {
      Finish();
      conn_.Fail(nullptr);
    }
  }
}

bool PgStatement::FetchStreamed() {
  result_.reset();
  row_ = -1;
  if (!buffered_.empty()) {
    Result r = std::move(buffered_.front());
    buffered_.pop_front();
    return Take(std::move(r));
  }
  if (!live_) return false;
  return Take(Result(PQgetResult(conn_.raw())));
}

bool PgStatement::Take(Result r) {
  const ExecStatusType st = r ? PQresultStatus(r.get()) : PGRES_TUPLES_OK;
  if (st == PGRES_SINGLE_TUPLE) {
    result_ = std::move(r);
    row_ = 0;
    return true;
  }
  if (live_) Finish();
  streaming_ = !buffered_.empty();
  if (st == PGRES_TUPLES_OK) return false;
  buffered_.clear();
  streaming_ = false;
  conn_.Fail(r.get());
}

void PgStatement::Describe(const PGresult* r) {
  const bool writable = !conn_.Quirks().read_only;
  for (int i = 0; i < PQnfields(r); ++i) {
    const PgType& t = TypeForOid(PQftype(r, i));
    const TypeMapping m = MapResultColumn(t, PQfmod(r, i));
    ColumnInfo c;
    c.name = PQfname(r, i);
    c.type = m.ado_type;
    c.defined_size = m.defined_size;
    c.precision = m.precision;
    c.scale = m.scale;
    c.attributes = m.attributes;
    bool nullable = true;
    if (const BaseColumn* b = conn_.Base(PQftable(r, i), PQftablecol(r, i))) {
      c.base_table = b->table;
      c.base_column = b->column;
      c.key_column = b->key;
      c.auto_increment = b->auto_increment;
      nullable = !b->not_null;
      if (writable) c.attributes |= attr::kUpdatable | attr::kUnknownUpdatable;
      if (b->key) c.attributes |= attr::kKeyColumn;
    }
    if (nullable) c.attributes |= attr::kIsNullable | attr::kMayBeNull;
    columns_.push_back(std::move(c));
    kinds_.push_back(t.kind);
  }
}

std::unique_ptr<StatementBackend> PgConnection::Prepare(const std::string& sql) {
  ++prepares_;
  return std::make_unique<PgStatement>(*this, sql);
}

// ---------------------------------------------------------------------------------------------
// Schema rowsets: tables, columns and primary keys from information_schema (the layer's
// defaults), every index from pg_index. No schema restriction means the default schema, so a
// table list does not drown in pg_catalog.
// ---------------------------------------------------------------------------------------------
RowSet PgConnection::Schema(SchemaKind kind, const SchemaRestrictions& in) {
  SchemaRestrictions r = in;
  if (!r.schema || r.schema->empty()) r.schema = DefaultSchema();
  if (kind != SchemaKind::kIndexes) return ConnectionBackend::Schema(kind, r);

  std::string where = "WHERE n.nspname = $1";
  std::vector<std::string> values{*r.schema};
  // Names compare without regard to case, as unquoted names fold (see the quirks).
  auto add = [&](const std::string& column, const std::optional<std::string>& v, bool name) {
    if (!v) return;
    values.push_back(*v);
    const std::string param = "$" + std::to_string(values.size());
    where +=
        " AND " + (name ? "lower(" + column + ") = lower(" + param + ")" : column + " = " + param);
  };
  add("current_database()", r.catalog, false);
  add("t.relname", r.table, true);
  add("i.relname", r.extra, true);
  std::vector<const char*> params;
  for (const auto& v : values) params.push_back(v.c_str());
  Result res = Check(PQexecParams(
      conn(),
      ("SELECT current_database(), n.nspname, t.relname, i.relname, x.indisprimary, "
       "x.indisunique, x.indisclustered, k.ord, a.attname "
       "FROM pg_index x JOIN pg_class i ON i.oid = x.indexrelid "
       "JOIN pg_class t ON t.oid = x.indrelid JOIN pg_namespace n ON n.oid = t.relnamespace "
       "CROSS JOIN LATERAL unnest(x.indkey::int2[]) WITH ORDINALITY AS k(attnum, ord) "
       "JOIN pg_attribute a ON a.attrelid = t.oid AND a.attnum = k.attnum " +
       where + " ORDER BY 2, 3, 4, 8")
          .c_str(),
      static_cast<int>(params.size()), nullptr, params.data(), nullptr, nullptr, 0));
  RowSet out;
  out.columns = IndexRowsetColumns();
  auto text = [&](int row, int col) { return std::string(PQgetvalue(res.get(), row, col)); };
  auto flag = [&](int row, int col) { return PQgetvalue(res.get(), row, col)[0] == 't'; };
  for (int i = 0; i < PQntuples(res.get()); ++i)
    out.rows.push_back(IndexRow(Variant(text(i, 0)), Variant(text(i, 1)), text(i, 2), text(i, 3),
                                flag(i, 4), flag(i, 5), flag(i, 6),
                                std::atoi(PQgetvalue(res.get(), i, 7)), text(i, 8)));
  return out;
}

// ---------------------------------------------------------------------------------------------
// Bulk loading through COPY. Rows are gathered into text-format lines and sent in blocks; the
// server applies all or nothing when the stream ends.
// ---------------------------------------------------------------------------------------------
class CopyBulk : public BulkWriterBackend {
 public:
  CopyBulk(PgConnection& conn, const std::string& table, const std::vector<std::string>& columns)
      : conn_(conn) {
    if (conn.Quirks().read_only) RaiseReadOnly(conn.source(), "PostgreSQL");
    const std::string quoted = QuoteIdentifier(table, conn.Quirks());
    // Binary columns take their bytes as "\x" and hex digits: raw bytes would be read as text
    // in the client encoding, and a 0xFF refused or a NUL cut the value short.
    const std::vector<std::string> binary = ByteaColumns(conn, quoted);
    std::string sql = "COPY " + quoted + " (";
    for (std::size_t i = 0; i < columns.size(); ++i) {
      sql += (i ? ", " : "") + QuoteIdentifier(columns[i], conn.Quirks());
      bytea_.push_back(std::find(binary.begin(), binary.end(), columns[i]) != binary.end());
    }
    sql += ") FROM STDIN";
    conn_.Check(PQexec(conn_.conn(), sql.c_str()));
    open_ = true;
  }
  ~CopyBulk() override {
    // Ending the stream with an error message makes the server discard every row of it.
    if (open_) {
      PQputCopyEnd(conn_.conn(), "load abandoned");
      while (PGresult* r = PQgetResult(conn_.conn())) PQclear(r);
    }
  }
  void AddRow(const std::vector<Variant>& values) override {
    if (!open_) RaiseAdo(AdoError::kObjectClosed, "ADODB.Connection", "(the bulk load has ended)");
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (i) buffer_ += '\t';
      const std::string* bytes = i < bytea_.size() && bytea_[i] ? values[i].AsString() : nullptr;
      if (bytes) {
        static constexpr char kHex[] = "0123456789abcdef";
        buffer_ += "\\\\x";  // COPY's own escape of the backslash, then bytea's "\x"
        for (unsigned char c : *bytes) {
          buffer_ += kHex[c >> 4];
          buffer_ += kHex[c & 15];
        }
      } else {
        AppendBulkField(buffer_, values[i], 't', 'f');
      }
    }
    buffer_ += '\n';
    if (buffer_.size() >= kBlock) Flush();
  }
  void Finish() override {
    if (!open_) return;
    Flush();
    open_ = false;
    if (PQputCopyEnd(conn_.conn(), nullptr) != 1) conn_.Fail(nullptr);
    Result last;
    while (PGresult* r = PQgetResult(conn_.conn())) {
      if (PQresultStatus(r) != PGRES_COMMAND_OK) {
        last.reset(r);
        while (PGresult* rest = PQgetResult(conn_.conn())) PQclear(rest);
        conn_.Fail(last.get());
      }
      PQclear(r);
    }
  }

 private:
  static constexpr std::size_t kBlock = 256 * 1024;
  void Flush() {
    if (buffer_.empty()) return;
    if (PQputCopyData(conn_.conn(), buffer_.data(), static_cast<int>(buffer_.size())) != 1) {
      open_ = false;
      conn_.Fail(nullptr);
    }
    buffer_.clear();
  }

  // The bytea columns of `quoted_table`, by name.
  static std::vector<std::string> ByteaColumns(PgConnection& conn,
                                               const std::string& quoted_table) {
    const char* params[] = {quoted_table.c_str()};
    Result r = conn.Check(PQexecParams(conn.conn(),
                                       "SELECT attname FROM pg_attribute WHERE attrelid = "
                                       "$1::regclass AND attnum > 0 AND NOT attisdropped AND "
                                       "atttypid = 'bytea'::regtype",
                                       1, nullptr, params, nullptr, nullptr, 0));
    std::vector<std::string> out;
    for (int i = 0; i < PQntuples(r.get()); ++i) out.emplace_back(PQgetvalue(r.get(), i, 0));
    return out;
  }

  PgConnection& conn_;
  std::string buffer_;
  std::vector<bool> bytea_;  // per column: a bytea column
  bool open_ = false;
};

std::unique_ptr<BulkWriterBackend> PgConnection::BeginBulk(
    const std::string& table, const std::vector<std::string>& columns) {
  return std::make_unique<CopyBulk>(*this, table, columns);
}

}  // namespace

std::unique_ptr<ConnectionBackend> OpenPostgresDriver(const ConnectParams& p) {
  return std::make_unique<PgConnection>(p);
}

}  // namespace zt::platform
