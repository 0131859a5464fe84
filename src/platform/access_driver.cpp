// Access files (.mdb of Jet 3 and Jet 4, .accdb of ACE), read through MDB Tools' C library
// (libmdb) without ODBC in between: every value is taken from the file's own bytes, so a
// Single, a Currency or a picture arrives as it is stored (MDB Tools' ODBC driver hands a
// Single over as four bytes where a double was asked for, and cuts binary at its first NUL).
//
// The file is only ever read: every write is refused with 0x80040E09, and transactions change
// nothing. What is read:
//   - the user and system tables (the tables rowset), their columns with the types Jet gives
//     them (Text with its length in characters, Memo, Yes/No as -1/0, Currency exact, Decimal
//     with its precision and scale, OLE objects byte for byte, AutoNumber), the Required
//     property as the only source of NOT NULL, and default values;
//   - primary keys and other indexes (the indexes and primary-keys rowsets);
//   - rows, through the one statement shape a copy or a verification needs:
//       SELECT * | COUNT(*) | <columns> FROM <table> [WHERE <constant comparison>]
//       [ORDER BY <columns> [ASC|DESC]]
//     Anything else is refused (0x80040E14) with the statement in the message. An ORDER BY is
//     done in memory, so it holds the whole table; a plain SELECT streams row by row.
// Each statement reads through a handle of its own, so that reading one table while the rows
// of another are open never mixes up their pages.
// mdbtools.h includes glib inside its extern "C" block, where glib's C++ parts cannot be:
// glib comes first, on its own.
#include <glib.h>
// clang-format off
#include <mdbtools.h>
// clang-format on

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <tuple>

#include "platform/driver.h"
#include "platform/errors.h"
#include "platform/type_map.h"
#include "zt/decimal.h"

namespace zt::platform {

namespace {

constexpr const char* kSource = "Microsoft JET Database Engine";

const DriverQuirks& AccessQuirks() {
  static const DriverQuirks q = [] {
    DriverQuirks x;
    x.engine = "Access";
    x.quote = QuoteStyle::kBrackets;
    x.transactional_ddl = false;
    x.read_only = true;
    x.has_schemas = false;
    return x;
  }();
  return q;
}

std::uint32_t Le32(const unsigned char* p) {
  return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
         static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}

template <class T>
T Raw(const unsigned char* p) {
  T v;
  std::memcpy(&v, p, sizeof v);  // the file is little-endian, as is every host this runs on
  return v;
}

// A string g_malloc'ed by libmdb, freed with it.
std::string Take(char* s) {
  std::string out = s ? s : "";
  g_free(s);
  return out;
}

bool Iequal(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](unsigned char x, unsigned char y) {
           return std::tolower(x) == std::tolower(y);
         });
}

struct HandleCloser {
  void operator()(MdbHandle* h) const {
    if (h) mdb_close(h);
  }
};
using Handle = std::unique_ptr<MdbHandle, HandleCloser>;

struct TableCloser {
  void operator()(MdbTableDef* t) const {
    if (t) mdb_free_tabledef(t);
  }
};
using Table = std::unique_ptr<MdbTableDef, TableCloser>;

MdbColumn* ColumnAt(MdbTableDef* t, unsigned i) {
  return static_cast<MdbColumn*>(g_ptr_array_index(t->columns, i));
}

bool Required(const MdbColumn* c) {
  // A Yes/No value lives in the row's null bitmap itself: it is never Null.
  if (c->col_type == MDB_BOOL) return true;
  const char* v = mdb_col_get_prop(c, "Required");
  return v && (v[0] == 'y' || v[0] == 'Y' || v[0] == '1' || v[0] == 't' || v[0] == 'T');
}

