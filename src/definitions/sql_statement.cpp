// CZtSQLStatement: rendering a statement object to SELECT text.
#include "zt/definitions/sql_statement.h"

#include "zt/error.h"
#include "zt/text/compare.h"
#include "zt/text/strings.h"

namespace zt {

std::string CZtSQLStatement::SQLText() const {
  if (TrimSpaces(table_).empty())
    throw ZtError(rt::kInvalidProcedureCall, std::string(TypeName()),
                  TypeName() + ".SQLText - the statement has no table");
  const std::string select = TrimSpaces(select_).empty() ? std::string("*") : select_;
  std::string sql = "SELECT " + select + " FROM " + ZtStrMan_AddBrackets(table_);
  if (!TrimSpaces(where_).empty()) sql += " WHERE " + where_;
  if (!TrimSpaces(order_by_).empty()) sql += " ORDER BY " + order_by_;
  return sql;
}

}  // namespace zt
