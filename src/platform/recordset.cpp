// Recordset, Field and the Fields collection.
//
// A forward-only read-only recordset streams from the statement: one row at a time, nothing
// buffered, which keeps large reads close to the engine's own speed. Every other kind reads its
// rows at open and keeps them with their original values, so that moves in both directions,
// Find, Filter and edits need no further round trip. Changes are written by key with generated
// parameterised statements: the primary key when the row holds it, else the engine's row
// identity when the recordset was opened on a table, else every short column's original value
// (as the old client cursor engine did).
#include <algorithm>
#include <cctype>
#include <optional>

#include "foundation/utf8.h"
#include "platform/criteria.h"
#include "platform/driver.h"
#include "platform/errors.h"
#include "platform/session.h"
#include "platform/sql_text.h"
#include "platform/type_map.h"
#include "zt/platform.h"

namespace zt {

using platform::AdoError;
using platform::AsciiLower;
using platform::BracketName;
using platform::RaiseAdo;

namespace {

constexpr const char* kSource = "ADODB.Recordset";
constexpr const char* kRowIdentityAlias = "zt_row_identity";

bool LooksLikeTableName(const std::string& s) {
  if (s.empty()) return false;
  if (s.front() == '[' && s.back() == ']') return s.find(']') == s.size() - 1;
  return std::none_of(s.begin(), s.end(), [](unsigned char c) { return std::isspace(c); });
}

std::string Unbracket(const std::string& s) {
  return s.size() >= 2 && s.front() == '[' && s.back() == ']' ? s.substr(1, s.size() - 2) : s;
}

bool IsText(std::int32_t type) {
  return type == 129 || type == 130 || type == 200 || type == 202;
}

[[noreturn]] void RaiseMultipleStep(const std::string& detail) {
  throw ZtError(
      platform::hr::kMultipleStep, kSource,
      "Multiple-step operation generated errors. Check each status value. (" + detail + ")");
}

// Refuses a text longer than the column holds, counted in characters.
void CheckLength(const platform::ColumnInfo& c, const Variant& v) {
  if (IsText(c.type) && c.defined_size > 0 && v.AsString() &&
      static_cast<std::int64_t>(utf8::Length(*v.AsString())) > c.defined_size)
    RaiseMultipleStep(c.name + " holds at most " + std::to_string(c.defined_size) + " characters");
}

// What a recordset without an engine behind it must check itself: the length, and Null in a
// column that does not take it (Empty, a value never set, counts as Null).
void CheckInMemory(const platform::ColumnInfo& c, const Variant& v) {
  CheckLength(c, v);
  if ((v.IsNull() || v.IsEmpty()) && !(c.attributes & platform::attr::kIsNullable))
    RaiseMultipleStep(c.name + " does not take Null");
}

}  // namespace

struct Recordset::Row {
  enum class Status { kUnchanged, kModified, kNew, kDeleted };
  std::vector<Variant> values;
  std::vector<Variant> original;
  Status status = Status::kUnchanged;
  bool gone = false;  // deleted in the table; never shown again
};

struct Recordset::Impl {
  std::shared_ptr<platform::Session> session;
  std::unique_ptr<platform::StatementBackend> stmt;
  std::vector<platform::ColumnInfo> columns;
  bool streaming = false;
  bool stream_row = false;    // streaming: a current row exists
  bool stream_moved = false;  // streaming: MoveNext was called since the statement ran
  std::vector<Row> rows;
  std::int64_t pos = 0;  // buffered: index into rows; -1 is BOF, rows.size() is EOF
  std::unique_ptr<platform::Criteria> criteria;
  std::int32_t filter_mode = ado::adFilterNone;
  std::vector<Variant> backup;  // the current row's values before the edit in progress
  std::int64_t add_from = 0;    // position before AddNew
  std::string table;            // base table of the writes; "" when the rows cannot be written
  bool key_known = false;
  bool key_is_all_columns = false;  // no key: rows are found by every short column's value
  std::vector<int> key;
  int rowid_col = -1;        // hidden row identity (last column), -1 when none
  bool whole_table = false;  // opened by table name
  bool own_rowset = false;
  bool disconnected = false;  // built in memory: no session, edits stay here

