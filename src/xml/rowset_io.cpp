// Writing and reading the rowset document as a stream: the writer never holds more than one
// row's text, the reader (libxml2's text reader, a pull parser) never more than one element.
#include <libxml/xmlreader.h>

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
  // The reader (libxml2) refuses a look-ahead of 10,000,000 bytes ("Huge input lookup"),
  // counted from where its buffer starts, a little before the element: a row near that size is
  // refused here, so that an export that succeeds can always be imported again.
  constexpr std::size_t kLongestRow = 9000000;
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

struct XmlRowsetReader::Impl {
  xmlTextReaderPtr r = nullptr;
  std::string name;  // the file, for messages
  std::string text;  // the document when read from memory
  std::vector<RecordsetColumn> columns;
  std::vector<xmlfmt::Kind> kinds;
  std::unordered_map<std::string, std::size_t> by_attribute;
  std::string parse_error;
  int parse_line = 0;
  bool done = false;      // </rs:data> read
  bool finished = false;  // the document read to its end

  ~Impl() {
    if (r) xmlFreeTextReader(r);
  }

  // The line of the node in hand (the parser itself may have read ahead).
  int Line() const {
    if (!r) return 0;
    if (xmlNodePtr node = xmlTextReaderCurrentNode(r)) {
      const long line = xmlGetLineNo(node);
      if (line > 0) return static_cast<int>(line);
    }
    return xmlTextReaderGetParserLineNumber(r);
  }

  [[noreturn]] void Fail(const std::string& what, int line = 0) const {
    Raise(hr::kFail, name + ", line " + std::to_string(line ? line : Line()) + ": " + what);
  }

  static void OnError(void* arg, const char* msg, xmlParserSeverities severity,
                      xmlTextReaderLocatorPtr locator) {
    auto* self = static_cast<Impl*>(arg);
    if (!self->parse_error.empty()) return;
    if (severity != XML_PARSER_SEVERITY_ERROR && severity != XML_PARSER_SEVERITY_VALIDITY_ERROR)
      return;
    std::string m = msg ? msg : "not well-formed";
    while (!m.empty() && (m.back() == '\n' || m.back() == ' ')) m.pop_back();
    self->parse_error = m;
    self->parse_line = xmlTextReaderLocatorLineNumber(locator);
  }

  // The next node; false at the end of the document. A parse error raises.
  bool Advance() {
    const int rc = xmlTextReaderRead(r);
    if (rc < 0 || !parse_error.empty())
      Fail("not well-formed XML (" + (parse_error.empty() ? "parse error" : parse_error) + ")",
           parse_line);
    return rc == 1;
  }

  static std::string_view Str(const xmlChar* s) {
    return s ? std::string_view(reinterpret_cast<const char*>(s)) : std::string_view();
  }
  std::string_view Local() const { return Str(xmlTextReaderConstLocalName(r)); }
  std::string_view Ns() const { return Str(xmlTextReaderConstNamespaceUri(r)); }
  int Type() const { return xmlTextReaderNodeType(r); }
  int Depth() const { return xmlTextReaderDepth(r); }
  bool IsElement(std::string_view ns, std::string_view local) const {
    return Type() == XML_READER_TYPE_ELEMENT && Ns() == ns && Local() == local;
  }
  std::string Describe() const {
    std::string n(Str(xmlTextReaderConstName(r)));
    return "<" + n + ">" + (Ns().empty() ? "" : " (namespace '" + std::string(Ns()) + "')");
  }

  // Calls f(namespace, local name, value) for each attribute of the current element.
  template <class F>
  void Attributes(F&& f) {
    if (xmlTextReaderMoveToFirstAttribute(r) == 1) {
      do {
        if (xmlTextReaderIsNamespaceDecl(r) == 1) continue;
        f(Ns(), Local(), Str(xmlTextReaderConstValue(r)));
      } while (xmlTextReaderMoveToNextAttribute(r) == 1);
      xmlTextReaderMoveToElement(r);
    }
  }

  // Text between elements must be blank; comments and processing instructions are skipped.
  void SkipOrFail() {
    const int type = Type();
    if (type == XML_READER_TYPE_TEXT || type == XML_READER_TYPE_CDATA) {
      for (char c : Str(xmlTextReaderConstValue(r)))
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r') Fail("unexpected text");
      return;
    }
    if (type == XML_READER_TYPE_DOCUMENT_TYPE) Fail("a document type declaration is not allowed");
    if (type == XML_READER_TYPE_ELEMENT) Fail("unexpected element " + Describe());
  }

  void ReadSchema();
  void ReadColumn();
};

