// Writing and reading the rowset document as a stream: the writer never holds more than one
// row's text, the reader (libxml2's SAX parser fed from the file as it goes) never more than
// one element.
#include <fcntl.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <unordered_map>

#include "foundation/utf8.h"
#include "xml/rowset_format.h"
#include "zt/error_codes.h"
#include "zt/xml/xml_manip.h"

namespace zt {

namespace {

constexpr const char* kSource = "CZtXMLManip";

[[noreturn]] void Raise(std::int32_t number, const std::string& text) {
  throw ZtError(number, kSource, text);
}

void AppendAttr(std::string& out, std::string_view name, std::string_view value) {
  out += ' ';
  out += name;
  out += "='";
  xmlfmt::AppendEscaped(out, value);
  out += '\'';
}

}  // namespace

// ---- writer -------------------------------------------------------------------------------

void XmlRowsetWriter::Begin(const std::vector<RecordsetColumn>& columns) {
  columns_ = columns;
  names_.clear();
  std::set<std::string> taken;
  for (const auto& c : columns_) {
    if (!xmlfmt::ByAdoType(c.type))
      Raise(AdoErrorNumber(AdoError::kInvalidArgument),
            "The column " + c.name + " has the type " + std::to_string(c.type) +
                ", which the XML rowset format cannot carry");
    if (xmlfmt::IsXmlName(c.name)) taken.insert(c.name);
  }
  std::string head =
      "<xml xmlns:s='uuid:BDC6E3F0-6DA3-11d1-A2A3-00AA00C14882'\n"
      "\txmlns:dt='uuid:C2F41010-65B3-11d1-A29F-00AA00C14882'\n"
      "\txmlns:rs='urn:schemas-microsoft-com:rowset'\n"
      "\txmlns:z='#RowsetSchema'>\n"
      "<s:Schema id='RowsetSchema'>\n"
      "\t<s:ElementType name='row' content='eltOnly'>\n";
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    const RecordsetColumn& c = columns_[i];
    const xmlfmt::TypeInfo& t = *xmlfmt::ByAdoType(c.type);
    // A name that cannot be an attribute travels in rs:name under a made-up one.
    std::string name = c.name;
    if (!xmlfmt::IsXmlName(name)) {
      name = "c" + std::to_string(i + 1);
      while (taken.count(name)) name += "_";
      taken.insert(name);
    }
    names_.push_back(name);
    const bool nullable = (c.attributes & ado::adFldIsNullable) != 0;
    head += "\t\t<s:AttributeType";
    AppendAttr(head, "name", name);
    AppendAttr(head, "rs:number", std::to_string(i + 1));
    if (name != c.name) AppendAttr(head, "rs:name", c.name);
    if (nullable) AppendAttr(head, "rs:nullable", "true");
    if (c.attributes & (ado::adFldUpdatable | ado::adFldUnknownUpdatable))
      AppendAttr(head, "rs:write", "true");
    head += ">\n\t\t\t<s:datatype";
    AppendAttr(head, "dt:type", t.dt_type);
    if (!t.db_type.empty()) AppendAttr(head, "rs:dbtype", t.db_type);
    AppendAttr(head, "dt:maxLength", std::to_string(c.defined_size));
    if (c.precision != 255 && t.kind == xmlfmt::Kind::kDecimal) {
      AppendAttr(head, "rs:precision", std::to_string(c.precision));
      if (c.scale != 255) AppendAttr(head, "rs:scale", std::to_string(c.scale));
    }
    if (t.is_long) AppendAttr(head, "rs:long", "true");
    if (t.fixed) AppendAttr(head, "rs:fixedlength", "true");
    if (!nullable) AppendAttr(head, "rs:maybenull", "false");
    head += "/>\n\t\t</s:AttributeType>\n";
  }
  head += "\t\t<s:extends type='rs:rowbase'/>\n\t</s:ElementType>\n</s:Schema>\n<rs:data>\n";
  out_ << head;
  rows_ = 0;
}

