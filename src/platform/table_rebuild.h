// SQLite changes a table's columns and constraints only by rebuilding it: a new table beside the
// old one, the rows copied, the old one dropped and the new one renamed, its indexes, triggers
// and views created again. This reads a table's definition from sqlite_master into pieces that a
// change edits, and composes the rebuild's statements from them without running anything, so
// that a dry run can print them and RunSchemaPlan can run them in one transaction.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/dialect.h"

namespace zt::platform {

class SqliteTableDef {
 public:
  // Reads `table` on `cn`. Raises 3265 when there is no such table.
  static SqliteTableDef Read(Connection& cn, const std::string& table);

  // The column and constraint items of its CREATE TABLE text, as written there; a change
  // edits, adds or removes items.
  std::vector<std::string> items;
  // The columns as they are now, in order.
  const std::vector<std::string>& Columns() const { return columns_; }

  // The position in `items` of the item defining `column` (case ignored), or -1.
  int ItemOf(const std::string& column) const;

  // True when SQLite can drop `column` with ALTER TABLE DROP COLUMN: no key, constraint, index,
  // trigger or view names it (judged by its name appearing there, which errs towards the
  // rebuild).
  bool DropsInPlace(const std::string& column) const;

  // Leaves out of the rebuild every index over `column`: CREATE INDEX statements and key or
  // UNIQUE table constraints whose column list names it. Dropping a column drops them with it.
  void ForgetIndexesOn(const std::string& column);

  // The rebuild. `copy` gives, for each column of the new table that receives values, the
  // expression over the old table's columns that fills it ("[a]", "''"); empty: every present
  // column that the new table still defines, copied as it is.
  SchemaPlan Plan(std::vector<std::pair<std::string, std::string>> copy = {}) const;

 private:
  std::string table_, tail_;
  std::vector<std::string> columns_;
  // CREATE statements of the indexes, triggers and views to create again, and the views to drop
  // first (a view over the table would stop the old table from being dropped).
  std::vector<std::string> recreate_, views_;
};

// The name an item defines (unquoted), or "" for a table constraint item.
std::string SqliteItemName(const std::string& item);

// `item` (a column definition) with its type replaced by `type` ("" : kept) and its NOT NULL
// clause set by `nullable`; its other clauses (DEFAULT, CHECK, COLLATE, keys) stay as written.
std::string RetypeColumnItem(const std::string& item, const std::string& type, bool nullable);

// `item` without its PRIMARY KEY (`primary`) or UNIQUE clause, and the CONSTRAINT name before
// it. Returns the item unchanged when it has none.
std::string StripKeyClause(const std::string& item, bool primary);

// For a table constraint item ("CONSTRAINT [x] UNIQUE ([a], [b])"): its name ("" when unnamed),
// its kind ("PRIMARY", "UNIQUE", "CHECK", "FOREIGN") and the columns it lists.
struct ConstraintItem {
  std::string name, kind;
  std::vector<std::string> columns;
};
ConstraintItem ReadConstraintItem(const std::string& item);

// `sql` (any statement) with every column type MEMO or NOTE of a CREATE TABLE or ALTER TABLE ...
// ADD written TEXT. SQLite gives those Jet names numeric affinity, which stores the text "007"
// as the number 7 and "1.50" as 1.5; TEXT without a length reads back as a memo all the same.
// Other statements come back as they are.
std::string WithTextAffinity(const std::string& sql);

}  // namespace zt::platform
