// CZtDTMgr: what turns copied tables into a copied store (see CopyStoreObjects in dt_mgr.h):
// the columns the engine numbers, the relationships between the tables, and the views.
//
// The order matters. Identities come first: MariaDB refuses to change a column that a foreign
// key already refers to. Relationships come after every table holds its rows, so no row is
// checked against a table that is still empty, and each is checked before it is added: an engine
// would refuse it with one line naming no row (PostgreSQL, MariaDB), or, SQLite, take it over
// rows that break it.
#include <algorithm>
#include <map>
#include <set>

#include "platform/dialect.h"
#include "platform/driver.h"
#include "platform/session.h"
#include "platform/sql_text.h"
#include "schema/dt_copy_state.h"
#include "zt/datastore.h"
#include "zt/error_handling.h"
#include "zt/event_logger.h"
#include "zt/schema/dt_mgr.h"

namespace zt {

namespace {

using platform::AsciiLower;
using platform::BracketName;

// One relationship of the source, its column pairs gathered.
struct Relationship {
  platform::ForeignKeyDef def;
};

std::vector<Relationship> SourceRelationships(Connection& cn) {
  std::vector<Relationship> out;
  auto rs = cn.OpenSchema(ado::adSchemaForeignKeys);
  for (; !rs->Eof(); rs->MoveNext()) {
    const std::int32_t ordinal = rs->Value("ORDINAL").ToInt32();
    const std::string table = rs->Value("FK_TABLE_NAME").ToText();
    const Variant name = rs->Value("FK_NAME");
    // The rows of one key come together, its first column pair first.
    if (ordinal <= 1 || out.empty() || out.back().def.table != table) {
      Relationship r;
      r.def.table = table;
      r.def.name = name.IsNull() ? std::string() : name.ToText();
      r.def.referenced = rs->Value("PK_TABLE_NAME").ToText();
      r.def.update_rule = rs->Value("UPDATE_RULE").ToText();
      r.def.delete_rule = rs->Value("DELETE_RULE").ToText();
      out.push_back(std::move(r));
    }
    out.back().def.columns.push_back(rs->Value("FK_COLUMN_NAME").ToText());
    out.back().def.referenced_columns.push_back(rs->Value("PK_COLUMN_NAME").ToText());
  }
  return out;
}

// A name the target keeps whole: cut to the engine's limit on a character boundary.
std::string FitName(std::string name, std::size_t max_bytes) {
  if (max_bytes == 0 || name.size() <= max_bytes) return name;
  name.resize(max_bytes);
  while (!name.empty() && (static_cast<unsigned char>(name.back()) & 0xC0) == 0x80) name.pop_back();
  if (!name.empty() && (static_cast<unsigned char>(name.back()) & 0x80)) name.pop_back();
  return name;
}

std::string Joined(const std::vector<std::string>& names) {
  std::string out;
  for (const auto& n : names) out += (out.empty() ? "" : ", ") + n;
  return out;
}

// Whether the target has a relationship over the same columns to the same table already.
bool TargetHas(const std::vector<Relationship>& existing, const platform::ForeignKeyDef& fk) {
  const auto lower_all = [](std::vector<std::string> v) {
    for (auto& s : v) s = AsciiLower(s);
    return v;
  };
  return std::any_of(existing.begin(), existing.end(), [&](const Relationship& r) {
    return AsciiLower(r.def.table) == AsciiLower(fk.table) &&
           AsciiLower(r.def.referenced) == AsciiLower(fk.referenced) &&
           lower_all(r.def.columns) == lower_all(fk.columns);
  });
}

// The rows of the key's table whose values refer to no row of the referenced table: their
// count, and the first one in words ("CustomerID = 'WOLZA'").
std::pair<std::int64_t, std::string> Orphans(Connection& cn, const platform::ForeignKeyDef& fk) {
  std::string where;
  std::string match;
  for (std::size_t i = 0; i < fk.columns.size(); ++i) {
    where += (i ? " AND " : " WHERE ") + ("c." + BracketName(fk.columns[i])) + " IS NOT NULL";
    match += (i ? " AND " : "") + ("r." + BracketName(fk.referenced_columns[i])) + " = c." +
             BracketName(fk.columns[i]);
  }
  where +=
      " AND NOT EXISTS (SELECT 1 FROM " + BracketName(fk.referenced) + " r WHERE " + match + ")";
  const std::string from = " FROM " + BracketName(fk.table) + " c" + where;
  const std::int64_t n = cn.Execute("SELECT COUNT(*)" + from)->Fields(0).Value().ToInt64();
  if (n == 0) return {0, {}};
  std::string list;
  for (const auto& c : fk.columns) list += (list.empty() ? "c." : ", c.") + BracketName(c);
  auto rs = cn.Execute("SELECT " + list + from);
  std::string first;
  for (std::size_t i = 0; !rs->Eof() && i < fk.columns.size(); ++i) {
    const Variant v = rs->Fields(static_cast<std::int32_t>(i)).Value();
    first += (i ? ", " : "") + fk.columns[i] + " = " +
             (v.AsString() ? platform::SqlLiteral(v.ToText()) : v.ToText());
  }
  return {n, first};
}

}  // namespace

const std::vector<StoreObjectResult>& CZtDTMgr::LastCopyObjects() const {
  return copy_->objects;
}

void CZtDTMgr::ClearCopyObjects() {
  copy_->objects.clear();
}

bool CZtDTMgr::CopyStoreObjects(const std::shared_ptr<Connection>& source_cn, CZtDataStore& target,
                                const std::vector<std::string>& tables,
                                const std::vector<std::string>& created, bool views) {
  const auto here = [](std::int32_t p) {
    return p == kProviderJet || p == kProviderPostgreSql || p == kProviderMySql;
  };
  const std::int32_t provider = target.GeneralProviderType();
  if (!source_cn || !here(provider) || !here(ProviderOfConnection(*source_cn))) return true;
  const std::shared_ptr<Connection> cn = target.GetConnection(1);
  const platform::Dialect& dialect = cn->Dialect();
  auto& objects = copy_->objects;
  const std::size_t first = objects.size();
  const auto note = [&](StoreObjectResult r) {
    const std::string what = r.kind + " " + (r.table.empty() ? "" : r.table + ".") + r.name;
    ZtLog_LogEvent(
        r.kept ? "Copied " + what + ": " + r.detail : "Not copied " + what + ": " + r.detail,
        nullptr, r.kept ? kEventInformation : kEventWarning, kLevelDiagnostic);
    objects.push_back(std::move(r));
  };
  const auto error_text = [](const ZtError& e) {
    Err().Clear();
    return e.Description();
  };
  std::set<std::string> copied;
  for (const auto& t : tables) copied.insert(AsciiLower(t));

  // Identities, from the highest copied value on.
  for (const auto& table : created) try {
      auto source = source_cn->Execute("SELECT * FROM " + BracketName(table) + " WHERE -1=0");
      auto mine = cn->Execute("SELECT * FROM " + BracketName(table) + " WHERE -1=0");
      auto& fields = source->GetFields();
      for (std::int32_t i = 0; i < fields.Count(); ++i) {
        Field& f = fields.Item(i);
        if (!f.AutoIncrement() || !mine->GetFields().Has(f.Name())) continue;
        StoreObjectResult r{"identity", table, f.Name(), false, {}};
        try {
          const Variant max =
              cn->Execute("SELECT MAX(" + BracketName(f.Name()) + ") FROM " + BracketName(table))
                  ->Fields(0)
                  .Value();
          const std::int64_t next = max.IsNull() ? 1 : max.ToInt64() + 1;
          const platform::SchemaPlan plan = dialect.PlanIdentity(*cn, table, f.Name(), next);
          for (const auto& sql : plan.statements) RunStatement(*cn, sql);
          r.kept = true;
          r.detail = "numbers new rows from " + std::to_string(next);
        } catch (const ZtError& e) {
          r.detail = error_text(e);
        }
        note(std::move(r));
      }
    } catch (const ZtError& e) {
      note({"identity", table, {}, false, "the columns cannot be read: " + error_text(e)});
    }

  // Relationships between the copied tables.
  std::vector<Relationship> existing;
  try {
    existing = SourceRelationships(*cn);
  } catch (const ZtError&) {
    Err().Clear();
  }
  std::vector<Relationship> relationships;
  try {
    relationships = SourceRelationships(*source_cn);
  } catch (const ZtError& e) {
    note({"foreign key",
          {},
          {},
          false,
          "the source's relationships cannot be read: " + error_text(e)});
  }
  for (auto& rel : relationships) {
    platform::ForeignKeyDef& fk = rel.def;
    if (fk.name.empty()) fk.name = "FK_" + fk.table + "_" + fk.columns.front();
    fk.name = FitName(fk.name, dialect.MaxNameBytes());
    if (!copied.count(AsciiLower(fk.table))) continue;
    StoreObjectResult r{"foreign key", fk.table, fk.name, false, {}};
    const std::string text = "(" + Joined(fk.columns) + ") REFERENCES " + fk.referenced + " (" +
                             Joined(fk.referenced_columns) + ")";
    if (!copied.count(AsciiLower(fk.referenced))) {
      r.detail = text + ": " + fk.referenced + " is not among the tables copied";
      note(std::move(r));
      continue;
    }
    if (TargetHas(existing, fk)) continue;
    try {
      const auto [orphans, example] = Orphans(*cn, fk);
      if (orphans > 0) {
        r.detail = text + ": " + std::to_string(orphans) + " row" + (orphans == 1 ? "" : "s") +
                   " of " + fk.table + " refer to no row of " + fk.referenced +
                   " (first: " + example + ")";
      } else {
        const platform::SchemaPlan plan = dialect.PlanAddForeignKey(*cn, fk);
        if (DryRun()) {
          for (const auto& sql : plan.statements) RunStatement(*cn, sql);
        } else {
          platform::RunSchemaPlan(*cn, plan);
        }
        r.kept = true;
        r.detail = text;
      }
    } catch (const ZtError& e) {
      r.detail = text + ": " + error_text(e);
    }
    note(std::move(r));
  }

  // Views, each in the target's quoting; one that needs another view is tried again once that
  // one exists.
  if (views) {
    const platform::DriverQuirks& quirks = source_cn->RequireSession().Quirks();
    const std::string qualifier =
        quirks.has_schemas ? std::string() : source_cn->RequireSession().backend->CurrentCatalog();
    std::vector<std::pair<StoreObjectResult, std::string>> pending;
    std::shared_ptr<Recordset> rs;
    try {
      rs = source_cn->OpenSchema(ado::adSchemaViews);
    } catch (const ZtError& e) {
      note({"view", {}, {}, false, "the source's views cannot be read: " + error_text(e)});
    }
    for (; rs && !rs->Eof(); rs->MoveNext()) {
      StoreObjectResult r{"view", {}, rs->Value("TABLE_NAME").ToText(), false, {}};
      const Variant text = rs->Value("VIEW_DEFINITION");
      if (text.IsNull()) {
        r.detail = "a query of an Access file is stored without its SQL text";
        note(std::move(r));
        continue;
      }
      if (TableExists(cn, r.name)) {
        r.detail = "the target has a table or view of that name already";
        note(std::move(r));
        continue;
      }
      pending.emplace_back(std::move(r),
                           "CREATE VIEW " + BracketName(rs->Value("TABLE_NAME").ToText()) + " AS " +
                               platform::BracketQuoting(text.ToText(), quirks, qualifier));
    }
    for (bool progress = true; progress && !pending.empty();) {
      progress = false;
      for (auto it = pending.begin(); it != pending.end();) {
        try {
          RunStatement(*cn, it->second);
          it->first.kept = true;
          it->first.detail.clear();
          note(std::move(it->first));
          it = pending.erase(it);
          progress = true;
        } catch (const ZtError& e) {
          it->first.detail = error_text(e);
          ++it;
        }
      }
    }
    for (auto& [r, sql] : pending) note(std::move(r));
  }
  return std::all_of(objects.begin() + static_cast<std::ptrdiff_t>(first), objects.end(),
                     [](const StoreObjectResult& r) { return r.kept; });
}

}  // namespace zt