// The column's type in the Jet vocabulary of the type table, so that its codes are the ones
// every other driver reports for the same declaration.
TypeMapping TypeOf(MdbHandle* mdb, const MdbColumn* c) {
  const bool wide = !IS_JET3(mdb);  // Jet 4 and ACE keep text lengths in bytes of UTF-16
  switch (c->col_type) {
    case MDB_BOOL:
      return MapTypeName("YESNO", 0, 0, 0, true);
    case MDB_BYTE:
      return MapTypeName("BYTE", 0, 0, 0, true);
    case MDB_INT:
      return MapTypeName("SHORT", 0, 0, 0, true);
    case MDB_LONGINT:
    case MDB_COMPLEX: {
      TypeMapping t = MapTypeName("LONG", 0, 0, 0, true);
      t.auto_increment = c->is_long_auto != 0;
      return t;
    }
    case MDB_MONEY:
      return MapTypeName("CURRENCY", 0, 0, 0, true);
    case MDB_FLOAT:
      return MapTypeName("SINGLE", 0, 0, 0, true);
    case MDB_DOUBLE:
      return MapTypeName("DOUBLE", 0, 0, 0, true);
    case MDB_DATETIME:
      return MapTypeName("DATETIME", 0, 0, 0, true);
    case MDB_BINARY:
      return MapTypeName("VARBINARY", c->col_size, 0, 0, true);
    case MDB_TEXT:
      return MapTypeName("TEXT", wide ? c->col_size / 2 : c->col_size, 0, 0, true);
    case MDB_OLE:
      return MapTypeName("LONGBINARY", 0, 0, 0, true);
    case MDB_MEMO:
      return MapTypeName("MEMO", 0, 0, 0, true);
    case MDB_REPID:
      return MapTypeName("GUID", 0, 0, 0, true);
    case MDB_NUMERIC:
      return MapTypeName("DECIMAL", 0, c->col_prec, c->col_scale, true);
    default:
      RaiseAdo(AdoError::kDataConversion, kSource,
               "(column " + std::string(c->name) + " has the Access type " +
                   std::to_string(c->col_type) + ", which this reader does not know)");
  }
}

// A Memo or OLE value: the 12 bytes in the row say whether the bytes follow them, lie on one
// page of long values or on a chain of such pages.
std::string LongValue(MdbHandle* mdb, const unsigned char* field, std::size_t size) {
  if (size < MDB_MEMO_OVERHEAD) return {};
  const std::uint32_t head = Le32(field);
  const std::size_t length = head & 0x3fffffffu;
  std::int32_t pg_row = static_cast<std::int32_t>(Le32(field + 4));
  std::string out;
  if (head & 0x80000000u) {  // inline
    out.assign(reinterpret_cast<const char*>(field) + MDB_MEMO_OVERHEAD, size - MDB_MEMO_OVERHEAD);
  } else if (head & 0x40000000u) {  // one page
    void* buf = nullptr;
    int start = 0;
    std::size_t len = 0;
    if (mdb_find_pg_row(mdb, pg_row, &buf, &start, &len) != 0)
      RaiseAdo(AdoError::kDataConversion, kSource, "(a long value's page cannot be read)");
    out.assign(static_cast<const char*>(buf) + start, len);
  } else if ((head & 0xff000000u) == 0) {  // a chain of pages, each naming the next
    out.reserve(length);
    while (pg_row != 0 && out.size() < length) {
      void* buf = nullptr;
      int start = 0;
      std::size_t len = 0;
      if (mdb_find_pg_row(mdb, pg_row, &buf, &start, &len) != 0 || len < 4)
        RaiseAdo(AdoError::kDataConversion, kSource, "(a long value's page cannot be read)");
      const auto* row = static_cast<const unsigned char*>(buf) + start;
      if (len == 4) break;  // an empty link would never end a damaged chain
      out.append(reinterpret_cast<const char*>(row) + 4, len - 4);
      pg_row = static_cast<std::int32_t>(Le32(row));
    }
  } else {
    RaiseAdo(AdoError::kDataConversion, kSource, "(a long value of an unknown form)");
  }
  if (out.size() > length) out.resize(length);
  return out;
}

// Text as the file stores it (Jet 3: the code page; Jet 4 and ACE: UTF-16, maybe compressed) to
// UTF-8. One stored byte or unit never takes more than three bytes of UTF-8.
std::string Utf8Text(MdbHandle* mdb, const char* bytes, std::size_t size) {
  if (size == 0) return {};
  std::string out(size * 3 + 4, '\0');
  const int n = mdb_unicode2ascii(mdb, bytes, size, out.data(), out.size() - 1);
  out.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
  return out;
}

