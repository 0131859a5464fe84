#include "platform/criteria.h"

#include <cctype>
#include <cstdlib>

#include "platform/errors.h"

namespace zt::platform {

namespace {

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

bool GlobMatch(const std::string& text, std::size_t t, const std::string& pat, std::size_t p) {
  while (p < pat.size()) {
    const char c = pat[p];
    if (c == '*' || c == '%') {
      for (std::size_t k = t; k <= text.size(); ++k)
        if (GlobMatch(text, k, pat, p + 1)) return true;
      return false;
    }
    if (t >= text.size()) return false;
    if (c != '_' && c != '?' && c != text[t]) return false;
    ++t, ++p;
  }
  return t == text.size();
}

enum class Op { kEq, kNe, kLt, kLe, kGt, kGe, kLike, kNotLike };

class Clause : public Criteria {
 public:
  Clause(int col, Op op, Variant value) : col_(col), op_(op), value_(std::move(value)) {
    if (const std::string* s = value_.AsString()) lowered_ = Lower(*s);
  }
  bool Matches(const std::vector<Variant>& row) const override {
    const Variant& v = row[static_cast<std::size_t>(col_)];
    if (value_.IsNull()) return (op_ == Op::kEq) == (v.IsNull() || v.IsEmpty());
    if (v.IsNull() || v.IsEmpty()) return false;
    if (op_ == Op::kLike || op_ == Op::kNotLike)
      return GlobMatch(Lower(v.ToText()), 0, lowered_, 0) == (op_ == Op::kLike);
    std::optional<int> c;
    if (const std::string* s = v.AsString(); s && value_.IsString())
      c = Lower(*s).compare(lowered_);
    else
      c = Variant::Compare(v, value_);
    if (!c) return false;
    switch (op_) {
      case Op::kEq:
        return *c == 0;
      case Op::kNe:
        return *c != 0;
      case Op::kLt:
        return *c < 0;
      case Op::kLe:
        return *c <= 0;
      case Op::kGt:
        return *c > 0;
      case Op::kGe:
        return *c >= 0;
      default:
        return false;
    }
  }

 private:
  int col_;
  Op op_;
  Variant value_;
  std::string lowered_;
};

class Junction : public Criteria {
 public:
  Junction(bool all, std::vector<std::unique_ptr<Criteria>> parts)
      : all_(all), parts_(std::move(parts)) {}
  bool Matches(const std::vector<Variant>& row) const override {
    for (const auto& p : parts_)
      if (p->Matches(row) != all_) return !all_;
    return all_;
  }

 private:
  bool all_;
  std::vector<std::unique_ptr<Criteria>> parts_;
};

class Parser {
 public:
  Parser(const std::string& s, const std::function<int(const std::string&)>& resolve,
         const std::string& source)
      : s_(s), resolve_(resolve), source_(source) {}

  std::unique_ptr<Criteria> Run() {
    auto c = Or();
    Blanks();
    if (i_ != s_.size()) Fail("unexpected text");
    return c;
  }

