// SaveRSToXMLFile against a bare hand-written XML writer on the same rows in the same run:
// ZT_BENCH_ROWS rows (default 1,000,000) of an SQLite table (an integer key, a text with
// characters to escape now and then, a double, a date and a text that is Null in every third
// row), read forward-only by both, written to a file by both. The goal is at least 0.8 of the
// bare writer's speed; max_rss_mb, the process's peak resident set, must stay flat in the row
// count (neither side holds the document).
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "zt/platform.h"
#include "zt/xml/xml_manip.h"

namespace {

std::int64_t Rows() {
  const char* v = std::getenv("ZT_BENCH_ROWS");
  return v ? std::atoll(v) : 1000000;
}

double MaxRssMb() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return static_cast<double>(u.ru_maxrss) / 1024.0;
}

std::string TempPath(const std::string& name) {
  return (std::filesystem::temp_directory_path() /
          ("zt_xml_bench_" + std::to_string(::getpid()) + name))
      .string();
}

std::shared_ptr<zt::Connection> Store() {
  static const std::string path = TempPath(".db");
  static bool filled = false;
  auto cn = std::make_shared<zt::Connection>();
  cn->Open("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + path + ";");
  if (!filled) {
    cn->Execute("DROP TABLE IF EXISTS tblCalls");
    cn->Execute(
        "CREATE TABLE tblCalls (nId LONG NOT NULL PRIMARY KEY, tTitle TEXT(100), rCost DOUBLE, "
        "dtOpened DATETIME, tNote TEXT(50))");
    cn->Execute(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
        std::to_string(Rows()) +
        ") INSERT INTO tblCalls SELECT i, 'Call ' || i || CASE WHEN i % 10 = 0 THEN ' <urgent> & "
        "''now''' ELSE '' END, i * 1.25, 45000 + i / 1440.0, CASE WHEN i % 3 = 0 THEN NULL ELSE "
        "'note ' || i END FROM n");
    filled = true;
  }
  return cn;
}

std::shared_ptr<zt::Recordset> Calls(const std::shared_ptr<zt::Connection>& cn) {
  auto rs = std::make_shared<zt::Recordset>();
  rs->Open("SELECT * FROM tblCalls ORDER BY nId", cn);
  return rs;
}

void Escape(std::string& out, const std::string& s) {
  for (char c : s) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '\'':
        out += "&apos;";
        break;
      default:
        out += c;
    }
  }
}

void BM_SaveRSToXMLFile(benchmark::State& state) {
  auto cn = Store();
  const std::string path = TempPath("_lib.xml");
  for (auto _ : state) {
    auto rs = Calls(cn);
    zt::CZtXMLManip xml;
    xml.SaveRSToXMLFile(*rs, path);
    rs->Close();
  }
  state.SetItemsProcessed(state.iterations() * Rows());
  state.counters["max_rss_mb"] = MaxRssMb();
  std::filesystem::remove(path);
  std::filesystem::remove(path + ".bak");
}

// The least a writer of the same document must do: the fixed schema text, then one line per
// row with the values converted and escaped, straight into the file.
void BM_BareXmlWriter(benchmark::State& state) {
  auto cn = Store();
  const std::string path = TempPath("_bare.xml");
  for (auto _ : state) {
    auto rs = Calls(cn);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << "<xml xmlns:s='uuid:BDC6E3F0-6DA3-11d1-A2A3-00AA00C14882' "
           "xmlns:dt='uuid:C2F41010-65B3-11d1-A29F-00AA00C14882' "
           "xmlns:rs='urn:schemas-microsoft-com:rowset' xmlns:z='#RowsetSchema'>\n"
           "<s:Schema id='RowsetSchema'><s:ElementType name='row' content='eltOnly'>"
           "<s:AttributeType name='nId'><s:datatype dt:type='int'/></s:AttributeType>"
           "<s:AttributeType name='tTitle'><s:datatype dt:type='string'/></s:AttributeType>"
           "<s:AttributeType name='rCost'><s:datatype dt:type='float'/></s:AttributeType>"
           "<s:AttributeType name='dtOpened'><s:datatype dt:type='dateTime'/></s:AttributeType>"
           "<s:AttributeType name='tNote'><s:datatype dt:type='string'/></s:AttributeType>"
           "</s:ElementType></s:Schema>\n<rs:data>\n";
    std::string line;
    char buf[64];
    while (!rs->Eof()) {
      line = "\t<z:row nId='";
      line += std::to_string(rs->Fields(0).Value().ToInt64());
      line += "' tTitle='";
      Escape(line, rs->Fields(1).Value().ToText());
      std::snprintf(buf, sizeof buf, "' rCost='%.17g'", rs->Fields(2).Value().ToDouble());
      line += buf;
      int y, mo, d, h, mi, s;
      zt::Date{rs->Fields(3).Value().ToDouble()}.ToParts(y, mo, d, h, mi, s);
      std::snprintf(buf, sizeof buf, " dtOpened='%04d-%02d-%02dT%02d:%02d:%02d'", y, mo, d, h, mi,
                    s);
      line += buf;
      const zt::Variant note = rs->Fields(4).Value();
      if (!note.IsNull()) {
        line += " tNote='";
        Escape(line, note.ToText());
        line += '\'';
      }
      line += "/>\n";
      out << line;
      rs->MoveNext();
    }
    out << "</rs:data>\n</xml>\n";
    out.close();
    rs->Close();
  }
  state.SetItemsProcessed(state.iterations() * Rows());
  state.counters["max_rss_mb"] = MaxRssMb();
  std::filesystem::remove(path);
}

BENCHMARK(BM_BareXmlWriter)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_SaveRSToXMLFile)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
