#include "platform/sql_text.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "platform/errors.h"

namespace zt::platform {

namespace {

// Walks SQL text and reports where literals, quoted names and comments end, so that the two
// rewrites below share one notion of "outside a literal".
struct Scanner {
  const std::string& s;
  const DriverQuirks& q;
  std::size_t i = 0;

  bool AtEnd() const { return i >= s.size(); }
  char Peek(std::size_t k = 0) const { return i + k < s.size() ? s[i + k] : '\0'; }

  // When a literal, a quoted name (other than [..]) or a comment starts at i, returns its end
  // (one past); otherwise returns i.
  // Engines differ in what they read as a literal or a comment; where the scanner is unsure it
  // must see more of the text as plain SQL, never less, or a ";" could hide from the
  // one-statement check.
  std::size_t SkipOpaque() const {
    const char c = Peek();
    if (c == '\'' || c == '"' || c == '`') {
      // E'...' (not a word ending in "e" such as "type'") takes backslash escapes.
      const bool escape_string =
          c == '\'' && q.escape_strings && i > 0 && (s[i - 1] == 'E' || s[i - 1] == 'e') &&
          (i < 2 || !(std::isalnum(static_cast<unsigned char>(s[i - 2])) || s[i - 2] == '_'));
      const bool escapes = c != '`' && (q.backslash_escapes || escape_string);
      std::size_t j = i + 1;
      while (j < s.size()) {
        if (escapes && s[j] == '\\') {
          j += 2;
          continue;
        }
        if (s[j] == c) {
          if (j + 1 < s.size() && s[j + 1] == c) {
            j += 2;
            continue;
          }
          return j + 1;
        }
        ++j;
      }
      return s.size();
    }
    if (c == '$' && q.dollar_quotes) {
      const std::size_t tag_end = s.find('$', i + 1);
      if (tag_end != std::string::npos) {
        const std::string tag = s.substr(i, tag_end - i + 1);
        bool word = true;
        for (std::size_t k = 1; k + 1 < tag.size(); ++k)
          word = word && (std::isalnum(static_cast<unsigned char>(tag[k])) || tag[k] == '_');
        if (word && !(tag.size() > 2 && std::isdigit(static_cast<unsigned char>(tag[1])))) {
          const std::size_t e = s.find(tag, tag_end + 1);
          return e == std::string::npos ? s.size() : e + tag.size();
        }
      }
      return i;
    }
    if ((c == '-' && Peek(1) == '-' &&
         (!q.mysql_comments || Peek(2) == '\0' ||
          std::isspace(static_cast<unsigned char>(Peek(2))))) ||
        (c == '#' && q.mysql_comments)) {
      const std::size_t e = s.find('\n', i);
      return e == std::string::npos ? s.size() : e + 1;
    }
    if (c == '/' && Peek(1) == '*' && q.mysql_comments &&
        (Peek(2) == '!' || (Peek(2) == 'M' && Peek(3) == '!')))
      return i;  // an executable comment: its text is SQL the server runs
    if (c == '/' && Peek(1) == '*') {
      const std::size_t e = s.find("*/", i + 2);
      return e == std::string::npos ? s.size() : e + 2;
    }
    return i;
  }
};

bool OnlyBlanksAndComments(const std::string& s, std::size_t from, const DriverQuirks& q) {
  Scanner sc{s, q, from};
  while (!sc.AtEnd()) {
    const char c = sc.Peek();
    if (std::isspace(static_cast<unsigned char>(c)) || c == ';') {
      ++sc.i;
      continue;
    }
    const std::size_t end = sc.SkipOpaque();
    if (end != sc.i && c != '\'' && c != '"' && c != '`' && c != '$') {  // a comment
      sc.i = end;
      continue;
    }
    return false;
  }
  return true;
}

bool IsWordChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

std::string UpperWord(const std::string& s, std::size_t from, std::size_t to) {
  std::string w = s.substr(from, to - from);
  for (char& c : w) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return w;
}

}  // namespace

std::string FirstKeyword(const std::string& sql) {
  std::size_t i = sql.find_first_not_of(" \t\r\n(");
  std::size_t j = i;
  while (j < sql.size() && std::isalpha(static_cast<unsigned char>(sql[j]))) ++j;
  return i == std::string::npos ? std::string() : UpperWord(sql, i, j);
}

std::string AsciiLower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

namespace {
std::string FoldName(std::string name, NameFolding fold) {
  // ASCII only: the engines fold the ASCII letters of an unquoted name and leave others alone.
  if (fold == NameFolding::kLower)
    for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (fold == NameFolding::kUpper)
    for (char& c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return name;
}

// `name` between `open` and `close`, the closing character doubled inside.
std::string Quoted(const std::string& name, char open, char close) {
  std::string out(1, open);
  for (char c : name) {
    out += c;
    if (c == close) out += c;
  }
  out += close;
  return out;
}

}  // namespace

std::string SqlLiteral(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("''") : std::string(1, c);
  return out + "'";
}

std::string BracketName(const std::string& name) {
  return Quoted(name, '[', ']');
}

std::string DateTimeText(double ole_date) {
  // The OLE date's whole days count from 1899-12-30 (negative before it); its fraction is the
  // time of day on either side.
  constexpr long long kDayMicros = 86400LL * 1000000LL;
  const double day = std::trunc(ole_date);
  long long micros = std::llround(std::fabs(ole_date - day) * static_cast<double>(kDayMicros));
  // Far from 1899 a double cannot tell microseconds apart (its step is 56 us in 9999): rounding
  // to the step's power of ten keeps a whole second whole instead of inventing a fraction.
  const double step = (std::nextafter(std::fabs(ole_date), HUGE_VAL) - std::fabs(ole_date)) *
                      static_cast<double>(kDayMicros);
  long long quantum = 1;
  while (static_cast<double>(quantum) < step && quantum < 1000000) quantum *= 10;
  micros = (micros + quantum / 2) / quantum * quantum;
  double whole_day = day;
  if (micros >= kDayMicros) {
    micros -= kDayMicros;
    whole_day += ole_date >= 0 ? 1 : -1;
  }
  int y, mo, d, h, mi, s;
  Date{whole_day}.ToParts(y, mo, d, h, mi, s);
  const long long secs = micros / 1000000, frac = micros % 1000000;
  char buf[48];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02lld:%02lld:%02lld", y, mo, d, secs / 3600,
                secs / 60 % 60, secs % 60);
  std::string out = buf;
  if (frac) {
    std::snprintf(buf, sizeof buf, ".%06lld", frac);
    out += buf;
    while (out.back() == '0') out.pop_back();
  }
  return out;
}

std::string QuoteIdentifier(const std::string& name, const DriverQuirks& quirks) {
  if (quirks.quote == QuoteStyle::kDoubleQuotes) return Quoted(name, '"', '"');
  if (quirks.quote == QuoteStyle::kBackticks) return Quoted(name, '`', '`');
  return Quoted(name, '[', ']');
}

namespace {

// The engine's spelling of the bracketed name `written` (as it stands in the text, brackets
// included), which stands for `name` ("]]" already read as "]").
std::string EngineName(const std::string& written, const std::string& name,
                       const DriverQuirks& quirks, const std::string& source,
                       const NameResolver& resolve) {
  if (quirks.max_name_bytes && name.size() > quirks.max_name_bytes)
    throw ZtError(hr::kCommand, source,
                  "The name '" + name + "' is longer than the " +
                      std::to_string(quirks.max_name_bytes) + " bytes " + quirks.engine +
                      " keeps of a name; it would be cut short. Use a shorter name.");
  if (quirks.quote == QuoteStyle::kBrackets) {
    // The engine reads [..] itself. One that has no escape for "]" inside brackets (SQLite ends
    // the name at the first "]") gets the name in double quotes, which it reads in full; else
    // the rest of the name would be read as SQL of the statement.
    if (quirks.bracket_escapes || name.find(']') == std::string::npos) return written;
    return Quoted(name, '"', '"');
  }
  if (quirks.fold == NameFolding::kCatalog) {
    std::string spelled = resolve ? resolve(name, false) : std::string();
    return QuoteIdentifier(spelled.empty() ? name : spelled, quirks);
  }
  // A name that folds to another spelling keeps its own when the engine holds an object of
  // exactly that name (made with a quoted name): that object is what the caller named.
  const std::string folded = FoldName(name, quirks.fold);
  if (folded != name && resolve && resolve(name, false) == name)
    return QuoteIdentifier(name, quirks);
  return QuoteIdentifier(folded, quirks);
}

// The quoted spelling an unquoted word needs on an engine that keeps names as written, "" to
// leave it alone. The engine folds an unquoted name to lower case, so a column made as "tMajor"
// is out of reach of the library's own "SET tMajor=..." unless the word is quoted as the
// catalog spells it. Numbers, function names, casts' types and the E of E'..' are no names;
// keywords and words that reach an object as they are the resolver leaves alone. `previous` is
// the word before (upper case): after INTO, TABLE, ON or REFERENCES a "(" opens a column list.
std::string BareName(const std::string& sql, std::size_t from, std::size_t to,
                     const std::string& previous, const DriverQuirks& quirks,
                     const NameResolver& resolve) {
  if (quirks.fold != NameFolding::kCatalog || !resolve) return {};
  if (std::isdigit(static_cast<unsigned char>(sql[from]))) return {};
  if (from >= 2 && sql.compare(from - 2, 2, "::") == 0) return {};
  std::size_t next = to;
  while (next < sql.size() && std::isspace(static_cast<unsigned char>(sql[next]))) ++next;
  const bool table =
      previous == "INTO" || previous == "TABLE" || previous == "ON" || previous == "REFERENCES";
  if (next < sql.size() &&
      ((sql[next] == '(' && !table) || (next == to && (sql[next] == '\'' || sql[next] == '&'))))
    return {};
  return resolve(sql.substr(from, to - from), true);
}

// Where a name stands in the statement. A name that the statement makes (the names of a new
// table and its columns, a column added or renamed to, a new view, index or constraint) keeps
// the case it is written in; every other name is looked up, so a new column "nId" does not take
// the spelling of another table's "nid". The target of REFERENCES is looked up, being made
// nowhere.
class NamePositions {
 public:
  void Word(const std::string& w) {
    if (first_.empty()) {
      first_ = w;
    } else if (first_ == "CREATE" && w == "TABLE") {
      create_table_ = true;
    }
    if (w == "SELECT") create_table_ = false;  // CREATE TABLE ... AS SELECT reads other tables
    if (references_ == kAfterTable)
      references_ = kNone;  // no column list after the target
    else if (references_ == kTable)
      references_ = kAfterTable;  // the target, unquoted
    if (w == "REFERENCES") references_ = kTable;
    before_previous_ = previous_;
    previous_ = w;
  }
  void Name() {
    if (references_ == kTable) references_ = kAfterTable;
    before_previous_ = previous_;
    previous_ = "[]";
  }
  void Char(char c) {
    if (c == '(') {
      ++depth_;
      if (references_ == kAfterTable) references_ = kList, list_depth_ = depth_;
    } else if (c == ')') {
      if (references_ == kList && depth_ == list_depth_) references_ = kNone;
      --depth_;
    }
  }
  // Whether a name here is one the statement makes.
  bool Makes() const {
    if (references_ == kTable || references_ == kList) return false;
    if (create_table_) return true;
    const std::string& p = previous_;
    return p == "ADD" || p == "TO" || (p == "COLUMN" && before_previous_ == "ADD") ||
           (p == "CONSTRAINT" && before_previous_ != "DROP") ||
           (first_ == "CREATE" && (p == "INDEX" || p == "VIEW"));
  }
  const std::string& Previous() const { return previous_; }

