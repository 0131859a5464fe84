// Schema changes on every live engine, for real: after each change the columns (type, size,
// nullability), the indexes (names, uniqueness), the rows (count and checksum) and, on SQLite,
// the triggers and views are what the change promises, and a change that fails part-way leaves
// the table exactly as it was.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/dialect.h"
#include "platform/sql_text.h"
#include "recordset/record_mgr_internal.h"
#include "support/engines.h"
#include "zt/datastore.h"
#include "zt/error.h"
#include "zt/error_codes.h"
#include "zt/platform.h"
#include "zt/recordset/recordset_utils.h"
#include "zt/schema/dt_mgr.h"

namespace zt::testing {
namespace {

using namespace zt::ado;
using platform::AsciiLower;

// The number of the ZtError that `fn` throws, 0 when it throws none.
template <class F>
std::int32_t ThrownNumber(F&& fn) {
  try {
    fn();
  } catch (const ZtError& e) {
    return e.Number();
  }
  return 0;
}
#define ZT_THROWN(stmt) ThrownNumber([&] { (void)(stmt); })
constexpr std::int32_t kItemNotFound = static_cast<std::int32_t>(0x800A0CC1u);

// The schema operations as the suite calls them: through the schema manager, on a data store of
// the engine (for the members that take one) and on the suite's own connection (for the rest),
// so that the suite reads back through a session that did not make the change.
class SchemaOps {
 public:
  SchemaOps(std::shared_ptr<CZtDataStore> ds, std::shared_ptr<Connection> cn)
      : ds_(std::move(ds)), cn_(std::move(cn)) {}

  void AddField(const std::string& table, const std::string& field, std::int32_t dao_type,
                std::int32_t size, bool nullable) {
    dt_.AddFieldToTable(*ds_, table, field, dao_type, size, nullable, true);
  }
  void AlterField(const std::string& table, const std::string& field, std::int32_t dao_type,
                  std::int32_t size, bool nullable) {
    dt_.AlterFieldType(*ds_, table, field, dao_type, size, nullable);
  }
  void SetNullable(const std::string& table, const std::string& field, std::int32_t dao_type,
                   std::int32_t, bool nullable) {
    dt_.SetFieldNullability(nullable, *ds_, table, field, dao_type, true);
  }
  void RenameField(const std::string& table, const std::string& from, const std::string& to) {
    dt_.RenameField(*ds_, table, from, to);
  }
  bool DeleteField(const std::string& table, const std::string& field) {
    return dt_.DeleteField(*ds_, table, field);
  }
  void CreateIndex(const std::string& table, const std::vector<std::string>& fields,
                   const std::string& name, std::int32_t kind) {
    std::vector<Variant> names(fields.begin(), fields.end());
    dt_.CreateIndex(cn_, table, Variant::Array(names), name, kind);
  }
  void DeleteIndex(const std::string& table, const std::string& name, bool constraint) {
    dt_.DeleteIndex(cn_, table, name, constraint ? kIndexKindUnique : kIndexKindPlain);
  }

