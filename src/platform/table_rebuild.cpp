#include "platform/table_rebuild.h"

#include <algorithm>
#include <cctype>

#include "platform/errors.h"
#include "platform/sql_text.h"
#include "zt/platform.h"

namespace zt::platform {

namespace {

constexpr const char* kSource = "DAO.Database";

bool IsSpace(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}
bool IsWordChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '$';
}

// End (one past) of a quoted part starting at i, or i when none starts there.
std::size_t SkipQuoted(const std::string& s, std::size_t i) {
  const char c = s[i];
  if (c != '\'' && c != '"' && c != '`' && c != '[') return i;
  const char close = c == '[' ? ']' : c;
  std::size_t j = i + 1;
  while (j < s.size()) {
    if (s[j] == close) {
      if (j + 1 < s.size() && s[j + 1] == close) {
        j += 2;
        continue;
      }
      return j + 1;
    }
    ++j;
  }
  return s.size();
}

// One token of an item at parenthesis depth 0: a word, a quoted name or literal, a whole
// parenthesised group, or one other character. `upper` is the word upper-cased ("" otherwise).
struct Token {
  std::size_t begin, end;
  std::string upper;
};

std::vector<Token> Tokens(const std::string& s) {
  std::vector<Token> out;
  std::size_t i = 0;
  while (i < s.size()) {
    if (IsSpace(s[i])) {
      ++i;
      continue;
    }
    Token t{i, i + 1, {}};
    if (const std::size_t q = SkipQuoted(s, i); q != i) {
      t.end = q;
    } else if (s[i] == '(') {
      int depth = 0;
      std::size_t j = i;
      for (; j < s.size(); ++j) {
        if (const std::size_t e = SkipQuoted(s, j); e != j) {
          j = e - 1;
          continue;
        }
        if (s[j] == '(') ++depth;
        if (s[j] == ')' && --depth == 0) break;
      }
      t.end = std::min(j + 1, s.size());
    } else if (IsWordChar(s[i])) {
      std::size_t j = i;
      while (j < s.size() && IsWordChar(s[j])) ++j;
      t.end = j;
      for (std::size_t k = i; k < j; ++k)
        t.upper += static_cast<char>(std::toupper(static_cast<unsigned char>(s[k])));
    }
    out.push_back(t);
    i = t.end;
  }
  return out;
}

// A quoted or bare name as the engine reads it.
std::string Unquote(const std::string& s) {
  if (s.empty()) return s;
  const char c = s.front();
  if (c != '\'' && c != '"' && c != '`' && c != '[') return s;
  const char close = c == '[' ? ']' : c;
  std::string out;
  for (std::size_t k = 1; k + 1 < s.size(); ++k) {
    out += s[k];
    if (s[k] == close && k + 2 < s.size() && s[k + 1] == close) ++k;
  }
  return out;
}

// A CREATE TABLE statement cut into its head ("CREATE TABLE x"), its items and its tail (after
// the closing parenthesis: WITHOUT ROWID ...).
void SplitCreate(const std::string& sql, std::string& head, std::vector<std::string>& items,
                 std::string& tail) {
  std::size_t i = 0;
  while (i < sql.size() && sql[i] != '(') {
    const std::size_t e = SkipQuoted(sql, i);
    i = e == i ? i + 1 : e;
  }
  if (i >= sql.size())
    RaiseAdo(AdoError::kInvalidArgument, kSource, "(unreadable table definition)");
  head = sql.substr(0, i);
  int depth = 0;
  std::string item;
  for (++i; i < sql.size(); ++i) {
    const std::size_t e = SkipQuoted(sql, i);
    if (e != i) {
      item.append(sql, i, e - i);
      i = e - 1;
      continue;
    }
    const char c = sql[i];
    if (c == '(') ++depth;
    if (c == ')' && depth-- == 0) break;
    if (c == ',' && depth == 0) {
      items.push_back(item);
      item.clear();
      continue;
    }
    item += c;
  }
  items.push_back(item);
  tail = i < sql.size() ? sql.substr(i + 1) : "";
}

bool IsConstraintWord(const std::string& upper) {
  for (const char* kw : {"CONSTRAINT", "PRIMARY", "UNIQUE", "CHECK", "FOREIGN"})
    if (upper == kw) return true;
  return false;
}

// Where a column item's clauses begin: the first word that starts one (after the name and the
// type's words).
bool StartsClause(const std::string& upper) {
  for (const char* kw : {"CONSTRAINT", "PRIMARY", "NOT", "NULL", "UNIQUE", "CHECK", "DEFAULT",
                         "COLLATE", "REFERENCES", "GENERATED", "AS"})
    if (upper == kw) return true;
  return false;
}

std::string Trimmed(std::string s) {
  while (!s.empty() && IsSpace(s.back())) s.pop_back();
  std::size_t b = 0;
  while (b < s.size() && IsSpace(s[b])) ++b;
  return s.substr(b);
}

// `s` with the tokens [from, to) removed.
std::string Cut(const std::string& s, const std::vector<Token>& t, std::size_t from,
                std::size_t to) {
  const std::size_t b = t[from].begin;
  const std::size_t e = to < t.size() ? t[to].begin : s.size();
  return Trimmed(s.substr(0, b)) + (e < s.size() ? " " + s.substr(e) : std::string());
}

// Past an optional "ON CONFLICT x" at token i.
std::size_t SkipConflict(const std::vector<Token>& t, std::size_t i) {
  if (i + 2 < t.size() && t[i].upper == "ON" && t[i + 1].upper == "CONFLICT") return i + 3;
  return i;
}

}  // namespace

