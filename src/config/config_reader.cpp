#include <dlfcn.h>

#include <filesystem>
#include <memory>
#include <pugixml.hpp>
#include <string>

#include "foundation/paths.h"
#include "zt/config.h"
#include "zt/env.h"
#include "zt/error.h"
#include "zt/event_logger.h"
#include "zt/resources.h"
#include "zt/trap.h"

namespace zt {

namespace {

constexpr std::string_view kTypeName = "CZtConfigReader";
// The reader's procedures were numbered with ", Line#" rather than the usual ", @Line#"; log
// collectors that know this class match on it.
constexpr std::string_view kLineMark = ", Line#";

// Texts of the numbered table that name the parts of the file.
constexpr int kSettingsXPath = 416;
constexpr int kValueAttribute = 420;
constexpr int kKeyAttribute = 421;

std::string ResText(int id) {
  return LoadResString(id).value_or(std::string{});
}

// A diagnostic of the reader goes to the error handler without an error: it is information for
// the administrator, not a failure of the caller.
void Diagnostic(const std::string& text) {
  ErrorHandler().LogError(text, nullptr, kEventInformation, kLevelDiagnostic);
}

// "libztdbtools.so.7.6.0" -> "ztdbtools"; a library that was linked into a program keeps the
// program's name without its extension.
std::string LibraryBaseName() {
  Dl_info info{};
  std::string file = "libztdbtools.so";
  if (dladdr(reinterpret_cast<void*>(&LibraryBaseName), &info) != 0 && info.dli_fname)
    file = std::filesystem::path(info.dli_fname).filename().string();
  if (file.rfind("lib", 0) == 0) file.erase(0, 3);
  if (auto so = file.find(".so"); so != std::string::npos)
    file.erase(so);
  else if (auto dot = file.rfind('.'); dot != std::string::npos && dot > 0)
    file.erase(dot);
  return file;
}

}  // namespace

void CZtConfigReader::CloseRes() {
  Trap at(kTypeName, "CloseRes", kLineMark);
  at.Reraising([&] {
    at = 10;
    if (dictionary_) dictionary_->RemoveAll();
  });
}

void CZtConfigReader::Load(const std::string& file_name) {
  Trap at(kTypeName, "Load", kLineMark);
  at.Reraising([&] {
    at = 10;
    dictionary_ = CreateDictionary(file_name, ResText(kSettingsXPath));
  });
}

std::shared_ptr<zt::Dictionary> CZtConfigReader::Dictionary() const {
  Trap at(kTypeName, "Dictionary [Property Get]", kLineMark);
  return at.Reraising([&] {
    at = 10;
    return dictionary_;
  });
}

Variant CZtConfigReader::GetValue(const std::string& key, const Variant&) {
  Trap at(kTypeName, "GetValue", kLineMark);
  return at.Reraising([&]() -> Variant {
    at = 10;
    if (!dictionary_) return Variant();
    at = 20;
    if (dictionary_->Exists(key)) return dictionary_->Item(key);
    at = 30;
    Diagnostic(std::string(kTypeName) + ".GetValue, Key not found:" + key);
    return Variant();
  });
}

std::string CZtConfigReader::LoadConfigResString(const std::string& key) {
  Trap at(kTypeName, "LoadConfigResString", kLineMark);
  return at.Reraising([&]() -> std::string {
    at = 10;
    if (!dictionary_) Load(DefaultFileName());
    at = 20;
    std::string text = GetValue(key).ToText();
    if (!text.empty()) return text;
    at = 30;
    if (Variant(key).IsNumeric()) return ResText(Variant(key).ToInt32());
    at = 40;
    return LoadCommonResString(key);
  });
}

std::string CZtConfigReader::DefaultFileName() {
  return JoinPath(Env::Current().AppPath(), LibraryBaseName()) + ".zt.config";
}

std::shared_ptr<zt::Dictionary> CZtConfigReader::CreateDictionary(const std::string& file_name,
                                                                  const std::string& xpath) {
  Trap at(kTypeName, "CreateDictionary", kLineMark);
  return at.Returning(
      [&]() -> std::shared_ptr<zt::Dictionary> {
        at = 10;
        pugi::xml_document doc;
        auto dict = std::make_shared<zt::Dictionary>();
        pugi::xml_parse_result parsed = doc.load_file(file_name.c_str());
        if (!parsed || !doc.document_element()) {
          Diagnostic(std::string(kTypeName) + ".CreateDictionary, File not loaded:" + file_name);
          // Say why as well, so that an administrator can find a broken tag without a tool.
          if (parsed.status != pugi::status_file_not_found)
            Diagnostic(std::string(kTypeName) + ".CreateDictionary, " + parsed.description() +
                       " at offset " + std::to_string(parsed.offset) + " of " + file_name);
          return nullptr;
        }
        // pugixml speaks only XPath, so the old switch of the selection language has no
        // counterpart here.
        at = 20;
        pugi::xpath_node section = doc.document_element().select_node(xpath.c_str());
        if (!section) rt::Raise(rt::kObjectNotSet);
        const std::string key_name = ResText(kKeyAttribute);
        const std::string value_name = ResText(kValueAttribute);
        at = 30;
        for (pugi::xml_node child : section.node().children()) {
          // Comments and blank text between entries are not entries; administrators comment
          // out settings, and such a file must keep loading.
          if (child.type() != pugi::node_element) continue;
          pugi::xml_attribute key = child.attribute(key_name.c_str());
          if (!key) continue;
          if (dict->Exists(key.value())) continue;  // the first entry of a key wins
          pugi::xml_attribute value = child.attribute(value_name.c_str());
          if (!value) rt::Raise(rt::kObjectNotSet);
          dict->Add(key.value(), Variant(std::string(value.value())));
        }
        return dict;
      },
      std::shared_ptr<zt::Dictionary>{});
}

namespace {

thread_local std::unique_ptr<CZtConfigReader> t_reader;

void ResetThreadReader() {
  t_reader.reset();
}

[[maybe_unused]] const bool kHookRegistered = [] {
  AddThreadStateResetHook(&ResetThreadReader);
  return true;
}();

}  // namespace

CZtConfigReader& ThreadConfigReader() {
  if (!t_reader) t_reader = std::make_unique<CZtConfigReader>();
  return *t_reader;
}

std::string LoadConfigResString(const std::string& key) {
  return ThreadConfigReader().LoadConfigResString(key);
}

}  // namespace zt