 private:
  CZtDTMgr dt_;
  std::shared_ptr<CZtDataStore> ds_;
  std::shared_ptr<Connection> cn_;
};

struct ColumnState {
  std::int32_t type = 0;
  std::int64_t size = 0;  // 0 when the type has no length
  bool nullable = true;
  bool operator==(const ColumnState&) const = default;
};
struct IndexState {
  bool unique = false, primary = false;
  std::vector<std::string> columns;
  bool operator==(const IndexState&) const = default;
};

// What a table is, as far as a schema change may touch it.
struct TableState {
  std::map<std::string, ColumnState> columns;  // lower-case names
  std::map<std::string, IndexState> indexes;   // lower-case names
  std::int64_t rows = 0;
  std::size_t checksum = 0;          // over every value of every row, in key order
  std::set<std::string> dependents;  // SQLite: "trigger name" / "view name"
  bool operator==(const TableState&) const = default;
};

class SchemaEngineTest : public ::testing::TestWithParam<Engine> {
 protected:
  void SetUp() override {
    const Engine& e = GetParam();
    ZT_NEED_ENGINE(e.Available(), e.name);
    const std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    dir_ = std::filesystem::temp_directory_path() /
           ("zt_schema_" + std::to_string(::getpid()) + "_" + test.substr(0, test.find('/')));
    std::filesystem::create_directories(dir_);
    cn_ = std::make_shared<Connection>();
    cn_->Open(e.ConnectionString((dir_ / "schema.db").string()));
    // Each test has a table of its own name: the server database is shared by the tests.
    table_ = "zt_sch_" + AsciiLower(test.substr(0, test.find('/'))).substr(0, 30);
    ops_ = std::make_unique<SchemaOps>(e.MakeStore(dir_.string(), "schema.db"), cn_);
    MakeTable();
  }
  void TearDown() override {
    if (cn_ && cn_->State() == adStateOpen) {
      if (GetParam().is_file) cn_->Execute("DROP VIEW IF EXISTS [" + table_ + "_v]");
      cn_->Execute("DROP TABLE IF EXISTS [" + table_ + "]");
      cn_->Close();
    }
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }

  bool Sqlite() const { return GetParam().is_file; }

  // nId key; tCode unique text; tNum a text holding numbers; nQty a number with a plain index;
  // tNote a text. Five rows, Nulls in tNum and nQty. On SQLite also a trigger and a view.
  void MakeTable() {
    Connection& cn = *cn_;
    if (Sqlite()) cn.Execute("DROP VIEW IF EXISTS [" + table_ + "_v]");
    cn.Execute("DROP TABLE IF EXISTS [" + table_ + "]");
    cn.Execute("CREATE TABLE [" + table_ + "] ([nId] " + cn.ColumnType(4) + " NOT NULL, [tCode] " +
               cn.ColumnType(10, 20) + ", [tNum] " + cn.ColumnType(10, 10) + ", [nQty] " +
               cn.ColumnType(4) + ", [tNote] " + cn.ColumnType(10, 50) + ", CONSTRAINT [PK_" +
               table_ + "] PRIMARY KEY ([nId]))");
    cn.Execute("CREATE UNIQUE INDEX [UN_" + table_ + "_code] ON [" + table_ + "] ([tCode])");
    cn.Execute("CREATE INDEX [IN_" + table_ + "_num] ON [" + table_ + "] ([tNum])");
    cn.Execute("CREATE INDEX [IN_" + table_ + "_qty] ON [" + table_ + "] ([nQty])");
    const char* rows[] = {"1, 'A', '10', 10, 'one'", "2, 'B', '20', NULL, 'two'",
                          "3, 'C', NULL, 30, NULL", "4, 'D', '40', 40, 'four'",
                          "5, 'E', '05', NULL, 'five'"};
    for (const char* r : rows)
      cn.Execute("INSERT INTO [" + table_ + "] ([nId], [tCode], [tNum], [nQty], [tNote]) VALUES (" +
                 r + ")");
    if (Sqlite()) {
      cn.Execute("CREATE TRIGGER [" + table_ + "_trg] AFTER DELETE ON [" + table_ +
                 "] BEGIN SELECT 1; END");
      cn.Execute("CREATE VIEW [" + table_ + "_v] AS SELECT [nId], [tCode] FROM [" + table_ + "]");
    }
  }