void XmlRowsetWriter::Row(const std::vector<Variant>& values) {
  if (values.size() != columns_.size())
    Raise(AdoErrorNumber(AdoError::kInvalidArgument),
          "A row has " + std::to_string(values.size()) + " values for " +
              std::to_string(columns_.size()) + " columns");
  line_ = "\t<z:row";
  for (std::size_t i = 0; i < values.size(); ++i) {
    const Variant& v = values[i];
    if (v.IsNull() || v.IsEmpty()) continue;  // a Null is an attribute left out
    const xmlfmt::TypeInfo& t = *xmlfmt::ByAdoType(columns_[i].type);
    const std::optional<std::string> text = xmlfmt::ToText(t.kind, v);
    line_ += ' ';
    line_ += names_[i];
    line_ += "='";
    if (!text || !xmlfmt::AppendEscaped(line_, *text))
      Raise(hr::kCantConvert, "The value of column " + columns_[i].name + " in row " +
                                  std::to_string(rows_ + 1) + " cannot be written as " +
                                  std::string(t.dt_type) + " in XML");
    line_ += '\'';
  }
  line_ += "/>\n";
  // The reader takes a value of up to a gigabyte (libxml2's limit with XML_PARSE_HUGE, counted
  // in bytes of the escaped text): a row longer than that is refused here, so that an export
  // that succeeds can always be imported again.
  constexpr std::size_t kLongestRow = 1000000000;
  if (line_.size() > kLongestRow)
    Raise(hr::kCantConvert, "Row " + std::to_string(rows_ + 1) + " takes " +
                                std::to_string(line_.size()) + " bytes in XML, more than the " +
                                std::to_string(kLongestRow) + " that an XML import can read");
  out_ << line_;
  ++rows_;
}

void XmlRowsetWriter::End() {
  out_ << "</rs:data>\n</xml>\n";
  out_.flush();
  if (!out_) Raise(hr::kFail, "The XML could not be written (disk full or stream closed)");
}

// ---- reader -------------------------------------------------------------------------------

namespace {

// No network, no external entities, no entity expansion: a rowset document needs none of them.
// XML_PARSE_HUGE lifts libxml2's limit of 10,000,000 bytes on one value ("Huge input lookup"),
// which an export of a large memo or picture passes easily.
constexpr int kParseOptions = XML_PARSE_NONET | XML_PARSE_NOCDATA | XML_PARSE_HUGE;

// libxml2 checks each attribute of a start tag against every earlier one of the tag: time that
// grows with the square of their number (100,000 attributes take seconds). No engine allows a
// table more columns than this, so a tag with more attributes is refused as its bytes are read,
// before the parser gets them.
constexpr std::int64_t kMostAttributes = 32767;

// Follows the bytes on their way to the parser closely enough to count the attributes of each
// start tag: text, tags with their quoted values, comments, CDATA sections and processing
// instructions (whose contents may look like tags).
class TagScan {
 public:
  // False once a start tag has more than kMostAttributes attributes.
  bool Feed(const char* p, std::size_t n) {
    const char* const end = p + n;
    while (p < end) {
      // The long stretches (text, values) are skipped a block at a time.
      if (state_ == State::kText || state_ == State::kQuoted) {
        const char stop = state_ == State::kText ? '<' : quote_;
        const auto* hit = static_cast<const char*>(std::memchr(p, stop, end - p));
        const char* until = hit ? hit : end;
        line_ += static_cast<int>(std::count(p, until, '\n'));
        if (!hit) return true;
        p = hit + 1;
        state_ = state_ == State::kText ? State::kLess : State::kTag;
        continue;
      }
      const char c = *p++;
      if (c == '\n') ++line_;
      switch (state_) {
        case State::kLess:
          Enter(c == '!'   ? State::kBang
                : c == '?' ? State::kPi
                : c == '/' ? State::kOther
                           : State::kTag);
          bang_.clear();
          attributes_ = 0;
          break;
        case State::kBang:
          bang_ += c;
          if (bang_ == "--") {
            Enter(State::kComment);
          } else if (bang_ == "[CDATA[") {
            Enter(State::kCData);
          } else if (!std::string_view("--").starts_with(bang_) &&
                     !std::string_view("[CDATA[").starts_with(bang_)) {
            Enter(c == '>' ? State::kText : State::kOther);
          }
          break;
        case State::kTag:
          if (c == '\'' || c == '"') {
            quote_ = c;
            state_ = State::kQuoted;
          } else if (c == '=') {
            if (++attributes_ > kMostAttributes) return false;
          } else if (c == '>') {
            state_ = State::kText;
          }
          break;
        case State::kComment:
          if (c == '>' && prev_[0] == '-' && prev_[1] == '-') state_ = State::kText;
          break;
        case State::kCData:
          if (c == '>' && prev_[0] == ']' && prev_[1] == ']') state_ = State::kText;
          break;
        case State::kPi:
          if (c == '>' && prev_[1] == '?') state_ = State::kText;
          break;
        case State::kOther:
          if (c == '>') state_ = State::kText;
          break;
        case State::kText:
        case State::kQuoted:
          break;
      }
      prev_[0] = prev_[1];
      prev_[1] = c;
    }
    return true;
  }
  int Line() const { return line_; }