// One value of the current row of `t`, from the cracked field.
Variant Decode(MdbHandle* mdb, MdbTableDef* t, const MdbField& f) {
  const MdbColumn* c = ColumnAt(t, static_cast<unsigned>(f.colnum));
  // A Yes/No has no bytes: its value is the row's null bit, set for Yes.
  if (c->col_type == MDB_BOOL) return Variant(!f.is_null);
  if (f.is_null) return Variant::Null();
  const auto* p = static_cast<const unsigned char*>(f.value);
  const auto size = static_cast<std::size_t>(f.siz);
  // A damaged row may give a field fewer bytes than its type has: refused, never read past.
  static const std::pair<int, std::size_t> kWidths[] = {
      {MDB_BYTE, 1},  {MDB_INT, 2},    {MDB_LONGINT, 4},  {MDB_COMPLEX, 4}, {MDB_MONEY, 8},
      {MDB_FLOAT, 4}, {MDB_DOUBLE, 8}, {MDB_DATETIME, 8}, {MDB_REPID, 16},  {MDB_NUMERIC, 17}};
  for (const auto& [type, width] : kWidths)
    if (c->col_type == type && (f.siz < 0 || size < width))
      RaiseAdo(AdoError::kDataConversion, kSource,
               "(column " + std::string(c->name) + ": a damaged value)");
  switch (c->col_type) {
    case MDB_BYTE:
      return Variant(static_cast<std::int32_t>(p[0]));
    case MDB_INT:
      return Variant(static_cast<std::int32_t>(Raw<std::int16_t>(p)));
    case MDB_LONGINT:
    case MDB_COMPLEX:
      return Variant(Raw<std::int32_t>(p));
    case MDB_MONEY:
      return Variant(Currency{Raw<std::int64_t>(p)});
    case MDB_FLOAT:
      return Variant(static_cast<double>(Raw<float>(p)));
    case MDB_DOUBLE:
      return Variant(Raw<double>(p));
    case MDB_DATETIME:
      return Variant(Date{Raw<double>(p)});
    case MDB_BINARY:
      return Variant(std::string(reinterpret_cast<const char*>(p), size));
    case MDB_TEXT:
      return Variant(Utf8Text(mdb, reinterpret_cast<const char*>(p), size));
    case MDB_MEMO: {
      const std::string bytes = LongValue(mdb, p, size);
      return Variant(Utf8Text(mdb, bytes.data(), bytes.size()));
    }
    case MDB_OLE:
      return Variant(LongValue(mdb, p, size));
    case MDB_REPID: {
      // {Data1-Data2-Data3-Data4}: the first three little-endian, the last eight as they are.
      char text[40];
      std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                    Le32(p), static_cast<unsigned>(p[4] | p[5] << 8),
                    static_cast<unsigned>(p[6] | p[7] << 8), p[8], p[9], p[10], p[11], p[12], p[13],
                    p[14], p[15]);
      return Variant(std::string(text));
    }
    case MDB_NUMERIC:
      return Variant(
          Decimal::Parse(Take(mdb_numeric_to_string(mdb, f.start, c->col_scale, c->col_prec))));
    default:
      RaiseAdo(AdoError::kDataConversion, kSource, "(column " + std::string(c->name) + ")");
  }
}

// ---- the statement shape this reader runs ---------------------------------------------------

// A WHERE condition: comparisons of columns and constants, joined by AND and OR.
struct Condition {
  enum class Op { kAnd, kOr, kEq, kNe, kLt, kLe, kGt, kGe, kIsNull, kNotNull };
  Op op = Op::kEq;
  std::unique_ptr<Condition> left, right;  // kAnd, kOr
  // A comparison's two sides: a column (name set) or a constant.
  struct Operand {
    std::string column;
    Variant constant;
    int index = -1;  // the column's place in the table, once the table is open
  };
  Operand a, b;
};

struct Select {
  std::string table;
  bool count = false;
  std::vector<std::string> columns;                 // empty: every column
  std::unique_ptr<Condition> where;                 // none: every row
  std::vector<std::pair<std::string, bool>> order;  // column, descending
};

// -1, 0 or 1 as a compares with b: numbers by value, texts by their bytes; nullopt when either
// is Null (a comparison with Null holds for no row).
std::optional<int> Compare(const Variant& a, const Variant& b) {
  if (a.IsNull() || b.IsNull()) return std::nullopt;
  const std::string* sa = a.AsString();
  const std::string* sb = b.AsString();
  if (sa && sb) {
    const int r = sa->compare(*sb);
    return r < 0 ? -1 : r > 0 ? 1 : 0;
  }
  const double x = a.ToDouble(), y = b.ToDouble();
  return x < y ? -1 : x > y ? 1 : 0;
}

bool Holds(const Condition& c, const std::vector<Variant>& row) {
  using Op = Condition::Op;
  if (c.op == Op::kAnd) return Holds(*c.left, row) && Holds(*c.right, row);
  if (c.op == Op::kOr) return Holds(*c.left, row) || Holds(*c.right, row);
  const auto value = [&](const Condition::Operand& o) -> const Variant& {
    return o.index >= 0 ? row[static_cast<std::size_t>(o.index)] : o.constant;
  };
  if (c.op == Op::kIsNull) return value(c.a).IsNull();
  if (c.op == Op::kNotNull) return !value(c.a).IsNull();
  const std::optional<int> r = Compare(value(c.a), value(c.b));
  if (!r) return false;
  switch (c.op) {
    case Op::kEq:
      return *r == 0;
    case Op::kNe:
      return *r != 0;
    case Op::kLt:
      return *r < 0;
    case Op::kLe:
      return *r <= 0;
    case Op::kGt:
      return *r > 0;
    default:
      return *r >= 0;
  }
}

