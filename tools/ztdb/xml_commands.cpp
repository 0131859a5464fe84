// Tables as XML files in the rowset persistence format: export (optionally with the text values
// encoded) and import into a table in one load. Both stream, so a table of any size goes
// through in flat memory; on a terminal a progress bar shows how far they are.
#include <filesystem>

#include "progress.h"
#include "tool.h"
#include "zt/xml/xml_manip.h"

namespace ztdb {

namespace {

struct XmlOptions {
  std::string table;        // export TABLE / import --into TABLE
  std::string file;         // export --xml FILE / import FILE
  std::int32_t encode = 0;  // export --encode N
  std::int32_t decode = 0;  // import --decode N
};

XmlOptions& Opts() {
  static XmlOptions options;
  return options;
}

void CheckTableName(const std::string& table) {
  if (table.find(']') != std::string::npos)
    throw ToolError("ztdb does not handle table names holding ']': " + table);
}

std::int64_t CountRows(zt::Connection& cn, const std::string& table) {
  auto rs = cn.Execute("SELECT COUNT(*) FROM [" + table + "]");
  return rs->Fields(0).Value().ToInt64();
}

// The engine's column type for a column read from a file.
std::string ColumnTypeFor(zt::Connection& cn, const zt::RecordsetColumn& c) {
  namespace ado = zt::ado;
  switch (c.type) {
    case ado::adBoolean:
      return cn.ColumnType(1);
    case ado::adUnsignedTinyInt:
      return cn.ColumnType(2);
    case ado::adTinyInt:
    case ado::adSmallInt:
      return cn.ColumnType(3);
    case ado::adInteger:
      return cn.ColumnType(4);
    case ado::adBigInt:
      return "BIGINT";  // every engine ztdb reaches knows it; DAO had no 64-bit code
    case ado::adCurrency:
      return cn.ColumnType(5);
    case ado::adSingle:
      return cn.ColumnType(6);
    case ado::adDouble:
      return cn.ColumnType(7);
    case ado::adNumeric:
    case 14:
      return "DECIMAL(" + std::to_string(c.precision == 255 ? 28 : c.precision) + "," +
             std::to_string(c.scale == 255 ? 0 : c.scale) + ")";
    case ado::adDate:
    case ado::adDBDate:
    case ado::adDBTime:
    case ado::adDBTimeStamp:
      return cn.ColumnType(8);
    case ado::adGUID:
      return cn.ColumnType(15);
    case ado::adBinary:
    case ado::adVarBinary:
    case ado::adLongVarBinary:
      return cn.ColumnType(11);
    default:  // text
      if (c.defined_size > 0 && c.defined_size <= 255 && !(c.attributes & ado::adFldLong))
        return cn.ColumnType(10, static_cast<std::int32_t>(c.defined_size));
      return cn.ColumnType(12);
  }
}

bool IsText(const zt::RecordsetColumn& c) {
  namespace ado = zt::ado;
  return c.type == ado::adVarWChar || c.type == ado::adWChar || c.type == ado::adLongVarWChar ||
         c.type == ado::adVarChar || c.type == ado::adChar || c.type == ado::adLongVarChar;
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// The table's name as the engine keeps it (PostgreSQL folds a bracketed name to lower case
// when it makes the table); the bulk load quotes the names it is given exactly.
std::string EngineTableName(zt::Connection& cn, const std::string& table) {
  auto rs = cn.OpenSchema(zt::ado::adSchemaTables);
  std::string found = table;
  for (; !rs->Eof(); rs->MoveNext()) {
    const std::string name = rs->Value("TABLE_NAME").ToText();
    if (name == table) return name;
    if (Lower(name) == Lower(table)) found = name;
  }
  return found;
}

// The table's spelling of each of the file's columns; ToolError for one the table lacks.
std::vector<std::string> EngineColumnNames(zt::Connection& cn, const std::string& table,
                                           const std::vector<zt::RecordsetColumn>& columns) {
  auto rs = std::make_shared<zt::Recordset>();
  rs->Open("SELECT * FROM [" + table + "] WHERE 1 = 0", cn.shared_from_this());
  std::vector<std::string> names;
  for (const auto& c : columns) {
    const int i = rs->GetFields().IndexOf(c.name);
    if (i < 0) throw ToolError("the table " + table + " has no column " + c.name);
    names.push_back(rs->Fields(i).Name());
  }
  rs->Close();
  return names;
}

// ---- export -------------------------------------------------------------------------------

int Export(Context& cx) {
  const XmlOptions& o = Opts();
  CheckTableName(o.table);
  if (!TableExists(*cx.store, o.table))
    throw ToolError("there is no table '" + o.table + "' in " + cx.store->DataStoreName());
  auto cn = cx.store->GetConnection(1);
  const std::int64_t total = CountRows(*cn, o.table);
  auto rs = std::make_shared<zt::Recordset>();
  rs->Open("SELECT * FROM [" + o.table + "]", cn);  // forward-only: the rows stream
  Progress progress(Progress::StderrIsTerminal());
  progress.Start("export " + o.table, total);
  zt::CZtXMLManip xml;
  std::int64_t written = 0;
  xml.SetProgress([&](std::int64_t done) {
    written = done;
    progress.Update(done);
  });
  xml.SaveRSToXMLFile(*rs, o.file, o.encode != 0, false, o.encode);
  rs->Close();
  progress.Finish(written);
  cx.out.Line(std::to_string(written) + " records exported from " + o.table + " to " + o.file);
  return kExitOk;
}

// ---- import -------------------------------------------------------------------------------

int Import(Context& cx) {
  const XmlOptions& o = Opts();
  CheckTableName(o.table);
  if (!std::filesystem::exists(o.file)) throw ToolError("there is no file " + o.file);
  // A first pass reads the whole file: a broken file is found before anything is written.
  auto reader = zt::XmlRowsetReader::FromFile(o.file);
  const std::vector<zt::RecordsetColumn>& columns = reader->Columns();
  const std::int64_t total = reader->ReadRows([](std::vector<zt::Variant>&) {});
  auto cn = cx.store->GetConnection(1);
  const bool created = !TableExists(*cx.store, o.table);
  // A new table appears only complete. Where the engine's DDL is transactional (SQLite,
  // PostgreSQL) the CREATE TABLE and the load are one transaction, so that a killed import or
  // a lost server leaves nothing. Elsewhere (MariaDB) the rows go into a temporary table, which
  // the server drops with the session whatever happens to ztdb, and one CREATE TABLE ... SELECT
  // makes the table from it when the load is complete.
  const std::string engine = Lower(cn->Engine());
  const bool one_transaction = engine == "sqlite" || engine == "postgresql";
  const bool staged = created && !one_transaction;
  const std::string into = staged ? "zt_import_" + o.table : o.table;
  Progress progress(Progress::StderrIsTerminal());
  progress.Start("import " + o.table, total);
  std::int64_t done = 0;
  bool in_transaction = false;
  try {
    if (created) {
      std::string sql =
          std::string(staged ? "CREATE TEMPORARY TABLE [" : "CREATE TABLE [") + into + "] (";
      for (std::size_t i = 0; i < columns.size(); ++i) {
        if (columns[i].name.find(']') != std::string::npos)
          throw ToolError("ztdb does not handle column names holding ']': " + columns[i].name);
        sql += (i ? ", [" : "[") + columns[i].name + "] " + ColumnTypeFor(*cn, columns[i]);
        if (!(columns[i].attributes & zt::ado::adFldIsNullable)) sql += " NOT NULL";
      }
      if (one_transaction) {
        cn->BeginTrans();
        in_transaction = true;
      }
      cn->Execute(sql + ")");
    }
    const std::vector<std::string> names = EngineColumnNames(*cn, into, columns);
    // One load, kept only when every row went in.
    zt::BulkInserter load(*cn, EngineTableName(*cn, into), names);
    std::string decoded;
    reader->ReadRows([&](std::vector<zt::Variant>& row) {
      if (o.decode != 0)
        for (std::size_t i = 0; i < row.size(); ++i)
          if (IsText(columns[i]) && row[i].AsString() &&
              zt::ZtXml_DecodeText(o.decode, *row[i].AsString(), decoded))
            row[i] = zt::Variant(decoded);
      load.AddRow(row);
      if (++done % 1000 == 0) progress.Update(done);
    });
    load.Finish();
    if (staged) {
      cn->Execute("CREATE TABLE [" + o.table + "] SELECT * FROM [" + into + "]");
      cn->Execute("DROP TEMPORARY TABLE [" + into + "]");
    }
    if (in_transaction) cn->CommitTrans();
  } catch (...) {
    progress.Finish(done, "failed");
    // The load's own error is what the user needs; a clean-up that fails too (the server is
    // gone) only says what it leaves behind.
    try {
      if (in_transaction && cn->InTransaction()) cn->RollbackTrans();
      if (staged) cn->Execute("DROP TEMPORARY TABLE IF EXISTS [" + into + "]");
    } catch (const zt::ZtError&) {
      // The server is gone, and the temporary table with the session.
    }
    throw;
  }
  progress.Finish(done);
  cx.out.Line(std::to_string(done) + " records imported from " + o.file + " into " + o.table +
              (created ? " (new table)" : ""));
  return kExitOk;
}

}  // namespace

std::vector<Command> XmlCommands() {
  return {
      {"export", "Write a table to an XML file (the rowset persistence format)", true, false,
       [](CLI::App& app) {
         app.add_option("table", Opts().table, "Table name")->required();
         app.add_option("--xml", Opts().file, "XML file to write (an old one is kept as .bak)")
             ->required();
         app.add_option("--encode", Opts().encode,
                        "Encode text values: 1 Base64, 6 percent-encoding")
             ->check(CLI::IsMember({1, 6}));
       },
       Export},
      {"import", "Load an XML file into a table in one transaction (created when missing)", true,
       false,
       [](CLI::App& app) {
         app.add_option("file", Opts().file, "XML file to read")->required();
         app.add_option("--into", Opts().table, "Table to load")->required();
         app.add_option("--decode", Opts().decode,
                        "Decode text values written with export --encode (1 or 6)")
             ->check(CLI::IsMember({1, 6}));
       },
       Import},
  };
}

}  // namespace ztdb