  TableState State() {
    TableState s;
    const Variant none;
    auto cols = cn_->OpenSchema(adSchemaColumns, Variant::Array({none, none, Variant(table_)}));
    for (; !cols->Eof(); cols->MoveNext()) {
      const Variant size = cols->Fields("CHARACTER_MAXIMUM_LENGTH").Value();
      s.columns[AsciiLower(cols->Fields("COLUMN_NAME").Value().ToText())] = {
          cols->Fields("DATA_TYPE").Value().ToInt32(), size.IsNull() ? 0 : size.ToInt64(),
          cols->Fields("IS_NULLABLE").Value().ToBool()};
    }
    auto idx = cn_->OpenSchema(adSchemaIndexes, Variant::Array({none, none, Variant(table_)}));
    for (; !idx->Eof(); idx->MoveNext()) {
      IndexState& i = s.indexes[AsciiLower(idx->Fields("INDEX_NAME").Value().ToText())];
      i.unique = idx->Fields("UNIQUE").Value().ToBool();
      i.primary = idx->Fields("PRIMARY_KEY").Value().ToBool();
      i.columns.push_back(AsciiLower(idx->Fields("COLUMN_NAME").Value().ToText()));
    }
    auto rs = cn_->Execute("SELECT * FROM [" + table_ + "] ORDER BY 1");
    std::string all;
    for (; !rs->Eof(); rs->MoveNext(), ++s.rows) {
      for (std::int32_t f = 0; f < rs->GetFields().Count(); ++f) {
        const Variant v = rs->Fields(f).Value();
        all += (v.IsNull() ? std::string("<null>") : v.ToText()) + "|";
      }
      all += "\n";
    }
    s.checksum = std::hash<std::string>{}(all);
    if (Sqlite()) {
      auto deps = cn_->Execute(
          "SELECT type, name FROM sqlite_master WHERE type IN ('trigger', "
          "'view')");
      for (; !deps->Eof(); deps->MoveNext())
        s.dependents.insert(deps->Fields(0).Value().ToText() + " " +
                            deps->Fields(1).Value().ToText());
    }
    return s;
  }

  // The values of one column in key order, Null as "<null>".
  std::vector<std::string> Values(const std::string& column) {
    std::vector<std::string> out;
    auto rs = cn_->Execute("SELECT [" + column + "] FROM [" + table_ + "] ORDER BY [nId]");
    for (; !rs->Eof(); rs->MoveNext()) {
      const Variant v = rs->Fields(0).Value();
      out.push_back(v.IsNull() ? "<null>" : v.ToText());
    }
    return out;
  }

  std::string Lower(const std::string& s) const { return AsciiLower(s); }
  // The primary key's name in the indexes rowset.
  std::string PrimaryKeyName() {
    for (const auto& [name, i] : State().indexes)
      if (i.primary) return name;
    return {};
  }