class SelectParser {
 public:
  explicit SelectParser(const std::string& sql) : sql_(sql) {}

  Select Parse() {
    Select s;
    Keyword("SELECT");
    if (TryWord("COUNT")) {
      Expect("(");
      Expect("*");
      Expect(")");
      s.count = true;
    } else if (!TryPunct("*")) {
      do s.columns.push_back(Name());
      while (TryPunct(","));
    }
    Keyword("FROM");
    s.table = Name();
    if (TryWord("WHERE")) s.where = Or();
    if (TryWord("ORDER")) {
      Keyword("BY");
      do {
        std::string column = Name();
        bool descending = false;
        if (TryWord("DESC"))
          descending = true;
        else
          TryWord("ASC");
        s.order.emplace_back(std::move(column), descending);
      } while (TryPunct(","));
    }
    TryPunct(";");
    Blanks();
    if (at_ != sql_.size()) Refuse();
    return s;
  }

 private:
  [[noreturn]] void Refuse() const {
    RaiseSqlState(kSource, "42000", 0,
                  "An Access file is read with SELECT * | COUNT(*) | <columns> FROM <table> "
                  "[WHERE <comparisons>] [ORDER BY <columns>] only: " +
                      sql_);
  }
  void Blanks() {
    while (at_ < sql_.size() && std::isspace(static_cast<unsigned char>(sql_[at_]))) ++at_;
  }
  std::string Word() {
    Blanks();
    const std::size_t from = at_;
    while (at_ < sql_.size() &&
           (std::isalnum(static_cast<unsigned char>(sql_[at_])) || sql_[at_] == '_'))
      ++at_;
    return sql_.substr(from, at_ - from);
  }
  bool TryWord(std::string_view w) {
    const std::size_t keep = at_;
    if (Iequal(Word(), w)) return true;
    at_ = keep;
    return false;
  }
  void Keyword(std::string_view w) {
    if (!TryWord(w)) Refuse();
  }
  bool TryPunct(std::string_view p) {
    Blanks();
    if (sql_.compare(at_, p.size(), p) != 0) return false;
    at_ += p.size();
    return true;
  }
  void Expect(std::string_view p) {
    if (!TryPunct(p)) Refuse();
  }
  // [name] (with "]]" for "]") or a plain word.
  std::string Name() {
    Blanks();
    if (at_ < sql_.size() && sql_[at_] == '[') {
      std::string name;
      for (++at_; at_ < sql_.size(); ++at_) {
        if (sql_[at_] == ']') {
          if (at_ + 1 < sql_.size() && sql_[at_ + 1] == ']') {
            name += ']';
            ++at_;
            continue;
          }
          ++at_;
          return name;
        }
        name += sql_[at_];
      }
      Refuse();
    }
    std::string w = Word();
    if (w.empty()) Refuse();
    return w;
  }
  // A column, a number or a 'text' (quotes doubled inside).
  Condition::Operand Operand() {
    Condition::Operand o;
    Blanks();
    if (at_ < sql_.size() && sql_[at_] == '\'') {
      std::string text;
      for (++at_;; ++at_) {
        if (at_ >= sql_.size()) Refuse();
        if (sql_[at_] == '\'') {
          if (at_ + 1 < sql_.size() && sql_[at_ + 1] == '\'') {
            text += '\'';
            ++at_;
            continue;
          }
          ++at_;
          break;
        }
        text += sql_[at_];
      }
      o.constant = Variant(text);
      return o;
    }
    const bool negative = TryPunct("-");
    Blanks();
    if (at_ < sql_.size() && (std::isdigit(static_cast<unsigned char>(sql_[at_])) || negative)) {
      const std::size_t from = at_;
      while (at_ < sql_.size() &&
             (std::isdigit(static_cast<unsigned char>(sql_[at_])) || sql_[at_] == '.'))
        ++at_;
      const std::string digits = sql_.substr(from, at_ - from);
      if (digits.empty() || digits == ".") Refuse();
      const double v = std::stod(digits);
      o.constant = Variant(negative ? -v : v);
      return o;
    }
    o.column = Name();
    return o;
  }
  std::unique_ptr<Condition> Comparison() {
    using Op = Condition::Op;
    if (TryPunct("(")) {
      auto inner = Or();
      Expect(")");
      return inner;
    }
    auto c = std::make_unique<Condition>();
    c->a = Operand();
    if (TryWord("IS")) {
      c->op = TryWord("NOT") ? Op::kNotNull : Op::kIsNull;
      Keyword("NULL");
      return c;
    }
    static const std::pair<std::string_view, Op> kOps[] = {{"<>", Op::kNe}, {"<=", Op::kLe},
                                                           {">=", Op::kGe}, {"=", Op::kEq},
                                                           {"<", Op::kLt},  {">", Op::kGt}};
    bool found = false;
    for (const auto& [text, op] : kOps)
      if (!found && TryPunct(text)) {
        c->op = op;
        found = true;
      }
    if (!found) Refuse();
    c->b = Operand();
    return c;
  }
  static std::unique_ptr<Condition> Join(Condition::Op op, std::unique_ptr<Condition> left,
                                         std::unique_ptr<Condition> right) {
    auto c = std::make_unique<Condition>();
    c->op = op;
    c->left = std::move(left);
    c->right = std::move(right);
    return c;
  }
  std::unique_ptr<Condition> And() {
    auto c = Comparison();
    while (TryWord("AND")) c = Join(Condition::Op::kAnd, std::move(c), Comparison());
    return c;
  }
  std::unique_ptr<Condition> Or() {
    auto c = And();
    while (TryWord("OR")) c = Join(Condition::Op::kOr, std::move(c), And());
    return c;
  }

