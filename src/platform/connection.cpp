// Connection, Command, PreparedStatement and BulkInserter.
#include <algorithm>

#include "platform/dialect.h"
#include "platform/driver.h"
#include "platform/errors.h"
#include "platform/session.h"
#include "platform/sql_text.h"
#include "text/password_mask.h"
#include "zt/platform.h"

namespace zt {

using platform::AdoError;
using platform::RaiseAdo;

namespace {
constexpr const char* kConnectionSource = "ADODB.Connection";
constexpr const char* kCommandSource = "ADODB.Command";

// One element of a restrictions array, absent when Empty (or missing).
std::optional<std::string> Restriction(const VariantArray* a, std::int32_t i) {
  if (!a || !a->Contains(a->lower_bound + i)) return std::nullopt;
  const Variant& v = a->at(a->lower_bound + i);
  if (v.IsEmpty() || v.IsNull()) return std::nullopt;
  return v.ToText();
}
bool NoRecords(std::int32_t options) {
  return options > 0 && (options & ado::adExecuteNoRecords);
}

// `e` with the password items of its Description masked: a driver that echoes its connection
// string does not carry the password on into error handlers and logs. The engine's own words
// are never searched for the password: a password that is a common word ("running", "exist")
// would garble the message and, by the gaps, give itself away.
ZtError WithoutPassword(const ZtError& e, const std::string& password) {
  std::string text = text_detail::MaskPasswordItems(e.Description(), {password});
  if (text == e.Description()) return e;
  // The engine's report (SQLSTATE, native code, category) stays with the masked text.
  ErrorInfo info = e.Info();
  info.description = std::move(text);
  return ZtError(std::move(info));
}

}  // namespace

namespace platform {

std::unique_ptr<StatementBackend> Session::PrepareText(const std::string& sql) {
  return Guard([&] {
    backend->BeginStatement(sql);
    return backend->Prepare(
        PrepareSqlText(sql, Quirks(), provider, [&](const std::string& name, bool unquoted) {
          return backend->CatalogSpelling(name, unquoted);
        }));
  });
}

void Session::NoteFailure(const ZtError& e) {
  if (e.Number() == hr::kFail && !broken && !backend->IsAlive()) broken = true;
}

}  // namespace platform

Connection::Connection() = default;
Connection::~Connection() = default;

void Connection::Open(const std::string& connection_string, const std::string& user,
                      const std::string& password, std::int32_t /*options*/) {
  if (State() == ado::adStateOpen) RaiseAdo(AdoError::kObjectOpen, kConnectionSource);
  const std::string text = connection_string.empty() ? connection_string_ : connection_string;
  platform::ConnectParams params =
      platform::ParseConnectionString(text, user, password, provider_table_.get());
  if (params.login_timeout == 0) params.login_timeout = connection_timeout_;
  params.read_timeout = command_timeout_;
  const platform::DriverFactory* factory = platform::FindDriver(params.driver);
  if (!factory)
    RaiseAdo(AdoError::kProviderNotFound, kConnectionSource, "(driver " + params.driver + ")");
  auto session = std::make_shared<platform::Session>();
  session->provider = params.provider;
  try {
    session->backend = (*factory)(params);
  } catch (const ZtError& e) {
    throw WithoutPassword(e, params.password);
  }
  session->backend->SetCommandTimeout(command_timeout_);
  session_ = std::move(session);
  connection_string_ = text;
}

void Connection::Close() {
  // Recordsets may keep the session alive past this point: a transaction left open would hold
  // its locks until the last of them goes, so it is rolled back here, as the old objects did.
  if (session_ && session_->transaction_level > 0 && !session_->broken) {
    session_->transaction_level = 0;
    try {
      session_->backend->Rollback();
    } catch (const ZtError&) {
    }
  }
  session_.reset();
}

std::int32_t Connection::State() const {
  return session_ && !session_->broken ? ado::adStateOpen : ado::adStateClosed;
}

bool Connection::IsAlive() {
  if (State() != ado::adStateOpen) return false;
  if (session_->backend->IsAlive()) return true;
  session_.reset();
  return false;
}

platform::Session& Connection::RequireSession() const {
  if (State() != ado::adStateOpen) RaiseAdo(AdoError::kObjectClosed, kConnectionSource);
  return *session_;
}

std::shared_ptr<Recordset> Connection::Execute(const std::string& sql,
                                               std::int64_t* records_affected,
                                               std::int32_t options) {
  platform::Session& s = RequireSession();
  auto stmt = s.PrepareText(sql);
  s.Guard([&] { stmt->Execute(); });
  if (records_affected) *records_affected = stmt->RowsAffected();
  auto rs = std::make_shared<Recordset>();
  if (!stmt->Columns().empty() && !NoRecords(options)) {
    rs->OpenStatement(session_, std::move(stmt), /*stream=*/true);
    rs->connection_ = weak_from_this().lock();
  }
  return rs;
}

std::int32_t Connection::BeginTrans() {
  platform::Session& s = RequireSession();
  if (s.transaction_level > 0)
    RaiseAdo(AdoError::kIllegalOperation, kConnectionSource, "(a transaction is already open)");
  s.Guard([&] { s.backend->BeginTransaction(); });
  s.transaction_level = 1;
  return 1;
}

void Connection::CommitTrans() {
  platform::Session& s = RequireSession();
  if (s.transaction_level == 0)
    RaiseAdo(AdoError::kIllegalOperation, kConnectionSource, "(no transaction is open)");
  s.Guard([&] { s.backend->Commit(); });
  s.transaction_level = 0;
}

void Connection::RollbackTrans() {
  platform::Session& s = RequireSession();
  if (s.transaction_level == 0)
    RaiseAdo(AdoError::kIllegalOperation, kConnectionSource, "(no transaction is open)");
  s.transaction_level = 0;
  s.Guard([&] { s.backend->Rollback(); });
}

bool Connection::InTransaction() const {
  return session_ && session_->transaction_level > 0;
}

void Connection::SetCursorLocation(std::int32_t location) {
  if (location != ado::adUseServer && location != ado::adUseClient)
    RaiseAdo(AdoError::kInvalidArgument, kConnectionSource);
  cursor_location_ = location;
}

void Connection::SetCommandTimeout(std::int32_t seconds) {
  if (seconds < 0) RaiseAdo(AdoError::kInvalidArgument, kConnectionSource);
  command_timeout_ = seconds;
  if (session_) session_->backend->SetCommandTimeout(seconds);
}

std::string Connection::Provider() const {
  if (session_) return session_->provider;
  // Closed: the provider the stored string would open (the embedded engine when it names none
  // and has no Driver=), or the name as written when no table entry knows it.
  try {
    return platform::ParseConnectionString(connection_string_, {}, {}, provider_table_.get())
        .provider;
  } catch (const ZtError&) {
    try {
      return platform::FindKey(platform::SplitConnectionString(connection_string_), "Provider")
          .value_or("");
    } catch (const ZtError&) {
      return {};
    }
  }
}

std::string Connection::Engine() const {
  return session_ ? session_->Quirks().engine : "";
}

void Connection::SetConnectionString(const std::string& text) {
  if (State() == ado::adStateOpen) RaiseAdo(AdoError::kObjectOpen, kConnectionSource);
  connection_string_ = text;
}

void Connection::SetProviderTable(std::shared_ptr<const platform::ProviderTable> table) {
  provider_table_ = std::move(table);
}

std::string Connection::DefaultDatabase() const {
  return RequireSession().backend->CurrentCatalog();
}

std::string Connection::ColumnType(std::int32_t dao_type, std::int32_t size) const {
  return Dialect().ColumnType(dao_type, size);
}

const platform::Dialect& Connection::Dialect() const {
  return RequireSession().backend->EngineDialect();
}

std::shared_ptr<Recordset> Connection::OpenSchema(std::int32_t schema,
                                                  const Variant& restrictions) {
  platform::Session& s = RequireSession();
  if (schema != ado::adSchemaTables && schema != ado::adSchemaColumns &&
      schema != ado::adSchemaIndexes && schema != ado::adSchemaPrimaryKeys &&
      schema != ado::adSchemaViews && schema != ado::adSchemaForeignKeys)
    RaiseAdo(AdoError::kNotUpdatable, kConnectionSource,
             "(schema rowset " + std::to_string(schema) + " is not supported)");
  if (!restrictions.IsEmpty() && !restrictions.IsArray())
    RaiseAdo(AdoError::kInvalidArgument, kConnectionSource);
  const VariantArray* a = restrictions.AsArray();
  platform::SchemaRestrictions r;
  r.catalog = Restriction(a, 0);
  r.schema = Restriction(a, 1);
  if (a && a->Contains(a->lower_bound + 1) && a->at(a->lower_bound + 1).AsString())
    r.schema = a->at(a->lower_bound + 1).ToText();  // "" asks for the default schema
  r.table = Restriction(a, 2);
  r.extra = Restriction(a, 3);
  const auto kind = static_cast<platform::SchemaKind>(schema);
  if (kind == platform::SchemaKind::kIndexes && !s.Quirks().index_rowset)
    RaiseAdo(AdoError::kNotUpdatable, s.provider, "(the driver cannot list indexes)");
  platform::RowSet rows = s.Guard([&] { return s.backend->Schema(kind, r); });
  // Views and foreign keys come for the whole schema: their restrictions are applied here, names
  // without regard to case as the engines look them up (foreign keys: the referenced table is the
  // third restriction, the table holding the key the sixth).
  if (kind == platform::SchemaKind::kViews || kind == platform::SchemaKind::kForeignKeys) {
    std::vector<std::pair<std::size_t, std::optional<std::string>>> wanted = {{2, r.table}};
    if (kind == platform::SchemaKind::kForeignKeys) wanted.emplace_back(8, Restriction(a, 5));
    std::erase_if(rows.rows, [&](const std::vector<Variant>& row) {
      for (const auto& [column, name] : wanted)
        if (name && platform::AsciiLower(row[column].ToText()) != platform::AsciiLower(*name))
          return true;
      return false;
    });
  }
  auto rs = std::make_shared<Recordset>();
  rs->OpenRowSet(std::move(rows), session_);
  rs->connection_ = weak_from_this().lock();
  return rs;
}

PreparedStatement::PreparedStatement(const Connection& connection, const std::string& sql)
    : session_(connection.SessionPtr()) {
  platform::Session& s = connection.RequireSession();
  stmt_ = s.PrepareText(sql);
  parameters_ = stmt_->ParameterCount();
}

PreparedStatement::~PreparedStatement() = default;

int PreparedStatement::ParameterCount() {
  return parameters_;
}

void PreparedStatement::Bind(int index, const Variant& value) {
  if (index < 0 || index >= parameters_) RaiseAdo(AdoError::kInvalidArgument, kCommandSource);
  stmt_->Bind(index, value);
}

void PreparedStatement::BindBytes(int index, const std::string& bytes) {
  if (index < 0 || index >= parameters_) RaiseAdo(AdoError::kInvalidArgument, kCommandSource);
  stmt_->BindBytes(index, bytes);
}

std::int64_t PreparedStatement::Execute() {
  session_->Guard([&] { stmt_->Execute(); });
  return stmt_->RowsAffected();
}

BulkInserter::BulkInserter(const Connection& connection, const std::string& table,
                           const std::vector<std::string>& columns)
    : session_(connection.SessionPtr()), columns_(columns.size()) {
  platform::Session& s = connection.RequireSession();
  const bool joined = s.transaction_level > 0;
  writer_ = s.Guard([&] {
    // Read by the writer's constructor only; never left set for a later load.
    s.backend->caller_transaction = joined;
    try {
      auto w = s.backend->BeginBulk(table, columns);
      s.backend->caller_transaction = false;
      return w;
    } catch (...) {
      s.backend->caller_transaction = false;
      throw;
    }
  });
}

BulkInserter::~BulkInserter() = default;

void BulkInserter::AddRow(const std::vector<Variant>& values) {
  if (!writer_) RaiseAdo(AdoError::kObjectClosed, kConnectionSource);
  if (values.size() != columns_) RaiseAdo(AdoError::kInvalidArgument, kConnectionSource);
  try {
    session_->Guard([&] { writer_->AddRow(values); });
  } catch (const ZtError&) {
    // The load is over: dropping the writer takes back every row sent so far, and a later row
    // cannot land outside the load's transaction.
    writer_.reset();
    throw;
  }
}

void BulkInserter::Finish() {
  if (!writer_) RaiseAdo(AdoError::kObjectClosed, kConnectionSource);
  auto w = std::move(writer_);
  session_->Guard([&] { w->Finish(); });
}

void Command::SetCommandTimeout(std::int32_t seconds) {
  if (seconds < 0) RaiseAdo(AdoError::kInvalidArgument, kCommandSource);
  timeout_ = seconds;
}

std::shared_ptr<Recordset> Command::Execute(std::int64_t* records_affected, std::int32_t options) {
  if (!connection_) RaiseAdo(AdoError::kObjectClosed, kCommandSource);
  platform::Session& s = connection_->RequireSession();
  auto stmt = s.PrepareText(text_);
  for (std::size_t i = 0; i < parameters_.size(); ++i)
    stmt->Bind(static_cast<int>(i), parameters_[i]);
  s.backend->SetCommandTimeout(timeout_);
  struct Restore {
    platform::Session& s;
    int seconds;
    ~Restore() { s.backend->SetCommandTimeout(seconds); }
  } restore{s, connection_->CommandTimeout()};
  s.Guard([&] { stmt->Execute(); });
  if (records_affected) *records_affected = stmt->RowsAffected();
  auto rs = std::make_shared<Recordset>();
  if (!stmt->Columns().empty() && !NoRecords(options)) {
    rs->OpenStatement(connection_->SessionPtr(), std::move(stmt), /*stream=*/true);
    rs->connection_ = connection_;
  }
  return rs;
}

}  // namespace zt
