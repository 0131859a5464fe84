// ztdb settings: the application's settings in tblSettings (list, get, set, add), and the
// settings that `create --sample` adds.
#include <iostream>

#include "tool.h"
#include "zt/config/settings.h"

namespace ztdb {

namespace {

using nlohmann::json;

constexpr const char* kSettingsTable = "tblSettings";

struct SettingsOptions {
  std::string verb;  // the subcommand that was given
  std::int32_t id = 0;
  std::string name;
  std::string value;
  std::int32_t type = 10;
  std::string description;
  std::string rule;
  std::int32_t custom_action = 0;
  std::string caption;
  std::string display;
  std::string value_list;
  bool dry_run = false;
};

SettingsOptions& Opts() {
  static SettingsOptions options;
  return options;
}

void RequireSettingsTable(zt::CZtDataStore& ds) {
  if (!TableExists(ds, kSettingsTable))
    throw ToolError("the data store holds no settings (no table tblSettings)");
}

// The value of setting `id`, or nothing when there is no such setting. GetSettingValue leaves
// the caller's value alone for a missing ID, so an Empty value that stays Empty means none.
std::optional<std::string> ReadValue(const std::shared_ptr<zt::Connection>& cn, std::int32_t id) {
  zt::Variant value;
  zt::CZtSetting().GetSettingValue(cn, id, value);
  if (value.IsEmpty()) return std::nullopt;
  return value.ToText();
}

std::string Text(const zt::Variant& v) {
  return v.IsNull() || v.IsEmpty() ? std::string() : v.ToText();
}

int List(Context& cx) {
  RequireSettingsTable(*cx.store);
  zt::CZtPropertyCol settings;
  {
    zt::Recordset rs;
    rs.Open("SELECT * FROM [tblSettings] ORDER BY [nID]", cx.store->GetConnection(1));
    settings.Load(rs);
  }
  std::vector<std::vector<std::string>> rows = {
      {"ID", "Name", "Value", "Default", "Type", "Description"}};
  json doc = json::array();
  for (const auto& s : settings.Items()) {
    rows.push_back({std::to_string(s->ID()), s->Name(), Text(s->Value()), Text(s->DefaultValue()),
                    std::to_string(s->PropertyType()), s->Description()});
    json item = {{"id", s->ID()},
                 {"name", s->Name()},
                 {"value", Text(s->Value())},
                 {"default", Text(s->DefaultValue())},
                 {"type", s->PropertyType()},
                 {"description", s->Description()},
                 {"validation_rule", s->ValidationRule()},
                 {"custom_action", s->CustomActionID()},
                 {"value_list", s->ValueList()}};
    doc.push_back(item);
  }
  if (rows.size() == 1) cx.out.Note("No settings in tblSettings");
  cx.out.Table(rows);
  cx.out.Json(doc);
  return kExitOk;
}

int Get(Context& cx) {
  RequireSettingsTable(*cx.store);
  const auto value = ReadValue(cx.store->GetConnection(1), Opts().id);
  if (!value) throw ToolError("no setting " + std::to_string(Opts().id));
  cx.out.Line(*value);
  cx.out.Json({{"id", Opts().id}, {"value", *value}});
  return kExitOk;
}

int Set(Context& cx) {
  const std::string statement = zt::CZtSetting::SetValueStatement(Opts().id, Opts().value);
  if (Opts().dry_run) {
    cx.out.Line("Would run: " + statement);
    return kExitOk;
  }
  RequireSettingsTable(*cx.store);
  const auto cn = cx.store->GetConnection(1);
  // The library writes without asking whether the row is there; a person who names a setting
  // that does not exist wants to hear so.
  if (!ReadValue(cn, Opts().id))
    throw ToolError("no setting " + std::to_string(Opts().id) + "; nothing was changed");
  zt::CZtSetting().SetSettingValue(cn, Opts().id, Opts().value);
  cx.out.Line("Setting " + std::to_string(Opts().id) + " set to " + Opts().value);
  return kExitOk;
}

int Add(Context& cx) {
  const SettingsOptions& o = Opts();
  const std::string id = std::to_string(o.id);
  if (o.id <= 0) throw UsageError("a setting's ID must be greater than 0");
  if (o.dry_run) {
    cx.out.Line("Would add setting " + id + " (" + o.name + ") with the value '" + o.value +
                "' unless tblSettings holds it already");
    return kExitOk;
  }
  RequireSettingsTable(*cx.store);
  const auto cn = cx.store->GetConnection(1);
  if (ReadValue(cn, o.id)) {
    cx.out.Line("Setting " + id + " exists; it is left as it is");
    return kExitOk;
  }
  zt::CZtSetting().AddSetting(cn, o.id, o.name, o.value, o.type, o.description, o.rule,
                              o.custom_action, o.caption, o.display, o.value_list);
  cx.out.Line("Setting " + id + " (" + o.name + ") added");
  return kExitOk;
}

int Run(Context& cx) {
  const std::string& verb = Opts().verb;
  if (cx.out.json && (verb == "set" || verb == "add"))
    throw UsageError("--json is for list and get");
  if (verb == "list") return List(cx);
  if (verb == "get") return Get(cx);
  if (verb == "set") return Set(cx);
  return Add(cx);
}

void AddVerbs(CLI::App& app) {
  SettingsOptions& o = Opts();
  app.require_subcommand(1);
  // Each verb remembers itself; the data-store options and --json may follow the verb.
  const auto verb = [&](const char* name, const char* help) {
    CLI::App* sub = app.add_subcommand(name, help)->fallthrough();
    sub->callback([&o, name] { o.verb = name; });
    return sub;
  };
  verb("list", "List the settings (ID, name, value, default, type, description)");
  CLI::App* get = verb("get", "Print the value of one setting");
  get->add_option("id", o.id, "The setting's ID (nID)")->required();
  CLI::App* set = verb("set", "Write the value of one setting");
  set->add_option("id", o.id, "The setting's ID (nID)")->required();
  set->add_option("value", o.value, "The new value (it may not hold a single quote)")->required();
  set->add_flag("--dry-run", o.dry_run, "Print the statement; change nothing");
  CLI::App* add = verb("add", "Add a setting unless its ID is there already");
  add->add_option("id", o.id, "The setting's ID (nID)")->required();
  add->add_option("name", o.name, "Its name (tName)")->required();
  add->add_option("value", o.value, "Its value (tValue)")->required();
  add->add_option("--type", o.type, "Its type (nType)")->capture_default_str();
  add->add_option("--description", o.description, "Its description");
  add->add_option("--rule", o.rule, "Its validation rule (none: Null)");
  add->add_option("--custom-action", o.custom_action, "The ID of its custom action");
  add->add_option("--caption", o.caption, "The custom action's caption");
  add->add_option("--display", o.display, "How the custom action shows");
  add->add_option("--value-list", o.value_list, "The table its values come from");
  add->add_flag("--dry-run", o.dry_run, "Say what would be added; change nothing");
}

}  // namespace

void AddSampleSettings(zt::Connection& c) {
  const std::string i = c.ColumnType(4), t = c.ColumnType(10, 100);
  c.Execute("CREATE TABLE [tblSettings] ([nID] " + i + " NOT NULL PRIMARY KEY, [tName] " + t +
            ", [tValue] " + t + ", [tDefaultValue] " + t + ", [nType] " + i + ", [tDescription] " +
            c.ColumnType(10, 255) + ", [tValidationRule] " + t + ", [nCustomAction] " + i +
            ", [tCACaption] " + t + ", [tCADisplay] " + t + ", [tValueSourceTable] " + t + ")");
  c.Execute("CREATE TABLE [tblCustomAction] ([nActionID] " + i + " NOT NULL PRIMARY KEY, [nType] " +
            i + ", [nSource] " + i + ", [tTarget] " + t + ")");
  // Added the way the application adds them, so the sample shows what AddSetting writes.
  const std::shared_ptr<zt::Connection> cn = c.shared_from_this();
  zt::CZtSettingMgr mgr;
  mgr.AddCustomAction(cn, 1, 1, 2, "mailtest.exe");
  mgr.AddSetting(cn, 1, "MailServer", "mail.example.com", 10, "Server for outgoing mail", "", 1,
                 "Test", "Button", "");
  mgr.AddSetting(cn, 2, "PageSize", "25", 3, "Tickets per page", ">0", 0, "", "", "");
  mgr.AddSetting(cn, 3, "DefaultPriority", "2", 3, "Priority of a new ticket", "", 0, "", "",
                 "tblPriority");
  mgr.AddSetting(cn, 4, "Greeting", "Hello", 10, "First line of every mail", "", 0, "", "", "");
}

std::vector<Command> SettingsCommands() {
  return {
      {"settings", "List, read, write and add the application's settings (tblSettings)", true, true,
       AddVerbs, Run},
  };
}

}  // namespace ztdb
