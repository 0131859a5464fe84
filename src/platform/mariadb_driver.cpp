// The native MariaDB and MySQL driver, on MariaDB Connector/C. Registered as "mariadb".
//
// A statement without parameters goes as text; one with parameters is prepared on the server and
// its parameters travel in the binary protocol (numbers as numbers, bytes as bytes, dates as
// dates), so no value is ever written into the statement's text. Rows are read as the caller
// reads them when it asks for a forward pass (mysql_use_result, or an unbuffered prepared
// statement), else fetched whole first. The server allows one result in flight per connection:
// a statement still streaming rows reads the rest into memory before another statement runs.
#include <errmsg.h>
#include <mysql.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <optional>

#include "platform/driver.h"
#include "platform/errors.h"
#include "platform/sql_text.h"
#include "platform/type_map.h"

namespace zt::platform {
namespace {

// How a column's values are read.
enum class Kind {
  kText,
  kInt,
  kInt64,
  kDouble,
  kSingle,
  kDecimal,
  kDate,
  kTime,
  kBytes,
  kBit,
  kBits
};

// The binary character set: the column holds bytes, not text.
constexpr unsigned kBinaryCharset = 63;
// Bytes a character of utf8mb4, the connection's character set, may take.
constexpr std::int64_t kMaxCharBytes = 4;

// The column's codes, from the name information_schema would give its type, so that they are
// the ones every other driver reports for the same declaration.
struct Described {
  ColumnInfo info;
  Kind kind = Kind::kText;
};

Described Describe(const MYSQL_FIELD& f) {
  const bool binary = f.charsetnr == kBinaryCharset;
  const bool is_unsigned = (f.flags & UNSIGNED_FLAG) != 0;
  std::string name = "varchar";
  std::int64_t length = 0;
  std::int32_t precision = 0, scale = 0;
  Kind kind = Kind::kText;
  switch (f.type) {
    case MYSQL_TYPE_TINY:
      name = "tinyint";
      kind = Kind::kInt;
      break;
    case MYSQL_TYPE_SHORT:
      name = is_unsigned ? "int" : "smallint";
      kind = Kind::kInt;
      break;
    case MYSQL_TYPE_INT24:
      name = "mediumint";
      kind = Kind::kInt;
      break;
    case MYSQL_TYPE_LONG:
      name = is_unsigned ? "bigint" : "int";
      kind = is_unsigned ? Kind::kInt64 : Kind::kInt;
      break;
    case MYSQL_TYPE_LONGLONG:
      name = "bigint";
      kind = is_unsigned ? Kind::kDecimal : Kind::kInt64;
      if (is_unsigned) {
        name = "decimal";
        precision = 20;
      }
      break;
    case MYSQL_TYPE_YEAR:
      name = "smallint";
      kind = Kind::kInt;
      break;
    case MYSQL_TYPE_FLOAT:
      // A FLOAT is single precision: read at that precision, it is the one value stored.
      name = "real";
      kind = Kind::kSingle;
      break;
    case MYSQL_TYPE_DOUBLE:
      name = "double";
      kind = Kind::kDouble;
      break;
    case MYSQL_TYPE_DECIMAL:
    case MYSQL_TYPE_NEWDECIMAL:
      name = "decimal";
      scale = static_cast<std::int32_t>(f.decimals);
      precision = static_cast<std::int32_t>(f.length) - (scale > 0 ? 1 : 0) - (is_unsigned ? 0 : 1);
      kind = Kind::kDecimal;
      break;
    case MYSQL_TYPE_DATE:
    case MYSQL_TYPE_NEWDATE:
      name = "date";
      kind = Kind::kDate;
      break;
    case MYSQL_TYPE_DATETIME:
    case MYSQL_TYPE_TIMESTAMP:
    case MYSQL_TYPE_DATETIME2:
    case MYSQL_TYPE_TIMESTAMP2:
      name = "datetime";
      kind = Kind::kDate;
      break;
    case MYSQL_TYPE_TIME:
    case MYSQL_TYPE_TIME2:
      name = "time";
      kind = Kind::kTime;
      break;
    case MYSQL_TYPE_BIT:
      // BIT(1) is a Boolean; a wider BIT a number. Both arrive as big-endian bytes.
      name = f.length == 1 ? "bit" : "bigint";
      kind = f.length == 1 ? Kind::kBit : Kind::kBits;
      break;
    case MYSQL_TYPE_STRING:
      name = binary ? "binary" : "char";
      length = binary ? f.length : f.length / kMaxCharBytes;
      kind = binary ? Kind::kBytes : Kind::kText;
      break;
    case MYSQL_TYPE_VAR_STRING:
    case MYSQL_TYPE_VARCHAR:
    case MYSQL_TYPE_ENUM:
    case MYSQL_TYPE_SET:
      name = binary ? "varbinary" : "varchar";
      length = binary ? f.length : f.length / kMaxCharBytes;
      kind = binary ? Kind::kBytes : Kind::kText;
      break;
    case MYSQL_TYPE_TINY_BLOB:
    case MYSQL_TYPE_MEDIUM_BLOB:
    case MYSQL_TYPE_LONG_BLOB:
    case MYSQL_TYPE_BLOB:
    case MYSQL_TYPE_JSON:
    case MYSQL_TYPE_GEOMETRY:
      name = binary ? "longblob" : "longtext";
      kind = binary ? Kind::kBytes : Kind::kText;
      break;
    default:  // NULL and what is newer than this driver: text
      break;
  }
  Described d;
  const TypeMapping t = MapTypeName(name, length, precision, scale);
  d.kind = kind;
  d.info.name = f.name ? f.name : "";
  d.info.type = t.ado_type;
  d.info.defined_size = t.defined_size;
  d.info.attributes = t.attributes;
  d.info.precision = t.precision;
  d.info.scale = t.scale;
  if (f.org_table && *f.org_table) {
    d.info.base_table = f.org_table;
    d.info.base_column = f.org_name ? f.org_name : "";
    d.info.attributes |= attr::kUpdatable;
  }
  d.info.key_column = (f.flags & PRI_KEY_FLAG) != 0;
  if (d.info.key_column) d.info.attributes |= attr::kKeyColumn;
  d.info.auto_increment = (f.flags & AUTO_INCREMENT_FLAG) != 0;
  if (!(f.flags & NOT_NULL_FLAG)) d.info.attributes |= attr::kIsNullable;
  d.info.attributes |= attr::kMayBeNull;
  return d;
}

// "2024-02-29 13:45:59.123456", "2024-02-29" -> an OLE date; a zero date ("0000-00-00"), which
// no calendar holds, is Null.
Variant DateFromText(std::string_view s) {
  int y = 0, mo = 0, d = 0, h = 0, mi = 0;
  double sec = 0;
  const std::string buf(s);
  const int n = std::sscanf(buf.c_str(), "%d-%d-%d %d:%d:%lf", &y, &mo, &d, &h, &mi, &sec);
  if (n != 3 && n != 6) return Variant(buf);
  if (y == 0 && mo == 0 && d == 0) return Variant::Null();
  const int whole = static_cast<int>(sec);
  Date date = Date::FromParts(y, mo, d, h, mi, whole);
  if (date.serial >= 0) date.serial += (sec - whole) / 86400.0;
  return Variant(date);
}

// "13:45:59.5" -> the time of day on the OLE date's day 0; a duration past a day or below zero
// stays text.
Variant TimeFromText(std::string_view s) {
  int h = 0, mi = 0;
  double sec = 0;
  const std::string buf(s);
  if (std::sscanf(buf.c_str(), "%d:%d:%lf", &h, &mi, &sec) != 3 || h < 0 || h > 23 || buf[0] == '-')
    return Variant(buf);
  return Variant(Date{(h * 3600 + mi * 60 + sec) / 86400.0});
}

Variant FromText(Kind kind, const char* p, std::size_t n) {
  const std::string_view s(p, n);
  switch (kind) {
    case Kind::kInt: {
      std::int32_t v = 0;
      std::from_chars(s.data(), s.data() + s.size(), v);
      return Variant(v);
    }
    case Kind::kInt64: {
      std::int64_t v = 0;
      std::from_chars(s.data(), s.data() + s.size(), v);
      return Variant(v);
    }
    case Kind::kDouble:
      return Variant(std::strtod(std::string(s).c_str(), nullptr));
    case Kind::kSingle:
      return Variant(static_cast<double>(std::strtof(std::string(s).c_str(), nullptr)));
    case Kind::kDecimal:
      if (auto d = Decimal::TryParse(s)) return Variant(*d);
      return Variant(std::string(s));
    case Kind::kDate:
      return DateFromText(s);
    case Kind::kTime:
      return TimeFromText(s);
    case Kind::kBit:
    case Kind::kBits: {
      std::uint64_t v = 0;
      for (unsigned char c : s) v = v << 8 | c;
      if (kind == Kind::kBit) return Variant(v != 0);
      return Variant(static_cast<std::int64_t>(v));
    }
    case Kind::kBytes:
    case Kind::kText:
      break;
  }
  return Variant(std::string(s));
}

DriverQuirks MariaDbQuirks() {
  DriverQuirks q;
  q.engine = "MariaDB";
  q.quote = QuoteStyle::kBackticks;
  q.bracket_escapes = true;
  q.transactional_ddl = false;
  q.backslash_escapes = false;  // the session runs with NO_BACKSLASH_ESCAPES
  q.mysql_comments = true;
  q.has_schemas = false;
  q.one_row_delete = OneRowDelete::kLimit;
  q.max_name_bytes = 64;
  return q;
}

// The SQLSTATE of a client-side failure (Connector/C gives them all "HY000"): a lost server is a
// broken link, a server that cannot be reached a failed connection.
std::string ClientState(unsigned code, const char* state) {
  switch (code) {
    case CR_SERVER_GONE_ERROR:
    case CR_SERVER_LOST:
    case CR_SERVER_LOST_EXTENDED:
      return "08S01";
    case CR_CONNECTION_ERROR:
    case CR_CONN_HOST_ERROR:
    case CR_UNKNOWN_HOST:
      return "08001";
    case 1969:  // max_statement_time
    case 3024:  // MySQL's max_execution_time
      return "HYT00";
    default:
      return state && *state ? state : "HY000";
  }
}

class MyStatement;

class MyConnection : public ConnectionBackend {
 public:
  explicit MyConnection(const ConnectParams& p);
  ~MyConnection() override { mysql_close(my_); }