 private:
  enum class State { kText, kLess, kBang, kTag, kQuoted, kComment, kCData, kPi, kOther };
  void Enter(State s) {
    state_ = s;
    prev_[0] = prev_[1] = 0;  // "<!-->" does not close the comment it opens
  }
  State state_ = State::kText;
  char quote_ = 0;
  std::string bang_;  // what follows "<!" until it tells a comment from CDATA from the rest
  char prev_[2] = {0, 0};
  std::int64_t attributes_ = 0;
  int line_ = 1;
};

// The document's bytes, from a file or from memory, on their way to the parser.
struct Input {
  int fd = -1;
  std::string_view text;
  std::size_t at = 0;
  TagScan scan;
  bool too_many = false;  // a start tag with more than kMostAttributes attributes
  bool failed = false;    // the file could not be read
  int error = 0;

  ~Input() {
    if (fd >= 0) ::close(fd);
  }
  static int Read(void* context, char* buffer, int len) {
    auto* in = static_cast<Input*>(context);
    std::size_t n = 0;
    if (in->fd >= 0) {
      ssize_t got;
      do {
        got = ::read(in->fd, buffer, static_cast<std::size_t>(len));
      } while (got < 0 && errno == EINTR);
      if (got < 0) {
        in->failed = true;
        in->error = errno;
        return -1;
      }
      n = static_cast<std::size_t>(got);
    } else {
      n = std::min(static_cast<std::size_t>(len), in->text.size() - in->at);
      std::memcpy(buffer, in->text.data() + in->at, n);
      in->at += n;
    }
    if (!in->scan.Feed(buffer, n)) {
      in->too_many = true;
      return -1;
    }
    return static_cast<int>(n);
  }
};

std::string_view Str(const xmlChar* s) {
  return s ? std::string_view(reinterpret_cast<const char*>(s)) : std::string_view();
}

bool Blank(std::string_view text) {
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

}  // namespace

struct XmlRowsetReader::Impl {
  std::string name;  // the file, for messages
  std::string path;  // empty when the document is `text`
  std::string text;
  std::vector<RecordsetColumn> columns;
  std::vector<xmlfmt::Kind> kinds;
  std::unordered_map<std::string, std::size_t> by_attribute;

  // ---- one pass over the document ----
  // The schema pass builds the columns and stops at <rs:data>; a rows pass skips the schema
  // and hands each row over.
  enum class Where {
    kRoot,
    kSchema,
    kElementType,
    kAttributeType,
    kDatatype,
    kExtends,
    kSkip,
    kData,
    kRow
  };
  struct Pass {
    bool rows = false;
    const std::function<void(std::vector<Variant>&)>* each = nullptr;
    xmlParserCtxtPtr ctxt = nullptr;
    std::vector<Where> open;
    bool root = false, schema = false, at_data = false, data_closed = false, root_closed = false;
    std::exception_ptr error;
    std::string parse_error;
    int parse_line = 0;
    std::vector<Variant> row;
    std::int64_t count = 0;
  };
  Pass* pass = nullptr;