  std::filesystem::path dir_;
  std::shared_ptr<Connection> cn_;
  std::string table_;
  std::unique_ptr<SchemaOps> ops_;
};

// The checksum and everything else except what the change named.
void ExpectSameBut(TableState before, TableState after, const std::set<std::string>& columns) {
  for (const auto& c : columns) {
    before.columns.erase(c);
    after.columns.erase(c);
  }
  before.checksum = after.checksum = 0;
  EXPECT_EQ(after.columns, before.columns);
  EXPECT_EQ(after.indexes, before.indexes);
  EXPECT_EQ(after.rows, before.rows);
  EXPECT_EQ(after.dependents, before.dependents);
}

TEST_P(SchemaEngineTest, AddFieldNullableAndNotNullFilled) {
  const TableState before = State();
  ops_->AddField(table_, "tExtra", 10, 30, true);
  TableState after = State();
  ASSERT_TRUE(after.columns.count("textra"));
  EXPECT_TRUE(after.columns["textra"].nullable);
  EXPECT_EQ(after.columns["textra"].size, 30);
  ExpectSameBut(before, after, {"textra"});
  EXPECT_EQ(Values("tExtra"), std::vector<std::string>(5, "<null>"));

  // NOT NULL: the rows get the fill ('' for texts, 0 for the application's number types), and
  // no default stays behind.
  ops_->AddField(table_, "tMust", 10, 10, false);
  ops_->AddField(table_, "nMust", 103, 0, false);
  after = State();
  EXPECT_FALSE(after.columns["tmust"].nullable);
  EXPECT_FALSE(after.columns["nmust"].nullable);
  EXPECT_EQ(Values("tMust"), std::vector<std::string>(5, ""));
  EXPECT_EQ(Values("nMust"), std::vector<std::string>(5, "0"));
  EXPECT_EQ(Values("tNote"), (std::vector<std::string>{"one", "two", "<null>", "four", "five"}));
  ExpectSameBut(before, after, {"textra", "tmust", "nmust"});
  EXPECT_THROW(
      cn_->Execute("INSERT INTO [" + table_ + "] ([nId], [tCode], [nMust]) VALUES (9, 'Z', 1)"),
      ZtError);

  // A NOT NULL Long has no fill, as on SQL Server: over rows it is refused before anything
  // changes.
  const TableState full = State();
  EXPECT_EQ(ZT_THROWN(ops_->AddField(table_, "nNo", 4, 0, false)), hr::kIntegrity);
  EXPECT_EQ(State(), full);
}

TEST_P(SchemaEngineTest, AlterFieldTypeKeepsRowsAndIndexes) {
  const TableState before = State();
  ops_->AlterField(table_, "tNum", 4, 0, true);
  TableState after = State();
  EXPECT_EQ(after.columns["tnum"].type, adInteger);
  EXPECT_TRUE(after.columns["tnum"].nullable);
  ExpectSameBut(before, after, {"tnum"});
  EXPECT_EQ(Values("tNum"), (std::vector<std::string>{"10", "20", "<null>", "40", "5"}));
  EXPECT_EQ(cn_->Execute("SELECT SUM([tNum]) FROM [" + table_ + "]")->Fields(0).Value().ToInt64(),
            75);

  // A longer text, made NOT NULL: no Nulls in it, so it goes through.
  ops_->AlterField(table_, "tCode", 10, 30, false);
  after = State();
  EXPECT_EQ(after.columns["tcode"].size, 30);
  EXPECT_FALSE(after.columns["tcode"].nullable);
  EXPECT_EQ(Values("tCode"), (std::vector<std::string>{"A", "B", "C", "D", "E"}));
  ExpectSameBut(before, after, {"tnum", "tcode"});
  if (Sqlite()) {  // the view still reads the rebuilt table
    EXPECT_EQ(cn_->Execute("SELECT COUNT(*) FROM [" + table_ + "_v]")->Fields(0).Value().ToInt32(),
              5);
  }
}

TEST_P(SchemaEngineTest, FailedChangesLeaveTheTableAsItWas) {
  // As texts '5' and '05' differ; as numbers they collide: the unique index over the
  // converted column cannot be made again, after the values have been converted.
  cn_->Execute("UPDATE [" + table_ + "] SET [tNum] = '5' WHERE [nId] = 4");
  ops_->DeleteIndex(table_, "IN_" + table_ + "_num", false);
  ops_->CreateIndex(table_, {"tNum"}, "UN_" + table_ + "_num", kIndexKindUnique);
  const TableState before = State();
  EXPECT_THROW(ops_->AlterField(table_, "tNum", 4, 0, true), ZtError);
  EXPECT_EQ(State(), before);

  // NOT NULL over Nulls.
  EXPECT_EQ(ZT_THROWN(ops_->SetNullable(table_, "nQty", 4, 0, false)), hr::kIntegrity);
  try {  // the refusal names the user's table, not one the change works with
    ops_->SetNullable(table_, "nQty", 4, 0, false);
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Description().find("zt_"), e.Description().find("zt_sch_")) << e.Description();
  }
  EXPECT_EQ(ZT_THROWN(ops_->AlterField(table_, "tNum", 10, 10, false)), hr::kIntegrity);
  EXPECT_EQ(State(), before);

  // A text shorter than values it holds: nothing is cut. The servers refuse the change; SQLite
  // keeps every value whole whatever length a column declares.
  const std::int32_t shorter = ZT_THROWN(ops_->AlterField(table_, "tNote", 10, 3, true));
  EXPECT_EQ(Values("tNote"), (std::vector<std::string>{"one", "two", "<null>", "four", "five"}));
  if (!Sqlite()) {
    EXPECT_NE(shorter, 0);
    EXPECT_EQ(State(), before);
  }