  const DriverQuirks& Quirks() const override { return quirks_; }
  std::unique_ptr<StatementBackend> Prepare(const std::string& sql) override;
  void BeginTransaction() override { Run("START TRANSACTION"); }
  void Commit() override {
    try {
      Run("COMMIT");
    } catch (const ZtError& e) {
      RaiseCommitFailure(e);
    }
  }
  void Rollback() override {
    applied_timeout_ = -1;  // a SET inside the transaction stays; set it again to be sure
    Run("ROLLBACK");
  }
  void SetCommandTimeout(int seconds) override { timeout_ = seconds; }
  std::string CurrentCatalog() override {
    const RowSet rs = Query("SELECT DATABASE()");
    return rs.rows.empty() || rs.rows[0][0].IsNull() ? std::string() : rs.rows[0][0].ToText();
  }
  std::string DefaultSchema() override { return {}; }
  RowSet Schema(SchemaKind kind, const SchemaRestrictions& r) override;
  std::unique_ptr<BulkWriterBackend> BeginBulk(const std::string& table,
                                               const std::vector<std::string>& columns) override;
  Variant LastInsertId() override {
    const my_ulonglong id = mysql_insert_id(my_);
    return id ? Variant(static_cast<std::int64_t>(id)) : Variant::Null();
  }