void XmlRowsetReader::Impl::ReadColumn() {
  RecordsetColumn c;
  std::string attr_name, real_name, dt_type, db_type;
  std::string nullable, maybenull;
  bool is_long = false, fixed = false;
  const int line = Line();
  auto take = [&](std::string_view ns, std::string_view local, std::string_view value) {
    if (ns.empty() && local == "name") attr_name = value;
    if (ns == xmlfmt::kNsRowset) {
      if (local == "name") real_name = value;
      if (local == "nullable") nullable = value;
      if (local == "maybenull") maybenull = value;
      if (local == "long") is_long = value == "true";
      if (local == "fixedlength") fixed = value == "true";
      if (local == "dbtype") db_type = value;
      if (local == "precision") c.precision = std::atoi(std::string(value).c_str());
      if (local == "scale") c.scale = std::atoi(std::string(value).c_str());
    }
    if (ns == xmlfmt::kNsDataType) {
      if (local == "type") dt_type = value;
      if (local == "maxLength") c.defined_size = std::atoll(std::string(value).c_str());
    }
  };
  Attributes(take);
  if (!xmlTextReaderIsEmptyElement(r)) {
    const int depth = Depth();
    while (Advance()) {
      if (Type() == XML_READER_TYPE_END_ELEMENT && Depth() == depth) break;
      if (IsElement(xmlfmt::kNsSchema, "datatype") && Depth() == depth + 1) {
        Attributes(take);
        if (!xmlTextReaderIsEmptyElement(r)) Fail("s:datatype must be empty");
      } else {
        SkipOrFail();
      }
    }
  }
  if (attr_name.empty()) Fail("a column without a name", line);
  c.name = real_name.empty() ? attr_name : real_name;
  const xmlfmt::TypeInfo* t = xmlfmt::ByNames(dt_type, db_type, is_long, fixed);
  if (!t)
    Fail("the column " + c.name + " has the type '" + dt_type + "'" +
             (db_type.empty() ? "" : " (rs:dbtype '" + db_type + "')") +
             ", which is not a type of this format",
         line);
  c.type = t->ado_type;
  const bool can_be_null = nullable != "false" && !(maybenull == "false" && nullable != "true");
  // The recordset is the caller's to change, whatever rs:write says of the source's columns.
  c.attributes = ado::adFldUpdatable;
  if (can_be_null) c.attributes |= ado::adFldIsNullable | ado::adFldMayBeNull;
  if (t->is_long) c.attributes |= ado::adFldLong;
  if (t->fixed) c.attributes |= ado::adFldFixed;
  if (t->kind != xmlfmt::Kind::kDecimal) c.precision = c.scale = 255;
  if (by_attribute.count(attr_name)) Fail("the column name " + attr_name + " is given twice", line);
  for (const auto& other : columns)
    if (other.name == c.name) Fail("the column name " + c.name + " is given twice", line);
  by_attribute.emplace(attr_name, columns.size());
  columns.push_back(std::move(c));
  kinds.push_back(t->kind);
}

void XmlRowsetReader::Impl::ReadSchema() {
  // The root: <xml> in no namespace.
  while (true) {
    if (!Advance()) Fail("the document has no root element");
    if (Type() == XML_READER_TYPE_ELEMENT) break;
    SkipOrFail();
  }
  if (Local() != "xml" || !Ns().empty())
    Fail("the root element is " + Describe() + ", not <xml> of a rowset");
  if (xmlTextReaderIsEmptyElement(r)) Fail("the root element is empty");
  bool schema = false;
  while (Advance()) {
    if (Type() == XML_READER_TYPE_END_ELEMENT) Fail("the document has no rs:data element");
    if (Type() != XML_READER_TYPE_ELEMENT) {
      SkipOrFail();
      continue;
    }
    if (!schema && IsElement(xmlfmt::kNsSchema, "Schema")) {
      schema = true;
      if (xmlTextReaderIsEmptyElement(r)) continue;
      while (Advance()) {
        if (Type() == XML_READER_TYPE_END_ELEMENT && Depth() == 1) break;
        if (IsElement(xmlfmt::kNsSchema, "ElementType") && Depth() == 2) {
          if (xmlTextReaderIsEmptyElement(r)) continue;
          while (Advance()) {
            if (Type() == XML_READER_TYPE_END_ELEMENT && Depth() == 2) break;
            if (IsElement(xmlfmt::kNsSchema, "AttributeType"))
              ReadColumn();
            else if (IsElement(xmlfmt::kNsSchema, "extends") && xmlTextReaderIsEmptyElement(r))
              continue;
            else
              SkipOrFail();
          }
        } else {
          SkipOrFail();
        }
      }
      continue;
    }
    if (schema && IsElement(xmlfmt::kNsRowset, "data")) {
      if (columns.empty()) Fail("the schema describes no column");
      if (xmlTextReaderIsEmptyElement(r)) done = true;  // no rows; the end is checked by Next
      return;
    }
    Fail(schema ? "expected rs:data, found " + Describe()
                : "expected s:Schema, found " + Describe());
  }
  Fail("the document ends before its rows");
}