  // A text that does not read as a number.
  cn_->Execute("UPDATE [" + table_ + "] SET [tNote] = '12' WHERE [tNote] IS NOT NULL");
  cn_->Execute("UPDATE [" + table_ + "] SET [tNote] = 'x12' WHERE [nId] = 2");
  const TableState texts = State();
  EXPECT_THROW(ops_->AlterField(table_, "tNote", 4, 0, true), ZtError);
  EXPECT_EQ(State(), texts);

  // A unique index or a primary key that the data violates.
  cn_->Execute("UPDATE [" + table_ + "] SET [tNote] = 'same'");
  const TableState same = State();
  EXPECT_THROW(ops_->CreateIndex(table_, {"tNote"}, "UN_" + table_ + "_note", kIndexKindUnique),
               ZtError);
  EXPECT_EQ(State(), same);
  ops_->DeleteIndex(table_, PrimaryKeyName(), true);
  const TableState no_key = State();
  EXPECT_THROW(ops_->CreateIndex(table_, {"tNote"}, "PK_" + table_, kIndexKindPrimaryKey), ZtError);
  EXPECT_EQ(State(), no_key);

  // A column that a view needs: a server that checks views refuses to drop it, and the
  // column's index is still there afterwards (SQLite and MariaDB do not check views).
  if (!Sqlite() && cn_->Dialect().TransactionalDdl()) {
    cn_->Execute("CREATE VIEW [" + table_ + "_pv] AS SELECT [nQty] FROM [" + table_ + "]");
    const TableState viewed = State();
    EXPECT_NE(ZT_THROWN(ops_->DeleteField(table_, "nQty")), 0);
    EXPECT_EQ(State(), viewed);
    cn_->Execute("DROP VIEW [" + table_ + "_pv]");
  }
  // A column that a CHECK of two columns needs: MariaDB refuses its one ALTER TABLE, and the
  // column's index is still there afterwards.
  if (cn_->Dialect().CombinesAlterClauses()) {
    cn_->Execute("ALTER TABLE [" + table_ + "] ADD CONSTRAINT [" + table_ +
                 "_ck] CHECK (nQty < nId + 1000)");
    const TableState checked = State();
    EXPECT_NE(ZT_THROWN(ops_->DeleteField(table_, "nQty")), 0);
    EXPECT_EQ(State(), checked);
    cn_->Execute("ALTER TABLE [" + table_ + "] DROP CONSTRAINT [" + table_ + "_ck]");
  }
  if (Sqlite()) {  // SQLite reads a view only when it is used: the rebuild checks the fixture's
    const TableState viewed = State();
    EXPECT_EQ(ZT_THROWN(ops_->DeleteField(table_, "tCode")), hr::kIntegrity);
    EXPECT_EQ(State(), viewed);
  }