std::string SqliteItemName(const std::string& item) {
  const auto t = Tokens(item);
  if (t.empty()) return {};
  if (IsConstraintWord(t[0].upper)) return {};
  return Unquote(item.substr(t[0].begin, t[0].end - t[0].begin));
}

std::string RetypeColumnItem(const std::string& item, const std::string& type, bool nullable) {
  const auto t = Tokens(item);
  if (t.empty()) return item;
  std::size_t clauses = 1;
  while (clauses < t.size() && !StartsClause(t[clauses].upper)) ++clauses;
  std::string out = item.substr(t[0].begin, t[0].end - t[0].begin);
  if (!type.empty())
    out += " " + type;
  else if (clauses > 1)
    out += " " + item.substr(t[1].begin, t[clauses - 1].end - t[1].begin);
  // The clauses, less a NOT NULL or NULL of their own (at depth 0 only: a CHECK's "IS NOT
  // NULL" is inside its parentheses and stays).
  std::size_t i = clauses;
  std::size_t copied = clauses < t.size() ? t[clauses].begin : item.size();
  std::string rest;
  while (i < t.size()) {
    std::size_t drop_end = i;
    if (t[i].upper == "NOT" && i + 1 < t.size() && t[i + 1].upper == "NULL")
      drop_end = SkipConflict(t, i + 2);
    else if (t[i].upper == "NULL" && (i == 0 || t[i - 1].upper != "DEFAULT"))
      drop_end = SkipConflict(t, i + 1);
    if (drop_end == i) {
      ++i;
      continue;
    }
    rest += item.substr(copied, t[i].begin - copied);
    copied = drop_end < t.size() ? t[drop_end].begin : item.size();
    i = drop_end;
  }
  rest += item.substr(copied);
  rest = Trimmed(rest);
  if (!rest.empty()) out += " " + rest;
  if (!nullable) out += " NOT NULL";
  return out;
}

std::string StripKeyClause(const std::string& item, bool primary) {
  const auto t = Tokens(item);
  for (std::size_t i = 0; i < t.size(); ++i) {
    std::size_t end = i;
    if (primary && t[i].upper == "PRIMARY" && i + 1 < t.size() && t[i + 1].upper == "KEY") {
      end = i + 2;
      if (end < t.size() && (t[end].upper == "ASC" || t[end].upper == "DESC")) ++end;
      end = SkipConflict(t, end);
      if (end < t.size() && t[end].upper == "AUTOINCREMENT") ++end;
    } else if (!primary && t[i].upper == "UNIQUE") {
      end = SkipConflict(t, i + 1);
    }
    if (end == i) continue;
    const std::size_t from = i >= 2 && t[i - 2].upper == "CONSTRAINT" ? i - 2 : i;
    return Cut(item, t, from, end);
  }
  return item;
}

ConstraintItem ReadConstraintItem(const std::string& item) {
  ConstraintItem c;
  const auto t = Tokens(item);
  std::size_t i = 0;
  if (i + 1 < t.size() && t[i].upper == "CONSTRAINT") {
    c.name = Unquote(item.substr(t[1].begin, t[1].end - t[1].begin));
    i = 2;
  }
  if (i < t.size()) c.kind = t[i].upper;
  for (; i < t.size(); ++i) {
    if (item[t[i].begin] != '(') continue;
    const std::string inner = item.substr(t[i].begin + 1, t[i].end - t[i].begin - 2);
    std::string head, tail;
    std::vector<std::string> parts;
    SplitCreate("(" + inner + ")", head, parts, tail);
    for (const auto& p : parts) {
      const auto pt = Tokens(p);
      if (!pt.empty()) c.columns.push_back(Unquote(p.substr(pt[0].begin, pt[0].end - pt[0].begin)));
    }
    break;
  }
  return c;
}