  std::size_t Size() const { return rows.size(); }
  bool InRange(std::int64_t p) const { return p >= 0 && p < static_cast<std::int64_t>(Size()); }
};

// ---------------------------------------------------------------------------------- Fields

FieldsCollection& Recordset::GetFields() {
  RequireOpen();
  return fields_;
}

Field& FieldsCollection::Item(std::int32_t index) {
  if (index < 0 || index >= Count())
    RaiseAdo(AdoError::kItemNotFound, kSource, "(" + std::to_string(index) + ")");
  return fields_[static_cast<std::size_t>(index)];
}

Field& FieldsCollection::Item(const std::string& name) {
  const int i = IndexOf(name);
  if (i < 0) RaiseAdo(AdoError::kItemNotFound, kSource, "(" + name + ")");
  return fields_[static_cast<std::size_t>(i)];
}

bool FieldsCollection::Has(const std::string& name) const {
  return IndexOf(name) >= 0;
}

int FieldsCollection::IndexOf(const std::string& name) const {
  const auto it = by_name_.find(AsciiLower(name));
  return it == by_name_.end() ? -1 : it->second;
}

const std::string& Field::Name() const {
  return rs_->impl_->columns[index_].name;
}
std::int32_t Field::Type() const {
  return rs_->impl_->columns[index_].type;
}
std::int64_t Field::DefinedSize() const {
  return rs_->impl_->columns[index_].defined_size;
}
std::int32_t Field::Attributes() const {
  return rs_->impl_->columns[index_].attributes;
}
std::int32_t Field::Precision() const {
  return rs_->impl_->columns[index_].precision;
}
std::int32_t Field::NumericScale() const {
  return rs_->impl_->columns[index_].scale;
}
Variant Field::Value() const {
  return rs_->ValueAt(index_);
}
void Field::SetValue(const Variant& value) {
  rs_->SetValueAt(index_, value);
}
bool Field::AutoIncrement() const {
  return rs_->impl_->columns[index_].auto_increment;
}
Variant Field::OriginalValue() const {
  return rs_->OriginalAt(index_);
}
std::int64_t Field::ActualSize() const {
  const Variant v = Value();
  if (v.IsNull() || v.IsEmpty()) return 0;
  if (const std::string* s = v.AsString()) return static_cast<std::int64_t>(s->size());
  return DefinedSize();
}

// ------------------------------------------------------------------------------- Recordset

Recordset::Recordset() : impl_(std::make_unique<Impl>()) {}
Recordset::~Recordset() = default;

void Recordset::RequireOpen() const {
  if (!open_) RaiseAdo(AdoError::kObjectClosed, kSource);
}

void Recordset::RequireCurrent() const {
  RequireOpen();
  const Impl& m = *impl_;
  if (m.streaming) {
    if (!m.stream_row) RaiseAdo(AdoError::kNoCurrentRecord, kSource);
    return;
  }
  if (!m.InRange(m.pos)) RaiseAdo(AdoError::kNoCurrentRecord, kSource);
  const Row& r = m.rows[static_cast<std::size_t>(m.pos)];
  if (r.gone || r.status == Row::Status::kDeleted) RaiseAdo(AdoError::kNoCurrentRecord, kSource);
}

void Recordset::RequireWritable() const {
  RequireOpen();
  if (lock_type_ == ado::adLockReadOnly || impl_->own_rowset)
    RaiseAdo(AdoError::kNotUpdatable, kSource);
  if (impl_->disconnected) return;
  if (impl_->session->Quirks().read_only)
    RaiseAdo(AdoError::kNotUpdatable, kSource, "(the data source is read-only)");
  if (impl_->table.empty())
    RaiseAdo(AdoError::kNotUpdatable, kSource, "(the rows do not come from a single table)");
}

void Recordset::Open(const std::string& source, const std::shared_ptr<Connection>& connection,
                     std::int32_t cursor_type, std::int32_t lock_type, std::int32_t options) {
  if (open_) RaiseAdo(AdoError::kObjectOpen, kSource);
  if (!connection) RaiseAdo(AdoError::kObjectClosed, kSource);
  platform::Session& s = connection->RequireSession();
  if (cursor_type == ado::adOpenUnspecified) cursor_type = ado::adOpenForwardOnly;
  if (lock_type == ado::adLockUnspecified) lock_type = ado::adLockReadOnly;
  if (cursor_type < ado::adOpenForwardOnly || cursor_type > ado::adOpenStatic ||
      lock_type < ado::adLockReadOnly || lock_type > ado::adLockBatchOptimistic)
    RaiseAdo(AdoError::kInvalidArgument, kSource);
  if (cursor_type == ado::adOpenDynamic) cursor_type = ado::adOpenKeyset;
  if (connection->CursorLocation() == ado::adUseClient) cursor_type = ado::adOpenStatic;
  if (lock_type == ado::adLockPessimistic) lock_type = ado::adLockOptimistic;

  const bool as_table = (options > 0 && (options & (ado::adCmdTable | ado::adCmdTableDirect))) ||
                        ((options <= 0 || options == ado::adCmdUnknown) &&
                         LooksLikeTableName(source) && AsciiLower(source).rfind("select", 0) != 0);
  auto m = std::make_unique<Impl>();
  m->session = connection->SessionPtr();
  std::string sql = source;
  if (as_table) {
    m->table = Unbracket(source);
    sql = "SELECT * FROM " + BracketName(m->table);
    const std::string& rowid = s.Quirks().row_identity;
    if (lock_type != ado::adLockReadOnly && !rowid.empty() &&
        s.Guard([&] { return s.backend->PrimaryKeyColumns(m->table); }).empty())
      sql = "SELECT *, " + BracketName(rowid) + " AS " + kRowIdentityAlias + " FROM " +
            BracketName(m->table);
  }
  auto stmt = s.PrepareText(sql);
  const bool stream = cursor_type == ado::adOpenForwardOnly && lock_type == ado::adLockReadOnly;
  if (stream) stmt->StreamRows();
  s.Guard([&] { stmt->Execute(); });

  std::string table = m->table;
  impl_ = std::move(m);
  OpenStatement(connection->SessionPtr(), std::move(stmt), stream);
  cursor_type_ = cursor_type;
  lock_type_ = lock_type;
  source_ = source;
  connection_ = connection;
  Impl& im = *impl_;
  if (!table.empty()) {
    im.table = table;
    im.whole_table = true;
    if (!im.columns.empty() && im.columns.back().name == kRowIdentityAlias)
      im.rowid_col = static_cast<int>(im.columns.size()) - 1;
  } else {
    // SQL text: writable when every column that names a table names the same one.
    for (const auto& c : im.columns) {
      if (c.base_table.empty()) continue;
      if (im.table.empty()) {
        im.table = c.base_table;
      } else if (AsciiLower(im.table) != AsciiLower(c.base_table)) {
        im.table.clear();
        break;
      }
    }
  }
  BuildFields();
}

void Recordset::OpenDisconnected(std::vector<RecordsetColumn> columns,
                                 std::vector<std::vector<Variant>> rows, std::int32_t lock_type) {
  if (open_) RaiseAdo(AdoError::kObjectOpen, kSource);
  if (lock_type == ado::adLockUnspecified) lock_type = ado::adLockBatchOptimistic;
  if (lock_type == ado::adLockPessimistic) lock_type = ado::adLockOptimistic;
  if (lock_type < ado::adLockReadOnly || lock_type > ado::adLockBatchOptimistic)
    RaiseAdo(AdoError::kInvalidArgument, kSource, "(lock type " + std::to_string(lock_type) + ")");
  if (columns.empty()) RaiseAdo(AdoError::kInvalidArgument, kSource, "(no columns)");
  // Everything is checked before anything is kept, so that a refused call leaves the recordset
  // closed and as it was.
  auto m = std::make_unique<Impl>();
  m->disconnected = true;
  for (auto& c : columns) {
    if (c.name.empty()) RaiseAdo(AdoError::kInvalidArgument, kSource, "(a column has no name)");
    for (const auto& prior : m->columns)
      if (AsciiLower(prior.name) == AsciiLower(c.name))
        RaiseAdo(AdoError::kInvalidArgument, kSource, "(column " + c.name + " appears twice)");
    platform::ColumnInfo ci;
    ci.name = std::move(c.name);
    ci.type = c.type;
    ci.defined_size = c.defined_size;
    ci.attributes = c.attributes;
    ci.precision = c.precision;
    ci.scale = c.scale;
    m->columns.push_back(std::move(ci));
  }
  m->rows.reserve(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (rows[i].size() != m->columns.size())
      RaiseAdo(AdoError::kInvalidArgument, kSource,
               "(row " + std::to_string(i + 1) + " has " + std::to_string(rows[i].size()) +
                   " values for " + std::to_string(m->columns.size()) + " columns)");
    for (std::size_t c = 0; c < m->columns.size(); ++c) CheckInMemory(m->columns[c], rows[i][c]);
  }
  for (auto& values : rows) {
    Row r;
    r.original = values;
    r.values = std::move(values);
    m->rows.push_back(std::move(r));
  }
  m->pos = 0;
  impl_ = std::move(m);
  connection_.reset();
  open_ = true;
  cursor_type_ = ado::adOpenStatic;
  lock_type_ = lock_type;
  edit_mode_ = ado::adEditNone;
  source_.clear();
  filter_ = Variant(std::int32_t{0});
  BuildFields();
}

void Recordset::OpenStatement(std::shared_ptr<platform::Session> session,
                              std::unique_ptr<platform::StatementBackend> stmt, bool stream) {
  Impl& m = *impl_;
  m.session = std::move(session);
  m.columns = stmt->Columns();
  m.streaming = stream;
  if (stream) {
    m.stmt = std::move(stmt);
    m.stream_row = m.session->Guard([&] { return m.stmt->Fetch(); });
    m.stream_moved = false;
  } else {
    const std::size_t n = m.columns.size();
    m.session->Guard([&] {
      while (stmt->Fetch()) {
        Row r;
        r.values.reserve(n);
        for (std::size_t c = 0; c < n; ++c) r.values.push_back(stmt->Get(static_cast<int>(c)));
        r.original = r.values;
        m.rows.push_back(std::move(r));
      }
    });
    m.pos = 0;
  }
  open_ = true;
  cursor_type_ = stream ? ado::adOpenForwardOnly : ado::adOpenStatic;
  lock_type_ = ado::adLockReadOnly;
  edit_mode_ = ado::adEditNone;
  filter_ = Variant(std::int32_t{0});
  BuildFields();
}

void Recordset::OpenRowSet(platform::RowSet rows, std::shared_ptr<platform::Session> session) {
  Impl& m = *impl_;
  m.session = std::move(session);
  m.columns = std::move(rows.columns);
  m.own_rowset = true;
  for (auto& values : rows.rows) {
    Row r;
    r.original = values;
    r.values = std::move(values);
    m.rows.push_back(std::move(r));
  }
  m.pos = 0;
  open_ = true;
  cursor_type_ = ado::adOpenStatic;
  lock_type_ = ado::adLockReadOnly;
  BuildFields();
}

void Recordset::BuildFields() {
  fields_.fields_.clear();
  fields_.by_name_.clear();
  const int n = static_cast<int>(impl_->columns.size()) - (impl_->rowid_col >= 0 ? 1 : 0);
  for (int i = 0; i < n; ++i) {
    fields_.fields_.push_back(Field(this, i));
    fields_.by_name_.emplace(AsciiLower(impl_->columns[static_cast<std::size_t>(i)].name), i);
  }
}

void Recordset::Close() {
  if (!open_) return;
  impl_ = std::make_unique<Impl>();
  connection_.reset();
  fields_.fields_.clear();
  fields_.by_name_.clear();
  open_ = false;
  edit_mode_ = ado::adEditNone;
  filter_ = Variant(std::int32_t{0});
}

bool Recordset::Visible(std::size_t i) const {
  const Impl& m = *impl_;
  const Row& r = m.rows[i];
  if (r.gone || r.status == Row::Status::kDeleted) return false;
  if (r.status == Row::Status::kNew && static_cast<std::int64_t>(i) == m.pos) return true;
  if (m.filter_mode == ado::adFilterPendingRecords && r.status == Row::Status::kUnchanged)
    return false;
  return !m.criteria || m.criteria->Matches(r.values);
}

bool Recordset::Eof() const {
  RequireOpen();
  const Impl& m = *impl_;
  if (m.streaming) return !m.stream_row;
  if (m.pos >= static_cast<std::int64_t>(m.Size())) return true;
  return m.pos >= 0 && RecordCount() == 0;
}

bool Recordset::Bof() const {
  RequireOpen();
  const Impl& m = *impl_;
  if (m.streaming) return !m.stream_row && !m.stream_moved;
  if (m.pos < 0) return true;
  for (std::size_t i = 0; i < m.Size(); ++i)
    if (Visible(i)) return false;
  return true;
}

std::int64_t Recordset::RecordCount() const {
  RequireOpen();
  if (impl_->streaming) return -1;
  std::int64_t n = 0;
  for (std::size_t i = 0; i < impl_->Size(); ++i) n += Visible(i) ? 1 : 0;
  return n;
}

std::int64_t Recordset::AbsolutePosition() const {
  RequireOpen();
  const Impl& m = *impl_;
  if (m.streaming || !m.InRange(m.pos) || !Visible(static_cast<std::size_t>(m.pos))) return -1;
  std::int64_t n = 0;
  for (std::int64_t i = 0; i <= m.pos; ++i) n += Visible(static_cast<std::size_t>(i)) ? 1 : 0;
  return n;
}

void Recordset::Step(int direction) {
  Impl& m = *impl_;
  std::int64_t p = m.pos + direction;
  while (m.InRange(p) && !Visible(static_cast<std::size_t>(p))) p += direction;
  m.pos = m.InRange(p) ? p : (direction > 0 ? static_cast<std::int64_t>(m.Size()) : -1);
}

void Recordset::FirstVisible() {
  impl_->pos = -1;
  Step(+1);
}

void Recordset::StreamNext() {
  Impl& m = *impl_;
  m.stream_moved = true;
  m.stream_row = m.session->Guard([&] { return m.stmt->Fetch(); });
}

void Recordset::Reopen() {
  Impl& m = *impl_;
  m.session->Guard([&] { m.stmt->Execute(); });
  m.stream_row = m.session->Guard([&] { return m.stmt->Fetch(); });
  m.stream_moved = false;
}

void Recordset::BufferRest() {
  Impl& m = *impl_;
  if (!m.streaming) return;
  const std::size_t n = m.columns.size();
  m.session->Guard([&] {
    while (m.stream_row) {
      Row r;
      for (std::size_t c = 0; c < n; ++c) r.values.push_back(m.stmt->Get(static_cast<int>(c)));
      r.original = r.values;
      m.rows.push_back(std::move(r));
      m.stream_row = m.stmt->Fetch();
    }
  });
  m.stmt.reset();
  m.streaming = false;
  m.pos = 0;
}

void Recordset::MoveNext() {
  RequireOpen();
  if (edit_mode_ != ado::adEditNone) Update();
  if (Eof()) RaiseAdo(AdoError::kNoCurrentRecord, kSource);
  if (impl_->streaming)
    StreamNext();
  else
    Step(+1);
}

void Recordset::MovePrevious() {
  RequireOpen();
  if (cursor_type_ == ado::adOpenForwardOnly)
    RaiseAdo(AdoError::kIllegalOperation, kSource, "(the cursor only moves forward)");
  if (edit_mode_ != ado::adEditNone) Update();
  if (Bof()) RaiseAdo(AdoError::kNoCurrentRecord, kSource);
  Step(-1);
}

void Recordset::MoveFirst() {
  RequireOpen();
  if (edit_mode_ != ado::adEditNone) Update();
  if (impl_->streaming) {
    if (impl_->stream_moved) Reopen();
    return;
  }
  if (cursor_type_ == ado::adOpenForwardOnly && impl_->pos > 0)
    RaiseAdo(AdoError::kIllegalOperation, kSource, "(the cursor only moves forward)");
  FirstVisible();
}

void Recordset::MoveLast() {
  RequireOpen();
  if (cursor_type_ == ado::adOpenForwardOnly)
    RaiseAdo(AdoError::kIllegalOperation, kSource, "(the cursor only moves forward)");
  if (edit_mode_ != ado::adEditNone) Update();
  impl_->pos = static_cast<std::int64_t>(impl_->Size());
  Step(-1);
}

void Recordset::Move(std::int64_t rows) {
  RequireOpen();
  if (rows < 0 && cursor_type_ == ado::adOpenForwardOnly)
    RaiseAdo(AdoError::kIllegalOperation, kSource, "(the cursor only moves forward)");
  if (edit_mode_ != ado::adEditNone) Update();
  for (std::int64_t k = 0; k < std::abs(rows); ++k) {
    if (rows > 0 ? Eof() : Bof()) break;
    if (impl_->streaming)
      StreamNext();
    else
      Step(rows > 0 ? +1 : -1);
  }
}

Variant Recordset::ValueAt(int col) const {
  RequireCurrent();
  const Impl& m = *impl_;
  if (m.streaming) return m.session->Guard([&] { return m.stmt->Get(col); });
  return m.rows[static_cast<std::size_t>(m.pos)].values[static_cast<std::size_t>(col)];
}

Variant Recordset::OriginalAt(int col) const {
  RequireCurrent();
  const Impl& m = *impl_;
  if (m.streaming) return m.stmt->Get(col);
  return m.rows[static_cast<std::size_t>(m.pos)].original[static_cast<std::size_t>(col)];
}

void Recordset::SetValueAt(int col, const Variant& v) {
  RequireCurrent();
  RequireWritable();
  Impl& m = *impl_;
  const platform::ColumnInfo& c = m.columns[static_cast<std::size_t>(col)];
  // Every column of a table opened by name is the table's; from SQL text only the columns
  // the engine traced to a table column can be written (not expressions).
  if (m.disconnected) {
    if (!(c.attributes & (platform::attr::kUpdatable | platform::attr::kUnknownUpdatable)))
      RaiseAdo(AdoError::kNotUpdatable, kSource, "(" + c.name + " cannot be changed)");
    CheckInMemory(c, v);
  } else if (c.base_column.empty() && !m.whole_table) {
    RaiseAdo(AdoError::kNotUpdatable, kSource, "(" + c.name + " is not a table column)");
  }
  CheckLength(c, v);
  Row& r = m.rows[static_cast<std::size_t>(m.pos)];
  if (edit_mode_ == ado::adEditNone) {
    m.backup = r.values;
    edit_mode_ = ado::adEditInProgress;
  }
  r.values[static_cast<std::size_t>(col)] = v;
}

void Recordset::AddNew() {
  RequireWritable();
  if (edit_mode_ != ado::adEditNone) Update();
  Impl& m = *impl_;
  Row r;
  r.values.assign(m.columns.size(), Variant());
  r.original.assign(m.columns.size(), Variant::Null());
  r.status = Row::Status::kNew;
  m.add_from = m.pos;
  m.rows.push_back(std::move(r));
  m.pos = static_cast<std::int64_t>(m.Size()) - 1;
  edit_mode_ = ado::adEditAdd;
}

void Recordset::Update() {
  RequireOpen();
  if (edit_mode_ == ado::adEditNone) return;
  Impl& m = *impl_;
  Row& r = m.rows[static_cast<std::size_t>(m.pos)];
  if (m.disconnected) {
    // No engine fills in defaults: a column never set is Null, and must take it.
    for (std::size_t c = 0; c < m.columns.size(); ++c) CheckInMemory(m.columns[c], r.values[c]);
    for (auto& v : r.values)
      if (v.IsEmpty()) v = Variant::Null();
  }
  if (lock_type_ == ado::adLockBatchOptimistic) {
    if (r.status == Row::Status::kUnchanged) r.status = Row::Status::kModified;
  } else {
    if (edit_mode_ == ado::adEditInProgress) r.status = Row::Status::kModified;
    try {
      WriteRow(r);
    } catch (...) {
      if (edit_mode_ == ado::adEditInProgress) r.status = Row::Status::kUnchanged;
      throw;
    }
    r.original = r.values;
    r.status = Row::Status::kUnchanged;
  }
  edit_mode_ = ado::adEditNone;
  m.backup.clear();
}

void Recordset::CancelUpdate() {
  RequireOpen();
  Impl& m = *impl_;
  if (edit_mode_ == ado::adEditAdd) {
    m.rows.erase(m.rows.begin() + m.pos);
    m.pos = std::min<std::int64_t>(m.add_from, static_cast<std::int64_t>(m.Size()));
  } else if (edit_mode_ == ado::adEditInProgress) {
    m.rows[static_cast<std::size_t>(m.pos)].values = m.backup;
  }
  m.backup.clear();
  edit_mode_ = ado::adEditNone;
}

void Recordset::Delete() {
  RequireCurrent();
  RequireWritable();
  if (edit_mode_ != ado::adEditNone) CancelUpdate();
  if (Eof() || Bof()) RaiseAdo(AdoError::kNoCurrentRecord, kSource);
  Impl& m = *impl_;
  Row& r = m.rows[static_cast<std::size_t>(m.pos)];
  if (lock_type_ == ado::adLockBatchOptimistic) {
    if (r.status == Row::Status::kNew)
      r.gone = true;
    else
      r.status = Row::Status::kDeleted;
    return;
  }
  const Row::Status before = r.status;
  r.status = Row::Status::kDeleted;
  try {
    WriteRow(r);
  } catch (...) {
    r.status = before;
    throw;
  }
  r.gone = true;
}

void Recordset::UpdateBatch() {
  RequireOpen();
  if (edit_mode_ != ado::adEditNone) Update();
  if (lock_type_ != ado::adLockBatchOptimistic) return;
  Impl& m = *impl_;
  std::vector<Row*> pending;
  for (Row& r : m.rows)
    if (!r.gone && r.status != Row::Status::kUnchanged) pending.push_back(&r);
  if (pending.empty()) return;
  RequireWritable();
  auto accept = [&] {
    for (Row* r : pending) {
      if (r->status == Row::Status::kDeleted) r->gone = true;
      r->original = r->values;
      r->status = Row::Status::kUnchanged;
    }
  };
  if (m.disconnected) return accept();  // nothing to write: the changes stand as they are
  platform::Session& s = *m.session;
  const bool own = s.transaction_level == 0;
  // Values filled in by the engine (row ids) are kept only when the whole batch commits.
  std::vector<std::vector<Variant>> saved;
  for (Row* r : pending) saved.push_back(r->values);
  std::optional<platform::ScopedTransaction> tx;
  if (own) {
    s.Guard([&] { tx.emplace(*s.backend); });
    s.transaction_level = 1;
  }
  try {
    for (Row* r : pending) WriteRow(*r);
    if (tx) {
      s.transaction_level = 0;
      s.Guard([&] { tx->Commit(); });
    }
  } catch (...) {
    if (own) s.transaction_level = 0;
    tx.reset();  // rolls back
    for (std::size_t i = 0; i < pending.size(); ++i) pending[i]->values = std::move(saved[i]);
    throw;
  }
  accept();
}

void Recordset::CancelBatch() {
  RequireOpen();
  if (edit_mode_ != ado::adEditNone) CancelUpdate();
  for (Row& r : impl_->rows) {
    if (r.status == Row::Status::kNew) r.gone = true;
    if (r.status == Row::Status::kModified) r.values = r.original;
    if (!r.gone) r.status = Row::Status::kUnchanged;
  }
  if (!impl_->InRange(impl_->pos) || !Visible(static_cast<std::size_t>(impl_->pos))) FirstVisible();
}

// Builds and runs the INSERT, UPDATE or DELETE for one row; raises 0x80040E38 when an UPDATE or
// DELETE finds no row (another session changed or removed it).
void Recordset::WriteRow(Row& r) {
  Impl& m = *impl_;
  if (m.disconnected) return;  // the row lives here only
  platform::Session& s = *m.session;
  const std::size_t ncols = m.columns.size() - (m.rowid_col >= 0 ? 1 : 0);
  auto column = [&](std::size_t c) {
    const auto& ci = m.columns[c];
    return ci.base_column.empty() ? ci.name : ci.base_column;
  };
  if (!m.key_known) {
    m.key_known = true;
    const auto pk = s.Guard([&] { return s.backend->PrimaryKeyColumns(m.table); });
    for (const auto& k : pk) {
      std::size_t c = 0;
      while (c < ncols && AsciiLower(column(c)) != AsciiLower(k)) ++c;
      if (c == ncols) {
        m.key.clear();
        break;
      }
      m.key.push_back(static_cast<int>(c));
    }
    if (m.key.empty() && m.rowid_col >= 0) m.key.push_back(m.rowid_col);
    m.key_is_all_columns = m.key.empty();
    if (m.key.empty())
      for (std::size_t c = 0; c < ncols; ++c)
        if (!(m.columns[c].attributes & platform::attr::kLong))
          m.key.push_back(static_cast<int>(c));
  }
  std::vector<Variant> params;
  auto where = [&] {
    std::string w;
    for (int k : m.key) {
      const auto& ci = m.columns[static_cast<std::size_t>(k)];
      const std::string name =
          k == m.rowid_col ? s.Quirks().row_identity : column(static_cast<std::size_t>(k));
      const Variant& v = r.original[static_cast<std::size_t>(k)];
      w += (w.empty() ? " WHERE " : " AND ") + BracketName(name);
      if (v.IsNull() || v.IsEmpty()) {
        w += " IS NULL";
      } else {
        w += " = ?";
        params.push_back(v);
      }
      (void)ci;
    }
    return w;
  };

  // Without a key, identical rows are one row to a statement. A keyset cursor stands on one
  // row, as the old server cursors did, so its change is limited to one of the twins (SQL
  // Server's TOP (1), MySQL's LIMIT 1, elsewhere the first row identity among the matching
  // rows); a static cursor, like the old client cursors, reports the twins as an error below.
  const bool one_row = m.key_is_all_columns && cursor_type_ == ado::adOpenKeyset;
  auto statement = [&](const std::string& verb, const std::string& rest) {
    const std::string t = BracketName(m.table);
    const std::string w = where();
    if (!one_row) return verb + t + rest + w;
    switch (s.Quirks().one_row_delete) {
      case platform::OneRowDelete::kTop:
        return verb.substr(0, verb.size() - (verb == "DELETE FROM " ? 5 : 0)) + "TOP (1) " +
               (verb == "DELETE FROM " ? "FROM " : "") + t + rest + w;
      case platform::OneRowDelete::kLimit:
        return verb + t + rest + w + " LIMIT 1";
      case platform::OneRowDelete::kNone:
        break;
    }
    const std::string rid = BracketName(s.Quirks().row_identity);
    if (s.Quirks().row_identity.empty() || w.empty()) return verb + t + rest + w;
    return verb + t + rest + " WHERE " + rid + " IN (SELECT " + rid + " FROM " + t + w +
           " LIMIT 1)";
  };

  std::string sql;
  bool check_count = true;
  if (r.status == Row::Status::kNew) {
    std::string cols, marks;
    for (std::size_t c = 0; c < ncols; ++c) {
      if (r.values[c].IsEmpty()) continue;
      cols += (cols.empty() ? "" : ", ") + BracketName(column(c));
      marks += marks.empty() ? "?" : ", ?";
      params.push_back(r.values[c]);
    }
    sql =
        "INSERT INTO " + BracketName(m.table) +
        (cols.empty() ? std::string(" DEFAULT VALUES") : " (" + cols + ") VALUES (" + marks + ")");
    check_count = false;
  } else if (r.status == Row::Status::kDeleted) {
    sql = statement("DELETE FROM ", "");
  } else {
    std::string set;
    for (std::size_t c = 0; c < ncols; ++c) {
      if (Variant::SameValue(r.values[c], r.original[c])) continue;
      set += (set.empty() ? " SET " : ", ") + BracketName(column(c)) + " = ?";
      params.push_back(r.values[c].IsEmpty() ? Variant::Null() : r.values[c]);
    }
    if (set.empty()) return;
    sql = statement("UPDATE ", set);
    check_count = s.Quirks().row_count == platform::RowCountStyle::kMatched;
  }
  // Where a write moves the row (PostgreSQL's ctid), the statement hands back the new identity,
  // so that the next change of the same row still finds it.
  const bool returning =
      m.rowid_col >= 0 && s.Quirks().row_identity_moves && r.status != Row::Status::kDeleted;
  if (returning) sql += " RETURNING " + BracketName(s.Quirks().row_identity);
  auto stmt = s.PrepareText(sql);
  for (std::size_t i = 0; i < params.size(); ++i) stmt->Bind(static_cast<int>(i), params[i]);
  // Without a key, identical rows cannot be told apart: the write runs in a transaction so that
  // touching more than one row can be undone.
  std::optional<platform::ScopedTransaction> guard;
  if (m.key_is_all_columns && r.status != Row::Status::kNew && s.transaction_level == 0)
    s.Guard([&] { guard.emplace(*s.backend); });
  s.Guard([&] { stmt->Execute(); });
  std::int64_t affected = stmt->RowsAffected();
  if (returning) {
    affected = s.Guard([&] { return stmt->Fetch(); }) ? 1 : 0;
    if (affected) r.values[static_cast<std::size_t>(m.rowid_col)] = stmt->Get(0);
  }
  if (check_count && affected == 0)
    throw ZtError(platform::hr::kRowChanged, s.provider,
                  "Row cannot be located for updating. Some values may have been changed "
                  "since it was last read.");
  if (m.key_is_all_columns && affected > 1)
    throw ZtError(platform::hr::kFail, s.provider,
                  "Key column information is insufficient or incorrect. Too many rows were "
                  "affected by update.");
  if (guard) s.Guard([&] { guard->Commit(); });
  if (r.status != Row::Status::kNew) return;

  // Read the new row back so that numbers and defaults the engine filled in are seen. A row
  // identity that came back with RETURNING or is the engine's last insert id (SQLite's rowid)
  // finds it.
  for (std::size_t c = 0; c < m.columns.size(); ++c)
    if (r.values[c].IsEmpty() &&
        (m.columns[c].auto_increment || static_cast<int>(c) == m.rowid_col)) {
      r.values[c] = s.backend->LastInsertId();
      if (r.values[c].IsNull()) r.values[c] = Variant();
    }
  r.original = r.values;
  std::string select;
  for (std::size_t c = 0; c < m.columns.size(); ++c)
    select += (c ? ", " : "") +
              BracketName(static_cast<int>(c) == m.rowid_col ? s.Quirks().row_identity : column(c));
  params.clear();
  bool key_complete = true;
  for (int k : m.key)
    if (r.values[static_cast<std::size_t>(k)].IsEmpty()) key_complete = false;
  if (!key_complete) {
    for (auto& v : r.values)
      if (v.IsEmpty()) v = Variant::Null();
    r.original = r.values;
    return;
  }
  auto reread = s.PrepareText("SELECT " + select + " FROM " + BracketName(m.table) + where());
  for (std::size_t i = 0; i < params.size(); ++i) reread->Bind(static_cast<int>(i), params[i]);
  s.Guard([&] { reread->Execute(); });
  if (s.Guard([&] { return reread->Fetch(); }))
    for (std::size_t c = 0; c < m.columns.size(); ++c)
      r.values[c] = reread->Get(static_cast<int>(c));
  for (auto& v : r.values)
    if (v.IsEmpty()) v = Variant::Null();
  r.original = r.values;
}

void Recordset::Find(const std::string& criteria, std::int64_t skip, std::int32_t direction) {
  RequireOpen();
  auto crit = platform::Criteria::Parse(
      criteria, [&](const std::string& n) { return fields_.IndexOf(n); }, kSource);
  Impl& m = *impl_;
  const bool forward = direction != ado::adSearchBackward;
  if (m.streaming) {
    if (!forward) RaiseAdo(AdoError::kIllegalOperation, kSource, "(the cursor only moves forward)");
    for (std::int64_t k = 0; k < skip && m.stream_row; ++k) StreamNext();
    std::vector<Variant> row(m.columns.size());
    while (m.stream_row) {
      for (std::size_t c = 0; c < row.size(); ++c) row[c] = m.stmt->Get(static_cast<int>(c));
      if (crit->Matches(row)) return;
      StreamNext();
    }
    return;
  }
  if (edit_mode_ != ado::adEditNone) Update();
  const int dir = forward ? +1 : -1;
  if (!m.InRange(m.pos)) {
    m.pos = forward ? -1 : static_cast<std::int64_t>(m.Size());
    Step(dir);
  } else {
    for (std::int64_t k = 0; k < skip && m.InRange(m.pos); ++k) Step(dir);
  }
  while (m.InRange(m.pos) && !crit->Matches(m.rows[static_cast<std::size_t>(m.pos)].values))
    Step(dir);
}

void Recordset::SetFilter(const Variant& filter) {
  RequireOpen();
  if (edit_mode_ != ado::adEditNone) Update();
  std::unique_ptr<platform::Criteria> crit;
  std::int32_t mode = ado::adFilterNone;
  if (const std::string* text = filter.AsString()) {
    if (!text->empty())
      crit = platform::Criteria::Parse(
          *text, [&](const std::string& n) { return fields_.IndexOf(n); }, kSource);
  } else if (filter.IsNumeric() && !filter.IsEmpty()) {
    mode = filter.ToInt32();
    if (mode != ado::adFilterNone && mode != ado::adFilterPendingRecords)
      RaiseAdo(AdoError::kInvalidArgument, kSource);
  } else if (!filter.IsEmpty()) {
    RaiseAdo(AdoError::kInvalidArgument, kSource);
  }
  BufferRest();
  impl_->criteria = std::move(crit);
  impl_->filter_mode = mode;
  filter_ = filter.IsEmpty() ? Variant(std::int32_t{0}) : filter;
  FirstVisible();
}

}  // namespace zt
