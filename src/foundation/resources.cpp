#include "zt/resources.h"

#include <cctype>
#include <cstdlib>
#include <fstream>

#include "foundation/paths.h"
#include "foundation/string_table.h"
#include "foundation/thread_state.h"
#include "zt/env.h"
#include "zt/error_handling.h"
#include "zt/trap.h"

namespace zt {

// The culture-aware reader: compiled-in texts, overridden entry by entry by the culture's file.
class ResourceReader {
 public:
  explicit ResourceReader(std::string culture) : culture_(std::move(culture)) { LoadOverrides(); }

  const std::string& culture() const { return culture_; }

  std::optional<std::string> Numbered(std::int32_t id) const {
    if (auto o = overrides_.find(std::to_string(id)); o != overrides_.end()) return o->second;
    const auto& table = NumberedStrings();
    if (auto it = table.find(id); it != table.end()) return std::string(it->second);
    return std::nullopt;
  }

  std::string Text(const std::string& identifier) const {
    if (auto o = overrides_.find(identifier); o != overrides_.end()) return o->second;
    const auto& named = NamedMessages();
    if (auto it = named.find(identifier); it != named.end()) return std::string(it->second);
    if (IsAllDigits(identifier)) {
      if (auto n = Numbered(std::stoi(identifier))) return *n;
    }
    return {};
  }

  static bool IsAllDigits(const std::string& s) {
    if (s.empty() || s.size() > 9) return false;
    for (char c : s)
      if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    return true;
  }

 private:
  static std::string Unescape(const std::string& s) {
    std::string out;
    for (std::size_t i = 0; i < s.size(); ++i) {
      if (s[i] == '\\' && i + 1 < s.size()) {
        char n = s[i + 1];
        if (n == 'n' || n == 't' || n == '\\') {
          out += n == 'n' ? '\n' : n == 't' ? '\t' : '\\';
          ++i;
          continue;
        }
      }
      out += s[i];
    }
    return out;
  }

  void LoadOverrides() {
    std::string dir;
    if (const char* d = std::getenv("ZT_RESOURCE_DIR"); d && *d)
      dir = d;
    else
      dir = JoinPath(Env::Current().AppPath(), "resources");
    std::ifstream in(JoinPath(dir, culture_ + ".txt"));
    for (std::string line; std::getline(in, line);) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (line.empty() || line.front() == '#') continue;
      auto eq = line.find('=');
      if (eq == std::string::npos || eq == 0) continue;
      overrides_[line.substr(0, eq)] = Unescape(line.substr(eq + 1));
    }
  }

  std::string culture_;
  std::map<std::string, std::string> overrides_;
};

namespace {

ResourceReader& ThreadReader() {
  auto& reader = ThreadState().resource_reader;
  if (!reader) reader = std::make_shared<ResourceReader>(GetCulture());
  return *reader;
}

// The run time's Trim: spaces only; a tab is text.
bool IsBlank(const std::string& s) {
  return s.find_first_not_of(' ') == std::string::npos;
}

// Only a whole argument equal to a macro, in exact case, is one; everything else is "".
std::string ExpandMacro(const std::string& arg) {
  const HostInfo& host = ThreadHostInfo();
  if (arg == "<ProductShortName>") return host.product_short_name;
  if (arg == "<ProductLongName>") return host.product_long_name;
  if (arg == "<App_Web_Admin>") return host.web_admin_app;
  if (arg == "<App_Admin>") return host.admin_app;
  if (arg == "<Server_Name>") return host.server_name;
  if (arg == "<RecordsPlural_LCase>") return host.records_plural_lcase;
  return {};
}

}  // namespace

std::optional<std::string> LoadResString(std::int32_t id) {
  return ThreadReader().Numbered(id);
}

std::string LoadCommonResString(const std::string& identifier) {
  Trap at("", ".LoadCommonResString, strIdentifier=", "");
  at.NoStep();
  return at.Returning(
      [&] {
        at.Key(identifier + ", m_strCulture=" + GetCulture());
        return ThreadReader().Text(identifier);
      },
      std::string());
}

