// One suite for every engine: what the layer above relies on, checked on real databases.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <optional>
#include <thread>

#include "engines.h"
#include "platform/dialect.h"
#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/error_codes.h"
#include "zt/platform.h"

namespace zt::testing {
namespace {

using namespace zt::ado;

TEST_P(EngineTest, OpenExecuteAndReopen) {
  EXPECT_EQ(cn->State(), adStateOpen);
  EXPECT_TRUE(cn->IsAlive());
  EXPECT_EQ(cn->Provider(), GetParam().provider);
  MakeTable("zt_open", 3);
  std::int64_t affected = 0;
  cn->Execute("UPDATE [zt_open] SET [qty] = [qty] + 1 WHERE [id] >= 2", &affected);
  EXPECT_EQ(affected, 2);
  auto rs = cn->Execute("SELECT [code], [qty] FROM [zt_open] WHERE [id] = 3");
  EXPECT_EQ(rs->State(), adStateOpen);
  EXPECT_EQ(rs->Fields("code").Value().ToText(), "C3");
  EXPECT_EQ(rs->Fields("QTY").Value().ToInt32(), 31);  // names ignore case
  // A statement without rows gives a closed recordset.
  EXPECT_EQ(cn->Execute("DELETE FROM [zt_open] WHERE [id] = 99", &affected)->State(),
            adStateClosed);
  EXPECT_EQ(affected, 0);

  cn->Close();
  EXPECT_EQ(cn->State(), adStateClosed);
  EXPECT_EQ(ZT_ERROR_NUMBER(cn->Execute("SELECT 1")), Hr(0x800A0E78));
  cn->Open();  // the stored connection string
  EXPECT_EQ(Count("zt_open"), 3);
  EXPECT_EQ(ZT_ERROR_NUMBER(cn->Open(cn->ConnectionString())), Hr(0x800A0E79));
}

TEST_P(EngineTest, SqlTextRulesAndErrors) {
  MakeTable("zt_sql", 2);
  // Brackets are rewritten outside literals only; a literal keeps "[x]" and ";".
  cn->Execute("UPDATE [zt_sql] SET [descr] = 'a;[b]' WHERE [id] = 1 -- trailing ; [c]");
  auto rs = cn->Execute("SELECT [descr] FROM [zt_sql] WHERE [id] = 1;");
  EXPECT_EQ(rs->Fields(0).Value().ToText(), "a;[b]");

  // A second statement is refused before anything runs.
  EXPECT_EQ(ZT_ERROR_NUMBER(cn->Execute("DELETE FROM [zt_sql]; DROP TABLE [zt_sql]")),
            Hr(0x80040E14));
  EXPECT_EQ(Count("zt_sql"), 2);

  EXPECT_EQ(ZT_ERROR_NUMBER(cn->Execute("SELEKT nothing")), Hr(0x80040E14));
  EXPECT_EQ(ZT_ERROR_NUMBER(cn->Execute("SELECT * FROM [zt_no_such_table]")), Hr(0x80040E37));
  EXPECT_EQ(ZT_ERROR_NUMBER(cn->Execute("INSERT INTO [zt_sql] ([id], [code]) VALUES (1, 'dup')")),
            Hr(0x80040E2F));
  try {
    cn->Execute("SELECT * FROM [zt_no_such_table]");
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Source(), GetParam().provider);
    EXPECT_NE(e.Description().find("zt_no_such_table"), std::string::npos) << e.Description();
  }
  // The connection is still usable after errors.
  EXPECT_EQ(cn->State(), adStateOpen);
  EXPECT_EQ(Count("zt_sql"), 2);
}

TEST_P(EngineTest, Transactions) {
  MakeTable("zt_tx", 1);
  EXPECT_EQ(cn->BeginTrans(), 1);
  EXPECT_EQ(ZT_ERROR_NUMBER(cn->BeginTrans()), Hr(0x800A0C93));
  cn->Execute("INSERT INTO [zt_tx] ([id], [code]) VALUES (2, 'T2')");
  cn->RollbackTrans();
  EXPECT_EQ(Count("zt_tx"), 1);
  cn->BeginTrans();
  cn->Execute("INSERT INTO [zt_tx] ([id], [code]) VALUES (3, 'T3')");
  cn->CommitTrans();
  EXPECT_EQ(Count("zt_tx"), 2);
  EXPECT_FALSE(cn->InTransaction());
  EXPECT_EQ(ZT_ERROR_NUMBER(cn->CommitTrans()), Hr(0x800A0C93));

  // Closing with a transaction open takes it back, even while a recordset keeps the session.
  cn->BeginTrans();
  cn->Execute("INSERT INTO [zt_tx] ([id], [code]) VALUES (4, 'T4')");
  Recordset held;
  held.Open("SELECT [id] FROM [zt_tx]", cn, adOpenStatic);
  cn->Close();
  cn->Open();
  EXPECT_EQ(Count("zt_tx"), 2);
  cn->Execute("INSERT INTO [zt_tx] ([id], [code]) VALUES (5, 'T5')");  // no lock left behind
  EXPECT_EQ(Count("zt_tx"), 3);
}

TEST_P(EngineTest, CursorsAndMoves) {
  MakeTable("zt_cur", 4);
  const std::string sql = "SELECT [id], [code] FROM [zt_cur] ORDER BY [id]";
  for (std::int32_t cursor : {adOpenForwardOnly, adOpenKeyset, adOpenDynamic, adOpenStatic}) {
    for (std::int32_t lock :
         {adLockReadOnly, adLockPessimistic, adLockOptimistic, adLockBatchOptimistic}) {
      SCOPED_TRACE(::testing::Message() << "cursor " << cursor << " lock " << lock);
      Recordset rs;
      rs.Open(sql, cn, cursor, lock);
      EXPECT_FALSE(rs.Bof());
      std::vector<std::int32_t> ids;
      while (!rs.Eof()) {
        ids.push_back(rs.Fields("id").Value().ToInt32());
        rs.MoveNext();
      }
      EXPECT_EQ(ids, (std::vector<std::int32_t>{1, 2, 3, 4}));
      EXPECT_EQ(ZT_ERROR_NUMBER(rs.MoveNext()), Hr(0x800A0BCD));
      EXPECT_EQ(ZT_ERROR_NUMBER(rs.Fields(0).Value()), Hr(0x800A0BCD));
      if (cursor == adOpenForwardOnly) {
        EXPECT_EQ(rs.CursorType(), adOpenForwardOnly);
        EXPECT_EQ(ZT_ERROR_NUMBER(rs.MovePrevious()), Hr(0x800A0C93));
        if (lock == adLockReadOnly) {
          EXPECT_EQ(rs.RecordCount(), -1);
          rs.MoveFirst();  // runs the statement again
          EXPECT_EQ(rs.Fields("id").Value().ToInt32(), 1);
        }
        continue;
      }
      EXPECT_EQ(rs.RecordCount(), 4);
      rs.MoveLast();
      EXPECT_EQ(rs.Fields("code").Value().ToText(), "C4");
      EXPECT_EQ(rs.AbsolutePosition(), 4);
      rs.MovePrevious();
      EXPECT_EQ(rs.Fields("code").Value().ToText(), "C3");
      rs.Move(-5);
      EXPECT_TRUE(rs.Bof());
      rs.MoveFirst();
      rs.Move(2);
      EXPECT_EQ(rs.Fields("id").Value().ToInt32(), 3);
    }
  }
  // A forward read may stream its rows from the server; other statements on the same
  // connection in the middle of it, a restart half-way and a reader slower than the command's
  // time-out all still see every row once.
  {
    cn->SetCommandTimeout(1);
    Recordset rs;
    rs.Open(sql, cn, adOpenForwardOnly, adLockReadOnly);
    EXPECT_EQ(rs.Fields("id").Value().ToInt32(), 1);
    rs.MoveNext();
    rs.MoveFirst();  // runs the statement again while its rows are still coming
    std::vector<std::int32_t> ids;
    for (; !rs.Eof(); rs.MoveNext()) {
      ids.push_back(rs.Fields("id").Value().ToInt32());
      if (ids.size() == 2) {
        EXPECT_EQ(cn->Execute("SELECT COUNT(*) FROM [zt_cur]")->Fields(0).Value().ToInt32(), 4);
        cn->Execute("UPDATE [zt_cur] SET [qty] = 7 WHERE [id] = 4");
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));
      }
    }
    EXPECT_EQ(ids, (std::vector<std::int32_t>{1, 2, 3, 4}));
    cn->SetCommandTimeout(30);
  }
  Recordset empty;
  empty.Open("SELECT [id] FROM [zt_cur] WHERE [id] < 0", cn, adOpenKeyset, adLockOptimistic);
  EXPECT_TRUE(empty.Eof());
  EXPECT_TRUE(empty.Bof());
  EXPECT_EQ(empty.RecordCount(), 0);
  EXPECT_EQ(ZT_ERROR_NUMBER(empty.Open("x", cn)), Hr(0x800A0E79));
}