  // The connection for a new request: a statement still streaming rows reads them first.
  MYSQL* conn();
  MYSQL* raw() const { return my_; }
  void StartStream(MyStatement* s) {
    conn();
    stream_ = s;
  }
  void EndStream(MyStatement* s) {
    if (stream_ == s) stream_ = nullptr;
  }
  const std::string& source() const { return source_; }
  [[noreturn]] void Fail() const {
    const unsigned code = mysql_errno(my_);
    RaiseSqlState(source_, ClientState(code, mysql_sqlstate(my_)), code,
                  DriverMessage(mysql_error(my_)));
  }
  // max_statement_time for what follows, unless it is set so already.
  void ApplyTimeout() {
    if (applied_timeout_ == timeout_) return;
    const std::string sql = "SET SESSION max_statement_time = " + std::to_string(timeout_);
    if (mysql_real_query(conn(), sql.data(), sql.size()) != 0) Fail();
    applied_timeout_ = timeout_;
  }
  void Run(const std::string& sql) {
    if (mysql_real_query(conn(), sql.data(), sql.size()) != 0) Fail();
    if (MYSQL_RES* r = mysql_store_result(my_)) mysql_free_result(r);
  }

 private:
  DriverQuirks quirks_;
  std::string source_;
  MYSQL* my_ = nullptr;
  MyStatement* stream_ = nullptr;
  int timeout_ = 0;
  int applied_timeout_ = 0;
};

// One parameter in the binary protocol, with the storage its MYSQL_BIND points into.
struct Parameter {
  enum_field_types type = MYSQL_TYPE_NULL;
  std::string bytes;
  std::int64_t integer = 0;
  double number = 0;
  MYSQL_TIME time{};
};

class MyStatement : public StatementBackend {
 public:
  MyStatement(MyConnection& conn, const std::string& sql) : conn_(conn), sql_(sql) {
    RewritePlaceholders(sql, conn.Quirks(), &params_);
  }
  ~MyStatement() override {
    Discard();
    if (stmt_) mysql_stmt_close(stmt_);
  }
  int ParameterCount() override { return params_; }
  void Bind(int index, const Variant& v) override {
    Parameter& p = Slot(index);
    p = Parameter{};
    switch (v.Type()) {
      case VarType::Empty:
      case VarType::Null:
        p.type = MYSQL_TYPE_NULL;
        break;
      case VarType::Boolean:
        p.type = MYSQL_TYPE_LONGLONG;
        p.integer = v.ToBool() ? 1 : 0;
        break;
      case VarType::Long:
      case VarType::LongLong:
        p.type = MYSQL_TYPE_LONGLONG;
        p.integer = v.ToInt64();
        break;
      case VarType::Double:
        p.type = MYSQL_TYPE_DOUBLE;
        p.number = v.ToDouble();
        break;
      case VarType::Date: {
        // The text every engine reads alike carries the microseconds: its parts go as they are.
        unsigned y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0, micro = 0;
        const std::string text = DateTimeText(v.ToDouble());
        std::sscanf(text.c_str(), "%u-%u-%u %u:%u:%u.%u", &y, &mo, &d, &h, &mi, &s, &micro);
        p.type = MYSQL_TYPE_DATETIME;
        p.time.year = y;
        p.time.month = mo;
        p.time.day = d;
        p.time.hour = h;
        p.time.minute = mi;
        p.time.second = s;
        p.time.second_part = micro;
        p.time.time_type = MYSQL_TIMESTAMP_DATETIME;
        break;
      }
      case VarType::Currency:
      case VarType::Decimal:
        p.type = MYSQL_TYPE_NEWDECIMAL;
        p.bytes = v.ToText();
        break;
      default:
        p.type = MYSQL_TYPE_STRING;
        p.bytes = v.ToText();
        break;
    }
  }
  void BindBytes(int index, const std::string& bytes) override {
    Parameter& p = Slot(index);
    p = Parameter{};
    p.type = MYSQL_TYPE_BLOB;
    p.bytes = bytes;
  }
  void StreamRows() override { stream_ = true; }
  void Execute() override;
  const std::vector<ColumnInfo>& Columns() override { return columns_; }
  bool Fetch() override;
  Variant Get(int col) override {
    if (!row_ || col < 0 || static_cast<std::size_t>(col) >= row_->size()) return Variant();
    return (*row_)[static_cast<std::size_t>(col)];
  }
  std::int64_t RowsAffected() override { return rows_affected_; }