SqliteTableDef SqliteTableDef::Read(Connection& cn, const std::string& table) {
  SqliteTableDef d;
  d.table_ = table;
  auto rs = cn.Execute("SELECT name, sql FROM sqlite_master WHERE type = 'table' AND name = " +
                       SqlLiteral(table) + " COLLATE NOCASE");
  if (rs->Eof()) RaiseAdo(AdoError::kItemNotFound, kSource, "(" + table + ")");
  d.table_ = rs->Fields(0).Value().ToText();
  std::string head;
  SplitCreate(rs->Fields(1).Value().ToText(), head, d.items, d.tail_);
  {
    auto cols =
        cn.Execute("SELECT name FROM pragma_table_info(" + SqlLiteral(d.table_) + ") ORDER BY cid");
    for (; !cols->Eof(); cols->MoveNext()) d.columns_.push_back(cols->Fields(0).Value().ToText());
  }
  // The automatic indexes of constraints have no text: they come back with the CREATE TABLE.
  auto deps = cn.Execute(
      "SELECT type, name, sql FROM sqlite_master WHERE sql IS NOT NULL AND "
      "((type IN ('index', 'trigger') AND tbl_name = " +
      SqlLiteral(d.table_) + ") OR type = 'view') ORDER BY type = 'view', rowid");
  for (; !deps->Eof(); deps->MoveNext()) {
    const std::string sql = deps->Fields(2).Value().ToText();
    if (deps->Fields(0).Value().ToText() != "view") {
      d.recreate_.push_back(sql);
    } else if (AsciiLower(sql).find(AsciiLower(d.table_)) != std::string::npos) {
      d.views_.push_back(deps->Fields(1).Value().ToText());
      d.recreate_.push_back(sql);
    }
  }
  return d;
}

namespace {

// Whether the last parenthesised list of `sql` (an index's or a constraint's columns) names
// `column`: the first word of an entry, read as a name.
bool ListNames(const std::string& sql, const std::string& column) {
  const std::vector<Token> tokens = Tokens(sql);
  for (auto t = tokens.rbegin(); t != tokens.rend(); ++t) {
    if (sql[t->begin] != '(') continue;
    const std::string list = sql.substr(t->begin + 1, t->end - t->begin - 2);
    bool entry_start = true;
    for (const Token& part : Tokens(list)) {
      const std::string text = list.substr(part.begin, part.end - part.begin);
      if (entry_start && AsciiLower(Unquote(text)) == AsciiLower(column)) return true;
      entry_start = text == ",";
    }
    return false;
  }
  return false;
}

}  // namespace

void SqliteTableDef::ForgetIndexesOn(const std::string& column) {
  std::erase_if(recreate_, [&](const std::string& sql) {
    const std::vector<Token> t = Tokens(sql);
    const bool index = t.size() > 2 && t[0].upper == "CREATE" &&
                       (t[1].upper == "INDEX" || (t[1].upper == "UNIQUE" && t[2].upper == "INDEX"));
    return index && ListNames(sql, column);
  });
  std::erase_if(items, [&](const std::string& item) {
    const std::vector<Token> t = Tokens(item);
    const bool constraint = !t.empty() && (t[0].upper == "CONSTRAINT" || t[0].upper == "PRIMARY" ||
                                           t[0].upper == "UNIQUE");
    return constraint && SqliteItemName(item).empty() && ListNames(item, column);
  });
}

int SqliteTableDef::ItemOf(const std::string& column) const {
  for (std::size_t i = 0; i < items.size(); ++i)
    if (AsciiLower(SqliteItemName(items[i])) == AsciiLower(column) &&
        !SqliteItemName(items[i]).empty())
      return static_cast<int>(i);
  return -1;
}

bool SqliteTableDef::DropsInPlace(const std::string& column) const {
  const std::string name = AsciiLower(column);
  for (const auto& item : items) {
    if (AsciiLower(SqliteItemName(item)) == name) {
      for (const Token& t : Tokens(item))
        for (const char* kw : {"PRIMARY", "UNIQUE", "REFERENCES", "CHECK", "GENERATED", "AS"})
          if (t.upper == kw) return false;
    } else if (AsciiLower(item).find(name) != std::string::npos) {
      return false;
    }
  }
  for (const auto& sql : recreate_)
    if (AsciiLower(sql).find(name) != std::string::npos) return false;
  return true;
}