TEST_P(EngineTest, FieldsFindAndFilter) {
  MakeTable("zt_find", 6);
  Recordset rs;
  rs.Open("SELECT * FROM [zt_find] ORDER BY [id]", cn, adOpenKeyset, adLockOptimistic);
  EXPECT_TRUE(rs.HasField("CODE"));
  EXPECT_FALSE(rs.HasField("nope"));
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.Fields("nope")), Hr(0x800A0CC1));
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.Fields(99)), Hr(0x800A0CC1));

  rs.Find("code = 'c4'");  // text compares without regard to case
  ASSERT_FALSE(rs.Eof());
  EXPECT_EQ(rs.Fields("id").Value().ToInt32(), 4);
  rs.Find("qty >= 20", 1);  // skips the current row
  EXPECT_EQ(rs.Fields("id").Value().ToInt32(), 5);
  rs.Find("code LIKE 'C2*'", 0, adSearchBackward);
  EXPECT_EQ(rs.Fields("id").Value().ToInt32(), 2);
  rs.Find("code = 'none'");
  EXPECT_TRUE(rs.Eof());
  rs.MoveFirst();
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.Find("code = ")), Hr(0x800A0BB9));
  EXPECT_EQ(rs.Fields("id").Value().ToInt32(), 1);  // a bad criteria leaves the position

  rs.SetFilter("qty > 15 AND (active = true OR [code] = 'C4')");
  EXPECT_EQ(rs.RecordCount(), 3);  // 3, 4, 5
  EXPECT_EQ(rs.Fields("id").Value().ToInt32(), 3);
  rs.SetFilter("descr = NULL");
  EXPECT_EQ(rs.RecordCount(), 1);
  EXPECT_EQ(rs.Fields("id").Value().ToInt32(), 2);
  rs.SetFilter(std::int32_t{adFilterNone});
  EXPECT_EQ(rs.RecordCount(), 6);
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.SetFilter("nope = 1")), Hr(0x800A0BB9));

  // Filter on a streaming recordset reads the rest of its rows.
  auto fwd = cn->Execute("SELECT [id], [code] FROM [zt_find] ORDER BY [id]");
  fwd->SetFilter("id > 4");
  EXPECT_EQ(fwd->RecordCount(), 2);
}