  // Reads the rows still to come into memory (another statement is about to run).
  void Buffer() {
    while (live_) {
      std::vector<Variant> row;
      if (!ReadRow(row)) break;
      buffered_.push_back(std::move(row));
    }
  }

 private:
  Parameter& Slot(int index) {
    if (index < 0 || index >= params_)
      RaiseSqlState(conn_.source(), "07009", 0, "Invalid parameter index " + std::to_string(index));
    if (static_cast<std::size_t>(index) >= binds_.size())
      binds_.resize(static_cast<std::size_t>(index) + 1);
    return binds_[static_cast<std::size_t>(index)];
  }
  [[noreturn]] void FailStmt() const {
    const unsigned code = mysql_stmt_errno(stmt_);
    RaiseSqlState(conn_.source(), ClientState(code, mysql_stmt_sqlstate(stmt_)), code,
                  DriverMessage(mysql_stmt_error(stmt_)));
  }
  void ExecuteText();
  void ExecutePrepared();
  void DescribeFields(MYSQL_FIELD* fields, unsigned count);
  // The next row of the live result into `row`; false (and the result ended) after the last.
  bool ReadRow(std::vector<Variant>& row);
  void EndResult() {
    if (result_) mysql_free_result(result_);
    result_ = nullptr;
    if (stmt_ && stmt_live_) mysql_stmt_free_result(stmt_);
    stmt_live_ = false;
    live_ = false;
    conn_.EndStream(this);
  }
  void Discard() {
    // Rows not read are read and dropped: the server sends them either way.
    EndResult();
    buffered_.clear();
    row_.reset();
  }

