// ztdb copy SOURCE TARGET: tables (all, or --tables) from one data store into another, on any
// two engines, through the library's table copy. Each side is a data-store URL or a bare SQLite
// file path; passwords come from $ZTDB_PASSWORD (source) and $ZTDB_TARGET_PASSWORD (target) or
// a prompt, never from the command line.
#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
#include <sstream>

#include "progress.h"
#include "tool.h"
#include "zt/schema/dt_mgr.h"

namespace ztdb {

namespace {

using nlohmann::json;
namespace fs = std::filesystem;

struct CopyOptions {
  std::string source, target;
  std::vector<std::string> tables;
  bool replace = false, append = false, indexes = false, verify = false;
  bool dry_run = false, json = false, yes = false;
  bool ask_source_password = false, ask_target_password = false;
  std::string source_odbc_driver, target_odbc_driver;
};

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

CopyOptions& Opts() {
  static CopyOptions options;
  return options;
}

// A side of the copy: a URL, or a bare path that names an SQLite file.
std::shared_ptr<zt::CZtDataStore> Side(const std::string& text, const std::string& odbc_driver,
                                       bool ask_password, const char* password_variable) {
  StoreOptions o;
  if (text.find("://") != std::string::npos) {
    o.url = text;
  } else {
    if (text.empty()) throw UsageError("a data store is needed on both sides of the copy");
    o.name = fs::absolute(text).lexically_normal().string();
  }
  o.odbc_driver = odbc_driver;
  o.ask_password = ask_password;
  return MakeStore(o, password_variable);
}

std::string Describe(zt::CZtDataStore& ds) {
  return IsServer(ds) ? ds.DataStoreName() + " on " + ds.Location() : ds.FullPath();
}

std::vector<std::string> UserTables(zt::Connection& cn) {
  std::vector<std::string> names;
  auto rs = cn.OpenSchema(zt::ado::adSchemaTables);
  for (; !rs->Eof(); rs->MoveNext()) {
    const std::string name = rs->Value("TABLE_NAME").ToText();
    if (rs->Value("TABLE_TYPE").ToText() == "TABLE" && name.rfind("MSys", 0) != 0)
      names.push_back(name);
  }
  return names;
}

std::int64_t Count(zt::Connection& cn, const std::string& table) {
  auto rs = cn.Execute("SELECT COUNT(*) FROM [" + table + "]");
  return rs->Eof() ? 0 : rs->Fields(0).Value().ToInt64();
}

// A checksum of every value of every row, independent of the row order and of how each engine
// spells a value (Booleans as -1/0, numbers by their value): a sum of the rows' hashes.
std::uint64_t TableChecksum(const std::shared_ptr<zt::Connection>& cn, const std::string& table,
                            const std::vector<std::string>& columns,
                            const std::vector<bool>& booleans) {
  std::string list;
  for (const auto& c : columns) list += (list.empty() ? "" : ", ") + ("[" + c + "]");
  // Forward and read-only: the rows stream by once, so memory stays flat in the row count.
  auto rs = std::make_shared<zt::Recordset>();
  rs->Open("SELECT " + list + " FROM [" + table + "]", cn, zt::ado::adOpenForwardOnly,
           zt::ado::adLockReadOnly);
  std::uint64_t sum = 0;
  std::string row;
  for (; !rs->Eof(); rs->MoveNext()) {
    row.clear();
    for (std::int32_t i = 0; i < rs->GetFields().Count(); ++i) {
      const zt::Variant v = rs->Fields(i).Value();
      if (v.IsNull()) {
        row += "\x01|";
      } else if (v.Type() == zt::VarType::Boolean ||
                 (booleans[static_cast<std::size_t>(i)] && v.IsNumeric())) {
        // A Boolean on either side: MariaDB keeps it as TINYINT(1) and reads back 1.
        row += v.ToBool() ? "-1|" : "0|";
      } else if (v.IsNumeric() && !v.IsString()) {
        std::ostringstream n;
        n.precision(15);
        n << v.ToDouble();
        row += n.str() + "|";
      } else {
        row += v.ToText() + "|";
      }
    }
    sum += std::hash<std::string>{}(row);
  }
  return sum;
}

int Copy(Context& cx) {
  CopyOptions& o = Opts();
  cx.out.json = o.json;
  if (o.replace && o.append) throw UsageError("--replace and --append exclude each other");
  auto source = Side(o.source, o.source_odbc_driver, o.ask_source_password, "ZTDB_PASSWORD");
  auto target = Side(o.target, o.target_odbc_driver, o.ask_target_password, "ZTDB_TARGET_PASSWORD");
  if (!IsServer(*source) && !IsServer(*target) && fs::exists(target->FullPath()) &&
      fs::equivalent(source->FullPath(), target->FullPath()))
    throw UsageError("the source and the target are the same file");

  auto source_cn = source->GetConnection(1);
  const std::vector<std::string> all = UserTables(*source_cn);
  std::vector<std::string> tables;
  if (o.tables.empty()) {
    tables = all;
  } else {
    for (const auto& t : o.tables) {
      // Engines look names up without regard to case (PostgreSQL folds them).
      const auto it = std::find_if(all.begin(), all.end(),
                                   [&](const std::string& n) { return Lower(n) == Lower(t); });
      if (it == all.end()) throw ToolError("there is no table '" + t + "' in " + Describe(*source));
      tables.push_back(*it);
    }
  }
  std::int32_t options = 0;
  if (o.append) options |= zt::kCopyAppend;
  if (o.indexes) options |= zt::kCopyIndexes;
  if (o.replace) options |= zt::kCopyReplace;

  zt::CZtDTMgr dt;
  const bool target_exists = IsServer(*target) || fs::exists(target->FullPath());
  std::shared_ptr<zt::Connection> target_cn;
  std::vector<std::string> existing;
  if (target_exists) {
    target_cn = target->GetConnection(1);
    for (const auto& t : tables)
      if (dt.TableExists(target_cn, t)) existing.push_back(t);
  }

  if (o.dry_run) {
    json plan = json::array();
    cx.out.Line("Would copy " + std::to_string(tables.size()) + " tables from " +
                Describe(*source) + " to " + Describe(*target) +
                (target_exists ? "" : " (created)"));
    for (const auto& t : tables) {
      const std::int64_t rows = Count(*source_cn, t);
      const bool exists = std::find(existing.begin(), existing.end(), t) != existing.end();
      const std::string action = !exists     ? "create and copy"
                                 : o.replace ? "drop, create and copy"
                                 : o.append  ? "append to the existing table"
                                             : "replace the rows of the existing table";
      cx.out.Line("  " + t + ": " + std::to_string(rows) + " rows, " + action);
      plan.push_back({{"table", t}, {"rows", rows}, {"action", action}});
    }
    cx.out.Json({{"dry_run", true}, {"tables", plan}});
    return kExitOk;
  }

  if (!existing.empty() && !o.append && IsServer(*target) && !o.yes &&
      !Confirm(std::to_string(existing.size()) + " of the tables exist in " + Describe(*target) +
               " and lose their rows" + (o.replace ? " and structure" : "") + "; go on?"))
    throw ToolError("cancelled; nothing was changed");
  if (!target_exists) {
    cx.out.Note("Creating " + Describe(*target) + " ...");
    target->CreatePhysicalDataStore();
  }

  Progress progress(Progress::StderrIsTerminal());
  dt.SetCopyProgress([&](const zt::CopyProgress& p) {
    if (p.rows_done == 0 && !p.done)
      progress.Start(p.table, p.rows_total);
    else if (!p.done)
      progress.Update(p.rows_done);
  });

  json rows_json = json::array();
  std::vector<std::vector<std::string>> summary = {{"TABLE", "ROWS", "FAILED", "SECONDS", ""}};
  bool all_copied = true;
  for (const auto& t : tables) {
    const auto start = std::chrono::steady_clock::now();
    bool copied = false;
    std::string error;
    try {
      copied = dt.CopyTable(*source, source_cn, t, *target, options);
    } catch (const zt::ZtError& e) {
      // The next table is still tried; this one's failure is told now, with its number.
      error = e.Description();
      ReportError(e);
    }
    const double secs =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    zt::TableCopyResult r;
    for (const auto& x : dt.LastCopyResults())
      if (x.table == t) r = x;
    r.table = t;
    if (r.error.empty()) r.error = error;
    copied = copied && r.error.empty();
    progress.Finish(r.rows, copied ? "" : "not copied");
    std::string verified;
    if (copied && o.verify) {
      auto tcn = target->GetConnection(1);
      std::vector<std::string> columns;
      std::vector<bool> booleans;
      const auto target_fields = dt.GetAllFieldsInfo(tcn, t);
      for (const auto& f : dt.GetAllFieldsInfo(source_cn, t)) {
        columns.push_back(f.name);
        bool boolean = f.dao_type == 1;
        for (const auto& g : target_fields)
          if (Lower(g.name) == Lower(f.name) && g.dao_type == 1) boolean = true;
        booleans.push_back(boolean);
      }
      const bool same_rows = Count(*source_cn, t) == Count(*tcn, t) + r.failed;
      const bool same_sum = r.failed > 0 || TableChecksum(source_cn, t, columns, booleans) ==
                                                TableChecksum(tcn, t, columns, booleans);
      verified = same_rows && same_sum ? "verified" : "DIFFERS";
      if (verified == "DIFFERS") {
        copied = false;
        r.error = same_rows ? "the values differ from the source's"
                            : "the row count differs from the source's";
      }
    }
    all_copied = all_copied && copied;
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.1f", secs);
    summary.push_back({t, std::to_string(r.rows), std::to_string(r.failed), seconds,
                       copied ? verified : "NOT COPIED: " + r.error});
    json entry = {{"table", t},         {"copied", copied}, {"rows", r.rows},
                  {"failed", r.failed}, {"seconds", secs},  {"messages", r.messages}};
    if (!r.error.empty()) entry["error"] = r.error;
    if (!verified.empty()) entry["verified"] = verified == "verified";
    rows_json.push_back(entry);
  }
  cx.out.Table(summary);
  cx.out.Line(all_copied
                  ? "Copied " + std::to_string(tables.size()) + " tables to " + Describe(*target)
                  : "Some tables were not copied completely");
  cx.out.Json({{"source", source->MaskedConnectionString()},
               {"target", target->MaskedConnectionString()},
               {"copied", all_copied},
               {"tables", rows_json}});
  return all_copied ? kExitOk : kExitFailed;
}

}  // namespace

std::vector<Command> CopyCommands() {
  return {
      {"copy",
       "Copy tables from one data store to another (any two engines): structure, rows, indexes",
       false, false,
       [](CLI::App& app) {
         CopyOptions& o = Opts();
         app.add_option(
                "source", o.source,
                "Source: sqlite:///abs/path.db or a file path, postgresql://user@host:port/db, "
                "mysql://..., sqlserver://...")
             ->required();
         app.add_option("target", o.target, "Target, in the same forms")->required();
         app.add_option("--tables", o.tables, "Only these tables (default: every user table)")
             ->delimiter(',');
         app.add_flag("--replace", o.replace, "Drop a target table that exists and create it anew");
         app.add_flag("--append", o.append, "Keep the rows a target table already has");
         app.add_flag("--indexes", o.indexes, "Create the tables' indexes with their structure");
         app.add_flag("--verify", o.verify,
                      "Compare row counts and a checksum of every column afterwards");
         app.add_flag("--dry-run", o.dry_run, "Print what would be copied; change nothing");
         app.add_flag("--json", o.json, "Print the summary as one JSON document");
         app.add_flag("-y,--yes", o.yes, "Do not ask before replacing rows on a server");
         const std::string group = "Data stores";
         app.add_flag("-W,--ask-password", o.ask_source_password,
                      "Ask for the source's password (else $ZTDB_PASSWORD)")
             ->group(group);
         app.add_flag("--ask-target-password", o.ask_target_password,
                      "Ask for the target's password (else $ZTDB_TARGET_PASSWORD)")
             ->group(group);
         app.add_option("--odbc-driver", o.source_odbc_driver,
                        "ODBC driver of the source (e.g. \"MariaDB Unicode\")")
             ->group(group);
         app.add_option("--target-odbc-driver", o.target_odbc_driver, "ODBC driver of the target")
             ->group(group);
       },
       Copy},
  };
}

}  // namespace ztdb