TEST_P(EngineTest, ImmediateEdits) {
  MakeTable("zt_edit", 3);
  Recordset rs;
  rs.Open("SELECT * FROM [zt_edit] ORDER BY [id]", cn, adOpenKeyset, adLockOptimistic);
  rs.Fields("descr").SetValue("changed");
  EXPECT_EQ(rs.EditMode(), adEditInProgress);
  EXPECT_EQ(rs.Fields("descr").OriginalValue().ToText(), "row 1");
  rs.Update();
  EXPECT_EQ(Count("zt_edit", "[descr] = 'changed'"), 1);
  EXPECT_EQ(rs.Fields("descr").OriginalValue().ToText(), "changed");

  rs.MoveNext();
  rs.Fields("qty").SetValue(999);
  rs.CancelUpdate();
  EXPECT_EQ(rs.Fields("qty").Value().ToInt32(), 20);
  EXPECT_EQ(Count("zt_edit", "[qty] = 999"), 0);

  // A text longer than the column is refused and nothing changes.
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.Fields("code").SetValue(std::string(51, 'x'))), Hr(0x80040E21));
  EXPECT_EQ(rs.EditMode(), adEditNone);

  rs.AddNew();
  rs.Fields("id").SetValue(10);
  rs.Fields("code").SetValue("NEW");
  rs.Update();
  EXPECT_EQ(Count("zt_edit"), 4);
  EXPECT_TRUE(rs.Fields("qty").Value().IsNull());

  rs.MoveFirst();
  rs.Delete();
  EXPECT_EQ(Count("zt_edit", "[id] = 1"), 0);
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.Fields("id").Value()), Hr(0x800A0BCD));
  rs.MoveNext();
  EXPECT_EQ(rs.Fields("id").Value().ToInt32(), 2);

  // Another session changed the row since it was read.
  cn->Execute("UPDATE [zt_edit] SET [code] = 'OTHER' WHERE [id] = 2");
  Recordset stale;
  stale.Open("SELECT [code], [qty] FROM [zt_edit] WHERE [id] = 3", cn, adOpenStatic,
             adLockOptimistic);
  cn->Execute("DELETE FROM [zt_edit] WHERE [id] = 3");
  stale.Fields("qty").SetValue(5);
  EXPECT_EQ(ZT_ERROR_NUMBER(stale.Update()), Hr(0x80040E38));

  Recordset ro;
  ro.Open("SELECT * FROM [zt_edit]", cn, adOpenStatic, adLockReadOnly);
  EXPECT_EQ(ZT_ERROR_NUMBER(ro.Fields("qty").SetValue(1)), Hr(0x800A0CB3));
  EXPECT_EQ(ZT_ERROR_NUMBER(ro.AddNew()), Hr(0x800A0CB3));

  // A table without a key: the same row, added or read, can be changed again and again (on
  // PostgreSQL every write moves the row to a new ctid).
  cn->Execute("DROP TABLE IF EXISTS [zt_nokey]");
  cn->Execute("CREATE TABLE [zt_nokey] ([a] INTEGER, [b] VARCHAR(10))");
  cn->Execute("INSERT INTO [zt_nokey] ([a], [b]) VALUES (1, 'x')");
  Recordset nk;
  nk.Open("zt_nokey", cn, adOpenKeyset, adLockOptimistic, adCmdTable);
  nk.AddNew();
  nk.Fields("a").SetValue(2);
  nk.Update();
  for (const char* b : {"y", "z"}) {
    nk.MoveFirst();
    nk.Fields("b").SetValue(b);
    nk.Update();
    nk.MoveLast();
    nk.Fields("b").SetValue(b);
    nk.Update();
  }
  EXPECT_EQ(Count("zt_nokey", "[b] = 'z'"), 2);
  nk.Delete();
  EXPECT_EQ(Count("zt_nokey"), 1);
  nk.Close();
  cn->Execute("DROP TABLE [zt_nokey]");
}

// A table without a key whose rows are identical in every column: deleting the current row
// deletes that one row, as a cursor positioned on it would, not all of its twins.
TEST_P(EngineTest, KeylessTwinsAreDeletedOneAtATime) {
  cn->Execute("DROP TABLE IF EXISTS [zt_twins]");
  cn->Execute("CREATE TABLE [zt_twins] ([n] " + GetParam().t_int + ", [t] " + GetParam().t_text50 +
              ")");
  for (int i = 0; i < 3; ++i) cn->Execute("INSERT INTO [zt_twins] ([n], [t]) VALUES (1, 'a')");
  cn->Execute("INSERT INTO [zt_twins] ([n], [t]) VALUES (2, 'b')");
  {
    Recordset rs;
    rs.Open("SELECT [n], [t] FROM [zt_twins] ORDER BY [n]", cn, adOpenKeyset, adLockOptimistic);
    rs.Delete();
    rs.MoveNext();
    rs.Delete();
  }
  EXPECT_EQ(Count("zt_twins", "[n] = 1"), 1);
  EXPECT_EQ(Count("zt_twins"), 2);
  cn->Execute("DROP TABLE [zt_twins]");
}