  MyConnection& conn_;
  std::string sql_;
  int params_ = 0;
  std::vector<Parameter> binds_;
  MYSQL_STMT* stmt_ = nullptr;
  bool stream_ = false;
  MYSQL_RES* result_ = nullptr;  // a text result being read
  bool stmt_live_ = false;       // a prepared statement's result being read
  bool live_ = false;            // rows are still to come from the server
  std::vector<Described> described_;
  std::vector<ColumnInfo> columns_;
  // The prepared statement's result columns: each fetched as text (or number, date) into these.
  std::vector<MYSQL_BIND> out_;
  std::vector<std::string> out_text_;
  std::vector<unsigned long> out_length_;
  std::vector<my_bool> out_null_;
  std::vector<double> out_double_;
  std::vector<MYSQL_TIME> out_time_;
  std::deque<std::vector<Variant>> buffered_;
  std::optional<std::vector<Variant>> row_;
  std::int64_t rows_affected_ = -1;
};

MYSQL* MyConnection::conn() {
  if (MyStatement* s = stream_) {
    stream_ = nullptr;
    s->Buffer();
  }
  return my_;
}

MyConnection::MyConnection(const ConnectParams& p)
    : quirks_(MariaDbQuirks()), source_(p.provider.empty() ? "MariaDB" : p.provider) {
  quirks_.read_only = p.read_only;
  my_ = mysql_init(nullptr);
  if (!my_) RaiseSqlState(source_, "HY001", 0, "out of memory");
  const unsigned connect_timeout =
      static_cast<unsigned>(p.login_timeout > 0 ? p.login_timeout : 15);
  mysql_optionsv(my_, MYSQL_OPT_CONNECT_TIMEOUT, &connect_timeout);
  if (p.read_timeout > 0) {
    // Each read and write on the socket: a server that stopped answering is given up on.
    const unsigned t = static_cast<unsigned>(p.read_timeout);
    mysql_optionsv(my_, MYSQL_OPT_READ_TIMEOUT, &t);
    mysql_optionsv(my_, MYSQL_OPT_WRITE_TIMEOUT, &t);
  }
  mysql_optionsv(my_, MYSQL_SET_CHARSET_NAME, "utf8mb4");
  // Bulk loads send their rows through LOAD DATA LOCAL, from memory (never a file).
  const unsigned local_infile = 1;
  mysql_optionsv(my_, MYSQL_OPT_LOCAL_INFILE, &local_infile);
  // The library doubles a quote inside a literal and nothing else; a backslash that the server
  // took as an escape would let a value such as "8\" end its literal early.
  mysql_optionsv(my_, MYSQL_INIT_COMMAND,
                 "SET SESSION sql_mode = CONCAT(@@SESSION.sql_mode, ',NO_BACKSLASH_ESCAPES')");
  const unsigned port = static_cast<unsigned>(p.port > 0 ? p.port : 3306);
  // CLIENT_FOUND_ROWS: an UPDATE counts the rows it matched, as every other engine does.
  if (!mysql_real_connect(my_, p.data_source.empty() ? "localhost" : p.data_source.c_str(),
                          p.user.c_str(), p.password.c_str(),
                          p.database.empty() ? nullptr : p.database.c_str(), port, nullptr,
                          CLIENT_FOUND_ROWS)) {
    const unsigned code = mysql_errno(my_);
    const std::string message = DriverMessage(mysql_error(my_));
    const std::string state = code == 1045 ? "28000" : code == 1049 ? "42000" : "08001";
    mysql_close(my_);
    my_ = nullptr;
    RaiseSqlState(source_, state, code, message);
  }
  if (p.read_only) Run("SET SESSION TRANSACTION READ ONLY");
}

std::unique_ptr<StatementBackend> MyConnection::Prepare(const std::string& sql) {
  return std::make_unique<MyStatement>(*this, sql);
}

void MyStatement::Execute() {
  Discard();
  const std::string word = FirstKeyword(sql_);
  const bool query = word == "SELECT" || word == "WITH" || word == "SHOW" || word == "VALUES" ||
                     word == "DESCRIBE" || word == "EXPLAIN";
  if (conn_.Quirks().read_only && !query) RaiseReadOnly(conn_.source(), "MariaDB");
  columns_.clear();
  described_.clear();
  rows_affected_ = -1;
  conn_.ApplyTimeout();
  if (params_ > 0)
    ExecutePrepared();
  else
    ExecuteText();
}

void MyStatement::DescribeFields(MYSQL_FIELD* fields, unsigned count) {
  for (unsigned i = 0; i < count; ++i) {
    described_.push_back(Describe(fields[i]));
    columns_.push_back(described_.back().info);
  }
}

void MyStatement::ExecuteText() {
  MYSQL* my = conn_.conn();
  if (mysql_real_query(my, sql_.data(), sql_.size()) != 0) conn_.Fail();
  if (mysql_field_count(my) == 0) {
    rows_affected_ = static_cast<std::int64_t>(mysql_affected_rows(my));
    return;
  }
  result_ = stream_ ? mysql_use_result(my) : mysql_store_result(my);
  if (!result_) conn_.Fail();
  DescribeFields(mysql_fetch_fields(result_), mysql_num_fields(result_));
  live_ = true;
  if (stream_) conn_.StartStream(this);
}

void MyStatement::ExecutePrepared() {
  MYSQL* my = conn_.conn();
  if (!stmt_) {
    stmt_ = mysql_stmt_init(my);
    if (!stmt_) conn_.Fail();
    if (mysql_stmt_prepare(stmt_, sql_.data(), sql_.size()) != 0) FailStmt();
  }
  std::vector<MYSQL_BIND> in(static_cast<std::size_t>(params_));
  std::vector<unsigned long> lengths(in.size());
  binds_.resize(in.size());
  for (std::size_t i = 0; i < in.size(); ++i) {
    Parameter& p = binds_[i];
    MYSQL_BIND& b = in[i];
    std::memset(&b, 0, sizeof b);
    b.buffer_type = p.type;
    switch (p.type) {
      case MYSQL_TYPE_LONGLONG:
        b.buffer = &p.integer;
        break;
      case MYSQL_TYPE_DOUBLE:
        b.buffer = &p.number;
        break;
      case MYSQL_TYPE_DATETIME:
        b.buffer = &p.time;
        break;
      case MYSQL_TYPE_NULL:
        break;
      default:
        lengths[i] = static_cast<unsigned long>(p.bytes.size());
        b.buffer = p.bytes.data();
        b.buffer_length = lengths[i];
        b.length = &lengths[i];
    }
  }
  if (!in.empty() && mysql_stmt_bind_param(stmt_, in.data())) FailStmt();
  if (mysql_stmt_execute(stmt_) != 0) FailStmt();
  MYSQL_RES* meta = mysql_stmt_result_metadata(stmt_);
  if (!meta) {
    rows_affected_ = static_cast<std::int64_t>(mysql_stmt_affected_rows(stmt_));
    return;
  }
  const unsigned count = mysql_num_fields(meta);
  DescribeFields(mysql_fetch_fields(meta), count);
  mysql_free_result(meta);
  // Each column into a buffer of its own: numbers of floating point and dates in their binary
  // form (exact), everything else as text, which the client library writes for every type.
  out_.assign(count, MYSQL_BIND{});
  out_text_.assign(count, std::string(64, '\0'));
  out_length_.assign(count, 0);
  out_null_.assign(count, 0);
  out_double_.assign(count, 0);
  out_time_.assign(count, MYSQL_TIME{});
  for (unsigned i = 0; i < count; ++i) {
    MYSQL_BIND& b = out_[i];
    b.is_null = &out_null_[i];
    b.length = &out_length_[i];
    switch (described_[i].kind) {
      case Kind::kDouble:
      case Kind::kSingle:
        b.buffer_type = MYSQL_TYPE_DOUBLE;
        b.buffer = &out_double_[i];
        break;
      case Kind::kDate:
      case Kind::kTime:
        b.buffer_type = described_[i].kind == Kind::kDate ? MYSQL_TYPE_DATETIME : MYSQL_TYPE_TIME;
        b.buffer = &out_time_[i];
        break;
      default:
        // Bytes (and BIT's bytes) as they are; the rest as the text the client library writes.
        b.buffer_type = described_[i].kind == Kind::kBytes || described_[i].kind == Kind::kBit ||
                                described_[i].kind == Kind::kBits
                            ? MYSQL_TYPE_BLOB
                            : MYSQL_TYPE_STRING;
        b.buffer = out_text_[i].data();
        b.buffer_length = static_cast<unsigned long>(out_text_[i].size());
    }
  }
  if (mysql_stmt_bind_result(stmt_, out_.data())) FailStmt();
  if (!stream_ && mysql_stmt_store_result(stmt_) != 0) FailStmt();
  stmt_live_ = true;
  live_ = true;
  if (stream_) conn_.StartStream(this);
}

bool MyStatement::ReadRow(std::vector<Variant>& row) {
  if (!live_) return false;
  row.clear();
  if (result_) {
    MYSQL_ROW r = mysql_fetch_row(result_);
    if (!r) {
      const bool failed = mysql_errno(conn_.raw()) != 0;
      EndResult();
      if (failed) conn_.Fail();
      return false;
    }
    const unsigned long* lengths = mysql_fetch_lengths(result_);
    for (std::size_t i = 0; i < described_.size(); ++i)
      row.push_back(r[i] ? FromText(described_[i].kind, r[i], lengths[i]) : Variant::Null());
    return true;
  }
  const int rc = mysql_stmt_fetch(stmt_);
  if (rc == MYSQL_NO_DATA) {
    EndResult();
    return false;
  }
  if (rc == 1) {
    const unsigned code = mysql_stmt_errno(stmt_);
    const std::string state = ClientState(code, mysql_stmt_sqlstate(stmt_));
    const std::string message = DriverMessage(mysql_stmt_error(stmt_));
    EndResult();
    RaiseSqlState(conn_.source(), state, code, message);
  }
  for (std::size_t i = 0; i < described_.size(); ++i) {
    if (out_null_[i]) {
      row.push_back(Variant::Null());
      continue;
    }
    const Kind kind = described_[i].kind;
    if (kind == Kind::kDouble || kind == Kind::kSingle) {
      const double v = out_double_[i];
      row.push_back(
          Variant(kind == Kind::kSingle ? static_cast<double>(static_cast<float>(v)) : v));
      continue;
    }
    if (kind == Kind::kDate || kind == Kind::kTime) {
      const MYSQL_TIME& t = out_time_[i];
      if (kind == Kind::kDate && t.year == 0 && t.month == 0 && t.day == 0) {
        row.push_back(Variant::Null());
        continue;
      }
      Date date = kind == Kind::kDate
                      ? Date::FromParts(static_cast<int>(t.year), static_cast<int>(t.month),
                                        static_cast<int>(t.day), static_cast<int>(t.hour),
                                        static_cast<int>(t.minute), static_cast<int>(t.second))
                      : Date{(t.hour * 3600.0 + t.minute * 60.0 + t.second) / 86400.0};
      if (date.serial >= 0) date.serial += t.second_part / 1e6 / 86400.0;
      row.push_back(Variant(date));
      continue;
    }
    // A value longer than its buffer comes in a second read of that column.
    const unsigned long n = out_length_[i];
    if (n > out_text_[i].size()) {
      std::string whole(n, '\0');
      MYSQL_BIND b{};
      b.buffer_type = out_[i].buffer_type;
      b.buffer = whole.data();
      b.buffer_length = n;
      unsigned long got = 0;
      b.length = &got;
      if (mysql_stmt_fetch_column(stmt_, &b, static_cast<unsigned>(i), 0) != 0) FailStmt();
      row.push_back(FromText(kind, whole.data(), n));
      continue;
    }
    row.push_back(FromText(kind, out_text_[i].data(), n));
  }
  return true;
}

bool MyStatement::Fetch() {
  if (!buffered_.empty()) {
    row_ = std::move(buffered_.front());
    buffered_.pop_front();
    return true;
  }
  std::vector<Variant> row;
  if (!ReadRow(row)) {
    row_.reset();
    return false;
  }
  row_ = std::move(row);
  return true;
}

// The portable rowsets, and every index from information_schema.STATISTICS (the portable
// indexes rowset lists only those behind constraints).
RowSet MyConnection::Schema(SchemaKind kind, const SchemaRestrictions& in) {
  if (kind != SchemaKind::kIndexes) return ConnectionBackend::Schema(kind, in);
  std::string where = " WHERE TABLE_SCHEMA = ?";
  std::vector<Variant> params{
      Variant(in.catalog && !in.catalog->empty() ? *in.catalog : CurrentCatalog())};
  if (in.table) {
    where += " AND TABLE_NAME = ?";
    params.emplace_back(*in.table);
  }
  if (in.extra) {
    where += " AND INDEX_NAME = ?";
    params.emplace_back(*in.extra);
  }
  const RowSet rs = Query(
      "SELECT TABLE_SCHEMA, TABLE_NAME, INDEX_NAME, NON_UNIQUE, SEQ_IN_INDEX, COLUMN_NAME FROM "
      "information_schema.STATISTICS" +
          where + " ORDER BY TABLE_NAME, INDEX_NAME, SEQ_IN_INDEX",
      params);
  RowSet out;
  out.columns = IndexRowsetColumns();
  for (const auto& row : rs.rows) {
    const bool primary = row[2].ToText() == "PRIMARY";
    out.rows.push_back(IndexRow(row[0], Variant::Null(), row[1].ToText(), row[2].ToText(), primary,
                                row[3].ToInt32() == 0, primary, row[4].ToInt32(), row[5].ToText()));
  }
  return out;
}

// ---------------------------------------------------------------------------------------------
// Bulk loads: rows gathered into batches of LOAD DATA LOCAL's text (tab between fields, "\N" for
// Null, backslash escapes), each batch handed to the server from memory by a local-infile
// handler. All batches run in one transaction.
//
// LOAD DATA LOCAL skips a row it cannot take (a key that exists, a value it must convert) with a
// warning instead of failing: the server cannot stop the client's sending. A batch that comes
// back with fewer rows than were sent, or with any warning, is therefore a failed load, raised
// like any other refusal, so that the copy redoes the rows one by one and names each refused
// one. A server that does not allow LOCAL gets multi-row INSERTs instead.
// ---------------------------------------------------------------------------------------------
// The batch the local-infile handler hands over, and how far it has got.
struct InfileSource {
  const std::string* data = nullptr;
  std::size_t at = 0;
};

class LoadDataBulk : public BulkWriterBackend {
 public:
  LoadDataBulk(MyConnection& conn, const std::string& table,
               const std::vector<std::string>& columns)
      : conn_(conn), table_(table), columns_(columns), tx_(conn) {}
  void AddRow(const std::vector<Variant>& values) override {
    tx_.RequireOpen();
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (i) batch_ += '\t';
      AppendBulkField(batch_, values[i], '1', '0');
    }
    batch_ += '\n';
    ++rows_;
    if (batch_.size() >= kBatchBytes) Send();
  }
  void Finish() override {
    if (!tx_.Open()) return;
    Send();
    tx_.Commit();
  }