  // Missing table or column: 3265, nothing changed.
  EXPECT_EQ(ZT_THROWN(ops_->RenameField(table_, "tNone", "tOther")), kItemNotFound);
  // A field that is not there is nothing to delete: no error, nothing sent.
  EXPECT_FALSE(ops_->DeleteField("zt_sch_no_table", "tNote"));
  // A text of no or negative length is no type; an empty name is no field.
  const std::int32_t invalid = AdoErrorNumber(AdoError::kInvalidArgument);
  EXPECT_EQ(ZT_THROWN(ops_->AddField(table_, "tBad", dao::dbText, 0, true)), invalid);
  EXPECT_EQ(ZT_THROWN(ops_->AlterField(table_, "tNote", dao::dbText, -5, true)), invalid);
  EXPECT_EQ(ZT_THROWN(ops_->AddField(table_, "", dao::dbText, 10, true)), invalid);
  EXPECT_EQ(State(), no_key);
}

TEST_P(SchemaEngineTest, SetNullabilityBothWays) {
  const TableState before = State();
  cn_->Execute("UPDATE [" + table_ + "] SET [nQty] = 0 WHERE [nQty] IS NULL");
  ops_->SetNullable(table_, "nQty", 4, 0, false);
  TableState after = State();
  EXPECT_FALSE(after.columns["nqty"].nullable);
  EXPECT_EQ(after.columns["nqty"].type, before.columns.at("nqty").type);
  ExpectSameBut(before, after, {"nqty"});
  EXPECT_EQ(ZT_THROWN(cn_->Execute("UPDATE [" + table_ + "] SET [nQty] = NULL")), hr::kIntegrity);
  ops_->SetNullable(table_, "nQty", 4, 0, true);
  after = State();
  EXPECT_TRUE(after.columns["nqty"].nullable);
  ExpectSameBut(before, after, {"nqty"});
  cn_->Execute("UPDATE [" + table_ + "] SET [nQty] = NULL WHERE [nId] = 1");
}

TEST_P(SchemaEngineTest, RenameAndDeleteFields) {
  const TableState before = State();
  ops_->RenameField(table_, "tNum", "tNumber");
  TableState after = State();
  EXPECT_FALSE(after.columns.count("tnum"));
  EXPECT_EQ(after.columns["tnumber"], before.columns.at("tnum"));
  // Its index keeps its name and now lists the new name.
  EXPECT_EQ(after.indexes["in_" + table_ + "_num"].columns, std::vector<std::string>{"tnumber"});
  EXPECT_EQ(after.rows, before.rows);
  EXPECT_EQ(after.checksum, before.checksum);
  EXPECT_EQ(after.dependents, before.dependents);

  // A plain column goes; one with an index goes once the index is gone.
  ops_->DeleteField(table_, "tNote");
  ops_->DeleteIndex(table_, "IN_" + table_ + "_qty", false);
  ops_->DeleteField(table_, "nQty");
  after = State();
  EXPECT_EQ(after.columns.size(), 3u);
  EXPECT_FALSE(after.indexes.count("in_" + table_ + "_qty"));
  EXPECT_TRUE(after.indexes.count("un_" + table_ + "_code"));
  EXPECT_EQ(after.rows, 5);
  EXPECT_EQ(Values("tNumber"), (std::vector<std::string>{"10", "20", "<null>", "40", "05"}));
  EXPECT_EQ(after.dependents, before.dependents);
  // A column with an index of its own goes together with the index.
  ops_->DeleteField(table_, "tNumber");
  after = State();
  EXPECT_FALSE(after.columns.count("tnumber"));
  EXPECT_FALSE(after.indexes.count("in_" + table_ + "_num"));
  EXPECT_TRUE(after.indexes.count("un_" + table_ + "_code"));
  EXPECT_EQ(after.rows, 5);
}

TEST_P(SchemaEngineTest, CreateAndDeleteIndexesAndKeys) {
  const TableState before = State();
  ops_->CreateIndex(table_, {"tNote"}, "IN_" + table_ + "_note", kIndexKindPlain);
  ops_->CreateIndex(table_, {"tCode", "nId"}, "UN_" + table_ + "_pair", kIndexKindUnique);
  TableState after = State();
  const IndexState note = after.indexes["in_" + table_ + "_note"];
  EXPECT_FALSE(note.unique);
  EXPECT_EQ(note.columns, std::vector<std::string>{"tnote"});
  const IndexState pair = after.indexes["un_" + table_ + "_pair"];
  EXPECT_TRUE(pair.unique);
  EXPECT_EQ(pair.columns, (std::vector<std::string>{"tcode", "nid"}));
  EXPECT_EQ(after.checksum, before.checksum);

  // The primary key goes (a constraint) and comes back under PK_ + table.
  ops_->DeleteIndex(table_, PrimaryKeyName(), true);
  EXPECT_EQ(PrimaryKeyName(), "");
  after = State();
  EXPECT_TRUE(after.indexes.count("un_" + table_ + "_pair"));
  EXPECT_TRUE(after.indexes.count("in_" + table_ + "_note"));
  ops_->CreateIndex(table_, {"nId"}, "PK_" + table_, kIndexKindPrimaryKey);
  after = State();
  const std::string pk = PrimaryKeyName();
  ASSERT_NE(pk, "");
  EXPECT_TRUE(after.indexes[pk].unique);
  EXPECT_EQ(after.indexes[pk].columns, std::vector<std::string>{"nid"});
  EXPECT_EQ(after.checksum, before.checksum);
  EXPECT_EQ(after.dependents, before.dependents);

  // Unique and plain indexes go by their names; the rest stays.
  ops_->DeleteIndex(table_, "UN_" + table_ + "_pair", true);
  ops_->DeleteIndex(table_, "UN_" + table_ + "_code", true);
  ops_->DeleteIndex(table_, "IN_" + table_ + "_note", false);
  after = State();
  EXPECT_EQ(after.indexes.size(), 3u);  // the key, _num and _qty
  EXPECT_TRUE(after.indexes.count("in_" + table_ + "_num"));
  EXPECT_EQ(after.rows, 5);
  EXPECT_EQ(after.checksum, before.checksum);
}

// Names reach the engine as written and every spelling finds them, as on SQL Server and Jet:
// the table is made with mixed-case names by another session after this one has read the
// catalog, as another program would make it; statements, record removal, index and field
// changes then find it whatever spelling they are given.
TEST_P(SchemaEngineTest, MixedCaseNamesAreKeptAndFoundInAnySpelling) {
  // MariaDB on Linux compares table names by case itself (lower_case_table_names=0); its
  // columns, like every name elsewhere, are found in any spelling.
  const bool caseless_tables = GetParam().name != "MariaDB";
  const std::string mixed = "tblMixed_" + table_.substr(7, 12);
  const std::string upper = caseless_tables ? "TBLMIXED_" + table_.substr(7, 12) : mixed;
  const std::string lower = caseless_tables ? AsciiLower(mixed) : mixed;
  cn_->Execute("DROP TABLE IF EXISTS [" + upper + "]");
  auto other = std::make_shared<Connection>();
  other->Open(GetParam().ConnectionString((dir_ / "schema.db").string()));
  other->Execute("CREATE TABLE [" + mixed + "] ([nId] " + cn_->ColumnType(4) +
                 " NOT NULL PRIMARY KEY, [tName] " + cn_->ColumnType(10, 20) + ")");
  other->Close();
  cn_->Execute("INSERT INTO " + mixed + "(nId, tName) VALUES (1, 'a')");
  cn_->Execute("INSERT INTO [" + upper + "] ([NID], [tname]) VALUES (2, NULL)");
  cn_->Execute("INSERT INTO [" + lower + "] ([nID], [TNAME]) VALUES (3, 'a')");
  std::vector<std::string> tables, columns;
  auto rs = cn_->OpenSchema(adSchemaTables, Variant::Array({Variant(), Variant(), Variant(upper)}));
  for (; !rs->Eof(); rs->MoveNext()) tables.push_back(rs->Fields("TABLE_NAME").Value().ToText());
  EXPECT_EQ(tables, std::vector<std::string>{mixed});
  rs = cn_->Execute("SELECT * FROM [" + upper + "]");
  for (std::int32_t i = 0; i < rs->GetFields().Count(); ++i)
    columns.push_back(rs->Fields(i).Name());
  EXPECT_EQ(columns, (std::vector<std::string>{"nId", "tName"}));
  rs.reset();  // an open read would keep SQLite's rebuild below from committing

  // Another table spells the column in lower case: each statement reaches its own table's.
  const std::string other_table = "zt_lower_" + table_.substr(7, 12);
  cn_->Execute("DROP TABLE IF EXISTS [" + other_table + "]");
  cn_->Execute("CREATE TABLE [" + other_table + "] ([nid] " + cn_->ColumnType(4) + ")");
  cn_->Execute("INSERT INTO [" + other_table + "] (NID) VALUES (7)");
  EXPECT_EQ(cn_->Execute("SELECT [NID] FROM [" + other_table + "]")->Fields(0).Value().ToInt32(),
            7);
  EXPECT_EQ(cn_->Execute("SELECT COUNT([NID]) FROM [" + upper + "]")->Fields(0).Value().ToInt32(),
            3);
  cn_->Execute("DROP TABLE [" + other_table + "]");

  CZtRecordMgr records;
  EXPECT_TRUE(records.RemoveDuplicateRecords(upper, cn_, Variant::Array({"TNAME"})));
  EXPECT_EQ(records.LastRecordsDeleted(), 1);
  std::int64_t deleted = 0;
  recordset::RemoveNullRecords(lower, cn_, Variant::Array({"tname"}), &deleted);
  EXPECT_EQ(deleted, 1);
  ops_->CreateIndex(upper, {"TName"}, "IX_Mixed", kIndexKindPlain);
  ops_->AlterField(lower, "tNAME", dao::dbText, 40, true);
  rs = cn_->Execute("SELECT [NId], [tname] FROM [" + mixed + "]");
  ASSERT_FALSE(rs->Eof());
  EXPECT_EQ(rs->Fields(0).Value().ToInt32(), 1);
  EXPECT_EQ(rs->Fields(1).Value().ToText(), "a");
  rs->MoveNext();
  EXPECT_TRUE(rs->Eof());
  rs.reset();
  CZtDTMgr dt;
  std::vector<IndexNameInfo> indexes;
  EXPECT_TRUE(dt.GetIndexNames(cn_, upper, "tname", indexes));
  ASSERT_EQ(indexes.size(), 1u);
  EXPECT_EQ(indexes[0].columns, std::vector<std::string>{"tName"});

  // PostgreSQL keeps 63 bytes of a name: a longer one is refused before anything is made
  // (MariaDB refuses one over 64 itself).
  const std::string too_long = "t" + std::string(64, 'x');
  const std::int32_t refused =
      ZT_THROWN(cn_->Execute("CREATE TABLE [" + too_long + "] ([n] " + cn_->ColumnType(4) + ")"));
  EXPECT_EQ(refused != 0, !GetParam().is_file);
  if (GetParam().name == "PostgreSQL") {
    EXPECT_EQ(refused, hr::kCommand);
  }
  if (!refused) cn_->Execute("DROP TABLE [" + too_long + "]");
  cn_->Execute("DROP TABLE [" + upper + "]");
}

INSTANTIATE_TEST_SUITE_P(Live, SchemaEngineTest, ::testing::ValuesIn(LiveEngines()), EngineName());

}  // namespace
}  // namespace zt::testing