  const std::string& sql_;
  std::size_t at_ = 0;
};

// ---- connection and statement ---------------------------------------------------------------

class AccessConnection;

class AccessStatement : public StatementBackend {
 public:
  AccessStatement(AccessConnection& conn, Select select)
      : conn_(conn), select_(std::move(select)) {}
  int ParameterCount() override { return 0; }
  void Bind(int index, const Variant&) override {
    RaiseAdo(AdoError::kInvalidArgument, kSource,
             "(parameter " + std::to_string(index + 1) + ": the statement has none)");
  }
  void StreamRows() override { stream_ = true; }
  void Execute() override;
  const std::vector<ColumnInfo>& Columns() override { return columns_; }
  bool Fetch() override;
  Variant Get(int col) override { return row_.at(static_cast<std::size_t>(col)); }
  std::int64_t RowsAffected() override { return -1; }

 private:
  void Resolve(Condition& c);
  bool NextTableRow();
  bool ReadRow(std::vector<Variant>& row);

  AccessConnection& conn_;
  Select select_;
  bool stream_ = false;
  Handle handle_;
  Table table_;
  std::vector<unsigned> picked_;  // the table's column index of each result column
  std::vector<ColumnInfo> columns_;
  std::vector<MdbField> fields_;
  std::vector<bool> needed_;     // by table column: selected or named by the WHERE
  std::vector<Variant> values_;  // by table column: the current table row
  std::vector<Variant> row_;
  std::vector<std::vector<Variant>> buffered_;  // a counted or sorted result
  std::size_t next_ = 0;
  bool buffered_result_ = false;
  bool done_ = true;
};

class AccessConnection : public ConnectionBackend {
 public:
  explicit AccessConnection(const ConnectParams& p) : path_(p.data_source) {
    handle_.reset(mdb_open(path_.c_str(), MDB_NOFLAGS));
    if (!handle_)
      RaiseSqlState(kSource, "08001", 0, path_ + " cannot be opened as an Access database");
    if (!mdb_read_catalog(handle_.get(), MDB_ANY))
      RaiseSqlState(kSource, "08001", 0, path_ + ": the Access catalog cannot be read");
  }

  const DriverQuirks& Quirks() const override { return AccessQuirks(); }
  std::unique_ptr<StatementBackend> Prepare(const std::string& sql) override {
    std::size_t at = sql.find_first_not_of(" \t\r\n(");
    if (at == std::string::npos || !Iequal(sql.substr(at, 6), "SELECT"))
      RaiseReadOnly(kSource, "Access");
    return std::make_unique<AccessStatement>(*this, SelectParser(sql).Parse());
  }
  // A transaction is there to write, which the file never is.
  void BeginTransaction() override { RaiseReadOnly(kSource, "Access"); }
  void Commit() override {}
  void Rollback() override {}
  bool IsAlive() override { return true; }
  std::string CurrentCatalog() override { return {}; }
  std::string DefaultSchema() override { return {}; }
  RowSet Schema(SchemaKind kind, const SchemaRestrictions& r) override;
  std::unique_ptr<BulkWriterBackend> BeginBulk(const std::string&,
                                               const std::vector<std::string>&) override {
    RaiseReadOnly(kSource, "Access");
  }