TEST_P(EngineTest, BatchUpdates) {
  MakeTable("zt_batch", 3);
  Recordset rs;
  rs.Open("zt_batch", cn, adOpenKeyset, adLockBatchOptimistic, adCmdTable);
  rs.Find("id = 1");
  rs.Fields("qty").SetValue(111);
  rs.Update();
  rs.Find("id = 2");
  rs.Delete();
  rs.AddNew();
  rs.Fields("id").SetValue(4);
  rs.Fields("code").SetValue("C4");
  rs.Update();
  EXPECT_EQ(Count("zt_batch"), 3);  // nothing written yet
  EXPECT_EQ(Count("zt_batch", "[qty] = 111"), 0);
  rs.SetFilter(std::int32_t{adFilterPendingRecords});
  EXPECT_EQ(rs.RecordCount(), 2);  // the deleted row is not shown
  rs.SetFilter(std::int32_t{adFilterNone});
  rs.UpdateBatch();
  EXPECT_EQ(Count("zt_batch"), 3);
  EXPECT_EQ(Count("zt_batch", "[qty] = 111"), 1);
  EXPECT_EQ(Count("zt_batch", "[id] = 2"), 0);
  EXPECT_EQ(Count("zt_batch", "[code] = 'C4'"), 1);

  // A batch that fails part-way leaves the table as it was.
  rs.MoveFirst();
  rs.Fields("qty").SetValue(222);
  rs.Update();
  rs.AddNew();
  rs.Fields("id").SetValue(3);  // duplicate key
  rs.Fields("code").SetValue("DUP");
  rs.Update();
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.UpdateBatch()), Hr(0x80040E2F));
  EXPECT_EQ(Count("zt_batch", "[qty] = 222"), 0);
  EXPECT_EQ(Count("zt_batch"), 3);
  rs.CancelBatch();
  rs.SetFilter(std::int32_t{adFilterPendingRecords});
  EXPECT_EQ(rs.RecordCount(), 0);
}

TEST_P(EngineTest, FieldTypesSizesAndNullability) {
  const Engine& e = GetParam();
  MakeTable("zt_types", 2);
  Recordset rs;
  rs.Open("SELECT * FROM [zt_types] ORDER BY [id]", cn, adOpenStatic, adLockReadOnly);
  struct Expect {
    const char* name;
    std::int32_t type;
    std::int64_t size;  // 0: not checked
    bool nullable;
  };
  const Expect expected[] = {
      {"id", adInteger, 4, false},     {"code", adVarWChar, 50, false},
      {"descr", e.memo_code, 0, true}, {"qty", adInteger, 4, true},
      {"ratio", adDouble, 8, true},    {"price", e.money_code, 0, true},
      {"active", adBoolean, 0, true},  {"created", e.date_code, 0, true},
  };
  ASSERT_EQ(rs.GetFields().Count(), 8);
  for (const auto& x : expected) {
    SCOPED_TRACE(x.name);
    Field& f = rs.Fields(x.name);
    EXPECT_EQ(f.Type(), x.type);
    if (x.size) {
      EXPECT_EQ(f.DefinedSize(), x.size);
    }
    EXPECT_EQ((f.Attributes() & adFldIsNullable) != 0, x.nullable);
  }
  EXPECT_EQ(rs.Fields("descr").Attributes() & adFldLong, adFldLong);
  EXPECT_EQ(rs.Fields("code").Value().ToText(), "C1");
  EXPECT_EQ(rs.Fields("ratio").Value().ToDouble(), 0.5);
  EXPECT_EQ(rs.Fields("price").Value().ToDouble(), 1.25);
  EXPECT_TRUE(rs.Fields("active").Value().ToBool());
  EXPECT_EQ(rs.Fields("created").Value().Type(), VarType::Date);
  EXPECT_EQ(Variant::Compare(rs.Fields("created").Value(), Date::FromParts(2024, 1, 1, 8, 30)), 0);
  rs.MoveNext();
  EXPECT_FALSE(rs.Fields("active").Value().ToBool());
  EXPECT_TRUE(rs.Fields("descr").Value().IsNull());
}