SchemaPlan SqliteTableDef::Plan(std::vector<std::pair<std::string, std::string>> copy) const {
  if (copy.empty())
    for (const auto& c : columns_)
      if (ItemOf(c) >= 0) copy.emplace_back(c, BracketName(c));
  std::string into, select, body;
  for (const auto& [column, expr] : copy) {
    into += (into.empty() ? "" : ", ") + BracketName(column);
    select += (select.empty() ? "" : ", ") + expr;
  }
  for (const auto& item : items) body += (body.empty() ? "" : ",") + item;
  const std::string temp = "zt_rebuild_" + table_;

  SchemaPlan plan;
  plan.rebuild = true;
  auto& s = plan.statements;
  for (const auto& v : views_) s.push_back("DROP VIEW " + BracketName(v));
  s.push_back("CREATE TABLE " + BracketName(temp) + " (" + body + ")" + tail_);
  if (!copy.empty())
    s.push_back("INSERT INTO " + BracketName(temp) + " (" + into + ") SELECT " + select + " FROM " +
                BracketName(table_));
  s.push_back("DROP TABLE " + BracketName(table_));
  s.push_back("ALTER TABLE " + BracketName(temp) + " RENAME TO " + BracketName(table_));
  s.insert(s.end(), recreate_.begin(), recreate_.end());
  return plan;
}

// The type word of a column item ("[a] MEMO NOT NULL"), as a token, when it is MEMO or NOTE.
const Token* MemoType(const std::vector<Token>& t, std::size_t name_at) {
  if (name_at + 1 >= t.size()) return nullptr;
  const Token& type = t[name_at + 1];
  return type.upper == "MEMO" || type.upper == "NOTE" ? &type : nullptr;
}

std::string WithTextAffinity(const std::string& sql) {
  // Most statements are not DDL: they are passed on without being tokenised.
  std::size_t first = 0;
  while (first < sql.size() && IsSpace(sql[first])) ++first;
  const std::string start = AsciiLower(sql.substr(first, 6));
  if (start != "create" && start != "alter ") return sql;
  const std::vector<Token> t = Tokens(sql);
  if (t.size() < 3 || t[1].upper != "TABLE" || (t[0].upper != "CREATE" && t[0].upper != "ALTER"))
    return sql;
  // Positions of the type words to replace, in order.
  std::vector<std::pair<std::size_t, std::size_t>> at;
  if (t[0].upper == "ALTER") {
    for (std::size_t i = 2; i + 1 < t.size(); ++i) {
      if (t[i].upper != "ADD") continue;
      std::size_t name = i + 1;
      if (t[name].upper == "COLUMN") ++name;
      if (const Token* type = MemoType(t, name)) at.emplace_back(type->begin, type->end);
      break;
    }
  } else {
    // The definitions: the first parenthesised group (none in CREATE TABLE ... AS SELECT).
    const Token* group = nullptr;
    for (const Token& k : t) {
      if (k.upper == "AS") break;
      if (sql[k.begin] == '(') {
        group = &k;
        break;
      }
    }
    if (!group) return sql;
    const std::string inside = sql.substr(group->begin + 1, group->end - group->begin - 2);
    std::size_t offset = group->begin + 1;
    int depth = 0;
    std::size_t item_begin = 0;
    const auto item_done = [&](std::size_t end) {
      const std::string item = inside.substr(item_begin, end - item_begin);
      const std::vector<Token> it = Tokens(item);
      if (!it.empty() && !IsConstraintWord(it[0].upper))
        if (const Token* type = MemoType(it, 0))
          at.emplace_back(offset + item_begin + type->begin, offset + item_begin + type->end);
    };
    for (std::size_t i = 0; i < inside.size(); ++i) {
      if (const std::size_t e = SkipQuoted(inside, i); e != i) {
        i = e - 1;
        continue;
      }
      if (inside[i] == '(') ++depth;
      if (inside[i] == ')') --depth;
      if (inside[i] == ',' && depth == 0) {
        item_done(i);
        item_begin = i + 1;
      }
    }
    item_done(inside.size());
  }
  std::string out = sql;
  for (auto it = at.rbegin(); it != at.rend(); ++it)
    out.replace(it->first, it->second - it->first, "TEXT");
  return out;
}

}  // namespace zt::platform