  // A handle of its own for one statement's reading, with the catalog read.
  Handle NewHandle() {
    Handle h(mdb_clone_handle(handle_.get()));
    if (!h || !mdb_read_catalog(h.get(), MDB_ANY))
      RaiseSqlState(kSource, "HY000", 0, path_ + ": the Access catalog cannot be read");
    return h;
  }
  // The table named `name` (any case) with its columns and indexes read; raises 42S02 when the
  // file has none.
  static Table OpenTable(MdbHandle* mdb, const std::string& name) {
    for (unsigned i = 0; i < mdb->num_catalog; ++i) {
      auto* entry = static_cast<MdbCatalogEntry*>(g_ptr_array_index(mdb->catalog, i));
      if (entry->object_type != MDB_TABLE || !Iequal(entry->object_name, name)) continue;
      Table t(mdb_read_table(entry));
      if (!t || !mdb_read_columns(t.get()))
        RaiseSqlState(kSource, "HY000", 0, "The table " + name + " cannot be read");
      mdb_read_indices(t.get());
      return t;
    }
    RaiseSqlState(
        kSource, "42S02", -1305,
        "The Microsoft Jet database engine cannot find the input table or query '" + name + "'.");
  }
  static ColumnInfo Describe(MdbHandle* mdb, MdbColumn* c) {
    const TypeMapping t = TypeOf(mdb, c);
    ColumnInfo info;
    info.name = c->name;
    info.type = t.ado_type;
    info.defined_size = t.defined_size;
    info.attributes = t.attributes;
    if (!Required(c)) info.attributes |= attr::kIsNullable | attr::kMayBeNull;
    info.precision = t.precision;
    info.scale = t.scale;
    info.auto_increment = t.auto_increment;
    return info;
  }

 private:
  // The tables of the file, each with whether it is one of Jet's own (MSys...).
  std::vector<std::pair<std::string, bool>> Tables() const {
    std::vector<std::pair<std::string, bool>> tables;
    MdbHandle* mdb = handle_.get();
    for (unsigned i = 0; i < mdb->num_catalog; ++i) {
      auto* entry = static_cast<MdbCatalogEntry*>(g_ptr_array_index(mdb->catalog, i));
      if (entry->object_type == MDB_TABLE)
        tables.emplace_back(entry->object_name, mdb_is_system_table(entry) != 0);
    }
    return tables;
  }

  std::string path_;
  Handle handle_;
};

void AccessStatement::Execute() {
  handle_ = conn_.NewHandle();
  MdbHandle* mdb = handle_.get();
  table_ = AccessConnection::OpenTable(mdb, select_.table);
  MdbTableDef* t = table_.get();
  picked_.clear();
  columns_.clear();
  if (select_.count) {
    ColumnInfo c;
    c.name = "Expr1000";
    c.type = 3;
    c.defined_size = 4;
    c.attributes = attr::kFixed;
    columns_.push_back(c);
  } else if (select_.columns.empty()) {
    for (unsigned i = 0; i < t->num_cols; ++i) picked_.push_back(i);
  } else {
    for (const std::string& name : select_.columns) {
      unsigned i = 0;
      while (i < t->num_cols && !Iequal(ColumnAt(t, i)->name, name)) ++i;
      if (i == t->num_cols)
        RaiseSqlState(kSource, "07002", -3010,
                      "No value given for one or more required parameters (no column " + name +
                          " in " + select_.table + ").");
      picked_.push_back(i);
    }
  }
  for (unsigned i : picked_) {
    ColumnInfo c = AccessConnection::Describe(mdb, ColumnAt(t, i));
    c.base_table = t->name;
    c.base_column = c.name;
    columns_.push_back(std::move(c));
  }
  fields_.assign(t->num_cols, MdbField{});
  needed_.assign(t->num_cols, false);
  for (unsigned i : picked_) needed_[i] = true;
  if (select_.where) Resolve(*select_.where);
  values_.assign(t->num_cols, Variant::Null());
  mdb_rewind_table(t);
  buffered_.clear();
  next_ = 0;
  done_ = false;
  buffered_result_ = select_.count || !select_.order.empty();
  if (select_.count) {
    std::int32_t n = 0;
    while (NextTableRow()) ++n;
    buffered_.push_back({Variant(n)});
  } else if (!select_.order.empty()) {
    std::vector<std::pair<std::size_t, bool>> keys;
    for (const auto& [name, descending] : select_.order) {
      std::size_t k = 0;
      while (k < columns_.size() && !Iequal(columns_[k].name, name)) ++k;
      if (k == columns_.size())
        RaiseSqlState(kSource, "42000", 0, "ORDER BY " + name + " names no selected column");
      keys.emplace_back(k, descending);
    }
    std::vector<Variant> row;
    while (ReadRow(row)) buffered_.push_back(row);
    // Numbers by value, texts by their bytes (as the targets compare them for a verification),
    // Null first.
    const auto less = [](const Variant& a, const Variant& b) {
      if (a.IsNull() || b.IsNull()) return a.IsNull() && !b.IsNull();
      const std::string* sa = a.AsString();
      const std::string* sb = b.AsString();
      if (sa && sb) return *sa < *sb;
      return a.ToDouble() < b.ToDouble();
    };
    std::stable_sort(buffered_.begin(), buffered_.end(), [&](const auto& x, const auto& y) {
      for (const auto& [k, descending] : keys) {
        if (less(x[k], y[k])) return !descending;
        if (less(y[k], x[k])) return descending;
      }
      return false;
    });
  }
}