namespace zt::testing {
namespace {

// The Jet type names the data types table gives (with its blank before the length) read back
// from an SQLite file as the DAO and ADO types they name.
TEST(SchemaJetTypesTest, JetNamesReadBackAsTheirTypes) {
  const auto dir =
      std::filesystem::temp_directory_path() / ("zt_schema_jet_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  {
    Connection cn;
    cn.Open(EngineNamed("SQLite").ConnectionString((dir / "jet.db").string()));
    cn.Execute(
        "CREATE TABLE [jet] ([t] TEXT (50), [m] LONGTEXT, [s] SHORT, [b] BYTE, [l] LONGBINARY, "
        "[g] GUID)");
    const std::map<std::string, std::pair<std::int32_t, std::int64_t>> expected = {
        {"t", {adVarWChar, 50}},       {"m", {adLongVarWChar, 0}},  {"s", {adSmallInt, 0}},
        {"b", {adUnsignedTinyInt, 0}}, {"l", {adLongVarBinary, 0}}, {"g", {adGUID, 0}}};
    const Variant none;
    auto cols = cn.OpenSchema(adSchemaColumns, Variant::Array({none, none, Variant("jet")}));
    std::size_t seen = 0;
    for (; !cols->Eof(); cols->MoveNext(), ++seen) {
      const auto& [type, size] = expected.at(cols->Fields("COLUMN_NAME").Value().ToText());
      EXPECT_EQ(cols->Fields("DATA_TYPE").Value().ToInt32(), type);
      if (size) {
        EXPECT_EQ(cols->Fields("CHARACTER_MAXIMUM_LENGTH").Value().ToInt64(), size);
      }
    }
    EXPECT_EQ(seen, expected.size());
  }
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace zt::testing