TEST_P(EngineTest, SchemaRowsets) {
  const Engine& e = GetParam();
  cn->Execute("DROP VIEW IF EXISTS [zt_schema_v]");
  cn->Execute("DROP TABLE IF EXISTS [zt_schema_ref]");
  MakeTable("zt_schema", 1);
  cn->Execute("CREATE VIEW [zt_schema_v] AS SELECT [id] FROM [zt_schema]");
  cn->Execute("CREATE TABLE [zt_schema_ref] ([id] " + e.t_int + " NOT NULL PRIMARY KEY, [parent] " +
              e.t_int + ", CONSTRAINT [fk_ref_parent] FOREIGN KEY ([parent]) REFERENCES " +
              "[zt_schema] ([id]) ON DELETE CASCADE)");
  const Variant none;
  const Variant schema = e.has_schemas ? Variant("") : none;

  auto tables = cn->OpenSchema(adSchemaTables, Variant::Array({none, schema, "zt_schema"}));
  ASSERT_EQ(tables->RecordCount(), 1);
  EXPECT_EQ(tables->Value("TABLE_TYPE").ToText(), "TABLE");
  EXPECT_EQ(tables->Value("TABLE_SCHEMA").IsNull(), !e.has_schemas);
  auto views = cn->OpenSchema(adSchemaTables, Variant::Array({none, schema, none, "VIEW"}));
  views->Find("TABLE_NAME = 'zt_schema_v'");
  EXPECT_FALSE(views->Eof());
  auto all = cn->OpenSchema(adSchemaTables);
  all->SetFilter("TABLE_NAME = 'zt_schema' AND TABLE_TYPE = 'TABLE'");
  EXPECT_EQ(all->RecordCount(), 1);

  auto cols = cn->OpenSchema(adSchemaColumns, Variant::Array({none, schema, "zt_schema"}));
  EXPECT_EQ(cols->RecordCount(), 8);
  cols->Find("COLUMN_NAME = 'code'");
  ASSERT_FALSE(cols->Eof());
  EXPECT_EQ(cols->Value("DATA_TYPE").ToInt32(), adVarWChar);
  EXPECT_EQ(cols->Value("CHARACTER_MAXIMUM_LENGTH").ToInt32(), 50);
  EXPECT_FALSE(cols->Value("IS_NULLABLE").ToBool());
  EXPECT_EQ(cols->Value("ORDINAL_POSITION").ToInt32(), 2);
  cols->Find("COLUMN_NAME = 'qty'");
  EXPECT_TRUE(cols->Value("IS_NULLABLE").ToBool());
  EXPECT_EQ(cols->Value("COLUMN_FLAGS").ToInt32() & adFldIsNullable, adFldIsNullable);

  auto idx =
      cn->OpenSchema(adSchemaIndexes, Variant::Array({none, schema, none, none, "zt_schema"}));
  idx->SetFilter("TABLE_NAME = 'zt_schema'");
  bool pk = false, unique_code = false;
  while (!idx->Eof()) {
    if (idx->Value("PRIMARY_KEY").ToBool() && idx->Value("COLUMN_NAME").ToText() == "id") pk = true;
    if (idx->Value("UNIQUE").ToBool() && !idx->Value("PRIMARY_KEY").ToBool() &&
        idx->Value("COLUMN_NAME").ToText() == "code")
      unique_code = true;
    idx->MoveNext();
  }
  EXPECT_TRUE(pk);
  EXPECT_TRUE(unique_code);

  auto pks = cn->OpenSchema(adSchemaPrimaryKeys, Variant::Array({none, schema, "zt_schema"}));
  ASSERT_EQ(pks->RecordCount(), 1);
  EXPECT_EQ(pks->Value("COLUMN_NAME").ToText(), "id");
  EXPECT_EQ(pks->Value("ORDINAL").ToInt32(), 1);
  EXPECT_FALSE(pks->Value("PK_NAME").ToText().empty());

  // Views with their query; relationships by the table they refer to and the table holding
  // them, one row per column pair, with their rules.
  auto view_text = cn->OpenSchema(adSchemaViews, Variant::Array({none, schema, "ZT_SCHEMA_V"}));
  ASSERT_EQ(view_text->RecordCount(), 1);
  EXPECT_NE(view_text->Value("VIEW_DEFINITION").ToText().find("zt_schema"), std::string::npos);
  auto fks = cn->OpenSchema(adSchemaForeignKeys,
                            Variant::Array({none, schema, "zt_schema", none, none, none}));
  ASSERT_EQ(fks->RecordCount(), 1);
  EXPECT_EQ(fks->Value("FK_TABLE_NAME").ToText(), "zt_schema_ref");
  EXPECT_EQ(fks->Value("FK_COLUMN_NAME").ToText(), "parent");
  EXPECT_EQ(fks->Value("PK_COLUMN_NAME").ToText(), "id");
  EXPECT_EQ(fks->Value("DELETE_RULE").ToText(), "CASCADE");
  EXPECT_EQ(fks->Value("UPDATE_RULE").ToText(), "NO ACTION");
  EXPECT_EQ(cn->OpenSchema(adSchemaForeignKeys,
                           Variant::Array({none, none, none, none, none, "zt_schema"}))
                ->RecordCount(),
            0);
  cn->Execute("DROP TABLE [zt_schema_ref]");

  // A schema that does not exist restricts to nothing; other rowsets are refused.
  EXPECT_EQ(cn->OpenSchema(adSchemaTables, Variant::Array({"zt_no_catalog", none, "zt_schema"}))
                ->RecordCount(),
            0);
  EXPECT_EQ(ZT_ERROR_NUMBER(cn->OpenSchema(19)), Hr(0x800A0CB3));
}