 private:
  enum { kNone, kTable, kAfterTable, kList } references_ = kNone;
  std::string first_, previous_, before_previous_;
  bool create_table_ = false;
  int depth_ = 0, list_depth_ = 0;
};

}  // namespace

std::string PrepareSqlText(const std::string& sql, const DriverQuirks& quirks,
                           const std::string& source, const NameResolver& resolve) {
  std::string out;
  out.reserve(sql.size() + 8);
  Scanner sc{sql, quirks};
  // A trigger body (CREATE TRIGGER ... BEGIN ...; ...; END) holds semicolons of its own; they
  // belong to the one statement. CASE ... END inside the body nests. Only "CREATE [TEMP|OR
  // REPLACE|CONSTRAINT ...] TRIGGER" starts one, so a column named "begin" in another statement
  // cannot open a body that hides a second statement.
  bool head = true, first = true;
  bool trigger = false;
  int block_depth = 0;
  NamePositions at;
  while (!sc.AtEnd()) {
    const std::size_t end = sc.SkipOpaque();
    if (end != sc.i) {
      out.append(sql, sc.i, end - sc.i);
      sc.i = end;
      continue;
    }
    const char c = sc.Peek();
    if (IsWordChar(c)) {
      std::size_t j = sc.i;
      while (j < sql.size() && IsWordChar(sql[j])) ++j;
      const std::string w = UpperWord(sql, sc.i, j);
      if (head) {
        if (first)
          head = w == "CREATE";
        else if (w == "TRIGGER")
          trigger = true, head = false;
        else
          head =
              w == "TEMP" || w == "TEMPORARY" || w == "OR" || w == "REPLACE" || w == "CONSTRAINT";
        first = false;
      }
      if (trigger && (w == "BEGIN" || (w == "CASE" && block_depth > 0))) ++block_depth;
      if (trigger && w == "END" && block_depth > 0) --block_depth;
      const std::string spelled =
          at.Makes() ? std::string() : BareName(sql, sc.i, j, at.Previous(), quirks, resolve);
      at.Word(w);
      if (spelled.empty())
        out.append(sql, sc.i, j - sc.i);
      else
        out += QuoteIdentifier(spelled, quirks);
      sc.i = j;
      continue;
    }
    if (c == ';' && block_depth > 0) {
      out += c;
      ++sc.i;
      continue;
    }
    if (c == ';') {
      if (!OnlyBlanksAndComments(sql, sc.i + 1, quirks))
        throw ZtError(hr::kCommand, source,
                      "Only one SQL statement can be run at a time: the text goes on after the "
                      "';' at character " +
                          std::to_string(sc.i + 1) + ".");
      break;  // a trailing ";" (and whatever blanks follow) is dropped
    }
    if (c == '[') {
      // "[[" has no meaning as a name; "]]" inside a name stands for "]".
      std::string name;
      std::size_t j = sc.i + 1;
      bool closed = false;
      while (j < sql.size()) {
        if (sql[j] == ']') {
          if (j + 1 < sql.size() && sql[j + 1] == ']') {
            name += ']';
            j += 2;
            continue;
          }
          closed = true;
          break;
        }
        name += sql[j++];
      }
      if (!closed) {  // not a name: leave the rest for the engine to judge
        out.append(sql, sc.i, std::string::npos);
        break;
      }
      out += EngineName(sql.substr(sc.i, j + 1 - sc.i), name, quirks, source,
                        at.Makes() ? NameResolver() : resolve);
      at.Name();
      sc.i = j + 1;
      continue;
    }
    at.Char(c);
    out += c;
    ++sc.i;
  }
  return out;
}

std::string RewritePlaceholders(const std::string& sql, const DriverQuirks& quirks, int* count) {
  std::string out;
  Scanner sc{sql, quirks};
  int n = 0;
  while (!sc.AtEnd()) {
    const std::size_t end = sc.SkipOpaque();
    if (end != sc.i) {
      out.append(sql, sc.i, end - sc.i);
      sc.i = end;
      continue;
    }
    if (sc.Peek() == '?') {
      out += '$';
      out += std::to_string(++n);
    } else
      out += sc.Peek();
    ++sc.i;
  }
  if (count) *count = n;
  return out;
}

std::string BracketQuoting(const std::string& sql, const DriverQuirks& quirks,
                           const std::string& qualifier) {
  const char quote = quirks.quote == QuoteStyle::kDoubleQuotes ? '"'
                     : quirks.quote == QuoteStyle::kBackticks  ? '`'
                                                               : '\0';
  std::string out;
  out.reserve(sql.size());
  for (std::size_t i = 0; i < sql.size();) {
    const char c = sql[i];
    if (c == '\'') {
      // A literal, to its closing quote ('' inside, and \' where the engine reads escapes).
      std::size_t j = i + 1;
      for (; j < sql.size(); ++j) {
        if (quirks.backslash_escapes && sql[j] == '\\') {
          ++j;
          continue;
        }
        if (sql[j] != '\'') continue;
        if (j + 1 < sql.size() && sql[j + 1] == '\'') {
          ++j;
          continue;
        }
        break;
      }
      out.append(sql, i, std::min(j + 1, sql.size()) - i);
      i = j + 1;
      continue;
    }
    if (quote == '\0' || c != quote) {
      out += c;
      ++i;
      continue;
    }
    std::string name;
    std::size_t j = i + 1;
    for (; j < sql.size(); ++j) {
      if (sql[j] == quote) {
        if (j + 1 < sql.size() && sql[j + 1] == quote) {
          name += quote;
          ++j;
          continue;
        }
        break;
      }
      name += sql[j];
    }
    i = j + 1;
    if (!qualifier.empty() && name == qualifier && i < sql.size() && sql[i] == '.') {
      ++i;
      continue;
    }
    out += BracketName(name);
  }
  return out;
}

void AppendBulkField(std::string& line, const Variant& v, char true_text, char false_text) {
  char buf[32];
  switch (v.Type()) {
    case VarType::Empty:
    case VarType::Null:
      line += "\\N";
      return;
    case VarType::Boolean:
      line += v.ToBool() ? true_text : false_text;
      return;
    case VarType::Long:
    case VarType::LongLong:
      line.append(buf, std::to_chars(buf, buf + sizeof buf, v.ToInt64()).ptr);
      return;
    case VarType::Double:
      line.append(buf, std::to_chars(buf, buf + sizeof buf, v.ToDouble()).ptr);
      return;
    case VarType::Date:
      line += DateTimeText(v.ToDouble());
      return;
    default:
      break;
  }
  std::string converted;
  const std::string* text = v.AsString();
  if (!text) {
    converted = v.ToText();  // currency and decimals in their exact text
    text = &converted;
  }
  for (char c : *text) {
    switch (c) {
      case '\\':
        line += "\\\\";
        break;
      case '\t':
        line += "\\t";
        break;
      case '\n':
        line += "\\n";
        break;
      case '\r':
        line += "\\r";
        break;
      case '\0':
        line += "\\0";
        break;
      default:
        line += c;
    }
  }
}

}  // namespace zt::platform
