// Recordsets through the rowset XML and back: every column type with its awkward values, tables
// of every live engine, a sample written by hand in the documented format, broken files, and
// the text encodings.
#include "zt/xml/xml_manip.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/engines.h"
#include "support/test_env.h"
#include "zt/platform.h"

namespace fs = std::filesystem;

namespace zt::testing {
namespace {

using Row = std::vector<Variant>;

std::string TempPath(const std::string& name) {
  return (fs::temp_directory_path() / ("zt_xml_" + std::to_string(::getpid()) + "_" + name))
      .string();
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// Every row of the recordset from its first, as values.
std::vector<Row> Rows(Recordset& rs) {
  std::vector<Row> out;
  if (rs.Bof() && rs.Eof()) return out;
  rs.MoveFirst();
  while (!rs.Eof()) {
    Row r;
    for (int i = 0; i < rs.GetFields().Count(); ++i) r.push_back(rs.Fields(i).Value());
    out.push_back(r);
    rs.MoveNext();
  }
  return out;
}

// Same columns (name, type, nullability) and the same values, kind by kind.
void ExpectSameRecordset(Recordset& expected, Recordset& actual) {
  ASSERT_EQ(expected.GetFields().Count(), actual.GetFields().Count());
  for (int i = 0; i < expected.GetFields().Count(); ++i) {
    Field& e = expected.Fields(i);
    Field& a = actual.Fields(i);
    EXPECT_EQ(e.Name(), a.Name());
    EXPECT_EQ(e.Type(), a.Type()) << e.Name();
    EXPECT_EQ(e.Attributes() & ado::adFldIsNullable, a.Attributes() & ado::adFldIsNullable)
        << e.Name();
  }
  const std::vector<Row> want = Rows(expected), got = Rows(actual);
  ASSERT_EQ(want.size(), got.size());
  for (std::size_t r = 0; r < want.size(); ++r)
    for (std::size_t c = 0; c < want[r].size(); ++c) {
      const Variant& w = want[r][c];
      const Variant& g = got[r][c];
      EXPECT_EQ(w.IsNull(), g.IsNull()) << "row " << r << " column " << c;
      if (w.IsNull() || g.IsNull()) continue;
      EXPECT_TRUE(Variant::SameValue(w, g))
          << "row " << r << " column " << expected.Fields(static_cast<int>(c)).Name() << ": "
          << w.ToText() << " != " << g.ToText();
      if (w.Type() == VarType::String) {
        EXPECT_EQ(g.Type(), VarType::String);
        EXPECT_EQ(*w.AsString(), *g.AsString());  // byte for byte: case, blanks, binary
      }
      if (w.Type() == VarType::Date) {
        EXPECT_EQ(w.ToDouble(), g.ToDouble());
      }
    }
}

RecordsetColumn Col(std::string name, std::int32_t type, std::int64_t size = 0,
                    bool nullable = true) {
  RecordsetColumn c;
  c.name = std::move(name);
  c.type = type;
  c.defined_size = size;
  if (!nullable) c.attributes = ado::adFldUpdatable;
  if (type == ado::adNumeric) c.precision = 18, c.scale = 4;
  return c;
}

// A disconnected recordset holding every type the format carries, with the values that break
// a careless writer or reader.
std::shared_ptr<Recordset> EveryType(std::int32_t lock = ado::adLockBatchOptimistic) {
  std::vector<RecordsetColumn> cols = {Col("nId", ado::adInteger, 4, false),
                                       Col("n2", ado::adSmallInt, 2),
                                       Col("n1", ado::adTinyInt, 1),
                                       Col("nU1", ado::adUnsignedTinyInt, 1),
                                       Col("nBig", ado::adBigInt, 8),
                                       Col("mMoney", ado::adCurrency, 8),
                                       Col("rSingle", ado::adSingle, 4),
                                       Col("rDouble", ado::adDouble, 8),
                                       Col("dNum", ado::adNumeric, 19),
                                       Col("fFlag", ado::adBoolean, 2),
                                       Col("dtWhen", ado::adDate, 8),
                                       Col("dtStamp", ado::adDBTimeStamp, 16),
                                       Col("dDay", ado::adDBDate, 6),
                                       Col("tTime", ado::adDBTime, 6),
                                       Col("gId", ado::adGUID, 16),
                                       Col("bBin", ado::adVarBinary, 50),
                                       Col("bFix", ado::adBinary, 4),
                                       Col("bLong", ado::adLongVarBinary, 2147483647),
                                       Col("tName", ado::adVarWChar, 200),
                                       Col("tFix", ado::adWChar, 12),
                                       Col("tMemo", ado::adLongVarWChar, 1073741823),
                                       Col("tAnsi", ado::adVarChar, 20),
                                       Col("Order ID", ado::adVarWChar, 10),
                                       Col("2nd", ado::adInteger, 4),
                                       Col("tAnsiFix", ado::adChar, 4)};
  const Variant N = Variant::Null();
  std::vector<Row> rows = {
      {1,
       32767,
       -128,
       255,
       std::int64_t{-9223372036854775807LL - 1},
       Variant(Currency{-9223372036854775807LL}),
       0.25,
       0.1,
       Variant(Decimal::Parse("-12345.6700")),
       true,
       Variant(Date::FromParts(1999, 12, 31, 23, 59, 59)),
       Variant(Date::FromParts(2024, 2, 29, 8, 30, 0)),
       Variant(Date::FromParts(1899, 12, 30)),
       Variant(Date::FromParts(1899, 12, 30, 13, 5, 7)),
       "{8AC68D3D-8A09-4403-8860-D0E494BBE894}",
       Variant(std::string("\0\x01\xff", 3)),
       Variant(std::string("abcd")),
       Variant(std::string(1000, '\x7f')),
       "Grüße, 日本語 & <tags> 'q' \"dq\" 🎉",
       "ab   ",
       "line1\nline2\r\n\ttabbed  ",
       "plain",
       "O'Neil",
       2,
       "abc"},
      {2, N, N, N, N, N, N, N, N, N, N, N, N, N, N, N, N, N, "", "", "", "", N, N, N},
      {3,
       0,
       0,
       0,
       std::int64_t{0},
       Variant(Currency{0}),
       3.4028234663852886e38,
       1.7976931348623157e308,
       Variant(Decimal::Parse("0.0001")),
       false,
       Variant(Date::FromParts(100, 1, 1)),
       Variant(Date::FromParts(9999, 12, 31, 23, 59, 59)),
       Variant(Date::FromParts(2000, 1, 1)),
       Variant(Date::FromParts(1899, 12, 30)),
       N,
       Variant(std::string()),
       N,
       N,
       " ",
       N,
       N,
       N,
       "x",
       -1,
       N}};
  auto rs = std::make_shared<Recordset>();
  rs->OpenDisconnected(cols, rows, lock);
  return rs;
}

// ---- every type, disconnected, through text, a stream and a file ----------------------------

TEST(XmlRoundTrip, EveryTypeAndAwkwardValueComesBackExactly) {
  RecordingEnv env;
  auto rs = EveryType();
  CZtXMLManip x;
  std::string xml;
  ASSERT_TRUE(x.SaveRSToXML(*rs, xml));
  // The document is in the documented namespaces; Nulls are left out, "" is kept.
  EXPECT_NE(xml.find("xmlns:s='uuid:BDC6E3F0-6DA3-11d1-A2A3-00AA00C14882'"), std::string::npos);
  EXPECT_NE(xml.find("xmlns:z='#RowsetSchema'"), std::string::npos);
  EXPECT_NE(xml.find("<s:AttributeType name='c23' rs:number='23' rs:name='Order ID'"),
            std::string::npos);
  EXPECT_NE(xml.find("<z:row nId='2' tName='' tFix='' tMemo='' tAnsi=''/>"), std::string::npos);
  EXPECT_NE(xml.find("mMoney='-922337203685477.5807'"), std::string::npos);
  EXPECT_NE(xml.find("bBin='0001ff'"), std::string::npos);
  EXPECT_NE(xml.find("dtWhen='1999-12-31T23:59:59'"), std::string::npos);
  EXPECT_EQ(rs->AbsolutePosition(), 1);  // left on its first record

  auto back = x.OpenXMLToRS(xml);
  ExpectSameRecordset(*rs, *back);
  EXPECT_EQ(back->Fields("tName").DefinedSize(), 200);
  EXPECT_EQ(back->Fields("dNum").Precision(), 18);
  EXPECT_EQ(back->Fields("dNum").NumericScale(), 4);
  // A non-nullable column refuses Null in the recordset read back, as in the original.
  EXPECT_EQ(back->Fields("nId").Attributes() & ado::adFldIsNullable, 0);

  // The stream and the file forms write the same document.
  std::ostringstream stream;
  ASSERT_TRUE(x.SaveRSToXMLStream(*rs, stream));
  EXPECT_EQ(stream.str(), xml);
  const std::string path = TempPath("every.xml");
  ASSERT_TRUE(x.SaveRSToXMLFile(*rs, path));
  EXPECT_EQ(ReadFile(path), xml);
  ExpectSameRecordset(*rs, *x.OpenXMLFileToRS(path));
  fs::remove(path);

  // An empty recordset keeps its columns.
  auto none = std::make_shared<Recordset>();
  none->OpenDisconnected({Col("nId", ado::adInteger, 4)}, {});
  ASSERT_TRUE(x.SaveRSToXML(*none, xml));
  auto none_back = x.OpenXMLToRS(xml);
  EXPECT_EQ(none_back->GetFields().Count(), 1);
  EXPECT_TRUE(none_back->Eof() && none_back->Bof());
  EXPECT_TRUE(env.Errors().empty());
}

// An export is a backup only if it can be read back: values well past libxml2's default limit
// of 10,000,000 bytes (a large memo, a picture) come back byte for byte.
TEST(XmlRoundTrip, LargeValuesComeBackWhole) {
  RecordingEnv env;
  CZtXMLManip x;
  std::string text(30'000'000, 'v');
  text[12'345'678] = '<';
  std::string bytes(12'000'000, '\0');  // binary values are byte strings
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7);
  auto rs = std::make_shared<Recordset>();
  rs->OpenDisconnected(
      {Col("mNote", ado::adLongVarWChar, 1 << 30), Col("oPicture", ado::adLongVarBinary, 1 << 30)},
      {{text, bytes}, {std::string("small"), Variant::Null()}});
  const std::string path = TempPath("large.xml");
  ASSERT_TRUE(x.SaveRSToXMLFile(*rs, path));
  auto back = x.OpenXMLFileToRS(path);
  EXPECT_EQ(back->Fields(0).Value().ToText(), text);
  EXPECT_EQ(*back->Fields(1).Value().AsString(), bytes);
  back->MoveNext();
  EXPECT_EQ(back->Fields(0).Value().ToText(), "small");
  fs::remove(path);
}

// Whatever stands at the names a save might use is left alone: a link planted at "F.tmp" is
// not written through, a user's own "F.tmp" survives, and a private file stays private.
TEST(XmlRoundTrip, FileSaveWritesThroughNothingThatWasThere) {
  RecordingEnv env;
  CZtXMLManip x;
  const std::string path = TempPath("private.xml"), victim = TempPath("victim.txt");
  std::ofstream(victim) << "precious";
  std::ofstream(path) << "old";
  fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
  fs::create_symlink(victim, path + ".tmp");
  auto rs = EveryType();
  ASSERT_TRUE(x.SaveRSToXMLFile(*rs, path));
  EXPECT_EQ(ReadFile(victim), "precious");
  EXPECT_TRUE(fs::is_symlink(path + ".tmp"));
  EXPECT_NE(ReadFile(path).find("<xml"), std::string::npos);
  EXPECT_EQ(fs::status(path).permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write);
  for (const std::string& p : {path, path + ".tmp", path + ".bak", victim}) fs::remove(p);
}

TEST(XmlRoundTrip, FileSaveKeepsOldFileAndAFailedSaveChangesNothing) {
  RecordingEnv env;
  CZtXMLManip x;
  const std::string path = TempPath("backup.xml");
  auto first = EveryType();
  ASSERT_TRUE(x.SaveRSToXMLFile(*first, path));
  const std::string old_text = ReadFile(path);
  auto small = std::make_shared<Recordset>();
  small->OpenDisconnected({Col("tName", ado::adVarWChar, 10)}, {{"new"}});
  ASSERT_TRUE(x.SaveRSToXMLFile(*small, path));
  EXPECT_EQ(ReadFile(path + ".bak"), old_text);
  EXPECT_NE(ReadFile(path).find("tName='new'"), std::string::npos);

  // A value XML cannot carry: the error names the column and the file stays as it was.
  auto bad = std::make_shared<Recordset>();
  bad->OpenDisconnected({Col("tName", ado::adVarWChar, 10)}, {{"ok"}, {std::string("a\x01")}});
  const std::string kept = ReadFile(path);
  try {
    x.SaveRSToXMLFile(*bad, path);
    ADD_FAILURE() << "saved a control character";
  } catch (const ZtError& e) {
    EXPECT_NE(e.Description().find("column tName in row 2"), std::string::npos) << e.Description();
  }
  EXPECT_EQ(ReadFile(path), kept);
  for (const auto& entry : fs::directory_iterator(fs::path(path).parent_path()))
    EXPECT_NE(entry.path().filename().string().rfind("." + fs::path(path).filename().string(), 0),
              0u)
        << "a failed save left " << entry.path();
  ASSERT_FALSE(env.Errors().empty());
  EXPECT_NE(env.Errors().back().find("CZtXMLManip.SaveRSToXMLFile, @Line#20"), std::string::npos);

  auto closed = std::make_shared<Recordset>();
  std::string xml;
  EXPECT_THROW(x.SaveRSToXML(*closed, xml), ZtError);
  fs::remove(path);
  fs::remove(path + ".bak");
}

// ---- a sample written by hand from the documented format --------------------------------------

TEST(XmlSample, HandWrittenDocumentReads) {
  RecordingEnv env;
  // Double and single quotes, other prefixes for the same namespaces, an s:datatype given as
  // attributes of the AttributeType itself, a comment, and rows spread over lines.
  const std::string sample = R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- shippers as saved by a client -->
<xml xmlns:s="uuid:BDC6E3F0-6DA3-11d1-A2A3-00AA00C14882"
     xmlns:dt="uuid:C2F41010-65B3-11d1-A29F-00AA00C14882"
     xmlns:rs="urn:schemas-microsoft-com:rowset" xmlns:row='#RowsetSchema'>
  <s:Schema id="RowsetSchema">
    <s:ElementType name="row" content="eltOnly" rs:updatable="true">
      <s:AttributeType name="ShipperID" rs:number="1" rs:keycolumn="true">
        <s:datatype dt:type="int" dt:maxLength="4" rs:precision="10"
          rs:fixedlength="true" rs:maybenull="false"/>
      </s:AttributeType>
      <s:AttributeType name="CompanyName" rs:number="2" rs:nullable="true" rs:write="true">
        <s:datatype dt:type="string" dt:maxLength="40"/>
      </s:AttributeType>
      <s:AttributeType name='c3' rs:name='Phone No' rs:number='3' rs:nullable='true'>
        <s:datatype dt:type='string' rs:dbtype='str' dt:maxLength='24'/>
      </s:AttributeType>
      <s:AttributeType name="Joined" rs:number="4" dt:type="dateTime" rs:dbtype="timestamp"/>
      <s:AttributeType name="Rate" rs:number="5">
        <s:datatype dt:type="i8" rs:dbtype="currency" dt:maxLength="8"/>
      </s:AttributeType>
      <s:AttributeType name="Logo" rs:number="6">
        <s:datatype dt:type="bin.hex" dt:maxLength="8"/>
      </s:AttributeType>
      <s:AttributeType name="Active" rs:number="7"><s:datatype dt:type="boolean"/></s:AttributeType>
      <s:AttributeType name="Weight" rs:number="8"><s:datatype dt:type="r8"/></s:AttributeType>
      <s:extends type="rs:rowbase"/>
    </s:ElementType>
  </s:Schema>
  <rs:data>
    <row:row ShipperID="1" CompanyName="Speedy &amp; Sons" c3="(503) 555-9831"
      Joined="2008-01-25T13:04:00" Rate="12.5" Logo="00000000499602D2" Active="True"
      Weight="3.1415926535897931"/>
    <row:row ShipperID="2" CompanyName="" Active="0"/>
  </rs:data>
</xml>
)";
  CZtXMLManip x;
  auto rs = x.OpenXMLToRS(sample);
  ASSERT_EQ(rs->GetFields().Count(), 8);
  EXPECT_EQ(rs->Fields(2).Name(), "Phone No");
  EXPECT_EQ(rs->Fields(2).Type(), ado::adVarChar);
  EXPECT_EQ(rs->Fields(3).Type(), ado::adDBTimeStamp);
  EXPECT_EQ(rs->Fields(4).Type(), ado::adCurrency);
  EXPECT_EQ(rs->Fields(5).Type(), ado::adVarBinary);
  EXPECT_EQ(rs->Fields(7).Type(), ado::adDouble);
  EXPECT_EQ(rs->Fields("ShipperID").Attributes() & ado::adFldIsNullable, 0);
  EXPECT_NE(rs->Fields("Logo").Attributes() & ado::adFldIsNullable, 0);
  EXPECT_EQ(rs->RecordCount(), 2);
  EXPECT_EQ(rs->Value("ShipperID").ToInt32(), 1);
  EXPECT_EQ(rs->Value("CompanyName").ToText(), "Speedy & Sons");
  EXPECT_EQ(rs->Value("Phone No").ToText(), "(503) 555-9831");
  EXPECT_EQ(rs->Value("Joined").ToDouble(), Date::FromParts(2008, 1, 25, 13, 4, 0).serial);
  EXPECT_EQ(rs->Value("Rate").Type(), VarType::Currency);
  EXPECT_EQ(rs->Value("Rate").ToText(), "12.5");
  EXPECT_EQ(*rs->Value("Logo").AsString(), std::string("\0\0\0\0\x49\x96\x02\xd2", 8));
  EXPECT_TRUE(rs->Value("Active").ToBool());
  EXPECT_EQ(rs->Value("Weight").ToDouble(), 3.1415926535897931);
  rs->MoveNext();
  EXPECT_EQ(rs->Value("CompanyName").ToText(), "");
  EXPECT_FALSE(rs->Value("CompanyName").IsNull());
  EXPECT_TRUE(rs->Value("Phone No").IsNull());
  EXPECT_TRUE(rs->Value("Joined").IsNull());
  EXPECT_FALSE(rs->Value("Active").ToBool());
}

// ---- broken files -----------------------------------------------------------------------------

TEST(XmlMalformed, ReportedWithFileAndLineAndNoRecordset) {
  RecordingEnv env;
  CZtXMLManip x;
  auto good = std::make_shared<Recordset>();
  good->OpenDisconnected({Col("nId", ado::adInteger, 4, false), Col("dtWhen", ado::adDate, 8)},
                         {{1, Variant(Date::FromParts(2020, 1, 1))}, {2, Variant::Null()}});
  std::string xml;
  x.SaveRSToXML(*good, xml);
  // Lines of the good document: the rows are the last four lines but two.
  const auto line_of = [&](const std::string& needle) {
    const auto pos = xml.find(needle);
    return 1 + static_cast<int>(std::count(xml.begin(), xml.begin() + pos, '\n'));
  };
  const int row2 = line_of("<z:row nId='2'");
  struct Case {
    std::string name, text, message;
    int line;
  };
  auto replaced = [&](const std::string& from, const std::string& to) {
    std::string t = xml;
    t.replace(t.find(from), from.size(), to);
    return t;
  };
  const std::vector<Case> cases = {
      {"truncated in a row", xml.substr(0, xml.find("<z:row nId='2'") + 8), "", 0},
      {"truncated", xml.substr(0, xml.find("<z:row nId='2'")), "", 0},
      {"cut after the rows", xml.substr(0, xml.find("</xml>")), "", 0},
      {"wrong namespace", replaced("#RowsetSchema", "#OtherSchema"), "expected z:row", 0},
      {"schema namespace", replaced("uuid:BDC6E3F0", "uuid:BDC6E3F1"), "expected s:Schema", 0},
      {"unknown attribute", replaced("<z:row nId='2'", "<z:row nId='2' nOther='5'"),
       "'nOther', which names no column", row2},
      {"not an integer", replaced("<z:row nId='2'", "<z:row nId='2x'"),
       "the value '2x' of column nId does not read as int", row2},
      {"no such day", replaced("2020-01-01T00:00:00", "2021-02-29T00:00:00"),
       "of column dtWhen does not read as dateTime", line_of("<z:row nId='1'")},
      {"Null where none is allowed", replaced("<z:row nId='2'", "<z:row"),
       "no value for column nId", row2},
      {"unknown type", replaced("dt:type='int'", "dt:type='bignum'"), "'bignum'", 0},
      {"not XML", "this is not XML", "not well-formed", 1},
      {"another root", "<rows/>", "not <xml>", 1},
      {"entity", "<!DOCTYPE xml [<!ENTITY a 'b'>]>" + xml, "document type", 0},
      // libxml2 compares each attribute of a tag with all earlier ones: a tag with more than
      // any table has columns is refused before it is parsed (the comment holds look-alikes).
      {"too many attributes",
       replaced(
           "<z:row nId='2'", "<!-- <z:row a='1' b=\"2\"> --><z:row nId='2'" +
                                 [] {
                                   std::string many;
                                   for (int i = 0; i < 40000; ++i)
                                     many += " a" + std::to_string(i) + "='1'";
                                   return many;
                                 }()),
       "more than 32767 attributes", row2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = TempPath("bad.xml");
    WriteFile(path, c.text);
    for (bool from_file : {true, false}) {
      std::shared_ptr<Recordset> rs;
      try {
        rs = from_file ? x.OpenXMLFileToRS(path) : x.OpenXMLToRS(c.text);
        ADD_FAILURE() << "read a broken document";
      } catch (const ZtError& e) {
        const std::string& d = e.Description();
        EXPECT_EQ(d.rfind(from_file ? path + ", line " : "XML text, line ", 0), 0u) << d;
        EXPECT_NE(d.find(c.message), std::string::npos) << d;
        if (c.line) {
          EXPECT_NE(d.find(", line " + std::to_string(c.line) + ":"), std::string::npos) << d;
        }
      }
      EXPECT_EQ(rs, nullptr);
    }
    fs::remove(path);
  }
  EXPECT_THROW(x.OpenXMLFileToRS(TempPath("missing.xml")), ZtError);
}

// ---- encodings --------------------------------------------------------------------------------

TEST(XmlEncoding, OneAndSixRoundTripAndOthersAreReportedPerTextField) {
  for (std::int32_t encoding : {1, 6}) {
    SCOPED_TRACE(encoding);
    RecordingEnv env;
    CZtXMLManip x;
    auto original = EveryType();
    auto rs = EveryType();
    std::string xml;
    // Keeping the recordset: the file has encoded texts, the recordset its own values.
    ASSERT_TRUE(x.SaveRSToXML(*rs, xml, true, true, encoding));
    ExpectSameRecordset(*original, *rs);
    EXPECT_EQ(xml.find("Grüße"), std::string::npos);
    EXPECT_NE(xml.find(encoding == 1 ? "tAnsi='cGxhaW4='" : "tAnsi='plain'"), std::string::npos);
    EXPECT_NE(xml.find(encoding == 1 ? "tName='' " : "tName='' "), std::string::npos);
    // Numbers, dates, binary and GUIDs are never encoded.
    EXPECT_NE(xml.find("nId='1' n2='32767'"), std::string::npos);
    EXPECT_NE(xml.find("dtWhen='1999-12-31T23:59:59'"), std::string::npos);
    EXPECT_NE(xml.find("gId='{8AC68D3D-8A09-4403-8860-D0E494BBE894}'"), std::string::npos);
    ExpectSameRecordset(*original, *x.OpenXMLToRS(xml, true, encoding));

    // Without keeping it, the recordset holds the encoded texts afterwards.
    ASSERT_TRUE(x.SaveRSToXML(*rs, xml, true, false, encoding));
    rs->MoveFirst();
    std::string want;
    ZtXml_EncodeText(encoding, "O'Neil", want);
    EXPECT_EQ(rs->Value("Order ID").ToText(), want);

    // A read-only recordset is encoded on the way out and never changed.
    auto read_only = EveryType(ado::adLockReadOnly);
    std::string xml2;
    ASSERT_TRUE(x.SaveRSToXML(*read_only, xml2, true, false, encoding));
    ExpectSameRecordset(*original, *read_only);
    ExpectSameRecordset(*original, *x.OpenXMLToRS(xml2, true, encoding));
    EXPECT_TRUE(env.Warnings().empty());
  }

  RecordingEnv env;
  CZtXMLManip x;
  auto original = EveryType();
  auto one = std::make_shared<Recordset>();
  one->OpenDisconnected({Col("nId", ado::adInteger, 4), Col("tA", ado::adVarWChar, 10),
                         Col("tB", ado::adVarWChar, 10), Col("tNull", ado::adVarWChar, 10),
                         Col("dt", ado::adDate, 8)},
                        {{1, "a", "b", Variant::Null(), Variant(Date::FromParts(2000, 1, 1))}});
  std::string xml;
  ASSERT_TRUE(x.SaveRSToXML(*one, xml, true, false, 2));
  EXPECT_NE(xml.find("tA='a' tB='b'"), std::string::npos);
  const auto warnings = env.Warnings();
  ASSERT_EQ(warnings.size(), 2u);  // tA and tB; not the number, the Null or the date
  EXPECT_NE(warnings[0].find("CZtXMLManip.EncodeField - 2 not supported"), std::string::npos);
  x.OpenXMLToRS(xml, true, 3);
  EXPECT_EQ(env.Warnings().size(), 4u);
  EXPECT_NE(env.Warnings()[3].find("CZtXMLManip.DecodeField - 3 not supported"), std::string::npos);

  // Text that is not in the encoding cannot be decoded, and says so.
  EXPECT_THROW(x.OpenXMLToRS(xml, true, 1), ZtError);  // "a" is not Base64
  std::string out;
  EXPECT_THROW(ZtXml_DecodeText(6, "100%", out), ZtError);
  EXPECT_THROW(ZtXml_DecodeText(6, "%4", out), ZtError);
  EXPECT_THROW(ZtXml_DecodeText(1, "QQ=A", out), ZtError);
  ASSERT_TRUE(ZtXml_DecodeText(1, "QQ==", out));
  EXPECT_EQ(out, "A");
}

// ---- tables of every live engine --------------------------------------------------------------

class XmlEngineTest : public ::testing::TestWithParam<Engine> {
 protected:
  void SetUp() override {
    const Engine& e = GetParam();
    ZT_NEED_ENGINE(e.Available(), e.name);
    file_ = TempPath("engine.db");
    fs::remove(file_);
    cn_ = std::make_shared<Connection>();
    cn_->Open(e.ConnectionString(file_));
    table_ = "zt_xml_" + std::to_string(::getpid());
    Drop();
  }
  void TearDown() override {
    if (cn_ && cn_->State() == ado::adStateOpen) {
      Drop();
      cn_->Close();
    }
    if (!file_.empty()) fs::remove(file_);
  }
  void Drop() {
    try {
      cn_->Execute("DROP TABLE " + table_);
    } catch (const ZtError&) {
    }
  }
  std::string BinaryType() const {
    const std::string& n = GetParam().name;
    return n == "SQLite" ? "LONGBINARY" : n == "PostgreSQL" ? "BYTEA" : "LONGBLOB";
  }
  std::string file_, table_;
  std::shared_ptr<Connection> cn_;
};

TEST_P(XmlEngineTest, TableRoundTripsWithNullEmptyAndUnicode) {
  RecordingEnv env;
  const Engine& e = GetParam();
  cn_->Execute("CREATE TABLE " + table_ + " (nId " + e.t_int + " NOT NULL PRIMARY KEY, tName " +
               e.t_text50 + ", tMemo " + e.t_memo + ", rVal " + e.t_double + ", mAmount " +
               e.t_money + ", fFlag " + e.t_bool + ", dtWhen " + e.t_date + ", bData " +
               BinaryType() + ")");
  {
    PreparedStatement ins(*cn_, "INSERT INTO " + table_ + " VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
    const std::vector<Row> rows = {
        {1, "Grüße 日本 🎉 <&>'\"", "memo\nline two", 0.1, Variant(Currency{123456789}), true,
         Variant(Date::FromParts(2024, 2, 29, 23, 59, 58)), Variant(std::string("\0\xff\x10", 3))},
        {2, "", "", -1.5e300, Variant(Currency{-1}), false, Variant(Date::FromParts(1900, 1, 1)),
         Variant(std::string())},
        {3, Variant::Null(), Variant::Null(), Variant::Null(), Variant::Null(), Variant::Null(),
         Variant::Null(), Variant::Null()}};
    for (const Row& r : rows) {
      for (int i = 0; i < 8; ++i) ins.Bind(i, r[static_cast<std::size_t>(i)]);
      ins.Execute();
    }
  }
  auto rs = std::make_shared<Recordset>();
  rs->Open("SELECT * FROM " + table_ + " ORDER BY nId", cn_, ado::adOpenStatic,
           ado::adLockReadOnly);
  CZtXMLManip x;
  std::string xml;
  ASSERT_TRUE(x.SaveRSToXML(*rs, xml));
  auto back = x.OpenXMLToRS(xml);
  ExpectSameRecordset(*rs, *back);

  // The forward-only form of an export streams through a file and reads back the same.
  auto fwd = std::make_shared<Recordset>();
  fwd->Open("SELECT * FROM " + table_ + " ORDER BY nId", cn_);
  const std::string path = TempPath("engine.xml");
  ASSERT_TRUE(x.SaveRSToXMLFile(*fwd, path));
  fwd->Close();
  ExpectSameRecordset(*rs, *x.OpenXMLFileToRS(path));
  fs::remove(path);
  EXPECT_TRUE(env.Errors().empty()) << env.Errors().front();
}

INSTANTIATE_TEST_SUITE_P(Engines, XmlEngineTest, ::testing::ValuesIn(LiveEngines()), EngineName());

}  // namespace
}  // namespace zt::testing