TEST_P(EngineTest, PreparedStatementsAndBulk) {
  MakeTable("zt_bulk", 0);
  {
    BulkInserter bulk(*cn, "zt_bulk", {"id", "code", "qty"});
    for (int i = 1; i <= 500; ++i) bulk.AddRow({i, "B" + std::to_string(i), i});
    EXPECT_EQ(ZT_ERROR_NUMBER(bulk.AddRow({1})), Hr(0x800A0BB9));
    bulk.Finish();
  }
  EXPECT_EQ(Count("zt_bulk"), 500);
  {
    BulkInserter abandoned(*cn, "zt_bulk", {"id", "code"});
    abandoned.AddRow({1000, "X"});
  }  // never finished: nothing kept
  EXPECT_EQ(Count("zt_bulk"), 500);
  {
    // A duplicate key ends the load where the engine notices it (at its row or at Finish);
    // every call after that is refused, and nothing of the load is kept.
    BulkInserter failing(*cn, "zt_bulk", {"id", "code"});
    std::vector<std::int32_t> errors;
    for (int id : {2000, 1, 2001}) errors.push_back(ZT_ERROR_NUMBER(failing.AddRow({id, "D"})));
    errors.push_back(ZT_ERROR_NUMBER(failing.Finish()));
    const auto first = std::find_if(errors.begin(), errors.end(), [](auto n) { return n != 0; });
    ASSERT_NE(first, errors.end());
    EXPECT_EQ(*first, Hr(0x80040E2F));
    for (auto later = first + 1; later != errors.end(); ++later) EXPECT_EQ(*later, Hr(0x800A0E78));
  }
  EXPECT_EQ(Count("zt_bulk"), 500);

  PreparedStatement upd(*cn, "UPDATE [zt_bulk] SET [qty] = ? WHERE [id] <= ?");
  EXPECT_EQ(upd.ParameterCount(), 2);
  upd.Bind(0, 7);
  upd.Bind(1, 10);
  EXPECT_EQ(upd.Execute(), 10);
  EXPECT_EQ(ZT_ERROR_NUMBER(upd.Bind(2, 1)), Hr(0x800A0BB9));

  Command cmd;
  cmd.SetActiveConnection(cn);
  cmd.SetCommandText("SELECT COUNT(*) FROM [zt_bulk] WHERE [qty] = ?");
  cmd.Parameters() = {7};
  EXPECT_EQ(cmd.Execute()->Fields(0).Value().ToInt32(), 10);
  EXPECT_EQ(cmd.Execute(nullptr, adExecuteNoRecords)->State(), adStateClosed);

  // Binary values, NULs and all, bound as bytes one statement at a time and by the bulk load,
  // come back byte for byte (stored as bytes: SQLite's blob class, PostgreSQL's bytea).
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(255 - i);
  cn->Execute("CREATE TABLE [zt_bytes] ([id] INTEGER, [b] " + cn->Dialect().ColumnType(11, 0) +
              ")");
  PreparedStatement ins(*cn, "INSERT INTO [zt_bytes] ([id], [b]) VALUES (?, ?)");
  ins.Bind(0, 1);
  ins.BindBytes(1, bytes);
  ins.Execute();
  {
    BulkInserter bulk(*cn, "zt_bytes", {"id", "b"});
    bulk.AddRow({2, bytes});
    bulk.Finish();
  }
  auto back = cn->Execute("SELECT [b] FROM [zt_bytes] ORDER BY [id]");
  for (int row = 1; row <= 2; ++row, back->MoveNext()) {
    ASSERT_FALSE(back->Eof()) << row;
    const Variant v = back->Fields(0).Value();
    ASSERT_NE(v.AsString(), nullptr) << row;
    EXPECT_EQ(*v.AsString(), bytes) << row;
  }
  if (cn->Engine() == "SQLite") {
    EXPECT_EQ(cn->Execute("SELECT COUNT(*) FROM [zt_bytes] WHERE typeof([b]) = 'blob'")
                  ->Fields(0)
                  .Value()
                  .ToInt32(),
              2);
  }
  cn->Execute("DROP TABLE [zt_bytes]");
}

TEST_P(EngineTest, LoginFailuresAndLostSessions) {
  const Engine& e = GetParam();
  auto other = std::make_shared<Connection>();
  if (e.env_prefix.empty()) {  // no server: a file that cannot be opened is the general failure
    EXPECT_EQ(ZT_ERROR_NUMBER(other->Open(e.ConnectionString("/nonexistent/dir/x.db"))),
              Hr(0x80004005));
    EXPECT_EQ(other->State(), adStateClosed);
    return;
  }
  // A wrong password is a login failure, and the password is not repeated in the message.
  try {
    other->Open(e.ConnectionString(""), "", "wrong-Pa55word");
    ADD_FAILURE() << "a wrong password was accepted";
  } catch (const ZtError& err) {
    EXPECT_EQ(err.Number(), Hr(0x80040E4D)) << err.Description();
    EXPECT_EQ(err.Description().find("wrong-Pa55word"), std::string::npos);
  }
  EXPECT_EQ(other->State(), adStateClosed);

  // Nothing listening: a general failure, so the data store's retry list applies.
  std::string refused = e.ConnectionString("");
  refused.replace(refused.find("Port=") + 5,
                  refused.find(';', refused.find("Port=")) - refused.find("Port=") - 5, "1");
  EXPECT_EQ(ZT_ERROR_NUMBER(other->Open(refused)), Hr(0x80004005));

  // A session ended by the server is not reported open any more.
  const std::string id = cn->Execute(e.session_id_sql)->Fields(0).Value().ToText();
  other->Open(e.ConnectionString(""));
  std::string kill = e.kill_sql;
  kill.replace(kill.find("%1"), 2, id);
  other->Execute(kill);
  EXPECT_EQ(ZT_ERROR_NUMBER(cn->Execute("SELECT 1")), Hr(0x80004005));
  EXPECT_EQ(cn->State(), adStateClosed);
  EXPECT_FALSE(cn->IsAlive());
  cn->Close();
  cn->Open();  // and it can be opened again with its stored string
  EXPECT_TRUE(cn->IsAlive());
}

