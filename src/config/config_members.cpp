// The late-bound members of the configuration classes: the configuration reader, settings and
// property collections.
#include "server/member_table.h"
#include "zt/config.h"
#include "zt/config/settings.h"
#include "zt/platform.h"

namespace zt {
namespace {

const server::Registrar<CZtConfigReader> kConfigReader("CZtConfigReader", [](auto& t) {
  using R = CZtConfigReader;
  t.Method("CloseRes", &R::CloseRes)
      .Method("Load", &R::Load)
      .Get("Dictionary", &R::Dictionary)
      .Method("GetValue", &R::GetValue, 1)
      .Method("LoadConfigResString", &R::LoadConfigResString)
      .Method("DefaultFileName", [](R&) { return R::DefaultFileName(); });
});

const server::Registrar<CZtSetting> kSetting("CZtSetting", [](auto& t) {
  using S = CZtSetting;
  t.Prop("ID", &S::ID, &S::ID)
      .Prop("Name", &S::Name, &S::Name)
      .Prop("Value", &S::Value, &S::Value)
      .Prop("Description", &S::Description, &S::Description)
      .Prop("PropertyType", &S::PropertyType, &S::PropertyType)
      .Prop("ValidationRule", &S::ValidationRule, &S::ValidationRule)
      .Prop("CustomActionID", &S::CustomActionID, &S::CustomActionID)
      .Prop("CustomActionCaption", &S::CustomActionCaption, &S::CustomActionCaption)
      .Prop("CustomActionDisplay", &S::CustomActionDisplay, &S::CustomActionDisplay)
      .Method("Load", &S::Load)
      .Prop("ValueList", &S::ValueList, &S::ValueList)
      .Prop("DefaultValue", &S::DefaultValue, &S::DefaultValue)
      .Method("Copy", &S::Copy)
      .Method("AddSetting", &S::AddSetting)
      .Method("GetSettingValue", &S::GetSettingValue)
      .Method("SetSettingValue", &S::SetSettingValue)
      .Method("SetValueStatement", [](S&, std::int32_t id, const std::string& value) {
        return S::SetValueStatement(id, value);
      });
});

const server::Registrar<CZtSettingMgr> kSettingMgr("CZtSettingMgr", [](auto& t) {
  using M = CZtSettingMgr;
  t.Method("AddSetting", &M::AddSetting).Method("AddCustomAction", &M::AddCustomAction);
});

const server::Registrar<CZtPropertyCol> kPropertyCol("CZtPropertyCol", [](auto& t) {
  using C = CZtPropertyCol;
  t.Method("Add", &C::Add)
      .Get("Count", &C::Count)
      .Method("Exists", &C::Exists)
      .Method("Item", &C::Item)
      .Method("Items", &C::Items)
      .Method("Keys", &C::Keys)
      .Method("Load", &C::Load)
      .Method("Remove", &C::Remove)
      .Method("Copy", &C::Copy);
});

}  // namespace
}  // namespace zt
