// CZtWhereMacroHlpr, SQL_AddFieldsToSelectClause and CZtQuery.
#include "zt/definitions/query.h"

#include "definitions/row_values.h"
#include "zt/datastore.h"
#include "zt/definitions/table_type.h"
#include "zt/platform.h"
#include "zt/recordset/recordset_utils.h"
#include "zt/text/compare.h"
#include "zt/text/strings.h"

namespace zt {

namespace {

constexpr std::string_view kMacroHlpr = "CZtWhereMacroHlpr";
constexpr std::string_view kQuery = "CZtQuery";

constexpr const char* kIdColumn = "nID";
constexpr const char* kRowColumn = "nRow";

// A select-list entry as a name to compare: trimmed, without its brackets.
std::string BareName(const std::string& entry) {
  return ZtStrMan_RemoveBrackets(TrimSpaces(entry));
}

bool IsQueryKeyColumn(const std::string& column) {
  return TextEquals(column, kIdColumn) || TextEquals(column, kRowColumn);
}

}  // namespace

// ---- CZtWhereMacroHlpr ----------------------------------------------------------------------

std::string CZtWhereMacroHlpr::ReplacePair(const std::string& text, const std::string& search1,
                                           const std::string& search2, const std::string& replace1,
                                           const std::string& replace2) {
  const std::string first = ReplaceAll(text, search1, replace1, CompareMode::Binary);
  return ReplaceAll(first, search2, replace2, CompareMode::Binary);
}

std::string CZtWhereMacroHlpr::ExpandMacros(const std::string& where_text, const Dictionary& macros,
                                            const Variant& context) {
  Trap at(kMacroHlpr, "ExpandMacros");
  return at.Reraising([&] {
    at = 10;
    if (InStr(1, where_text, "<<", CompareMode::Text) == 0 ||
        InStr(1, where_text, ">>", CompareMode::Text) == 0)
      return where_text;
    // Macro names stand between double brackets in the stored text and between single ones in
    // the collection; the single brackets that are comparison operators are parked under
    // placeholders meanwhile, so that they can neither be taken for a macro nor be doubled.
    at = 20;
    std::string text =
        ReplacePair(where_text, "<<", ">>", "ZtConvertTempLeft", "ZtConvertTempRight");
    at = 30;
    text = ReplacePair(text, "<", ">", "ZtLeftMacro", "ZtRightMacro");
    at = 40;
    text = ReplacePair(text, "ZtConvertTempLeft", "ZtConvertTempRight", "<", ">");
    at = 50;
    for (const auto& [key, item] : macros.Items()) {
      if (InStr(1, text, key, CompareMode::Text) == 0) continue;
      at = 60;
      auto* macro = dynamic_cast<IZtMacro*>(item.AsObject().get());
      if (!macro) rt::Raise(rt::kTypeMismatch);
      at = 70;
      const std::string value = ZtStrMan_VariantToString(macro->Value(context, nullptr, nullptr));
      // The replacement compares exactly: a key found only under another case stays in the
      // text, and so does a macro without a value, to come back in its stored form below.
      if (!value.empty()) text = ReplaceAll(text, key, value, CompareMode::Binary);
    }
    at = 80;
    text = ReplacePair(text, "<", ">", "<<", ">>");
    at = 90;
    return ReplacePair(text, "ZtLeftMacro", "ZtRightMacro", "<", ">");
  });
}

// ---- basSQLStatement ------------------------------------------------------------------------

bool SQL_AddFieldsToSelectClause(const std::vector<std::string>& field_names,
                                 const std::shared_ptr<CZtSQLStatement>& statement) {
  if (!statement) return false;
  Trap at("", ".SQL_AddFieldsToSelectClause");
  return at.Reraising([&] {
    at = 10;
    const std::string clause = statement->SelectClause();
    if (TextEquals(TrimSpaces(clause), "*")) return true;
    at = 20;
    std::vector<std::string> entries = SplitText(clause, ",");
    for (const std::string& name : field_names) {
      if (TrimSpaces(name).empty()) continue;
      bool present = false;
      for (const std::string& entry : entries)
        if (TextEquals(BareName(entry), BareName(name))) present = true;
      if (!present) entries.push_back(name);
    }
    at = 30;
    std::string joined;
    for (const std::string& entry : entries) joined += (joined.empty() ? "" : ",") + entry;
    statement->SelectClause(joined);
    return true;
  });
}

// ---- CZtQuery -------------------------------------------------------------------------------

Variant ExpressionValue(const Dictionary& expression, std::string_view column) {
  for (const auto& [name, value] : expression.Items())
    if (TextEquals(name, column)) return value;
  return {};
}

void CZtQuery::Initialize(std::int32_t id, std::int32_t table_type, const std::string& name,
                          const std::string& caption) {
  id_ = id;
  table_type_ = table_type;
  name_ = name;
  caption_ = caption;
  expressions_.clear();
  statement_.reset();
}

std::shared_ptr<CZtDataStore> CZtQuery::RequireDataStore(const std::shared_ptr<Object>& data_store,
                                                         const char* member) {
  return defs::RequireDataStore(data_store, kQuery, member);
}

std::shared_ptr<CZtSQLStatement> CZtQuery::GetDefaultSQLStatement(
    const std::shared_ptr<CZtDataStore>& data_store) {
  Trap at(kQuery, "GetDefaultSQLStatement");
  return at.Reraising([&] {
    at = 10;
    auto statement = std::make_shared<CZtSQLStatement>();
    CZtTableTypeMgr types;
    types.Initialize(data_store);
    const std::shared_ptr<CZtTableType> type = types.Item(table_type_);
    at = 20;
    if (type->StructureTable().empty())
      throw ZtError(
          rt::kInvalidProcedureCall, std::string(kQuery),
          "Table type " + std::to_string(table_type_) + " has no structure table in tblTableTypes");
    statement->Table(type->StructureTable());
    at = 30;
    statement->WhereClause(ZtStrMan_AddBrackets(kIdColumn) + "=" + std::to_string(id_));
    at = 40;
    statement->OrderByClause(ZtStrMan_AddBrackets(kRowColumn));
    return statement;
  });
}

std::shared_ptr<CZtSQLStatement> CZtQuery::StatementFor(
    const std::shared_ptr<CZtDataStore>& data_store) {
  return statement_ ? statement_ : GetDefaultSQLStatement(data_store);
}

std::shared_ptr<CZtSQLStatement> CZtQuery::GetSQLStatement(
    const std::shared_ptr<Object>& data_store) {
  Trap at(kQuery, "GetSQLStatement");
  return at.Reraising([&] {
    at = 10;
    return StatementFor(RequireDataStore(data_store, "IZtQuery_GetSQLStatement"));
  });
}

std::shared_ptr<CZtSQLStatement> CZtQuery::SQLStatement(const std::shared_ptr<Object>& data_store) {
  Trap at(kQuery, "IZtQuery_SQLStatement");
  return at.Reraising([&] {
    at = 10;
    return StatementFor(RequireDataStore(data_store, "IZtQuery_SQLStatement"));
  });
}

void CZtQuery::Load(const std::shared_ptr<Object>& data_store) {
  Trap at(kQuery, "IZtQuery_Load");
  at.Reraising([&] {
    at = 10;
    LoadFromDB(RequireDataStore(data_store, "IZtQuery_Load"));
  });
}

void CZtQuery::Save(const std::shared_ptr<Object>& data_store) {
  Trap at(kQuery, "IZtQuery_Save");
  at.Reraising([&] {
    at = 10;
    SaveToDB(RequireDataStore(data_store, "IZtQuery_Save"));
  });
}

void CZtQuery::Delete(const std::shared_ptr<Object>& data_store) {
  Trap at(kQuery, "IZtQuery_Delete");
  at.Reraising([&] {
    at = 10;
    DeleteFromDB(RequireDataStore(data_store, "IZtQuery_Delete"));
  });
}

void CZtQuery::LoadFromDB(const std::shared_ptr<CZtDataStore>& data_store) {
  Trap at(kQuery, "LoadFromDB");
  at.Reraising([&] {
    at = 10;
    const std::string sql = StatementFor(data_store)->SQLText();
    at = 20;
    std::vector<Dictionary> rows;
    defs::WithRows(data_store->GetConnection(1), sql, [&](Recordset& rs) {
      at = 30;
      FieldsCollection& fields = rs.GetFields();
      for (; !rs.Eof(); rs.MoveNext()) {
        Dictionary row;
        for (std::int32_t i = 0; i < fields.Count(); ++i) {
          Field& field = fields.Item(i);
          if (!IsQueryKeyColumn(field.Name())) row.Set(field.Name(), field.Value());
        }
        rows.push_back(std::move(row));
      }
    });
    // Only a complete read replaces what the query held.
    expressions_ = std::move(rows);
  });
}

void CZtQuery::UpdateQueryRecordset(Recordset& rs) {
  std::int32_t row = 0;
  for (const Dictionary& expression : expressions_) {
    rs.AddNew();
    rs.Fields(kIdColumn).SetValue(id_);
    rs.Fields(kRowColumn).SetValue(++row);
    for (const auto& [column, value] : expression.Items())
      if (!IsQueryKeyColumn(column)) rs.Fields(column).SetValue(value);
    rs.Update();
  }
}

void CZtQuery::SaveToDB(const std::shared_ptr<CZtDataStore>& data_store) {
  Trap at(kQuery, "SaveToDB");
  at.Reraising([&] {
    at = 10;
    const std::string sql = StatementFor(data_store)->SQLText();
    std::shared_ptr<Connection> cn = data_store->GetConnection(1);
    auto rs = std::make_shared<Recordset>();
    CZTADOUtilities utils;
    // Every change stays pending in the recordset until the one batch update, which the
    // platform writes in a single transaction: a query is either replaced whole or not at all.
    const std::int32_t location = cn->CursorLocation();
    cn->SetCursorLocation(ado::adUseClient);
    try {
      at = 20;
      rs->Open(sql, cn, ado::adOpenStatic, ado::adLockBatchOptimistic);
      cn->SetCursorLocation(location);
      at = 30;
      if (!rs->Eof()) rs->MoveFirst();
      while (!rs->Eof()) {
        rs->Delete();
        // Deleting the last visible row already puts the recordset at its end.
        if (!rs->Eof()) rs->MoveNext();
      }
      at = 40;
      UpdateQueryRecordset(*rs);
      at = 50;
      rs->UpdateBatch();
    } catch (...) {
      cn->SetCursorLocation(location);
      if (rs->State() == ado::adStateOpen) rs->CancelBatch();
      utils.CloseRecordsetADO(rs);
      throw;
    }
    at = 60;
    utils.CloseRecordsetADO(rs);
  });
}

void CZtQuery::DeleteFromDB(const std::shared_ptr<CZtDataStore>& data_store) {
  Trap at(kQuery, "DeleteFromDB");
  at.Reraising([&] {
    at = 10;
    const std::shared_ptr<CZtSQLStatement> statement = StatementFor(data_store);
    at = 20;
    data_store->DeleteTableRecords(statement->Table(), statement->WhereClause());
  });
}

}  // namespace zt