  // The column whose s:AttributeType is being read.
  struct Draft {
    RecordsetColumn c;
    std::string attr_name, real_name, dt_type, db_type, nullable, maybenull;
    bool is_long = false, fixed = false;
    int line = 0;
  };
  Draft draft;

  int Line() const { return pass && pass->ctxt && pass->ctxt->input ? pass->ctxt->input->line : 0; }

  [[noreturn]] void Fail(const std::string& what, int line = 0) const {
    Raise(hr::kFail, name + ", line " + std::to_string(line ? line : Line()) + ": " + what);
  }

  std::int64_t Run(Pass& p);

  // SAX callbacks. Whatever they raise stops the parser and comes out of Run.
  template <class F>
  static void Guarded(void* user, F&& f) {
    auto* self = static_cast<Impl*>(user);
    Pass& p = *self->pass;
    if (p.error || p.at_data) return;
    try {
      f(*self);
    } catch (...) {
      p.error = std::current_exception();
      xmlStopParser(p.ctxt);
    }
  }
  static void OnStart(void* user, const xmlChar* local, const xmlChar* prefix, const xmlChar* uri,
                      int, const xmlChar**, int count, int, const xmlChar** attributes) {
    Guarded(user, [&](Impl& m) {
      m.Start(Str(local), Str(prefix), Str(uri), attributes, static_cast<std::size_t>(count));
    });
  }
  static void OnEnd(void* user, const xmlChar*, const xmlChar*, const xmlChar*) {
    Guarded(user, [](Impl& m) { m.End(); });
  }
  static void OnText(void* user, const xmlChar* text, int len) {
    Guarded(user, [&](Impl& m) {
      const std::string_view t(reinterpret_cast<const char*>(text), static_cast<std::size_t>(len));
      if (Blank(t) || m.Inside(Where::kSkip)) return;
      if (!m.pass->open.empty() && m.pass->open.back() == Where::kDatatype)
        m.Fail("s:datatype must be empty");
      m.Fail("unexpected text");
    });
  }
  static void OnDoctype(void* user, const xmlChar*, const xmlChar*, const xmlChar*) {
    Guarded(user, [](Impl& m) { m.Fail("a document type declaration is not allowed"); });
  }
  static void OnError(void* user, xmlErrorPtr error) {
    Pass& p = *static_cast<Impl*>(user)->pass;
    if (!error || error->level < XML_ERR_ERROR || !p.parse_error.empty()) return;
    std::string m = error->message ? error->message : "not well-formed";
    while (!m.empty() && (m.back() == '\n' || m.back() == ' ')) m.pop_back();
    p.parse_error = m.empty() ? "parse error" : m;
    p.parse_line = error->line;
  }

  bool Inside(Where w) const {
    return std::find(pass->open.begin(), pass->open.end(), w) != pass->open.end();
  }
  static std::string Describe(std::string_view local, std::string_view prefix,
                              std::string_view ns) {
    return "<" + (prefix.empty() ? std::string() : std::string(prefix) + ":") + std::string(local) +
           ">" + (ns.empty() ? "" : " (namespace '" + std::string(ns) + "')");
  }
  // Calls f(namespace, local name, value) for each attribute (namespace declarations are not).
  template <class F>
  static void Attributes(const xmlChar** a, std::size_t count, F&& f) {
    std::string decoded;
    for (std::size_t i = 0; i < count; ++i, a += 5) {
      std::string_view value(reinterpret_cast<const char*>(a[3]),
                             static_cast<std::size_t>(a[4] - a[3]));
      // Without entity substitution (which the parser is not given) libxml2 hands every '&'
      // of a value over as "&#38;", for its tree builder to resolve; a value holds no other
      // '&'.
      if (value.find('&') != std::string_view::npos) {
        decoded.clear();
        for (std::size_t at = 0; at < value.size();) {
          if (value.compare(at, 5, "&#38;") == 0) {
            decoded += '&';
            at += 5;
          } else {
            decoded += value[at++];
          }
        }
        value = decoded;
      }
      f(Str(a[2]), Str(a[0]), value);
    }
  }

