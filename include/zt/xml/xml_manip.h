// Recordsets as XML in the rowset persistence format of the old data-access objects, so that a
// file written here opens where those recordsets are read, and one written there opens here:
//
//   <xml xmlns:s='uuid:BDC6E3F0-6DA3-11d1-A2A3-00AA00C14882'
//        xmlns:dt='uuid:C2F41010-65B3-11d1-A29F-00AA00C14882'
//        xmlns:rs='urn:schemas-microsoft-com:rowset' xmlns:z='#RowsetSchema'>
//     <s:Schema id='RowsetSchema'><s:ElementType name='row' content='eltOnly'>
//       <s:AttributeType name='nId' rs:number='1'>
//         <s:datatype dt:type='int' dt:maxLength='4' rs:precision='10' rs:fixedlength='true'
//                     rs:maybenull='false'/></s:AttributeType> ...
//     </s:ElementType></s:Schema>
//     <rs:data><z:row nId='1' tName='Smith'/> ...</rs:data>
//   </xml>
//
// A Null value is an attribute left out of its row. Values keep their column's type exactly:
// integers and decimals by their digits, doubles by the shortest text that reads back to the
// same double, currency with its four decimals, dates as 2024-03-01T08:30:00 (whole seconds),
// binary as hex, text as UTF-8 with every character escaped that an attribute would not keep.
// A column whose name is not an XML name (blanks, leading digit ...) is written as c1, c2 ...
// with its real name in rs:name, as the old objects did.
//
// Reading is libxml2's SAX parser over the bytes as they are read, and writing goes straight to
// a stream, so a file of any number of rows is read and written in flat memory; a value may be
// as long as a gigabyte of XML text. A file that is not in this
// format (not well-formed, truncated, another namespace, a row attribute that names no column,
// a value that does not read as its column's type) raises a ZtError whose description names the
// file (or "XML text") and the line, and no recordset comes back.
//
// Encodings (the `encoding` number of the encoders): 1 is Base64 of the text's UTF-8 bytes,
// 6 is percent-encoding of every UTF-8 byte outside A-Z a-z 0-9 - _ . ~ ("a b" -> "a%20b").
// Only text values are encoded: Null, numbers, dates, Booleans and binary are left as they are.
// Another number changes nothing and reports "CZtXMLManip.EncodeField - N not supported" (or
// DecodeField) to the error-handler service once for each text value it met; nothing is raised.
//
// The second pre-save flag of SaveRSToXML keeps the caller's recordset as it was: the values
// encoded for the file are decoded back into the recordset once the XML is written (without
// encoding it does nothing). A recordset that cannot be changed (read-only, or forward-only
// as an export reads a table) is never changed: its values are encoded as they are written.
// An updatable recordset open on a table is encoded in place, so the table gets the encoded
// values, as the old objects did: open it read-only to leave the table alone.
//
// Writing a file over an existing one keeps the old file as FILE.bak, and the new text is first
// written beside it (FILE.tmp) and moved into place only when complete: a failed save leaves
// the old file where it was.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zt/export.h"
#include "zt/platform.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

// Encodes and decodes one text with encoding 1 or 6 (see the header comment). Returns false,
// and leaves `out` alone, for another number. Decoding text that is not in the encoding raises
// 0x80040E07 (cannot convert).
ZT_EXPORT bool ZtXml_EncodeText(std::int32_t encoding, std::string_view text, std::string& out);
ZT_EXPORT bool ZtXml_DecodeText(std::int32_t encoding, std::string_view text, std::string& out);

// Writes a rowset document to a stream as the rows come: Begin, Row for each record, End.
class ZT_EXPORT XmlRowsetWriter {
 public:
  explicit XmlRowsetWriter(std::ostream& out) : out_(out) {}
  // Writes the root and the schema. Raises 3001 for a column type this format cannot carry.
  void Begin(const std::vector<RecordsetColumn>& columns);
  // One value per column, in Begin's order. A value that its column's type cannot hold, or text
  // holding a character XML cannot carry (control characters other than tab and line ends),
  // raises 0x80040E07 naming the column.
  void Row(const std::vector<Variant>& values);
  void End();
  std::int64_t Rows() const { return rows_; }

