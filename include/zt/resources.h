// Resource texts: the numbered string table, the named messages, message macros, the culture,
// and the localisation of forms.
//
// Two kinds of text live here:
//   * the library's numbered string table (101 ... 10457): configuration defaults, retry lists,
//     provider names. Read by number with LoadResString; the configuration reader falls back to
//     it.
//   * named messages (ERROR_TYPE_ID, PROVIDER_JET, tslDSProviderNotSupportedErr ...), read with
//     LoadCommonResString in the thread's culture.
// Both are compiled in (en-US). A per-culture file overrides entries of either kind:
// <resource folder>/<culture>.txt with lines "NAME=text" or "101=text" (UTF-8, "#" comments,
// "\n" and "\t" escapes). The resource folder is $ZT_RESOURCE_DIR, else App.Path + "/resources".
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zt/export.h"
#include "zt/variant.h"

namespace zt {

// The text of a numbered entry, or nullopt when the table has no such number.
ZT_EXPORT std::optional<std::string> LoadResString(std::int32_t id);

// The text of `identifier` (a name or a number written in decimal) in the thread's culture;
// "" when there is none. Failures of the reader are logged and give "".
ZT_EXPORT std::string LoadCommonResString(const std::string& identifier);

// Reads a resource specification "Identifier;Arg1;Arg2...": arguments must be macros
// (<ProductShortName> ...), matched with exact case; anything else becomes "". A blank
// resource specification gives "" without a lookup. Raises vbObjectError + 600 when it cannot be
// split.
ZT_EXPORT std::string GetTextFromResource(const std::string& resource_spec);

// "Culture" in the "Localization" section of the global settings, or "en-US"; read once per
// thread.
ZT_EXPORT std::string GetCulture();

// Fills "%1", "%2", ... of `templ` from `args` in order (the message formatter). A placeholder
// without an argument stays as it is.
ZT_EXPORT std::string FormatMessage(const std::string& templ, const std::vector<std::string>& args);

// The host application's information object, whose names feed the message macros. Per thread;
// hosts set it once at start.
struct ZT_EXPORT HostInfo {
  std::string product_short_name = "Tessel";
  std::string product_long_name = "Tessel Help Desk";
  std::string web_admin_app = "Tessel Web Administrator";
  std::string admin_app = "Tessel Administrator";
  std::string server_name = "Tessel Server";
  std::string records_plural_lcase = "records";
};
ZT_EXPORT HostInfo& ThreadHostInfo();

// The global settings of the host (CZtGlobalSettings): sections of name=value pairs, read from
// the registry store under HKEY_LOCAL_MACHINE\SOFTWARE\Quillmark\<section>.
class ZT_EXPORT CZtGlobalSettings {
 public:
  std::string GetSetting(const std::string& section, const std::string& name) const;
};

// A small abstract view of a form, enough to localise its captions and tips without a GUI
// toolkit. A property that a control lacks is reported by returning nullopt / false.
class ZT_EXPORT IZtFormItem {
 public:
  virtual ~IZtFormItem() = default;
  virtual std::optional<std::string> Get(const std::string& property) const = 0;
  virtual bool Set(const std::string& property, const std::string& value) = 0;
};

class ZT_EXPORT IZtControl : public IZtFormItem {
 public:
  // "Menu", "TabStrip", "Toolbar", "ListView", or any other control type name.
  virtual std::string TypeName() const = 0;
  // Tabs of a TabStrip, Buttons of a Toolbar, ColumnHeaders of a ListView; empty otherwise.
  virtual std::vector<IZtFormItem*> SubItems() = 0;
};

class ZT_EXPORT IZtForm : public IZtFormItem {
 public:
  virtual std::vector<IZtControl*> Controls() = 0;
};

// Rewrites the form's caption (from its Tag) and every control's captions and tips from the
// resource specifications they hold. Never fails: a missing property is skipped.
ZT_EXPORT void LocalizeForm(IZtForm& form);

}  // namespace zt