void AccessStatement::Resolve(Condition& c) {
  if (c.left) Resolve(*c.left);
  if (c.right) Resolve(*c.right);
  MdbTableDef* t = table_.get();
  for (Condition::Operand* o : {&c.a, &c.b}) {
    if (o->column.empty()) continue;
    unsigned i = 0;
    while (i < t->num_cols && !Iequal(ColumnAt(t, i)->name, o->column)) ++i;
    if (i == t->num_cols)
      RaiseSqlState(kSource, "07002", -3010,
                    "No value given for one or more required parameters (no column " + o->column +
                        " in " + select_.table + ").");
    o->index = static_cast<int>(i);
    needed_[i] = true;
  }
}

// The next row of the table that the WHERE keeps, its needed columns decoded into values_.
bool AccessStatement::NextTableRow() {
  MdbTableDef* t = table_.get();
  MdbHandle* mdb = handle_.get();
  while (mdb_fetch_row(t)) {
    // The row just read is the one before the table's cursor, on the page in the handle.
    int start = 0;
    std::size_t size = 0;
    int n = -1;
    if (mdb_find_row(mdb, static_cast<int>(t->cur_row) - 1, &start, &size) == 0)
      n = mdb_crack_row(t, start & 0x1fff, size, fields_.data());
    if (n < 0) RaiseSqlState(kSource, "HY000", 0, "A row of " + select_.table + " cannot be read");
    std::fill(values_.begin(), values_.end(), Variant::Null());
    for (int k = 0; k < n; ++k) {
      const auto col = static_cast<unsigned>(fields_[static_cast<std::size_t>(k)].colnum);
      if (col < values_.size() && needed_[col])
        values_[col] = Decode(mdb, t, fields_[static_cast<std::size_t>(k)]);
    }
    if (!select_.where || Holds(*select_.where, values_)) return true;
  }
  return false;
}

bool AccessStatement::ReadRow(std::vector<Variant>& row) {
  if (!NextTableRow()) return false;
  row.clear();
  for (unsigned i : picked_) row.push_back(values_[i]);
  return true;
}

bool AccessStatement::Fetch() {
  if (done_) return false;
  if (buffered_result_) {
    if (next_ >= buffered_.size()) {
      done_ = true;
      return false;
    }
    row_ = std::move(buffered_[next_++]);
    return true;
  }
  if (!ReadRow(row_)) {
    done_ = true;
    return false;
  }
  return true;
}