 private:
  std::ostream& out_;
  std::vector<RecordsetColumn> columns_;
  std::vector<std::string> names_;  // the attribute name of each column
  std::string line_;                // reused for every row
  std::int64_t rows_ = 0;
};

// Reads a rowset document piece by piece: the columns when it is opened, then the rows.
class ZT_EXPORT XmlRowsetReader {
 public:
  // Opens the file and reads up to the first row. Raises as the header comment says.
  static std::unique_ptr<XmlRowsetReader> FromFile(const std::string& path);
  // The same over text in memory; `name` stands for the file in messages.
  static std::unique_ptr<XmlRowsetReader> FromText(std::string_view text,
                                                   std::string name = "XML text");
  ~XmlRowsetReader();
  XmlRowsetReader(const XmlRowsetReader&) = delete;
  XmlRowsetReader& operator=(const XmlRowsetReader&) = delete;

  const std::vector<RecordsetColumn>& Columns() const;
  // Reads the document from its start to its end, handing each row to `each` as it comes (one
  // value per column, Null where the row has no attribute; the vector is reused), and returns
  // the number of rows. A fault of the document raises as the header comment says, once the
  // rows before it have been handed over; whatever `each` raises stops the reading and comes
  // out as it is. Each call reads the rows again.
  std::int64_t ReadRows(const std::function<void(std::vector<Variant>& row)>& each);

  struct Impl;

 private:
  explicit XmlRowsetReader(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

class ZT_EXPORT CZtXMLManip : public Object {
 public:
  std::string TypeName() const override { return "CZtXMLManip"; }

  // The recordset as XML text in `xml` (read back from the written stream in pieces of 131072
  // characters). `encode`: encode text values first with `encoding`; `keep_recordset`: the
  // second pre-save step (see the header comment). Rows are written from the first (the
  // current one for a forward-only recordset) to the end; the recordset is left on its first
  // record. Returns true; failures are logged as "CZtXMLManip.SaveRSToXML, @Line#" + step and
  // raised (3704 for a closed recordset).
  bool SaveRSToXML(Recordset& rs, std::string& xml, bool encode = false,
                   bool keep_recordset = false, std::int32_t encoding = 1);
  // The same into a stream, or into a file (with the backup described above).
  bool SaveRSToXMLStream(Recordset& rs, std::ostream& out, bool encode = false,
                         bool keep_recordset = false, std::int32_t encoding = 1);
  bool SaveRSToXMLFile(Recordset& rs, const std::string& path, bool encode = false,
                       bool keep_recordset = false, std::int32_t encoding = 1);

  // A disconnected recordset (batch optimistic, on its first record) with the columns and rows
  // of the XML text; `decode` decodes its text values with `encoding`. Raises as the header
  // comment says ("CZtXMLManip.OpenXMLToRS, @Line#" + step is logged).
  std::shared_ptr<Recordset> OpenXMLToRS(const std::string& xml, bool decode = false,
                                         std::int32_t encoding = 1);
  // The same from a file, read with the pull parser.
  std::shared_ptr<Recordset> OpenXMLFileToRS(const std::string& path, bool decode = false,
                                             std::int32_t encoding = 1);

  // Called with the number of rows written so far, every 1000 rows and at the end (tools
  // draw their progress with it).
  void SetProgress(std::function<void(std::int64_t)> progress) { progress_ = std::move(progress); }

 private:
  void Save(Recordset& rs, std::ostream& out, bool encode, bool keep_recordset,
            std::int32_t encoding);
  std::shared_ptr<Recordset> Load(XmlRowsetReader& reader, bool decode, std::int32_t encoding);
  void EncodeRecordset(Recordset& rs, std::int32_t encoding);
  void DecodeRecordset(Recordset& rs, std::int32_t encoding);
  void EncodeField(Field& field, std::int32_t encoding);
  void DecodeField(Field& field, std::int32_t encoding);
  // Reports "<type>.<procedure> - N not supported".
  void ReportUnsupported(const char* procedure, std::int32_t encoding) const;

  std::function<void(std::int64_t)> progress_;
  InstanceTrace trace_{"CZtXMLManip"};
};

}  // namespace zt