XmlRowsetReader::XmlRowsetReader(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
XmlRowsetReader::~XmlRowsetReader() = default;

namespace {
// No network, no external entities, no entity expansion: a rowset document needs none of them.
constexpr int kParseOptions = XML_PARSE_NONET | XML_PARSE_NOCDATA;
}  // namespace

std::unique_ptr<XmlRowsetReader> XmlRowsetReader::FromFile(const std::string& path) {
  auto impl = std::make_unique<Impl>();
  impl->name = path;
  impl->r = xmlReaderForFile(path.c_str(), nullptr, kParseOptions);
  if (!impl->r) Raise(hr::kFail, path + ": the file cannot be opened");
  xmlTextReaderSetErrorHandler(impl->r, &Impl::OnError, impl.get());
  impl->ReadSchema();
  return std::unique_ptr<XmlRowsetReader>(new XmlRowsetReader(std::move(impl)));
}

std::unique_ptr<XmlRowsetReader> XmlRowsetReader::FromText(std::string_view text,
                                                           std::string name) {
  auto impl = std::make_unique<Impl>();
  impl->name = std::move(name);
  impl->text = std::string(text);
  impl->r = xmlReaderForMemory(impl->text.data(), static_cast<int>(impl->text.size()), nullptr,
                               "UTF-8", kParseOptions);
  if (!impl->r) Raise(hr::kFail, impl->name + ": the text cannot be read");
  xmlTextReaderSetErrorHandler(impl->r, &Impl::OnError, impl.get());
  impl->ReadSchema();
  return std::unique_ptr<XmlRowsetReader>(new XmlRowsetReader(std::move(impl)));
}

const std::vector<RecordsetColumn>& XmlRowsetReader::Columns() const {
  return impl_->columns;
}

bool XmlRowsetReader::Next(std::vector<Variant>& row) {
  Impl& m = *impl_;
  if (m.finished) return false;
  while (!m.done && m.Advance()) {
    if (m.Type() == XML_READER_TYPE_END_ELEMENT && m.Depth() == 1) {
      m.done = true;  // </rs:data>
      break;
    }
    if (m.Type() != XML_READER_TYPE_ELEMENT) {
      m.SkipOrFail();
      continue;
    }
    if (!m.IsElement(xmlfmt::kNsRow, "row") || m.Depth() != 2)
      m.Fail("expected z:row, found " + m.Describe());
    row.assign(m.columns.size(), Variant::Null());
    m.Attributes([&](std::string_view ns, std::string_view local, std::string_view value) {
      auto it = ns.empty() ? m.by_attribute.find(std::string(local)) : m.by_attribute.end();
      if (it == m.by_attribute.end())
        m.Fail("a row has the attribute '" + std::string(local) + "', which names no column");
      const RecordsetColumn& c = m.columns[it->second];
      const xmlfmt::Kind kind = m.kinds[it->second];
      std::optional<Variant> v = xmlfmt::FromText(kind, value);
      if (!v)
        m.Fail("the value '" + std::string(value.substr(0, 64)) + "' of column " + c.name +
               " does not read as " + std::string(xmlfmt::ByAdoType(c.type)->dt_type));
      if (kind == xmlfmt::Kind::kText && c.defined_size > 0 && !(c.attributes & ado::adFldLong) &&
          static_cast<std::int64_t>(utf8::Length(value)) > c.defined_size)
        m.Fail("the value of column " + c.name + " is longer than its " +
               std::to_string(c.defined_size) + " characters");
      row[it->second] = std::move(*v);
    });
    for (std::size_t i = 0; i < row.size(); ++i)
      if (row[i].IsNull() && !(m.columns[i].attributes & ado::adFldIsNullable))
        m.Fail("a row has no value for column " + m.columns[i].name + ", which cannot be Null");
    if (!xmlTextReaderIsEmptyElement(m.r)) {
      while (m.Advance() && !(m.Type() == XML_READER_TYPE_END_ELEMENT && m.Depth() == 2))
        m.SkipOrFail();
    }
    return true;
  }
  if (!m.done) m.Fail("the document ends inside rs:data (truncated)");
  // After the rows: only the closing of <xml> and the end of the document.
  bool closed = false;
  while (m.Advance()) {
    if (m.Type() == XML_READER_TYPE_END_ELEMENT && m.Depth() == 0) {
      closed = true;
      continue;
    }
    m.SkipOrFail();
  }
  if (!closed) m.Fail("the document ends before </xml> (truncated)");
  m.finished = true;
  return false;
}

}  // namespace zt
