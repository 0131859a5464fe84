// CZtFieldCollection: the field definitions of tblDtsFields and their upgrade.
#include "zt/definitions/field_collection.h"

#include "definitions/row_values.h"
#include "zt/platform.h"
#include "zt/recordset/recordset_utils.h"
#include "zt/text/compare.h"

namespace zt {

namespace {

constexpr const char* kType = "CZtFieldCollection";

std::shared_ptr<CZtField> AsField(const Variant& item) {
  return std::dynamic_pointer_cast<CZtField>(item.AsObject());
}

Variant ItemOf(std::shared_ptr<CZtField> field) {
  return Variant(std::shared_ptr<Object>(std::move(field)));
}

}  // namespace

std::shared_ptr<CZtField> CZtFieldCollection::Item(std::int32_t id) const {
  return AsField(items_.Item(std::to_string(id)));
}

void CZtFieldCollection::Remove(std::int32_t id) {
  items_.Remove(std::to_string(id));
}

std::vector<std::shared_ptr<CZtField>> CZtFieldCollection::Items() const {
  std::vector<std::shared_ptr<CZtField>> out;
  for (const auto& item : items_.Items()) out.push_back(AsField(item.second));
  return out;
}

std::vector<std::int32_t> CZtFieldCollection::Keys() const {
  std::vector<std::int32_t> out;
  for (const auto& item : items_.Items()) out.push_back(Variant(item.first).ToInt32());
  return out;
}

bool CZtFieldCollection::Add(std::shared_ptr<CZtField> field) {
  if (!field) defs::Fail(rt::kInvalidProcedureCall, kType, ".Add, no field given");
  const std::int32_t id = field->FieldID();
  return AddField(id, std::move(field));
}

bool CZtFieldCollection::AddField(std::int32_t id, std::shared_ptr<CZtField> field) {
  if (!field) defs::Fail(rt::kInvalidProcedureCall, kType, ".AddField, no field given");
  const std::string key = std::to_string(id);
  if (items_.Exists(key)) return false;
  items_.Add(key, ItemOf(std::move(field)));
  return true;
}

void CZtFieldCollection::Load(const std::shared_ptr<Recordset>& recordset) {
  if (!recordset || recordset->State() != ado::adStateOpen) return;
  Trap at(kType, "Load");
  at.Reraising([&] {
    // Read into a copy, so that a row that fails part-way leaves the collection as it was.
    Dictionary loaded = items_;
    at = 10;
    for (; !recordset->Eof(); recordset->MoveNext()) {
      at = 20;
      const std::string key = std::to_string(defs::NzInt32(recordset->Value("nID")));
      // A table that repeats an ID (no key on older tables) keeps the first definition.
      if (loaded.Exists(key)) continue;
      at = 30;
      auto field = std::make_shared<CZtField>();
      field->FillProperties(*recordset);
      loaded.Add(key, ItemOf(std::move(field)));
    }
    items_ = std::move(loaded);
  });
}

std::int32_t CZtFieldCollection::FindNextFieldIDByName(const std::string& name,
                                                       std::int32_t after_id) const {
  const auto& items = items_.Items();
  std::size_t start = 0;
  if (after_id != 0) {
    const std::string after = std::to_string(after_id);
    for (std::size_t i = 0; i < items.size(); ++i)
      if (items[i].first == after) start = i + 1;
  }
  for (std::size_t i = start; i < items.size(); ++i) {
    const auto field = AsField(items[i].second);
    if (field && TextEquals(field->FieldName(), name)) return field->FieldID();
  }
  return 0;
}

const std::array<std::string, 4>& CZtFieldCollection::UpgradeStatements() {
  // The first two statements end in a blank: that is their text as the application has always
  // sent it.
  static const std::array<std::string, 4> statements = {
      "UPDATE tblDtsFields SET tAliasSourceTable ='nSubmitterID' WHERE "
      "tAliasSourceTable='Submitter' ",
      "UPDATE tblDtsFields SET tAliasSourceTable ='nOriginatorID' WHERE "
      "tAliasSourceTable='Originator' ",
      std::string("UPDATE tblDtsFields SET nRelationshipType=") + "3" +
          " WHERE tTableName like 'tblUser%'",
      std::string("SELECT [") + "tWhere" + "] FROM tblDtsFields WHERE [" + "tWhere" +
          "] IS NOT NULL",
  };
  return statements;
}

std::int32_t CZtFieldCollection::Upgrade(const std::shared_ptr<Connection>& connection) {
  Trap at(kType, "Upgrade");
  return at.Reraising([&] {
    at = 10;
    if (!connection) defs::Fail(rt::kObjectNotSet, kType, ".Upgrade, no connection given");
    const auto& statements = UpgradeStatements();
    for (std::size_t i = 0; i < 3; ++i) {
      at = 20 + static_cast<std::int32_t>(i);
      connection->Execute(statements[i]);
    }
    // Older versions wrote Boolean constants into the stored conditions; the definition tables
    // keep Booleans as -1 and 0, which every engine compares alike.
    at = 30;
    std::int32_t changed = 0;
    auto rs = std::make_shared<Recordset>();
    CZTADOUtilities utils;
    try {
      // A keyset cursor stands on one row, so a row's update touches only that row even though
      // the recordset holds no key column.
      rs->Open(statements[3], connection, ado::adOpenKeyset, ado::adLockOptimistic);
      for (; !rs->Eof(); rs->MoveNext()) {
        at = 40;
        const std::string before = defs::NzText(rs->Fields(0).Value());
        std::string after = ReplaceAll(before, "false", "0", CompareMode::Text);
        after = ReplaceAll(after, "true", "-1", CompareMode::Text);
        if (after == before) continue;
        at = 50;
        rs->Fields(0).SetValue(Variant(after));
        rs->Update();
        ++changed;
      }
    } catch (...) {
      utils.CloseRecordsetADO(rs);
      throw;
    }
    at = 60;
    utils.CloseRecordsetADO(rs);
    return changed;
  });
}

std::shared_ptr<CZtFieldCollection> CZtFieldCollection::Copy() const {
  auto copy = std::make_shared<CZtFieldCollection>();
  for (const auto& [key, item] : items_.Items()) {
    auto field = std::make_shared<CZtField>();
    field->Copy(*AsField(item));
    copy->items_.Add(key, ItemOf(std::move(field)));
  }
  copy->EncodeFields(EncodeFields());
  copy->FieldDelimiter(FieldDelimiter());
  copy->ChildrenFieldDelimiter(ChildrenFieldDelimiter());
  return copy;
}

std::string CZtFieldCollection::ToString() {
  return JoinItems(items_);
}

void CZtFieldCollection::FromString(const std::string& text) {
  Trap at(kType, "FromString");
  at.Reraising([&] {
    at = 10;
    defs::RequireDelimiters(kType, FieldDelimiter(), ChildrenFieldDelimiter());
    Dictionary read;
    at = 20;
    if (!text.empty()) {
      for (const std::string& line : SplitText(text, FieldDelimiter())) {
        auto field = std::make_shared<CZtField>();
        field->FieldDelimiter(ChildrenFieldDelimiter());
        field->EncodeFields(EncodeFields());
        field->FromString(line);
        const std::string key = std::to_string(field->FieldID());
        if (!read.Exists(key)) read.Add(key, ItemOf(std::move(field)));
      }
    }
    items_ = std::move(read);
  });
}

}  // namespace zt
