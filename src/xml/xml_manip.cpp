#include "zt/xml/xml_manip.h"

#include <fstream>
#include <sstream>

#include "xml/rowset_format.h"
#include "zt/env.h"
#include "zt/error_codes.h"
#include "zt/event_logger.h"
#include "zt/recordset/recordset_utils.h"

namespace zt {

namespace {

constexpr std::string_view kXmlManip = "CZtXMLManip";
// The old library read the saved stream back in pieces of this many characters.
constexpr std::size_t kPieceSize = 131072;
constexpr std::int64_t kProgressEvery = 1000;

constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string Base64Encode(std::string_view in) {
  std::string out;
  out.reserve((in.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 2 < in.size(); i += 3) {
    const unsigned n = static_cast<unsigned char>(in[i]) << 16 |
                       static_cast<unsigned char>(in[i + 1]) << 8 |
                       static_cast<unsigned char>(in[i + 2]);
    out += kBase64[n >> 18];
    out += kBase64[(n >> 12) & 63];
    out += kBase64[(n >> 6) & 63];
    out += kBase64[n & 63];
  }
  if (i < in.size()) {
    unsigned n = static_cast<unsigned char>(in[i]) << 16;
    if (i + 1 < in.size()) n |= static_cast<unsigned char>(in[i + 1]) << 8;
    out += kBase64[n >> 18];
    out += kBase64[(n >> 12) & 63];
    out += i + 1 < in.size() ? kBase64[(n >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

bool Base64Decode(std::string_view in, std::string& out) {
  if (in.size() % 4 != 0) return false;
  std::string bytes;
  bytes.reserve(in.size() / 4 * 3);
  for (std::size_t i = 0; i < in.size(); i += 4) {
    unsigned n = 0;
    int pad = 0;
    for (std::size_t k = 0; k < 4; ++k) {
      const char c = in[i + k];
      int v;
      if (c == '=' && i + 4 == in.size() && k >= 2) {
        v = 0;
        ++pad;
      } else if (pad > 0) {
        return false;  // data after padding
      } else if (const char* p = std::char_traits<char>::find(kBase64, 64, c)) {
        v = static_cast<int>(p - kBase64);
      } else {
        return false;
      }
      n = n << 6 | static_cast<unsigned>(v);
    }
    bytes += static_cast<char>(n >> 16);
    if (pad < 2) bytes += static_cast<char>((n >> 8) & 255);
    if (pad < 1) bytes += static_cast<char>(n & 255);
  }
  out = std::move(bytes);
  return true;
}

bool Unreserved(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_' || c == '.' || c == '~';
}

std::string PercentEncode(std::string_view in) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(in.size());
  for (char ch : in) {
    const auto c = static_cast<unsigned char>(ch);
    if (Unreserved(c)) {
      out += ch;
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
  }
  return out;
}

int Hex(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool PercentDecode(std::string_view in, std::string& out) {
  std::string bytes;
  bytes.reserve(in.size());
  for (std::size_t i = 0; i < in.size(); ++i) {
    if (in[i] != '%') {
      bytes += in[i];
      continue;
    }
    if (i + 2 >= in.size()) return false;
    const int hi = Hex(in[i + 1]), lo = Hex(in[i + 2]);
    if (hi < 0 || lo < 0) return false;
    bytes += static_cast<char>(hi * 16 + lo);
    i += 2;
  }
  out = std::move(bytes);
  return true;
}

bool IsTextField(const Field& f) {
  const xmlfmt::TypeInfo* t = xmlfmt::ByAdoType(f.Type());
  return t && t->kind == xmlfmt::Kind::kText;
}

// Only text values are encoded: Null and Empty stay as they are, and numbers, dates, Booleans
// and binary never reach the encoders.
bool Encodable(const Field& f, const Variant& v) {
  return IsTextField(f) && !v.IsNull() && !v.IsEmpty();
}

std::vector<RecordsetColumn> ColumnsOf(Recordset& rs) {
  std::vector<RecordsetColumn> columns;
  FieldsCollection& fields = rs.GetFields();
  for (std::int32_t i = 0; i < fields.Count(); ++i) {
    Field& f = fields.Item(i);
    columns.push_back(
        {f.Name(), f.Type(), f.DefinedSize(), f.Attributes(), f.Precision(), f.NumericScale()});
  }
  return columns;
}

}  // namespace

bool ZtXml_EncodeText(std::int32_t encoding, std::string_view text, std::string& out) {
  if (encoding == 1) {
    out = Base64Encode(text);
    return true;
  }
  if (encoding == 6) {
    out = PercentEncode(text);
    return true;
  }
  return false;
}

bool ZtXml_DecodeText(std::int32_t encoding, std::string_view text, std::string& out) {
  if (encoding != 1 && encoding != 6) return false;
  const bool ok = encoding == 1 ? Base64Decode(text, out) : PercentDecode(text, out);
  if (!ok)
    throw ZtError(hr::kCantConvert, std::string(kXmlManip),
                  "The text '" + std::string(text.substr(0, 64)) + "' is not in encoding " +
                      std::to_string(encoding));
  return true;
}

void CZtXMLManip::ReportUnsupported(const char* procedure, std::int32_t encoding) const {
  ErrorHandler().LogError(
      TypeName() + "." + procedure + " - " + std::to_string(encoding) + " not supported", nullptr,
      kEventWarning, kLevelError);
}

void CZtXMLManip::EncodeField(Field& field, std::int32_t encoding) {
  Trap at(kXmlManip, "EncodeField");
  at.Reraising([&] {
    at = 10;
    const Variant value = field.Value();
    if (!Encodable(field, value)) return;
    at = 20;
    std::string encoded;
    if (!ZtXml_EncodeText(encoding, value.ToText(), encoded)) {
      ReportUnsupported("EncodeField", encoding);
      return;
    }
    at = 30;
    CZtRSRecUtils().SetFieldValue2(field, Variant(std::move(encoded)));
  });
}

void CZtXMLManip::DecodeField(Field& field, std::int32_t encoding) {
  Trap at(kXmlManip, "DecodeField");
  at.Reraising([&] {
    at = 10;
    const Variant value = field.Value();
    if (!Encodable(field, value)) return;
    at = 20;
    std::string decoded;
    if (!ZtXml_DecodeText(encoding, value.ToText(), decoded)) {
      ReportUnsupported("DecodeField", encoding);
      return;
    }
    at = 30;
    field.SetValue(Variant(std::move(decoded)));
  });
}

namespace {
// Walks every record of an open, non-empty recordset, updates each and returns to the first.
template <class F>
void ForEachRecord(Recordset& rs, F&& per_field) {
  if (rs.State() != ado::adStateOpen || (rs.Bof() && rs.Eof())) return;
  rs.MoveFirst();
  while (!rs.Eof()) {
    FieldsCollection& fields = rs.GetFields();
    for (std::int32_t i = 0; i < fields.Count(); ++i) per_field(fields.Item(i));
    rs.Update();
    rs.MoveNext();
  }
  rs.MoveFirst();
}
}  // namespace

void CZtXMLManip::EncodeRecordset(Recordset& rs, std::int32_t encoding) {
  Trap at(kXmlManip, "EncodeRecordset");
  at.Reraising([&] { ForEachRecord(rs, [&](Field& f) { EncodeField(f, encoding); }); });
}

void CZtXMLManip::DecodeRecordset(Recordset& rs, std::int32_t encoding) {
  Trap at(kXmlManip, "DecodeRecordset");
  at.Reraising([&] { ForEachRecord(rs, [&](Field& f) { DecodeField(f, encoding); }); });
}

void CZtXMLManip::Save(Recordset& rs, std::ostream& out, bool encode, bool keep_recordset,
                       std::int32_t encoding) {
  if (rs.State() != ado::adStateOpen)
    throw ZtError(AdoErrorNumber(AdoError::kObjectClosed), std::string(kXmlManip),
                  "The recordset to save is closed");
  const bool forward = rs.CursorType() == ado::adOpenForwardOnly;
  const bool changeable = !forward && rs.LockType() != ado::adLockReadOnly;
  const bool empty = rs.Bof() && rs.Eof();
  const bool encode_in_place = encode && changeable && !empty;
  if (encode_in_place) EncodeRecordset(rs, encoding);

  XmlRowsetWriter writer(out);
  writer.Begin(ColumnsOf(rs));
  if (!forward && !empty) rs.MoveFirst();
  std::vector<Variant> values;
  std::string encoded;
  while (!rs.Eof()) {
    FieldsCollection& fields = rs.GetFields();
    values.clear();
    for (std::int32_t i = 0; i < fields.Count(); ++i) {
      Field& f = fields.Item(i);
      values.push_back(f.Value());
      // A recordset that cannot be changed gets its values encoded on the way out instead.
      if (encode && !encode_in_place && Encodable(f, values.back())) {
        if (ZtXml_EncodeText(encoding, values.back().ToText(), encoded))
          values.back() = Variant(encoded);
        else
          ReportUnsupported("EncodeField", encoding);
      }
    }
    writer.Row(values);
    if (progress_ && writer.Rows() % kProgressEvery == 0) progress_(writer.Rows());
    rs.MoveNext();
  }
  writer.End();
  if (progress_) progress_(writer.Rows());
  if (encode_in_place && keep_recordset) DecodeRecordset(rs, encoding);
  if (!forward && !empty) rs.MoveFirst();
}

bool CZtXMLManip::SaveRSToXMLStream(Recordset& rs, std::ostream& out, bool encode,
                                    bool keep_recordset, std::int32_t encoding) {
  Trap at(kXmlManip, "SaveRSToXMLStream");
  return at.Reraising([&] {
    at = 10;
    Save(rs, out, encode, keep_recordset, encoding);
    return true;
  });
}

bool CZtXMLManip::SaveRSToXML(Recordset& rs, std::string& xml, bool encode, bool keep_recordset,
                              std::int32_t encoding) {
  Trap at(kXmlManip, "SaveRSToXML");
  return at.Reraising([&] {
    at = 10;
    std::stringstream stream;
    at = 20;
    Save(rs, stream, encode, keep_recordset, encoding);
    at = 30;
    stream.seekg(0);
    std::string text;
    std::string piece(kPieceSize, '\0');
    while (stream.read(piece.data(), static_cast<std::streamsize>(piece.size())) ||
           stream.gcount() > 0)
      text.append(piece.data(), static_cast<std::size_t>(stream.gcount()));
    xml = std::move(text);
    return true;
  });
}

bool CZtXMLManip::SaveRSToXMLFile(Recordset& rs, const std::string& path, bool encode,
                                  bool keep_recordset, std::int32_t encoding) {
  Trap at(kXmlManip, "SaveRSToXMLFile");
  return at.Reraising([&] {
    at = 10;
    // Written beside the file under a name of its own, never through whatever may already be
    // at a fixed name there; the old file is kept as FILE.bak, and a failed save leaves
    // nothing behind.
    if (auto ec = Env::Current().WriteFile(
            path,
            [&](std::ostream& file) {
              at = 20;
              Save(rs, file, encode, keep_recordset, encoding);
              at = 40;
            },
            /*keep_backup=*/true))
      throw ZtError(hr::kFail, std::string(kXmlManip),
                    path + ": the file cannot be written (" + ec.message() + ")");
    return true;
  });
}

std::shared_ptr<Recordset> CZtXMLManip::Load(XmlRowsetReader& reader, bool decode,
                                             std::int32_t encoding) {
  std::vector<std::vector<Variant>> rows;
  reader.ReadRows([&](std::vector<Variant>& row) { rows.push_back(row); });
  auto rs = std::make_shared<Recordset>();
  rs->OpenDisconnected(reader.Columns(), std::move(rows));
  if (decode) {
    DecodeRecordset(*rs, encoding);
    rs->UpdateBatch();  // the decoded values are the recordset's own, not pending changes
  }
  if (!(rs->Bof() && rs->Eof())) rs->MoveFirst();
  return rs;
}

std::shared_ptr<Recordset> CZtXMLManip::OpenXMLToRS(const std::string& xml, bool decode,
                                                    std::int32_t encoding) {
  Trap at(kXmlManip, "OpenXMLToRS");
  return at.Reraising([&] {
    at = 10;
    auto reader = XmlRowsetReader::FromText(xml);
    at = 20;
    return Load(*reader, decode, encoding);
  });
}

std::shared_ptr<Recordset> CZtXMLManip::OpenXMLFileToRS(const std::string& path, bool decode,
                                                        std::int32_t encoding) {
  Trap at(kXmlManip, "OpenXMLFileToRS");
  return at.Reraising([&] {
    at = 10;
    auto reader = XmlRowsetReader::FromFile(path);
    at = 20;
    return Load(*reader, decode, encoding);
  });
}

}  // namespace zt
