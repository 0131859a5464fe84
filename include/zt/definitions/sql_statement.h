// CZtSQLStatement: the small statement object the definition classes hand around (a table, a
// select list, a WHERE condition and an ordering), rendered to one SELECT text with the table
// in square brackets. The platform layer turns the brackets into each engine's own quoting.
//
//   auto st = std::make_shared<zt::CZtSQLStatement>();
//   st->Table("tblQueryRows");
//   st->WhereClause("[nID]=7");
//   st->OrderByClause("[nRow]");
//   st->SQLText();  // "SELECT * FROM [tblQueryRows] WHERE [nID]=7 ORDER BY [nRow]"
//
// The clauses are kept as the caller wrote them: the builder only brackets the table name, so
// that a condition or select list stays exactly the text the caller composed.
#pragma once

#include <string>

#include "zt/export.h"
#include "zt/variant.h"

namespace zt {

class ZT_EXPORT CZtSQLStatement : public Object {
 public:
  std::string TypeName() const override { return "CZtSQLStatement"; }

  const std::string& Table() const { return table_; }
  void Table(const std::string& value) { table_ = value; }
  // The columns to read, joined with ","; "*" (the default) reads every column.
  const std::string& SelectClause() const { return select_; }
  void SelectClause(const std::string& value) { select_ = value; }
  // The condition without the WHERE keyword; "" for none.
  const std::string& WhereClause() const { return where_; }
  void WhereClause(const std::string& value) { where_ = value; }
  // The ordering without the ORDER BY keywords; "" for none.
  const std::string& OrderByClause() const { return order_by_; }
  void OrderByClause(const std::string& value) { order_by_ = value; }

  // "SELECT " + select + " FROM [" + table + "]", then " WHERE " + condition and
  // " ORDER BY " + ordering when they are set. A blank select list reads "*". Without a table
  // there is no statement: ZtError 5 (invalid procedure call) naming the class.
  std::string SQLText() const;

 private:
  std::string table_;
  std::string select_ = "*";
  std::string where_;
  std::string order_by_;
};

}  // namespace zt