TEST_P(EngineTest, DialectColumnTypesAndColumnChanges) {
  const platform::Dialect& d = cn->Dialect();
  EXPECT_EQ(std::string(d.Engine()), GetParam().name);
  // A table of every DAO type, keyed on its Text column (a key on a TEXT/BLOB column is refused
  // by MariaDB, a length on TEXT by PostgreSQL), takes a row of each type and gives it back.
  cn->Execute("DROP TABLE IF EXISTS [zt_dialect]");
  const std::vector<std::int32_t> codes = {1, 2, 3, 4, 5, 6, 7, 8, 10, 11, 12, 15};
  std::string sql = "CREATE TABLE [zt_dialect] (";
  for (auto code : codes)
    sql += "[c" + std::to_string(code) + "] " + cn->ColumnType(code, 20) +
           (code == 10 ? " NOT NULL PRIMARY KEY" : "") + (code == 15 ? ")" : ", ");
  cn->Execute(sql);
  PreparedStatement ins(*cn,
                        "INSERT INTO [zt_dialect] ([c1], [c2], [c3], [c4], [c7], [c10], [c12], "
                        "[c15]) VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
  const std::vector<Variant> row = {Variant(true),
                                    Variant(200),
                                    Variant(-32000),
                                    Variant(2000000000),
                                    Variant(2.5),
                                    Variant("twenty characters!!!"),
                                    Variant(std::string(5000, 'm')),
                                    Variant("{6F9619FF-8B86-D011-B42D-00C04FC964FF}")};
  for (std::size_t i = 0; i < row.size(); ++i) ins.Bind(static_cast<int>(i), row[i]);
  EXPECT_EQ(ins.Execute(), 1);
  auto rs = cn->Execute("SELECT [c2], [c4], [c10], [c12], [c15] FROM [zt_dialect]");
  EXPECT_EQ(rs->Fields(0).Value().ToInt32(), 200);
  EXPECT_EQ(rs->Fields(1).Value().ToInt32(), 2000000000);
  EXPECT_EQ(rs->Fields(2).Value().ToText(), "twenty characters!!!");
  EXPECT_EQ(rs->Fields(3).Value().ToText().size(), 5000u);
  EXPECT_EQ(rs->Fields(4).Value().ToText().size(), 38u);
  rs->Close();
  EXPECT_THROW(cn->ColumnType(9, 0), ZtError);

  // Add, rename, change and drop a column with the engine's own statements.
  cn->Execute(d.AddColumn("zt_dialect", "nExtra", cn->ColumnType(4, 0)));
  cn->Execute("UPDATE [zt_dialect] SET [nExtra] = 7");
  cn->Execute(d.RenameColumn("zt_dialect", "nExtra", "nMore"));
  // Where the engine cannot change a column in place, the dialect rebuilds the table.
  const auto to_text = [&](const std::string&) { return "[nMore] " + cn->ColumnType(10, 10); };
  if (d.RebuildsTables()) {
    EXPECT_EQ(d.AlterColumn("zt_dialect", "nMore", cn->ColumnType(10, 10)), "");
    EXPECT_THROW(d.RebuildTable(*cn, "zt_dialect", "nNone", to_text), ZtError);
    d.RebuildTable(*cn, "zt_dialect", "nMore", to_text);
  } else {
    EXPECT_THROW(d.RebuildTable(*cn, "zt_dialect", "nMore", to_text), ZtError);
    cn->Execute(d.AlterColumn("zt_dialect", "nMore", cn->ColumnType(10, 10)));
  }
  EXPECT_EQ(Count("zt_dialect"), 1);
  rs = cn->Execute("SELECT [nMore] FROM [zt_dialect]");
  EXPECT_EQ(rs->Fields(0).Value().ToText(), "7");
  rs->Close();
  cn->Execute(d.DropColumn("zt_dialect", "nMore"));
  EXPECT_THROW(cn->Execute("SELECT [nMore] FROM [zt_dialect]"), ZtError);

  // The database's size and the roster come from the engine. Other suites share this database
  // while they run, so the roster is only read here; the data-store suite checks who is on it
  // in a database of its own.
  if (!d.SizeQuery().empty()) {
    rs = cn->Execute(d.SizeQuery());
    EXPECT_GT(rs->Fields(0).Value().ToInt64(), 0);
    rs->Close();
  }
  if (!d.RosterQuery().empty()) {
    rs = cn->Execute(d.RosterQuery());
    EXPECT_TRUE(rs->State() != adStateOpen || rs->GetFields().Count() == 2);
  }
}

// A caller's table name is one name on every engine: a name that tries to end the bracket early
// and comment out the rest reaches no table and deletes nothing; a real name holding "]" works.
TEST_P(EngineTest, TableNamesCannotChangeTheStatement) {
  RecordingEnv env;
  MakeTable("tblTickets", 20);
  CZtDataStore ds;
  ds.DataStoreConnection(cn);
  for (const std::string name : {"tblTickets] --", "tblTickets] #",
                                 "tblTickets]; DELETE FROM [tblTickets", "tblTickets]]"}) {
    EXPECT_THROW(ds.DeleteTableRecords(name, "id=5"), ZtError) << name;
    EXPECT_THROW(ds.DeleteTableRecords(name), ZtError) << name;
    EXPECT_THROW(ds.DeleteTable(name), ZtError) << name;
    EXPECT_EQ(Count("tblTickets"), 20) << name;
  }
  EXPECT_EQ(ds.DeleteTableRecords("tblTickets", "id=5"), 1);
  EXPECT_EQ(Count("tblTickets"), 19);

  const Engine& e = GetParam();
  cn->Execute("CREATE TABLE [zt_odd]]name] ([id] " + e.t_int + ", [a\"b`c] " + e.t_int + ")");
  cn->Execute("INSERT INTO [zt_odd]]name] ([id], [a\"b`c]) VALUES (1, 2)");
  cn->Execute("INSERT INTO [zt_odd]]name] ([id], [a\"b`c]) VALUES (3, 4)");
  EXPECT_EQ(Count("zt_odd]]name", "[a\"b`c] = 4"), 1);
  EXPECT_EQ(ds.DeleteTableRecords("zt_odd]name", "[a\"b`c] = 2"), 1);
  EXPECT_EQ(ds.DeleteTableRecords("zt_odd]name"), 1);
  ds.DeleteTable("zt_odd]name");
  EXPECT_THROW(Count("zt_odd]]name"), ZtError);
}

// Where an engine tells "TblMixed" from tblmixed, a bracketed name reaches the table of exactly
// that name when there is one, and the folded one otherwise (also once the exact one is gone).
TEST_P(EngineTest, ExactlyNamedTablesAreTheOnesReached) {
  RecordingEnv env;
  const Engine& e = GetParam();
  cn->Execute("DROP TABLE IF EXISTS [tblmixed]");
  cn->Execute("CREATE TABLE [tblmixed] ([id] " + e.t_int + ")");
  // A lookup before the exact table exists, so that what the session knows must be renewed.
  try {
    cn->Execute("SELECT * FROM [TblMixed]");
  } catch (const ZtError&) {
  }
  bool both = false;
  for (const char* create :
       {"CREATE TABLE \"TblMixed\" (id INT)", "CREATE TABLE [TblMixed] (id INT)"}) {
    try {
      cn->Execute(create);
      both = true;
      break;
    } catch (const ZtError&) {
    }
  }
  if (!both) GTEST_SKIP() << e.name << " does not tell the two names apart";
  for (int i = 1; i <= 3; ++i)
    cn->Execute("INSERT INTO [tblmixed] ([id]) VALUES (" + std::to_string(i) + ")");
  cn->Execute("INSERT INTO [TblMixed] ([id]) VALUES (9)");
  CZtDataStore ds;
  ds.DataStoreConnection(cn);
  EXPECT_EQ(ds.DeleteTableRecords("TblMixed"), 1);
  EXPECT_EQ(Count("tblmixed"), 3);
  ds.DeleteTable("TblMixed");
  EXPECT_EQ(Count("tblmixed"), 3);
  cn->Execute("DROP TABLE [tblmixed]");
}

// Engine failures keep the engine's SQLSTATE, native code and kind beside the number.
TEST_P(EngineTest, ErrorsCarryTheEngineReport) {
  MakeTable("zt_err", 2);
  auto failure = [&](const std::string& sql) -> ZtError {
    try {
      cn->Execute(sql);
    } catch (const ZtError& e) {
      return e;
    }
    ADD_FAILURE() << sql << " did not fail";
    return ZtError(0, "", "");
  };
  const ZtError dup = failure("INSERT INTO [zt_err] ([id], [code]) VALUES (7, 'C1')");
  EXPECT_EQ(dup.Number(), hr::kIntegrity);
  EXPECT_EQ(dup.Category(), ErrorCategory::kIntegrity);
  EXPECT_EQ(dup.SqlState().substr(0, 2), "23") << dup.SqlState();

  const ZtError syntax = failure("SELEKT nothing");
  EXPECT_EQ(syntax.Number(), hr::kCommand);
  EXPECT_EQ(syntax.Category(), ErrorCategory::kSyntax);
  EXPECT_EQ(syntax.SqlState().substr(0, 2), "42") << syntax.SqlState();

  const ZtError missing = failure("SELECT * FROM [zt_no_such_table]");
  EXPECT_EQ(missing.Category(), ErrorCategory::kNoTable);

  // The five values and texts stay what they were.
  EXPECT_EQ(dup.Source(), GetParam().provider);
  const std::string code =
      dup.NativeError() != 0 ? std::to_string(dup.NativeError()) : dup.SqlState();
  EXPECT_NE(dup.Description().find("(" + code + ")"), std::string::npos) << dup.Description();

  // A statement that runs far past the command time-out is ended by it.
  MakeTable("zt_ten", 10);
  std::string join = "SELECT COUNT(*) FROM [zt_ten] t0";  // 10^9 combinations
  for (int i = 1; i < 9; ++i) join += ", [zt_ten] t" + std::to_string(i);
  cn->SetCommandTimeout(1);
  const auto start = std::chrono::steady_clock::now();
  const ZtError slow = failure(join);
  cn->SetCommandTimeout(0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_EQ(slow.Number(), hr::kTimeout) << slow.Description();
  EXPECT_EQ(slow.Category(), ErrorCategory::kTimeout) << slow.Description();
  EXPECT_FALSE(slow.SqlState().empty());
  EXPECT_EQ(Count("zt_err"), 2);
}

// Two sessions that each wait for the other: one of them is told that its work was given up and
// may be run again (a deadlock on servers; SQLite refuses the second writer at once).
TEST_P(EngineTest, DeadlockVictimsAreToldSo) {
  MakeTable("zt_lock", 2);
  std::atomic<bool> first_done{false};
  std::optional<ZtError> theirs;
  std::thread other([&] {
    auto c = std::make_shared<Connection>();  // a connection belongs to its thread
    try {
      c->Open(GetParam().ConnectionString(file_));
      c->BeginTrans();
      c->Execute("UPDATE [zt_lock] SET [qty] = 2 WHERE [id] = 2");
      first_done = true;
      c->Execute("UPDATE [zt_lock] SET [qty] = 2 WHERE [id] = 1");
      c->CommitTrans();
    } catch (const ZtError& e) {
      theirs = e;
      first_done = true;
    }
    c->Close();
  });
  std::optional<ZtError> mine;
  try {
    cn->BeginTrans();
    cn->Execute("UPDATE [zt_lock] SET [qty] = 1 WHERE [id] = 1");
    while (!first_done) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    cn->Execute("UPDATE [zt_lock] SET [qty] = 1 WHERE [id] = 2");
    cn->CommitTrans();
  } catch (const ZtError& e) {
    mine = e;
    cn->RollbackTrans();
  }
  other.join();
  ASSERT_NE(mine.has_value(), theirs.has_value()) << "exactly one session gives way";
  const ZtError& victim = mine ? *mine : *theirs;
  EXPECT_TRUE(victim.Category() == ErrorCategory::kDeadlock ||
              victim.Category() == ErrorCategory::kBusy)
      << victim.Description() << " [" << victim.SqlState() << "]";
  EXPECT_EQ(victim.Number(), hr::kFail) << "still retried by the data store's list";
}

INSTANTIATE_TEST_SUITE_P(Engines, EngineTest, ::testing::ValuesIn(AllEngines()),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace zt::testing
