// Fuzz target for reading recordset XML. Besides crashes and sanitizer reports it checks what
// the reader promises: a document is either refused with a ZtError (never another exception,
// never a partial recordset) or read whole; and a recordset that was read writes out again and
// reads back with the same columns and the same number of rows.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "zt/xml/xml_manip.h"

namespace {

void Check(bool condition) {
  if (!condition) std::abort();
}

std::int64_t CountRows(zt::Recordset& rs) {
  std::int64_t n = 0;
  if (rs.Bof() && rs.Eof()) return 0;
  rs.MoveFirst();
  for (; !rs.Eof(); rs.MoveNext()) ++n;
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  zt::CZtXMLManip xml;
  std::shared_ptr<zt::Recordset> rs;
  try {
    rs = xml.OpenXMLToRS(text);
  } catch (const zt::ZtError&) {
    return 0;
  }
  Check(rs != nullptr);
  std::string again;
  Check(xml.SaveRSToXML(*rs, again));
  std::shared_ptr<zt::Recordset> back = xml.OpenXMLToRS(again);
  Check(back->GetFields().Count() == rs->GetFields().Count());
  for (int i = 0; i < rs->GetFields().Count(); ++i) {
    Check(back->Fields(i).Name() == rs->Fields(i).Name());
    Check(back->Fields(i).Type() == rs->Fields(i).Type());
  }
  Check(CountRows(*back) == CountRows(*rs));
  return 0;
}