 private:
  [[noreturn]] void Fail(const std::string& why) {
    RaiseAdo(AdoError::kInvalidArgument, source_,
             "(criteria \"" + s_ + "\": " + why + " at character " + std::to_string(i_ + 1) + ")");
  }
  void Blanks() {
    while (i_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[i_]))) ++i_;
  }
  bool Keyword(const char* kw) {
    Blanks();
    const std::size_t n = std::char_traits<char>::length(kw);
    if (i_ + n > s_.size() || Lower(s_.substr(i_, n)) != kw) return false;
    if (i_ + n < s_.size() &&
        (std::isalnum(static_cast<unsigned char>(s_[i_ + n])) || s_[i_ + n] == '_'))
      return false;
    i_ += n;
    return true;
  }
  std::unique_ptr<Criteria> Or() {
    std::vector<std::unique_ptr<Criteria>> parts;
    parts.push_back(And());
    while (Keyword("or")) parts.push_back(And());
    return parts.size() == 1 ? std::move(parts[0])
                             : std::make_unique<Junction>(false, std::move(parts));
  }
  std::unique_ptr<Criteria> And() {
    std::vector<std::unique_ptr<Criteria>> parts;
    parts.push_back(Factor());
    while (Keyword("and")) parts.push_back(Factor());
    return parts.size() == 1 ? std::move(parts[0])
                             : std::make_unique<Junction>(true, std::move(parts));
  }
  std::unique_ptr<Criteria> Factor() {
    Blanks();
    if (i_ < s_.size() && s_[i_] == '(') {
      ++i_;
      auto c = Or();
      Blanks();
      if (i_ >= s_.size() || s_[i_] != ')') Fail("missing ')'");
      ++i_;
      return c;
    }
    const std::string name = Name();
    const int col = resolve_(name);
    if (col < 0) Fail("unknown column '" + name + "'");
    Op op;
    bool is_null_test = false;
    if (Keyword("is")) {
      op = Keyword("not") ? Op::kNe : Op::kEq;
      if (!Keyword("null")) Fail("expected NULL");
      is_null_test = true;
    } else if (Keyword("like")) {
      op = Op::kLike;
    } else if (Keyword("not")) {
      if (!Keyword("like")) Fail("expected LIKE");
      op = Op::kNotLike;
    } else {
      op = Operator();
    }
    Variant value = is_null_test ? Variant::Null() : Value();
    return std::make_unique<Clause>(col, op, std::move(value));
  }
  std::string Name() {
    Blanks();
    if (i_ >= s_.size()) Fail("expected a column name");
    if (s_[i_] == '[' || s_[i_] == '`' || s_[i_] == '"') {
      const char close = s_[i_] == '[' ? ']' : s_[i_];
      const std::size_t e = s_.find(close, i_ + 1);
      if (e == std::string::npos) Fail("unclosed name");
      std::string n = s_.substr(i_ + 1, e - i_ - 1);
      i_ = e + 1;
      return n;
    }
    const std::size_t b = i_;
    while (i_ < s_.size() && (std::isalnum(static_cast<unsigned char>(s_[i_])) || s_[i_] == '_' ||
                              static_cast<unsigned char>(s_[i_]) >= 0x80))
      ++i_;
    if (i_ == b) Fail("expected a column name");
    return s_.substr(b, i_ - b);
  }
  Op Operator() {
    Blanks();
    auto take = [&](const char* t, Op op) -> std::optional<Op> {
      const std::size_t n = std::char_traits<char>::length(t);
      if (s_.compare(i_, n, t) != 0) return std::nullopt;
      i_ += n;
      return op;
    };
    for (auto [t, op] : {std::pair{"<>", Op::kNe}, std::pair{"!=", Op::kNe},
                         std::pair{"<=", Op::kLe}, std::pair{">=", Op::kGe},
                         std::pair{"=", Op::kEq}, std::pair{"<", Op::kLt}, std::pair{">", Op::kGt}})
      if (auto r = take(t, op)) return *r;
    Fail("expected an operator");
  }
  Variant Value() {
    Blanks();
    if (i_ >= s_.size()) Fail("expected a value");
    const char c = s_[i_];
    if (c == '\'' || c == '"') {
      std::string v;
      for (++i_; i_ < s_.size(); ++i_) {
        if (s_[i_] == c) {
          if (i_ + 1 < s_.size() && s_[i_ + 1] == c) {
            v += c;
            ++i_;
            continue;
          }
          ++i_;
          return Variant(v);
        }
        v += s_[i_];
      }
      Fail("unclosed text");
    }
    if (c == '#') {
      const std::size_t e = s_.find('#', i_ + 1);
      if (e == std::string::npos) Fail("unclosed date");
      const std::string d = s_.substr(i_ + 1, e - i_ - 1);
      i_ = e + 1;
      int a = 0, b = 0, y = 0, h = 0, mi = 0, se = 0;
      if (std::sscanf(d.c_str(), "%d-%d-%d %d:%d:%d", &y, &a, &b, &h, &mi, &se) >= 3)
        return Variant(Date::FromParts(y, a, b, h, mi, se));
      if (std::sscanf(d.c_str(), "%d/%d/%d %d:%d:%d", &a, &b, &y, &h, &mi, &se) >= 3)
        return Variant(Date::FromParts(y, a, b, h, mi, se));
      Fail("bad date");
    }
    if (Keyword("null")) return Variant::Null();
    if (Keyword("true")) return Variant(true);
    if (Keyword("false")) return Variant(false);
    const std::size_t b = i_;
    while (i_ < s_.size() && (std::isdigit(static_cast<unsigned char>(s_[i_])) || s_[i_] == '.' ||
                              s_[i_] == '-' || s_[i_] == '+' || s_[i_] == 'e' || s_[i_] == 'E'))
      ++i_;
    const auto n = ParseNumber(s_.substr(b, i_ - b));
    if (i_ == b || !n) Fail("expected a value");
    if (*n == static_cast<double>(static_cast<std::int64_t>(*n)) && std::abs(*n) < 9e15)
      return Variant(static_cast<std::int64_t>(*n));
    return Variant(*n);
  }

  const std::string& s_;
  const std::function<int(const std::string&)>& resolve_;
  const std::string& source_;
  std::size_t i_ = 0;
};

}  // namespace

std::unique_ptr<Criteria> Criteria::Parse(const std::string& text,
                                          const std::function<int(const std::string&)>& resolve,
                                          const std::string& source) {
  return Parser(text, resolve, source).Run();
}

}  // namespace zt::platform