  void Start(std::string_view local, std::string_view prefix, std::string_view ns,
             const xmlChar** attributes, std::size_t count);
  void End();
  void TakeColumnAttributes(const xmlChar** attributes, std::size_t count);
  void FinishColumn();
  void Row(const xmlChar** attributes, std::size_t count);
};

void XmlRowsetReader::Impl::Start(std::string_view local, std::string_view prefix,
                                  std::string_view ns, const xmlChar** attributes,
                                  std::size_t count) {
  Pass& p = *pass;
  auto is = [&](std::string_view want_ns, std::string_view want) {
    return ns == want_ns && local == want;
  };
  const std::string what = Describe(local, prefix, ns);
  if (p.open.empty()) {
    if (p.root) Fail("unexpected element " + what);
    if (local != "xml" || !ns.empty())
      Fail("the root element is " + what + ", not <xml> of a rowset");
    p.root = true;
    p.open.push_back(Where::kRoot);
    return;
  }
  Where next = Where::kSkip;
  switch (p.open.back()) {
    case Where::kRoot:
      if (!p.schema && !p.data_closed && is(xmlfmt::kNsSchema, "Schema")) {
        p.schema = true;
        next = p.rows ? Where::kSkip : Where::kSchema;
      } else if (p.schema && !p.data_closed && is(xmlfmt::kNsRowset, "data")) {
        if (columns.empty()) Fail("the schema describes no column");
        if (!p.rows) {
          p.at_data = true;  // the schema is read; the rows are for later passes
          xmlStopParser(p.ctxt);
          return;
        }
        next = Where::kData;
      } else if (p.data_closed) {
        Fail("unexpected element " + what);
      } else {
        Fail(p.schema ? "expected rs:data, found " + what : "expected s:Schema, found " + what);
      }
      break;
    case Where::kSkip:
      break;
    case Where::kSchema:
      if (!is(xmlfmt::kNsSchema, "ElementType")) Fail("unexpected element " + what);
      next = Where::kElementType;
      break;
    case Where::kElementType:
      if (is(xmlfmt::kNsSchema, "AttributeType")) {
        draft = Draft{};
        draft.line = Line();
        TakeColumnAttributes(attributes, count);
        next = Where::kAttributeType;
      } else if (is(xmlfmt::kNsSchema, "extends")) {
        next = Where::kExtends;
      } else {
        Fail("unexpected element " + what);
      }
      break;
    case Where::kAttributeType:
      if (!is(xmlfmt::kNsSchema, "datatype")) Fail("unexpected element " + what);
      TakeColumnAttributes(attributes, count);
      next = Where::kDatatype;
      break;
    case Where::kDatatype:
      Fail("s:datatype must be empty");
    case Where::kData:
      if (!is(xmlfmt::kNsRow, "row")) Fail("expected z:row, found " + what);
      Row(attributes, count);
      next = Where::kRow;
      break;
    case Where::kExtends:
    case Where::kRow:
      Fail("unexpected element " + what);
  }
  p.open.push_back(next);
}

void XmlRowsetReader::Impl::End() {
  Pass& p = *pass;
  const Where closed = p.open.back();
  p.open.pop_back();
  if (closed == Where::kAttributeType) FinishColumn();
  if (closed == Where::kRow) {
    // libxml2 2.9 lets go of the input it has parsed only when its buffer is nearly empty at
    // the moment it checks, which after a long row it never is: it kept every byte of a file
    // of 100 MB values, and failed once its buffer passed 2 GB. The row is in our hands now.
    xmlParserInputShrink(p.ctxt->input);
  }
  if (closed == Where::kData) p.data_closed = true;
  if (closed == Where::kRoot) {
    if (!p.schema || !p.data_closed) Fail("the document has no rs:data element");
    p.root_closed = true;
  }
}

void XmlRowsetReader::Impl::TakeColumnAttributes(const xmlChar** attributes, std::size_t count) {
  RecordsetColumn& c = draft.c;
  Attributes(attributes, count,
             [&](std::string_view ns, std::string_view local, std::string_view value) {
               if (ns.empty() && local == "name") draft.attr_name = value;
               if (ns == xmlfmt::kNsRowset) {
                 if (local == "name") draft.real_name = value;
                 if (local == "nullable") draft.nullable = value;
                 if (local == "maybenull") draft.maybenull = value;
                 if (local == "long") draft.is_long = value == "true";
                 if (local == "fixedlength") draft.fixed = value == "true";
                 if (local == "dbtype") draft.db_type = value;
                 if (local == "precision") c.precision = std::atoi(std::string(value).c_str());
                 if (local == "scale") c.scale = std::atoi(std::string(value).c_str());
               }
               if (ns == xmlfmt::kNsDataType) {
                 if (local == "type") draft.dt_type = value;
                 if (local == "maxLength") c.defined_size = std::atoll(std::string(value).c_str());
               }
             });
}

void XmlRowsetReader::Impl::FinishColumn() {
  Draft& d = draft;
  RecordsetColumn c = d.c;
  const int line = d.line;
  if (d.attr_name.empty()) Fail("a column without a name", line);
  c.name = d.real_name.empty() ? d.attr_name : d.real_name;
  const xmlfmt::TypeInfo* t = xmlfmt::ByNames(d.dt_type, d.db_type, d.is_long, d.fixed);
  if (!t)
    Fail("the column " + c.name + " has the type '" + d.dt_type + "'" +
             (d.db_type.empty() ? "" : " (rs:dbtype '" + d.db_type + "')") +
             ", which is not a type of this format",
         line);
  c.type = t->ado_type;
  const bool can_be_null =
      d.nullable != "false" && !(d.maybenull == "false" && d.nullable != "true");
  // The recordset is the caller's to change, whatever rs:write says of the source's columns.
  c.attributes = ado::adFldUpdatable;
  if (can_be_null) c.attributes |= ado::adFldIsNullable | ado::adFldMayBeNull;
  if (t->is_long) c.attributes |= ado::adFldLong;
  if (t->fixed) c.attributes |= ado::adFldFixed;
  if (t->kind != xmlfmt::Kind::kDecimal) c.precision = c.scale = 255;
  if (by_attribute.count(d.attr_name))
    Fail("the column name " + d.attr_name + " is given twice", line);
  for (const auto& other : columns)
    if (other.name == c.name) Fail("the column name " + c.name + " is given twice", line);
  by_attribute.emplace(d.attr_name, columns.size());
  columns.push_back(std::move(c));
  kinds.push_back(t->kind);
}

void XmlRowsetReader::Impl::Row(const xmlChar** attributes, std::size_t count) {
  Pass& p = *pass;
  std::vector<Variant>& row = p.row;
  row.assign(columns.size(), Variant::Null());
  std::string key;
  Attributes(
      attributes, count, [&](std::string_view ns, std::string_view local, std::string_view value) {
        key.assign(local);
        auto it = ns.empty() ? by_attribute.find(key) : by_attribute.end();
        if (it == by_attribute.end())
          Fail("a row has the attribute '" + key + "', which names no column");
        const RecordsetColumn& c = columns[it->second];
        const xmlfmt::Kind kind = kinds[it->second];
        std::optional<Variant> v = xmlfmt::FromText(kind, value);
        if (!v)
          Fail("the value '" + std::string(value.substr(0, 64)) + "' of column " + c.name +
               " does not read as " + std::string(xmlfmt::ByAdoType(c.type)->dt_type));
        if (kind == xmlfmt::Kind::kText && c.defined_size > 0 && !(c.attributes & ado::adFldLong) &&
            static_cast<std::int64_t>(utf8::Length(value)) > c.defined_size)
          Fail("the value of column " + c.name + " is longer than its " +
               std::to_string(c.defined_size) + " characters");
        row[it->second] = std::move(*v);
      });
  for (std::size_t i = 0; i < row.size(); ++i)
    if (row[i].IsNull() && !(columns[i].attributes & ado::adFldIsNullable))
      Fail("a row has no value for column " + columns[i].name + ", which cannot be Null");
  ++p.count;
  (*p.each)(row);
}

std::int64_t XmlRowsetReader::Impl::Run(Pass& p) {
  Input in;
  if (path.empty()) {
    in.text = text;
  } else {
    in.fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (in.fd < 0) Raise(hr::kFail, path + ": the file cannot be opened");
  }
  xmlSAXHandler sax{};
  sax.initialized = XML_SAX2_MAGIC;
  sax.startElementNs = &OnStart;
  sax.endElementNs = &OnEnd;
  sax.characters = &OnText;
  sax.ignorableWhitespace = &OnText;
  sax.internalSubset = &OnDoctype;
  sax.serror = &OnError;
  // Text in memory is UTF-8 whatever its declaration says; a file says what it is.
  xmlParserCtxtPtr ctxt =
      xmlCreateIOParserCtxt(&sax, this, &Input::Read, nullptr, &in,
                            path.empty() ? XML_CHAR_ENCODING_UTF8 : XML_CHAR_ENCODING_NONE);
  if (!ctxt) Raise(hr::kFail, name + ": the text cannot be read");
  std::unique_ptr<xmlParserCtxt, void (*)(xmlParserCtxtPtr)> owned(ctxt, &xmlFreeParserCtxt);
  xmlCtxtUseOptions(ctxt, kParseOptions | (path.empty() ? XML_PARSE_IGNORE_ENC : 0));
  p.ctxt = ctxt;
  pass = &p;
  // What libxml2 reports outside the parser (its input buffer failing) comes here too, not to
  // stderr.
  struct Reset {
    Impl* m;
    xmlStructuredErrorFunc handler = xmlStructuredError;
    void* context = xmlStructuredErrorContext;
    ~Reset() {
      xmlSetStructuredErrorFunc(context, handler);
      m->pass = nullptr;
    }
  } reset{this};
  xmlSetStructuredErrorFunc(this, &OnError);
  xmlParseDocument(ctxt);
  if (p.error) std::rethrow_exception(p.error);
  if (in.too_many)
    Fail("a start tag has more than " + std::to_string(kMostAttributes) +
             " attributes, more than any table has columns",
         in.scan.Line());
  if (in.failed)
    Raise(hr::kFail, name + ": the file cannot be read (" + std::strerror(in.error) + ")");
  if (p.at_data) return 0;
  if (!p.parse_error.empty() || !ctxt->wellFormed)
    Fail("not well-formed XML (" + (p.parse_error.empty() ? "parse error" : p.parse_error) + ")",
         p.parse_line);
  if (!p.root) Fail("the document has no root element");
  if (!p.rows) Fail("the document ends before its rows");
  if (!p.data_closed) Fail("the document ends inside rs:data (truncated)");
  if (!p.root_closed) Fail("the document ends before </xml> (truncated)");
  return p.count;
}

XmlRowsetReader::XmlRowsetReader(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
XmlRowsetReader::~XmlRowsetReader() = default;

std::unique_ptr<XmlRowsetReader> XmlRowsetReader::FromFile(const std::string& path) {
  auto impl = std::make_unique<Impl>();
  impl->name = path;
  impl->path = path;
  Impl::Pass schema;
  impl->Run(schema);
  return std::unique_ptr<XmlRowsetReader>(new XmlRowsetReader(std::move(impl)));
}

std::unique_ptr<XmlRowsetReader> XmlRowsetReader::FromText(std::string_view text,
                                                           std::string name) {
  auto impl = std::make_unique<Impl>();
  impl->name = std::move(name);
  impl->text = std::string(text);
  Impl::Pass schema;
  impl->Run(schema);
  return std::unique_ptr<XmlRowsetReader>(new XmlRowsetReader(std::move(impl)));
}

const std::vector<RecordsetColumn>& XmlRowsetReader::Columns() const {
  return impl_->columns;
}

std::int64_t XmlRowsetReader::ReadRows(const std::function<void(std::vector<Variant>& row)>& each) {
  Impl::Pass rows;
  rows.rows = true;
  rows.each = &each;
  return impl_->Run(rows);
}

}  // namespace zt