std::string GetTextFromResource(const std::string& resource_spec) {
  if (IsBlank(resource_spec)) return {};
  std::vector<std::string> items;
  std::size_t start = 0;
  for (;;) {
    auto semi = resource_spec.find(';', start);
    items.push_back(resource_spec.substr(start, semi - start));
    if (semi == std::string::npos) break;
    start = semi + 1;
  }
  // A resource specification whose identifier part is empty (";<ProductShortName>") has nothing to
  // look up: that is the "cannot be split into an identifier and arguments" case.
  if (IsBlank(items.front()))
    ZtErr_Raise(600, "tslResourceStringIdNotNumeric", "", "basResourcesCommon.GetTextFromResource");
  const std::string& id = items.front();
  if (items.size() == 1) return LoadCommonResString(id);
  std::vector<std::string> args;
  for (std::size_t i = 1; i < items.size(); ++i) args.push_back(ExpandMacro(items[i]));
  return FormatMessage(LoadCommonResString(id), args);
}

std::string GetCulture() {
  auto& culture = ThreadState().culture;
  if (!culture) {
    std::string c = CZtGlobalSettings().GetSetting("Localization", "Culture");
    culture = c.empty() ? "en-US" : c;
  }
  return *culture;
}

std::string FormatMessage(const std::string& templ, const std::vector<std::string>& args) {
  std::string out;
  out.reserve(templ.size());
  for (std::size_t i = 0; i < templ.size(); ++i) {
    if (templ[i] == '%' && i + 1 < templ.size() &&
        std::isdigit(static_cast<unsigned char>(templ[i + 1]))) {
      std::size_t j = i + 1;
      std::size_t n = 0;
      while (j < templ.size() && std::isdigit(static_cast<unsigned char>(templ[j])) && n < 1000)
        n = n * 10 + static_cast<std::size_t>(templ[j++] - '0');
      if (n >= 1 && n <= args.size()) {
        out += args[n - 1];
        i = j - 1;
        continue;
      }
    }
    out += templ[i];
  }
  return out;
}

HostInfo& ThreadHostInfo() {
  return ThreadState().host_info;
}

std::string CZtGlobalSettings::GetSetting(const std::string& section,
                                          const std::string& name) const {
  try {
    auto v = Env::Current().Registry().ReadValue(
        "HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillmark\\" + section, name);
    return v ? *v : std::string();
  } catch (...) {
    return {};
  }
}

namespace {
// Reads `property`, passes its text through GetTextFromResource and writes the result to
// `target`; any failure (missing property, bad resource specification) leaves the item as it was.
void Relabel(IZtFormItem& item, const std::string& property, const std::string& target) {
  try {
    auto resource_spec = item.Get(property);
    if (!resource_spec) return;
    item.Set(target, GetTextFromResource(*resource_spec));
  } catch (...) {
  }
}
}  // namespace

void LocalizeForm(IZtForm& form) {
  // The form's own caption comes from its Tag, as a control's does.
  Relabel(form, "Tag", "Caption");
  for (IZtControl* control : form.Controls()) {
    if (!control) continue;
    const std::string type = control->TypeName();
    if (type == "Menu") {
      Relabel(*control, "Caption", "Caption");
    } else if (type == "TabStrip") {
      for (IZtFormItem* tab : control->SubItems()) {
        if (!tab) continue;
        Relabel(*tab, "Tag", "Caption");
        Relabel(*tab, "ToolTipText", "ToolTipText");
      }
    } else if (type == "Toolbar") {
      for (IZtFormItem* button : control->SubItems())
        if (button) Relabel(*button, "Tag", "ToolTipText");
    } else if (type == "ListView") {
      for (IZtFormItem* header : control->SubItems())
        if (header) Relabel(*header, "Tag", "Text");
    } else {
      Relabel(*control, "Tag", "Caption");
      Relabel(*control, "ToolTipText", "ToolTipText");
    }
  }
}

}  // namespace zt