 private:
  static constexpr std::size_t kBatchBytes = 8u << 20;

  void Send() {
    if (rows_ == 0) return;
    try {
      if (local_)
        Load();
      else
        Insert();
    } catch (const ZtError&) {
      tx_.Abandon();
      throw;
    }
    batch_.clear();
    rows_ = 0;
  }
  // LOAD DATA reads a BIT column's field as the bytes of its text ("1" is 0x31): such a field
  // goes through a variable, and the column takes its number.
  void PlanColumns() {
    auto st = conn_.Prepare(
        "SELECT COLUMN_NAME, COLUMN_TYPE FROM information_schema.COLUMNS WHERE TABLE_SCHEMA = "
        "DATABASE() AND TABLE_NAME = ? AND DATA_TYPE = 'bit'");
    st->Bind(0, Variant(table_));
    st->Execute();
    std::vector<std::pair<std::string, std::string>> bits;
    while (st->Fetch()) bits.emplace_back(AsciiLower(st->Get(0).ToText()), st->Get(1).ToText());
    std::string list, set;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      const std::string name = QuoteIdentifier(columns_[i], conn_.Quirks());
      const auto bit = std::find_if(bits.begin(), bits.end(), [&](const auto& b) {
        return b.first == AsciiLower(columns_[i]);
      });
      if (bit == bits.end()) {
        list += (list.empty() ? "" : ", ") + name;
        continue;
      }
      const std::string var = "@zt_" + std::to_string(i);
      list += (list.empty() ? "" : ", ") + var;
      set +=
          (set.empty() ? " SET " : ", ") + name + " = " +
          (AsciiLower(bit->second) == "bit(1)" ? "IF(" + var + " IS NULL, NULL, " + var + " <> 0)"
                                               : "CAST(" + var + " AS UNSIGNED)");
    }
    targets_ = "(" + list + ")" + set;
  }
  void Load() {
    if (targets_.empty()) PlanColumns();
    // The field and line ends are the characters themselves: the session reads no backslash
    // escapes in literals, so '\t' would be two characters there.
    const std::string sql = "LOAD DATA LOCAL INFILE 'zt_bulk' INTO TABLE " +
                            QuoteIdentifier(table_, conn_.Quirks()) +
                            " CHARACTER SET binary FIELDS TERMINATED BY '\t' ESCAPED BY '\\' "
                            "LINES TERMINATED BY '\n' " +
                            targets_;
    InfileSource source{&batch_, 0};
    MYSQL* my = conn_.conn();
    mysql_set_local_infile_handler(
        my,
        [](void** ptr, const char*, void* user) {
          *ptr = user;
          return 0;
        },
        [](void* ptr, char* buf, unsigned int size) {
          auto* src = static_cast<InfileSource*>(ptr);
          const std::size_t n = std::min<std::size_t>(size, src->data->size() - src->at);
          std::memcpy(buf, src->data->data() + src->at, n);
          src->at += n;
          return static_cast<int>(n);
        },
        [](void*) {},
        [](void*, char* message, unsigned int size) {
          std::snprintf(message, size, "the rows could not be handed over");
          return 1;
        },
        &source);
    const int rc = mysql_real_query(my, sql.data(), sql.size());
    mysql_set_local_infile_default(my);
    if (rc != 0) {
      const unsigned code = mysql_errno(my);
      // The server (or this client's build) does not allow LOCAL: INSERTs from now on.
      if (code == 1148 || code == 3948 || code == 4166 || code == CR_UNKNOWN_ERROR) {
        local_ = false;
        return Insert();
      }
      conn_.Fail();
    }
    const auto loaded = static_cast<std::int64_t>(mysql_affected_rows(my));
    if (loaded != rows_ || mysql_warning_count(my) > 0) {
      std::string why =
          "LOAD DATA took " + std::to_string(loaded) + " of " + std::to_string(rows_) + " rows";
      if (MYSQL_RES* w = (mysql_real_query(my, "SHOW WARNINGS LIMIT 1", 21) == 0)
                             ? mysql_store_result(my)
                             : nullptr) {
        if (MYSQL_ROW r = mysql_fetch_row(w); r && r[2]) why += ": " + std::string(r[2]);
        mysql_free_result(w);
      }
      RaiseSqlState(conn_.source(), "23000", 0, why);
    }
  }
  // Multi-row INSERTs of the batch's rows, read back from its text.
  void Insert() {
    std::vector<Variant> values;
    const std::size_t row_values = columns_.size();
    std::string field;
    const auto flush = [&](bool all) {
      const std::size_t rows = values.size() / row_values;
      if (rows == 0 || (!all && rows < kInsertRows)) return;
      auto st = conn_.Prepare(InsertText(conn_.Quirks(), table_, columns_, rows));
      for (std::size_t i = 0; i < values.size(); ++i) st->Bind(static_cast<int>(i), values[i]);
      st->Execute();
      values.clear();
    };
    bool null = false;
    for (std::size_t i = 0; i < batch_.size(); ++i) {
      const char c = batch_[i];
      if (c == '\\' && i + 1 < batch_.size()) {
        const char e = batch_[++i];
        if (e == 'N') null = true;
        field += e == 't' ? '\t' : e == 'n' ? '\n' : e == 'r' ? '\r' : e == '0' ? '\0' : e;
        continue;
      }
      if (c == '\t' || c == '\n') {
        values.push_back(null ? Variant::Null() : Variant(field));
        field.clear();
        null = false;
        if (c == '\n') flush(false);
        continue;
      }
      field += c;
    }
    flush(true);
  }
  static constexpr std::size_t kInsertRows = 500;

  MyConnection& conn_;
  std::string table_;
  std::vector<std::string> columns_;
  ScopedTransaction tx_;
  std::string batch_;
  std::string targets_;  // "(a, @zt_1) SET b = ...": where each field of a line goes
  std::int64_t rows_ = 0;
  bool local_ = true;
};

std::unique_ptr<BulkWriterBackend> MyConnection::BeginBulk(
    const std::string& table, const std::vector<std::string>& columns) {
  return std::make_unique<LoadDataBulk>(*this, table, columns);
}

}  // namespace

std::unique_ptr<ConnectionBackend> OpenMariaDbDriver(const ConnectParams& p) {
  return std::make_unique<MyConnection>(p);
}

}  // namespace zt::platform
