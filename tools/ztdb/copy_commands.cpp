// ztdb copy SOURCE TARGET: tables (all, or --tables) from one data store into another, on any
// two engines, through the library's table copy. Each side is a data-store URL or a bare SQLite
// file path; passwords come from $ZTDB_PASSWORD (source) and $ZTDB_TARGET_PASSWORD (target) or
// a prompt, never from the command line.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
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
  bool replace = false, append = false, no_indexes = false, verify = false;
  std::int64_t max_rejects = 0;
  std::string rejects;
  bool dry_run = false, json = false, yes = false;
  bool ask_source_password = false, ask_target_password = false;
  std::string source_odbc_driver, target_odbc_driver;
  std::string target_schema;
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

// A value of a refused row for the --rejects file: numbers as numbers, text as text (bytes that
// are not UTF-8 as U+FFFD), Null as null.
json RejectValue(const zt::Variant& v) {
  switch (v.Type()) {
    case zt::VarType::Empty:
    case zt::VarType::Null:
      return nullptr;
    case zt::VarType::Boolean:
      return v.ToBool();
    case zt::VarType::Long:
    case zt::VarType::LongLong:
      return v.ToInt64();
    case zt::VarType::Double:
      return v.ToDouble();
    default:
      return v.ToText();
  }
}

// Every refused row as one JSON line: {"table", "reason", "row": {column: value}}. When a table's
// bulk load is redone record by record, its lines so far are taken back (the file is cut to
// where the table began), so each refused row is written once.
class RejectsFile {
 public:
  explicit RejectsFile(const std::string& path) : path_(path) {
    if (path.empty()) return;
    file_ = std::fopen(path.c_str(), "w");
    if (!file_) throw ToolError("cannot write the rejects file '" + path + "'");
  }
  ~RejectsFile() {
    if (file_) std::fclose(file_);
  }
  RejectsFile(const RejectsFile&) = delete;
  RejectsFile& operator=(const RejectsFile&) = delete;
  bool Open() const { return file_ != nullptr; }
  void Add(const zt::CopyReject& r) {
    if (!file_) return;
    if (r.table != table_) {
      table_ = r.table;
      table_start_ = std::ftell(file_);
    }
    if (r.restart) {
      std::fflush(file_);
      if (ftruncate(fileno(file_), table_start_) != 0 ||
          std::fseek(file_, table_start_, SEEK_SET) != 0)
        throw ToolError("cannot rewrite the rejects file '" + path_ + "'");
      return;
    }
    json row = json::object();
    for (std::size_t i = 0; i < r.columns.size() && i < r.values.size(); ++i)
      row[r.columns[i]] = RejectValue(r.values[i]);
    const std::string line = json{{"table", r.table}, {"reason", r.reason}, {"row", row}}.dump(
                                 -1, ' ', false, json::error_handler_t::replace) +
                             "\n";
    if (std::fwrite(line.data(), 1, line.size(), file_) != line.size())
      throw ToolError("cannot write the rejects file '" + path_ + "'");
  }

 private:
  std::string path_;
  std::FILE* file_ = nullptr;
  std::string table_;
  long table_start_ = 0;
};

