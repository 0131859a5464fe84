// The scripted test driver (see include/zt/platform/scripted_driver.h). Registered as
// "scripted"; the provider table sends "Scripted*" providers here, and ScopedScriptedProvider
// sends any other provider here for a while.
#include "zt/platform/scripted_driver.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <regex>

#include "platform/driver.h"
#include "platform/errors.h"
#include "platform/sql_text.h"

namespace zt::platform {
namespace {

// Scripts by lower-cased name, per thread like the connections that use them.
std::map<std::string, std::shared_ptr<DriverScript>>& Scripts() {
  thread_local std::map<std::string, std::shared_ptr<DriverScript>> scripts;
  return scripts;
}

std::int32_t TypeOfValue(const Variant& v) {
  switch (v.Type()) {
    case VarType::Long:
      return 3;
    case VarType::LongLong:
      return 20;
    case VarType::Double:
      return 5;
    case VarType::Currency:
      return 6;
    case VarType::Decimal:
      return 131;
    case VarType::Date:
      return 7;
    case VarType::Boolean:
      return 11;
    default:
      return 202;
  }
}

bool RuleMatches(const DriverScript::Rule& rule, const std::string& sql) {
  switch (rule.how) {
    case DriverScript::Match::kExact:
      return sql == rule.pattern;
    case DriverScript::Match::kPrefix:
      return sql.compare(0, rule.pattern.size(), rule.pattern) == 0;
    case DriverScript::Match::kContains:
      return sql.find(rule.pattern) != std::string::npos;
    case DriverScript::Match::kRegex:
      return std::regex_match(sql, std::regex(rule.pattern));
  }
  return false;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// The script
// ---------------------------------------------------------------------------------------------

ScriptedAnswer ScriptedAnswer::Rows(std::vector<std::string> columns,
                                    std::vector<std::vector<Variant>> rows) {
  ScriptedAnswer a;
  a.columns = std::move(columns);
  a.rows = std::move(rows);
  a.records_affected = -1;
  return a;
}

ScriptedAnswer ScriptedAnswer::Affected(std::int64_t records) {
  ScriptedAnswer a;
  a.records_affected = records;
  return a;
}

ScriptedAnswer ScriptedAnswer::Error(std::int32_t number, std::string description) {
  ScriptedAnswer a;
  a.error = ErrorInfo{number, "", std::move(description), "", 0};
  return a;
}

DriverScript& DriverScript::On(std::string pattern, ScriptedAnswer answer, Match how, int times) {
  if (how == Match::kRegex) {
    // A bad pattern fails here, where the test wrote it, and not at some later statement.
    try {
      std::regex check(pattern);
    } catch (const std::regex_error& e) {
      throw ZtError(rt::kInvalidProcedureCall, "DriverScript",
                    "Invalid regular expression '" + pattern + "': " + e.what());
    }
  }
  rules_.push_back({std::move(pattern), how, std::move(answer), std::max(0, times)});
  return *this;
}

DriverScript& DriverScript::Otherwise(ScriptedAnswer answer) {
  otherwise_ = std::move(answer);
  return *this;
}

DriverScript& DriverScript::FailOpen(std::int32_t number, std::string description) {
  open_error_ = ErrorInfo{number, "", std::move(description), "", 0};
  return *this;
}

DriverScript& DriverScript::Schema(int rowset, ScriptedAnswer answer) {
  std::erase_if(schema_, [&](const auto& e) { return e.first == rowset; });
  schema_.emplace_back(rowset, std::move(answer));
  return *this;
}

DriverScript& DriverScript::Engine(ScriptedEngine engine) {
  engine_ = std::move(engine);
  return *this;
}

DriverScript& DriverScript::Alive(bool alive) {
  alive_ = alive;
  return *this;
}

std::vector<std::string> DriverScript::Statements() const {
  std::vector<std::string> out;
  for (const auto& s : sent_) out.push_back(s.sql);
  return out;
}

void DriverScript::ClearLog() {
  sent_.clear();
  events_.clear();
  connects_.clear();
}

ScriptedAnswer DriverScript::Answer(const std::string& sql,
                                    const std::vector<Variant>& parameters) {
  sent_.push_back({sql, parameters});
  events_.push_back("exec " + sql);
  for (auto it = rules_.begin(); it != rules_.end(); ++it) {
    if (!RuleMatches(*it, sql)) continue;
    ScriptedAnswer answer = it->answer;
    if (it->remaining > 0 && --it->remaining == 0) rules_.erase(it);
    return answer;
  }
  return otherwise_;
}

const ScriptedAnswer* DriverScript::SchemaAnswer(int rowset) const {
  for (const auto& [n, a] : schema_)
    if (n == rowset) return &a;
  return nullptr;
}

void RegisterDriverScript(const std::string& name, std::shared_ptr<DriverScript> script) {
  Scripts()[AsciiLower(name)] = std::move(script);
}

void UnregisterDriverScript(const std::string& name) {
  Scripts().erase(AsciiLower(name));
}

ScopedScriptedProvider::ScopedScriptedProvider(std::string provider,
                                               std::shared_ptr<DriverScript> script)
    : provider_(std::move(provider)) {
  RegisterDriverScript(provider_, std::move(script));
  ProviderEntry entry;
  entry.pattern = provider_;
  entry.driver = "scripted";
  PushThreadProviderOverride(std::move(entry));
}

ScopedScriptedProvider::~ScopedScriptedProvider() {
  PopThreadProviderOverride(provider_);
  UnregisterDriverScript(provider_);
}

// ---------------------------------------------------------------------------------------------
// The backend
// ---------------------------------------------------------------------------------------------
namespace {

[[noreturn]] void Throw(ErrorInfo e, const std::string& source) {
  if (e.source.empty()) e.source = source;
  throw ZtError(std::move(e));
}

}  // namespace

class ScriptedStatementBackend : public StatementBackend {
 public:
  ScriptedStatementBackend(std::shared_ptr<DriverScript> script, std::string sql,
                           std::string source)
      : script_(std::move(script)), sql_(std::move(sql)), source_(std::move(source)) {}

  int ParameterCount() override {
    // "?" outside quoted text; the rewriting has already left one statement.
    int n = 0;
    char quote = 0;
    for (char c : sql_) {
      if (quote) {
        if (c == quote) quote = 0;
      } else if (c == '\'' || c == '"') {
        quote = c;
      } else if (c == '?') {
        ++n;
      }
    }
    return n;
  }
  void Bind(int index, const Variant& value) override {
    if (index < 0) RaiseSqlState(source_, "07009", 0, "Invalid parameter index");
    if (static_cast<std::size_t>(index) >= binds_.size())
      binds_.resize(static_cast<std::size_t>(index) + 1);
    binds_[static_cast<std::size_t>(index)] = value;
  }
  void Execute() override {
    answer_ = script_->Answer(sql_, binds_);
    row_ = -1;
    columns_.clear();
    if (answer_.error) Throw(*answer_.error, source_);
    for (std::size_t i = 0; i < answer_.columns.size(); ++i) {
      ColumnInfo c;
      c.name = answer_.columns[i];
      if (i < answer_.column_types.size()) {
        c.type = answer_.column_types[i];
      } else {
        c.type = 202;
        for (const auto& row : answer_.rows)
          if (i < row.size() && !row[i].IsNull() && !row[i].IsEmpty()) {
            c.type = TypeOfValue(row[i]);
            break;
          }
      }
      c.defined_size = c.type == 202 ? 255 : 8;
      c.attributes = 0x4 | 0x8 | 0x20 | 0x40;
      c.base_table = answer_.base_table;
      if (!c.base_table.empty()) c.base_column = c.name;
      columns_.push_back(std::move(c));
    }
  }
  const std::vector<ColumnInfo>& Columns() override { return columns_; }
  bool Fetch() override {
    if (columns_.empty() || row_ + 1 >= static_cast<long>(answer_.rows.size())) {
      row_ = static_cast<long>(answer_.rows.size());
      return false;
    }
    ++row_;
    return true;
  }
  Variant Get(int col) override {
    if (row_ < 0 || row_ >= static_cast<long>(answer_.rows.size())) return Variant();
    const auto& row = answer_.rows[static_cast<std::size_t>(row_)];
    return col >= 0 && static_cast<std::size_t>(col) < row.size()
               ? row[static_cast<std::size_t>(col)]
               : Variant::Null();
  }
  std::int64_t RowsAffected() override { return columns_.empty() ? answer_.records_affected : -1; }

 private:
  std::shared_ptr<DriverScript> script_;
  std::string sql_;
  std::string source_;
  std::vector<Variant> binds_;
  ScriptedAnswer answer_;
  std::vector<ColumnInfo> columns_;
  long row_ = -1;
};

QuoteStyle ToQuoteStyle(ScriptedQuoting q) {
  switch (q) {
    case ScriptedQuoting::kDoubleQuotes:
      return QuoteStyle::kDoubleQuotes;
    case ScriptedQuoting::kBackticks:
      return QuoteStyle::kBackticks;
    case ScriptedQuoting::kBrackets:
      break;
  }
  return QuoteStyle::kBrackets;
}

class ScriptedConnection : public ConnectionBackend {
 public:
  ScriptedConnection(std::shared_ptr<DriverScript> script, const ConnectParams& p)
      : script_(std::move(script)), source_(p.provider), database_(p.database) {
    const ScriptedEngine& e = script_->engine_;
    quirks_.engine = e.name;
    quirks_.one_row_delete = OneRowDeleteOf(e.name);
    quirks_.quote = ToQuoteStyle(e.quoting);
    quirks_.transactional_ddl = e.transactional_ddl;
    quirks_.has_schemas = e.has_schemas;
    quirks_.read_only = p.read_only;
    script_->connects_.push_back(ScriptedConnect{p.provider, p.data_source, p.database, p.user,
                                                 !p.password.empty(), p.integrated_security,
                                                 p.login_timeout});
    script_->events_.push_back("open");
    if (script_->open_error_) Throw(*script_->open_error_, source_);
  }
  ~ScriptedConnection() override { script_->events_.push_back("close"); }

  const DriverQuirks& Quirks() const override { return quirks_; }
  std::unique_ptr<StatementBackend> Prepare(const std::string& sql) override {
    return std::make_unique<ScriptedStatementBackend>(script_, sql, source_);
  }
  void BeginTransaction() override { script_->events_.push_back("begin"); }
  void Commit() override { script_->events_.push_back("commit"); }
  void Rollback() override { script_->events_.push_back("rollback"); }
  void SetCommandTimeout(int seconds) override {
    script_->events_.push_back("timeout " + std::to_string(seconds));
  }
  bool IsAlive() override { return script_->alive_; }
  std::string CurrentCatalog() override {
    return script_->engine_.catalog.empty() ? database_ : script_->engine_.catalog;
  }
  std::string DefaultSchema() override {
    return quirks_.has_schemas ? script_->engine_.default_schema : std::string();
  }
  RowSet Schema(SchemaKind kind, const SchemaRestrictions& r) override {
    const ScriptedAnswer* a = script_->SchemaAnswer(static_cast<int>(kind));
    if (!a) return ConnectionBackend::Schema(kind, r);
    RowSet rs;
    for (const auto& name : a->columns) {
      ColumnInfo c;
      c.name = name;
      c.type = 202;
      rs.columns.push_back(std::move(c));
    }
    auto column = [&](const char* name) {
      const auto it = std::find(a->columns.begin(), a->columns.end(), name);
      return it == a->columns.end() ? -1 : static_cast<int>(it - a->columns.begin());
    };
    const int table = column("TABLE_NAME"), schema = column("TABLE_SCHEMA");
    const std::optional<std::string> wanted_schema =
        r.schema && r.schema->empty() ? std::optional<std::string>(DefaultSchema()) : r.schema;
    auto keep = [&](const std::vector<Variant>& row, int col, const std::optional<std::string>& v) {
      return col < 0 || !v || static_cast<std::size_t>(col) >= row.size() ||
             AsciiLower(row[static_cast<std::size_t>(col)].ToText()) == AsciiLower(*v);
    };
    // The fourth restriction names a column of its own per rowset.
    const int extra = column(kind == SchemaKind::kTables    ? "TABLE_TYPE"
                             : kind == SchemaKind::kColumns ? "COLUMN_NAME"
                             : kind == SchemaKind::kIndexes ? "INDEX_NAME"
                                                            : "");
    for (const auto& row : a->rows)
      if (keep(row, table, r.table) && keep(row, schema, wanted_schema) &&
          keep(row, extra, r.extra))
        rs.rows.push_back(row);
    return rs;
  }

 private:
  std::shared_ptr<DriverScript> script_;
  std::string source_;
  std::string database_;
  DriverQuirks quirks_;
};

std::unique_ptr<ConnectionBackend> OpenScriptedDriver(const ConnectParams& p) {
  auto& scripts = Scripts();
  auto it = scripts.find(AsciiLower(p.provider));
  if (it == scripts.end()) it = scripts.find(AsciiLower(p.data_source));
  if (it == scripts.end())
    throw ZtError(hr::kFail, p.provider,
                  "No driver script is registered for provider '" + p.provider +
                      "' or data source '" + p.data_source + "'");
  return std::make_unique<ScriptedConnection>(it->second, p);
}
}  // namespace zt::platform