RowSet AccessConnection::Schema(SchemaKind kind, const SchemaRestrictions& r) {
  const Variant null = Variant::Null();
  const bool none = (r.catalog && !r.catalog->empty()) || (r.schema && !r.schema->empty());
  const auto tables = Tables();
  RowSet out;
  switch (kind) {
    case SchemaKind::kTables:
      out.columns = TablesRowsetColumns();
      break;
    case SchemaKind::kColumns:
      out.columns = ColumnsRowsetColumns();
      break;
    case SchemaKind::kIndexes:
      out.columns = IndexRowsetColumns();
      break;
    case SchemaKind::kPrimaryKeys:
      out.columns = PrimaryKeysRowsetColumns();
      break;
    case SchemaKind::kViews:
      out.columns = ViewsRowsetColumns();
      break;
    case SchemaKind::kForeignKeys:
      out.columns = ForeignKeysRowsetColumns();
      break;
  }
  if (none) return out;
  MdbHandle* mdb = handle_.get();
  if (kind == SchemaKind::kViews) {
    // Saved queries are kept as Jet's own records (MSysQueries), not as SQL text. Those named
    // "~..." are the hidden record sources of forms and reports.
    for (unsigned i = 0; i < mdb->num_catalog; ++i) {
      auto* entry = static_cast<MdbCatalogEntry*>(g_ptr_array_index(mdb->catalog, i));
      if (entry->object_type == MDB_QUERY && entry->object_name[0] != '~')
        out.rows.push_back(ViewRow(null, null, entry->object_name, null));
    }
    return out;
  }
  if (kind == SchemaKind::kForeignKeys) {
    // One record per column pair; grbit 0x2 marks a relationship Jet does not enforce (no
    // constraint to copy), 0x100 cascading updates, 0x1000 cascading deletes.
    RowSet rs;
    try {
      rs = Query(
          "SELECT szRelationship, szObject, szColumn, szReferencedObject, szReferencedColumn, "
          "grbit, icolumn FROM MSysRelationships");
    } catch (const ZtError&) {
      return out;  // a file without relationships may have no such table
    }
    std::sort(rs.rows.begin(), rs.rows.end(), [](const auto& a, const auto& b) {
      return std::make_tuple(a[1].ToText(), a[0].ToText(), a[6].ToInt32()) <
             std::make_tuple(b[1].ToText(), b[0].ToText(), b[6].ToInt32());
    });
    for (const auto& row : rs.rows) {
      const std::int32_t grbit = row[5].ToInt32();
      if (grbit & 0x2) continue;
      ForeignKeyColumn k;
      k.fk_name = row[0].ToText();
      k.fk_table = row[1].ToText();
      k.fk_column = row[2].ToText();
      k.pk_table = row[3].ToText();
      k.pk_column = row[4].ToText();
      k.ordinal = row[6].ToInt32() + 1;
      k.update_rule = (grbit & 0x100) ? "CASCADE" : "NO ACTION";
      k.delete_rule = (grbit & 0x1000) ? "CASCADE" : "NO ACTION";
      out.rows.push_back(ForeignKeyRow(null, null, k));
    }
    return out;
  }
  for (const auto& [name, system] : tables) {
    if (r.table && !Iequal(*r.table, name)) continue;
    if (kind == SchemaKind::kTables) {
      const std::string type = system ? "SYSTEM TABLE" : "TABLE";
      if (r.extra && *r.extra != type) continue;
      out.rows.push_back({null, null, Variant(name), Variant(type), null, null, null, null, null});
      continue;
    }
    if (system) continue;  // their columns and indexes are nobody's business
    Table t = OpenTable(mdb, name);
    if (kind == SchemaKind::kColumns) {
      for (unsigned i = 0; i < t->num_cols; ++i) {
        MdbColumn* c = ColumnAt(t.get(), i);
        if (r.extra && !Iequal(*r.extra, c->name)) continue;
        const ColumnInfo info = Describe(mdb, c);
        const char* def = mdb_col_get_prop(c, "DefaultValue");
        const bool nullable = (info.attributes & attr::kIsNullable) != 0;
        const bool text = info.type == 130 || info.type == 202 || info.type == 203;
        const bool binary = info.type == 128 || info.type == 204 || info.type == 205;
        const std::int32_t flags = info.attributes | attr::kUpdatable | attr::kUnknownUpdatable;
        out.rows.push_back({null, null, Variant(name), Variant(std::string(c->name)),
                            Variant(static_cast<std::int32_t>(i + 1)), Variant(def != nullptr),
                            def ? Variant(std::string(def)) : null, Variant(flags),
                            Variant(nullable), Variant(info.type),
                            text || binary ? Variant(info.defined_size) : null,
                            text     ? Variant(info.defined_size * 2)
                            : binary ? Variant(info.defined_size)
                                     : null,
                            info.precision == 255 ? null : Variant(info.precision),
                            info.scale == 255 ? null : Variant(info.scale), null, null});
      }
      continue;
    }
    // Indexes and primary keys. Jet lists the index behind each relationship too (type 2); it
    // is the relationship's, not an index anyone made.
    for (unsigned i = 0; i < t->num_idxs; ++i) {
      auto* idx = static_cast<MdbIndex*>(g_ptr_array_index(t->indices, i));
      if (idx->index_type == 2) continue;
      const bool primary = idx->index_type == 1;
      if (kind == SchemaKind::kPrimaryKeys && !primary) continue;
      if (kind == SchemaKind::kIndexes && r.extra && *r.extra != idx->name) continue;
      for (unsigned k = 0; k < idx->num_keys; ++k) {
        const int col = idx->key_col_num[k] - 1;
        if (col < 0 || static_cast<unsigned>(col) >= t->num_cols) continue;
        const std::string column = ColumnAt(t.get(), static_cast<unsigned>(col))->name;
        const auto ordinal = static_cast<std::int32_t>(k + 1);
        if (kind == SchemaKind::kPrimaryKeys)
          out.rows.push_back({null, null, Variant(name), Variant(column), null, null,
                              Variant(ordinal), Variant(std::string(idx->name))});
        else
          out.rows.push_back(IndexRow(null, null, name, idx->name, primary,
                                      primary || (idx->flags & MDB_IDX_UNIQUE) != 0, false, ordinal,
                                      column));
      }
    }
  }
  return out;
}

}  // namespace

std::unique_ptr<ConnectionBackend> OpenAccessDriver(const ConnectParams& p) {
  return std::make_unique<AccessConnection>(p);
}

}  // namespace zt::platform