int Copy(Context& cx) {
  CopyOptions& o = Opts();
  cx.out.json = o.json;
  if (o.replace && o.append) throw UsageError("--replace and --append exclude each other");
  auto source = Side(o.source, o.source_odbc_driver, o.ask_source_password, "ZTDB_PASSWORD");
  auto target = Side(o.target, o.target_odbc_driver, o.ask_target_password, "ZTDB_TARGET_PASSWORD");
  if (!o.target_schema.empty()) {
    if (target->GeneralProviderType() != zt::kProviderPostgreSql)
      throw UsageError("--target-schema needs a PostgreSQL target");
    const std::string alt = target->AltConnString();
    target->AltConnString((alt.empty() ? "" : alt + ";") + "Schema=" + o.target_schema);
  }
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
  // The primary key always comes; the other indexes unless asked not to.
  if (!o.no_indexes) options |= zt::kCopyIndexes;
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
  std::string phase;  // "" while copying, "verifying " while comparing
  dt.SetCopyProgress([&](const zt::CopyProgress& p) {
    if (p.rows_done == 0 && !p.done)
      progress.Start(phase + p.table, p.rows_total);
    else if (!p.done)
      progress.Update(p.rows_done);
  });
  RejectsFile rejects(o.rejects);
  if (rejects.Open()) dt.SetCopyRejects([&](const zt::CopyReject& r) { rejects.Add(r); });

  std::vector<std::string> copied_tables, created_tables;
  json rows_json = json::array();
  std::vector<std::vector<std::string>> summary = {{"TABLE", "ROWS", "REFUSED", "SECONDS", ""}};
  std::vector<std::string> reasons;  // the first refusals of each table, told after the summary
  bool all_copied = true;
  std::int64_t refused = 0;
  double verify_seconds = 0;
  for (const auto& t : tables) {
    const auto start = std::chrono::steady_clock::now();
    bool copied = false;
    std::string error;
    phase.clear();
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
    progress.Finish(
        r.rows, copied ? (r.failed ? std::to_string(r.failed) + " refused" : "") : "not copied");
    refused += r.failed;
    // The first three reasons of each table, each cut to a line; the closing count
    // (NUM_FAILED_RECORDS) is in the summary already.
    int told = 0;
    for (const auto& m : r.messages) {
      if (told == 3 || m.find("could not be copied") != std::string::npos) continue;
      std::string line = t + ": " + m;
      if (line.size() > 160) {
        line.resize(157);
        while ((static_cast<unsigned char>(line.back()) & 0xC0) == 0x80) line.pop_back();
        if (static_cast<unsigned char>(line.back()) & 0x80) line.pop_back();
        line += "...";
      }
      reasons.push_back(line);
      ++told;
    }
    std::string verified;
    json verification;
    if (copied && o.verify) {
      phase = "verifying ";
      const zt::CopyVerification v =
          dt.VerifyCopy(source_cn, target->GetConnection(1), t, r.failed);
      progress.Finish(v.source_rows, v.same ? "verified" : "DIFFERS");
      verify_seconds += v.seconds;
      verified = v.same ? "verified" : "DIFFERS";
      verification = {{"same", v.same},
                      {"by_key", v.by_key},
                      {"source_rows", v.source_rows},
                      {"target_rows", v.target_rows},
                      {"missing", v.missing},
                      {"extra", v.extra},
                      {"differing", v.differing},
                      {"seconds", v.seconds}};
      if (!v.same) {
        copied = false;
        r.error = v.first_difference;
        verification["first_difference"] = v.first_difference;
      }
    }
    all_copied = all_copied && copied;
    if (copied) {
      copied_tables.push_back(t);
      if (o.replace || std::find(existing.begin(), existing.end(), t) == existing.end())
        created_tables.push_back(t);
    }
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.1f", secs);
    std::string status = copied ? verified : "NOT COPIED: " + r.error;
    if (copied && r.failed) status = (verified.empty() ? "" : verified + ", ") + "rows refused";
    summary.push_back({t, std::to_string(r.rows), std::to_string(r.failed), seconds, status});
    // A table whose refused rows are more than the caller allowed is not copied.
    json entry = {{"table", t},      {"copied", copied && r.failed <= o.max_rejects},
                  {"rows", r.rows},  {"failed", r.failed},
                  {"seconds", secs}, {"messages", r.messages}};
    if (!r.error.empty()) entry["error"] = r.error;
    if (!verified.empty()) {
      entry["verified"] = verified == "verified";
      entry["verification"] = verification;
    }
    rows_json.push_back(entry);
  }
  // Identities, relationships and views; views only when the whole store is copied.
  dt.CopyStoreObjects(source_cn, *target, copied_tables, created_tables, o.tables.empty());
  cx.out.Table(summary);
  for (const auto& reason : reasons) cx.out.Line("  refused: " + reason);
  json objects_json = json::array();
  std::map<std::string, int> kept;
  // What was not kept, one line per kind and reason: 26 Access queries are one line.
  std::vector<std::pair<std::string, std::string>> not_kept;  // (kind: reason, names)
  for (const auto& x : dt.LastCopyObjects()) {
    objects_json.push_back({{"kind", x.kind},
                            {"table", x.table},
                            {"name", x.name},
                            {"kept", x.kept},
                            {"detail", x.detail}});
    if (x.kept) {
      ++kept[x.kind];
      continue;
    }
    // The engine's first line says why; its pointers into the statement stay in the JSON.
    const std::string key = x.kind + ": " + x.detail.substr(0, x.detail.find('\n'));
    const std::string name = x.table.empty() ? x.name : x.table + "." + x.name;
    const auto it = std::find_if(not_kept.begin(), not_kept.end(),
                                 [&](const auto& p) { return p.first == key; });
    if (it == not_kept.end())
      not_kept.emplace_back(key, name);
    else
      it->second += ", " + name;
  }
  for (const auto& [key, names] : not_kept) {
    const std::size_t colon = key.find(": ");
    cx.out.Line("  not kept: " + key.substr(0, colon) + " " + names + ": " + key.substr(colon + 2));
  }
  if (!kept.empty()) {
    std::string line;
    for (const auto& [kind, n] : kept)
      line += (line.empty() ? "Kept " : ", ") + std::to_string(n) + " " +
              (n == 1               ? kind
               : kind == "identity" ? "identities"
                                    : kind + "s");
    cx.out.Line(line);
  }
  // Refused rows are a loss: the copy fails unless the caller allowed that many.
  const bool rejects_allowed = refused <= o.max_rejects;
  const bool ok = all_copied && rejects_allowed;
  if (o.verify) {
    char secs[32];
    std::snprintf(secs, sizeof secs, "%.1f", verify_seconds);
    cx.out.Line(std::string("Verification took ") + secs + " s");
  }
  if (ok && refused == 0)
    cx.out.Line("Copied " + std::to_string(tables.size()) + " table" +
                (tables.size() == 1 ? "" : "s") + " to " + Describe(*target));
  else if (ok)
    cx.out.Line("Copied " + std::to_string(tables.size()) + " table" +
                (tables.size() == 1 ? "" : "s") + " to " + Describe(*target) + "; " +
                std::to_string(refused) + " row" + (refused == 1 ? " was" : "s were") +
                " refused (--max-rejects " + std::to_string(o.max_rejects) + ")");
  else if (!rejects_allowed)
    cx.out.Line(
        std::to_string(refused) + " row" + (refused == 1 ? " was" : "s were") +
        " refused and not copied" +
        (o.rejects.empty() ? " (--rejects FILE lists them)" : " (listed in " + o.rejects + ")"));
  else
    cx.out.Line("Some tables were not copied completely");
  cx.out.Json({{"source", source->MaskedConnectionString()},
               {"target", target->MaskedConnectionString()},
               {"copied", ok},
               {"refused", refused},
               {"tables", rows_json},
               {"objects", objects_json}});
  return ok ? kExitOk : kExitFailed;
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
         app.add_flag("--indexes")
             ->description("Create the tables' indexes with their structure (the default)");
         app.add_flag("--no-indexes", o.no_indexes,
                      "Create only the primary key, not the other indexes");
         app.add_flag("--verify", o.verify,
                      "Compare every value of every row with the source afterwards");
         app.add_option("--max-rejects", o.max_rejects,
                        "Succeed even when up to N rows are refused (default 0: any refused row "
                        "fails the copy)");
         app.add_option("--rejects", o.rejects,
                        "Write every refused row with its reason to FILE (JSON lines)");
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
         app.add_option("--target-schema", o.target_schema,
                        "PostgreSQL schema the tables are made in (it must exist)")
             ->group(group);
       },
       Copy},
  };
}

}  // namespace ztdb
