// Saved queries and the pieces that shape the SQL text of the definition classes:
//   CZtWhereMacroHlpr   expands <<Name>> macros in a stored WHERE text,
//   SQL_AddFieldsToSelectClause   adds columns to a statement's select list,
//   CZtQuery            a saved query: rows of its table type's structure table.
//
// Macros. A stored WHERE text writes a macro as <<Name>> so that single < and > stay free for
// comparisons. The macro collection is a Dictionary whose keys are the names in single angle
// brackets ("<CurrentView>") and whose values are objects implementing IZtMacro:
//
//   zt::Dictionary macros;
//   macros.Add("<CurrentView>", std::make_shared<MyViewMacro>());
//   zt::CZtWhereMacroHlpr().ExpandMacros("nView=<<CurrentView>> AND nAge>3", macros, ctx);
//     // -> "nView=7 AND nAge>3"
//
// A key is looked for without regard to case but replaced with it, so "<<currentview>>" under
// the key "<CurrentView>" is found, not replaced, and stays as written; a macro whose value is
// empty text stays as written too.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zt/definitions/interfaces.h"
#include "zt/definitions/sql_statement.h"
#include "zt/export.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

class CZtDataStore;

class ZT_EXPORT CZtWhereMacroHlpr : public Object {
 public:
  std::string TypeName() const override { return "CZtWhereMacroHlpr"; }

  // `where_text` with its macros expanded; unchanged unless it holds both "<<" and ">>". Every
  // value of `macros` must be an IZtMacro object (else ZtError 13). A macro's own failure is
  // logged and raised.
  std::string ExpandMacros(const std::string& where_text, const Dictionary& macros,
                           const Variant& context);
  // Every `search1` of `text` becomes `replace1`, then every `search2` becomes `replace2`
  // (exact comparison, over the whole text).
  static std::string ReplacePair(const std::string& text, const std::string& search1,
                                 const std::string& search2, const std::string& replace1,
                                 const std::string& replace2);

 private:
  InstanceTrace trace_{"CZtWhereMacroHlpr"};
};

// Adds `field_names` that the select list of `statement` does not name yet (names compared
// trimmed, without brackets and without regard to case) at its end. A select list of "*" is
// left alone: it reads every column already. False only when there is no statement.
ZT_EXPORT bool SQL_AddFieldsToSelectClause(const std::vector<std::string>& field_names,
                                           const std::shared_ptr<CZtSQLStatement>& statement);

// The value of `column` in one of a query's expressions, the name compared without regard to
// case: engines that fold unquoted names (PostgreSQL) report "tfield" for a column created as
// tField. Empty when the expression has no such column.
ZT_EXPORT Variant ExpressionValue(const Dictionary& expression, std::string_view column);

class ZT_EXPORT CZtQuery : public Object, public IZtQuery {
 public:
  std::string TypeName() const override { return "CZtQuery"; }

  std::int32_t ID() const override { return id_; }
  void ID(std::int32_t value) override { id_ = value; }
  std::string Name() const override { return name_; }
  void Name(const std::string& value) override { name_ = value; }
  std::string Caption() const override { return caption_; }
  void Caption(const std::string& value) override { caption_ = value; }
  std::int32_t TableType() const override { return table_type_; }
  void TableType(std::int32_t value) override { table_type_ = value; }
  std::vector<Dictionary>& Expressions() override { return expressions_; }

  void Initialize(std::int32_t id, std::int32_t table_type, const std::string& name = {},
                  const std::string& caption = {}) override;
  // Reads the query's rows (Expressions, in nRow order; Null values kept as Null).
  void Load(const std::shared_ptr<Object>& data_store) override;
  // Replaces the query's rows by Expressions (nID = ID, nRow = 1, 2, ...) in one batch: when
  // any row fails, nothing is written and the stored rows stay as they were. The error is
  // raised after it is logged.
  void Save(const std::shared_ptr<Object>& data_store) override;
  // Deletes the query's rows.
  void Delete(const std::shared_ptr<Object>& data_store) override;
  std::shared_ptr<CZtSQLStatement> GetSQLStatement(
      const std::shared_ptr<Object>& data_store) override;
  // A data store that is not a CZtDataStore raises ZtError 13 with the text: its type name +
  // ".IZtQuery_SQLStatement - objDataStore must be a CZtDataStore object" (Delete likewise
  // with ".IZtQuery_Delete").
  std::shared_ptr<CZtSQLStatement> SQLStatement(const std::shared_ptr<Object>& data_store) override;
  // The caller's own statement, used by Load and Save instead of the default one; null goes
  // back to the default.
  void SQLStatement(std::shared_ptr<CZtSQLStatement> statement) override {
    statement_ = std::move(statement);
  }

 private:
  // The data store behind `data_store`, or the check's error for `member`.
  static std::shared_ptr<CZtDataStore> RequireDataStore(const std::shared_ptr<Object>& data_store,
                                                        const char* member);
  // Table: the table type's structure table; condition [nID]=ID; ordering [nRow].
  std::shared_ptr<CZtSQLStatement> GetDefaultSQLStatement(
      const std::shared_ptr<CZtDataStore>& data_store);
  std::shared_ptr<CZtSQLStatement> StatementFor(const std::shared_ptr<CZtDataStore>& data_store);
  void LoadFromDB(const std::shared_ptr<CZtDataStore>& data_store);
  void SaveToDB(const std::shared_ptr<CZtDataStore>& data_store);
  void DeleteFromDB(const std::shared_ptr<CZtDataStore>& data_store);
  void UpdateQueryRecordset(Recordset& rs);

  std::int32_t id_ = 0;
  std::string name_;
  std::string caption_;
  std::int32_t table_type_ = 0;
  std::vector<Dictionary> expressions_;
  std::shared_ptr<CZtSQLStatement> statement_;
  InstanceTrace trace_{"CZtQuery"};
};

}  // namespace zt
