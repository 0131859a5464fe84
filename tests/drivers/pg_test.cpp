// The native PostgreSQL driver against a real server.
#include <gtest/gtest.h>

#include <chrono>

#include "engines.h"
#include "platform/errors.h"

namespace zt::testing {
namespace {

using platform::SchemaKind;
using platform::SchemaRestrictions;

class PostgresDriver : public ::testing::Test {
 protected:
  void SetUp() override {
    text_ = ServerConnectionString("PostgreSQL", "PG");
    ZT_NEED_ENGINE(text_, "PostgreSQL (DBTEST_PG_PORT)");
    conn_ = OpenBackend(*text_);
    // Test programs run in parallel and these tests share their tables: one at a time (the lock
    // goes with the session).
    Rows(*conn_, "SELECT pg_advisory_lock(7401)");
    Exec(*conn_, "DROP SCHEMA IF EXISTS zt_other CASCADE");
    Exec(*conn_, "DROP TABLE IF EXISTS zt_pg_items");
    Exec(*conn_,
         "CREATE TABLE zt_pg_items (id serial PRIMARY KEY, code varchar(50) NOT NULL, "
         "descr text, active boolean, amount double precision, price numeric(12,2), "
         "cash money, created timestamp, big bigint, note varchar)");
    Exec(*conn_, "CREATE INDEX in_two ON zt_pg_items (active, amount)");
  }
  void TearDown() override {
    if (!conn_) return;
    Exec(*conn_, "DROP TABLE IF EXISTS zt_pg_items");
    Exec(*conn_, "DROP SCHEMA IF EXISTS zt_other CASCADE");
  }
  std::int64_t Count() {
    return Rows(*conn_, "SELECT count(*) FROM zt_pg_items").rows[0][0].ToInt64();
  }
  std::optional<std::string> text_;
  std::unique_ptr<platform::ConnectionBackend> conn_;
};

TEST_F(PostgresDriver, PreparedStatementsBindValuesAndDescribeFields) {
  auto insert = conn_->Prepare(
      "INSERT INTO zt_pg_items (code, descr, active, amount, price, cash, created, big) "
      "VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
  EXPECT_EQ(insert->ParameterCount(), 8);
  const Date when = Date::FromParts(2024, 2, 29, 23, 59, 58);
  const std::vector<std::vector<Variant>> rows = {
      {"a'b\\c", "multi\nline\ttext Grüße 東京", true, 2.5, 10.25, Currency{102500}, when,
       std::int64_t{5000000000}},
      {"zwei", Variant::Null(), false, -1e-5, 0.0, Currency{-30000}, Variant::Null(), 0}};
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) insert->Bind(static_cast<int>(i), row[i]);
    insert->Execute();
    EXPECT_EQ(insert->RowsAffected(), 1);
  }
  auto rs = Rows(*conn_,
                 "SELECT id, code, descr, active, amount, price, cash, created, big, note, "
                 "code || '!' AS shout FROM zt_pg_items ORDER BY id");
  ASSERT_EQ(rs.rows.size(), 2u);
  const auto& a = rs.rows[0];
  EXPECT_EQ(a[1].ToText(), "a'b\\c");
  EXPECT_EQ(a[2].ToText(), "multi\nline\ttext Grüße 東京");
  EXPECT_EQ(a[3].Type(), VarType::Boolean);
  EXPECT_TRUE(a[3].ToBool());
  EXPECT_DOUBLE_EQ(a[4].ToDouble(), 2.5);
  EXPECT_DOUBLE_EQ(a[5].ToDouble(), 10.25);
  // numeric(12,2) arrives as its exact digits, scale kept, not through a double.
  EXPECT_EQ(a[5].Type(), VarType::Decimal);
  EXPECT_EQ(a[5].ToText(), "10.25");
  EXPECT_EQ(a[6].Type(), VarType::Currency);
  EXPECT_DOUBLE_EQ(a[6].ToDouble(), 10.25);
  EXPECT_EQ(a[7].Type(), VarType::Date);
  EXPECT_NEAR(a[7].ToDouble(), when.serial, 1e-6);
  EXPECT_EQ(a[8].ToInt64(), 5000000000);
  const auto& b = rs.rows[1];
  EXPECT_TRUE(b[2].IsNull());
  EXPECT_FALSE(b[3].ToBool());
  EXPECT_DOUBLE_EQ(b[4].ToDouble(), -1e-5);
  EXPECT_DOUBLE_EQ(b[6].ToDouble(), -3.0);
  EXPECT_TRUE(b[7].IsNull());

  const auto& c = rs.columns;
  EXPECT_EQ(c[0].type, 3);
  EXPECT_TRUE(c[0].key_column);
  EXPECT_TRUE(c[0].auto_increment);
  EXPECT_FALSE(c[0].attributes & 0x20);
  EXPECT_EQ(c[0].base_table, "zt_pg_items");
  EXPECT_EQ(c[1].type, 202);
  EXPECT_EQ(c[1].defined_size, 50);
  EXPECT_FALSE(c[1].attributes & 0x20) << "NOT NULL column";
  EXPECT_TRUE(c[2].attributes & 0x20);
  EXPECT_EQ(c[3].type, 11);
  EXPECT_EQ(c[5].type, 131);
  EXPECT_EQ(c[5].precision, 12);
  EXPECT_EQ(c[5].scale, 2);
  EXPECT_EQ(c[6].type, 6);
  EXPECT_EQ(c[7].type, 135);
  EXPECT_EQ(c[8].type, 20);
  EXPECT_EQ(c[9].type, 203) << "an unbounded varchar is a long text";
  EXPECT_EQ(c[10].base_table, "") << "an expression has no base column";
  EXPECT_FALSE(c[10].attributes & 0x4);

  auto upd = conn_->Prepare("UPDATE zt_pg_items SET code = ? WHERE id = ?");
  upd->Bind(0, "neu");
  upd->Bind(1, 99);
  upd->Execute();
  EXPECT_EQ(upd->RowsAffected(), 0);
  upd->Bind(1, a[0]);
  upd->Execute();
  EXPECT_EQ(upd->RowsAffected(), 1);
  // A column added through this connection is described from the catalog like the others.
  Exec(*conn_, "ALTER TABLE zt_pg_items ADD COLUMN extra int NOT NULL DEFAULT 0");
  auto added = Rows(*conn_, "SELECT extra FROM zt_pg_items");
  EXPECT_EQ(added.columns.at(0).base_column, "extra");
  EXPECT_FALSE(added.columns[0].attributes & 0x20);

  // "?" inside literals and comments are not parameters.
  // numeric's values without a Decimal form stay text; money arrives exactly to the last digit.
  auto odd = Rows(*conn_,
                  "SELECT 'NaN'::numeric, 1e40::numeric, '-922337203685477.58'::money, "
                  "'922337203685477.57'::money");
  EXPECT_EQ(odd.rows[0][0].ToText(), "NaN");
  EXPECT_EQ(odd.rows[0][1].Type(), VarType::String);
  EXPECT_EQ(odd.rows[0][1].ToText(), "1" + std::string(40, '0'));
  EXPECT_EQ(odd.rows[0][2].Type(), VarType::Currency);
  EXPECT_EQ(odd.rows[0][2].ToText(), "-922337203685477.58");
  EXPECT_EQ(odd.rows[0][3].ToText(), "922337203685477.57");
  auto lit = Rows(*conn_, "SELECT '?' AS q /* ? */ FROM zt_pg_items WHERE code = 'neu'");
  ASSERT_EQ(lit.rows.size(), 1u);
  EXPECT_EQ(lit.rows[0][0].ToText(), "?");
}

TEST_F(PostgresDriver, CopyBulkLoadsAllRowsOrNone) {
  {
    auto bulk = conn_->BeginBulk("zt_pg_items", {"id", "code", "descr", "active", "created"});
    for (int i = 1; i <= 20000; ++i)
      bulk->AddRow({i, "c" + std::to_string(i),
                    i % 2 ? Variant("tab\there\\ \nnext\r") : Variant::Null(), i % 3 == 0,
                    Date::FromParts(2020, 1, 1 + i % 28, 12, 0, 0)});
    bulk->Finish();
  }
  EXPECT_EQ(Count(), 20000);
  auto rs =
      Rows(*conn_, "SELECT descr, active, created FROM zt_pg_items WHERE id IN (3, 4) ORDER BY id");
  ASSERT_EQ(rs.rows.size(), 2u);
  EXPECT_EQ(rs.rows[0][0].ToText(), "tab\there\\ \nnext\r");
  EXPECT_TRUE(rs.rows[0][1].ToBool());
  EXPECT_NEAR(rs.rows[0][2].ToDouble(), Date::FromParts(2020, 1, 4, 12, 0, 0).serial, 1e-6);
  EXPECT_TRUE(rs.rows[1][0].IsNull());

  // A duplicate key in the stream: the whole load fails and nothing of it stays.
  {
    auto bulk = conn_->BeginBulk("zt_pg_items", {"id", "code"});
    bulk->AddRow({30001, "x"});
    bulk->AddRow({1, "dup"});
    try {
      bulk->Finish();
      FAIL() << "duplicate key loaded";
    } catch (const ZtError& e) {
      EXPECT_EQ(e.Number(), platform::hr::kIntegrity);
      EXPECT_NE(e.Description().find("(23505)"), std::string::npos) << e.Description();
    }
  }
  // A load dropped without Finish keeps nothing either, and the connection goes on.
  {
    auto bulk = conn_->BeginBulk("zt_pg_items", {"id", "code"});
    bulk->AddRow({40001, "y"});
  }
  EXPECT_EQ(Count(), 20000);
  EXPECT_TRUE(conn_->IsAlive());
}

TEST_F(PostgresDriver, StreamedReadsGiveWayToOtherStatements) {
  const auto stream = [&](const std::string& sql) {
    auto st = conn_->Prepare(sql);
    st->StreamRows();
    st->Execute();
    return st;
  };
  // Another statement in the middle of a stream: the stream keeps its place.
  {
    auto st = stream("SELECT g FROM generate_series(1, 1000) g");
    ASSERT_TRUE(st->Fetch());
    EXPECT_EQ(st->Get(0).ToInt32(), 1);
    EXPECT_EQ(Rows(*conn_, "SELECT 41 + 1").rows.at(0).at(0).ToInt32(), 42);
    int n = 1;
    while (st->Fetch()) ++n;
    EXPECT_EQ(n, 1000);
  }
  // Left half-way outside a transaction: the server stops sending and the session goes on.
  {
    auto st = stream("SELECT g FROM generate_series(1, 3000000) g");
    ASSERT_TRUE(st->Fetch());
  }
  EXPECT_EQ(Rows(*conn_, "SELECT 1").rows.size(), 1u);
  // Left half-way inside a transaction: the transaction is the caller's and stays usable.
  conn_->BeginTransaction();
  {
    auto st = stream("SELECT g FROM generate_series(1, 100000) g");
    ASSERT_TRUE(st->Fetch());
  }
  Exec(*conn_, "INSERT INTO zt_pg_items (code) VALUES ('streamed')");
  conn_->Commit();
  EXPECT_EQ(Rows(*conn_, "SELECT code FROM zt_pg_items WHERE code = 'streamed'").rows.size(), 1u);
  // A failing query reports its error when its rows are read.
  EXPECT_THROW(
      {
        auto st = stream("SELECT 1 / (g - 3) FROM generate_series(1, 5) g");
        while (st->Fetch()) {
        }
      },
      ZtError);
  EXPECT_EQ(Rows(*conn_, "SELECT 1").rows.size(), 1u);
}

TEST_F(PostgresDriver, SchemaRowsetsDefaultToTheCurrentSchema) {
  Exec(*conn_, "CREATE SCHEMA zt_other");
  Exec(*conn_, "CREATE TABLE zt_other.zt_pg_items (other_id int PRIMARY KEY)");
  EXPECT_EQ(conn_->DefaultSchema(), "public");

  SchemaRestrictions mine;
  mine.table = "zt_pg_items";
  for (auto kind : {SchemaKind::kTables, SchemaKind::kColumns, SchemaKind::kPrimaryKeys,
                    SchemaKind::kIndexes}) {
    auto rs = conn_->Schema(kind, mine);
    ASSERT_FALSE(rs.rows.empty()) << static_cast<int>(kind);
    for (const auto& row : rs.rows)
      EXPECT_EQ(row[ColumnIndex(rs, "TABLE_SCHEMA")].ToText(), "public") << static_cast<int>(kind);
  }
  SchemaRestrictions other = mine;
  other.schema = "zt_other";
  auto cols = conn_->Schema(SchemaKind::kColumns, other);
  ASSERT_EQ(cols.rows.size(), 1u);
  EXPECT_EQ(cols.rows[0][ColumnIndex(cols, "COLUMN_NAME")].ToText(), "other_id");
  EXPECT_EQ(conn_->PrimaryKeyColumns("zt_pg_items"), std::vector<std::string>{"id"});

  // Every index, not only the constraint-backed ones, with its columns in key order.
  auto idx = conn_->Schema(SchemaKind::kIndexes, mine);
  const int name = ColumnIndex(idx, "INDEX_NAME"), col = ColumnIndex(idx, "COLUMN_NAME"),
            pk = ColumnIndex(idx, "PRIMARY_KEY"), uniq = ColumnIndex(idx, "UNIQUE"),
            pos = ColumnIndex(idx, "ORDINAL_POSITION");
  std::vector<std::string> two;
  bool saw_pk = false;
  for (const auto& row : idx.rows) {
    if (row[name].ToText() == "in_two") {
      two.push_back(row[col].ToText());
      EXPECT_FALSE(row[pk].ToBool());
      EXPECT_FALSE(row[uniq].ToBool());
      EXPECT_EQ(row[pos].ToInt32(), static_cast<int>(two.size()));
    } else if (row[name].ToText() == "zt_pg_items_pkey") {
      saw_pk = row[pk].ToBool() && row[uniq].ToBool() && row[col].ToText() == "id";
    }
  }
  EXPECT_EQ(two, (std::vector<std::string>{"active", "amount"}));
  EXPECT_TRUE(saw_pk);
}

TEST_F(PostgresDriver, ErrorsCarryTheirNumbersAndSqlState) {
  auto expect = [&](const std::string& sql, std::int32_t number, const std::string& state) {
    try {
      Exec(*conn_, sql);
      ADD_FAILURE() << "accepted: " << sql;
    } catch (const ZtError& e) {
      EXPECT_EQ(e.Number(), number) << sql << ": " << e.Description();
      EXPECT_NE(e.Description().find("(" + state + ")"), std::string::npos) << e.Description();
      EXPECT_EQ(e.Source(), "PostgreSQL");
    }
  };
  expect("SELEC 1", platform::hr::kCommand, "42601");
  expect("SELECT * FROM zt_no_such_table", platform::hr::kNoTable, "42P01");
  expect("INSERT INTO zt_pg_items (code) VALUES (NULL)", platform::hr::kIntegrity, "23502");

  conn_->SetCommandTimeout(1);
  const auto start = std::chrono::steady_clock::now();
  expect("SELECT pg_sleep(5)", platform::hr::kTimeout, "57014");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
  // A streamed read has the same limit up to its first row; the server stops the query.
  {
    auto st = conn_->Prepare("SELECT pg_sleep(5)");
    st->StreamRows();
    const auto at = std::chrono::steady_clock::now();
    try {
      st->Execute();
      ADD_FAILURE() << "a streamed query outlived its time-out";
    } catch (const ZtError& e) {
      EXPECT_EQ(e.Number(), platform::hr::kTimeout) << e.Description();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - at, std::chrono::seconds(4));
    EXPECT_EQ(Rows(*conn_, "SELECT 1").rows.size(), 1u);  // and the connection goes on
  }
  conn_->SetCommandTimeout(0);

  // The number a serial column got; asking before any sequence was used gives Null and leaves
  // the transaction usable.
  auto fresh = OpenBackend(*text_);
  fresh->BeginTransaction();
  EXPECT_TRUE(fresh->LastInsertId().IsNull());
  Exec(*fresh, "INSERT INTO zt_pg_items (code) VALUES ('n1')");
  const Variant id = fresh->LastInsertId();
  EXPECT_EQ(id.Type(), VarType::Long);
  EXPECT_EQ(Rows(*fresh, "SELECT code FROM zt_pg_items WHERE id = " + id.ToText()).rows.size(), 1u);
  fresh->Rollback();

  // A failed statement inside a transaction leaves it to the caller's rollback; the connection
  // is not taken for dead meanwhile, and a time-out can still be set (callers restore it from
  // destructors): it takes effect after the rollback, which would have undone a SET.
  conn_->BeginTransaction();
  conn_->SetCommandTimeout(9);
  Exec(*conn_, "INSERT INTO zt_pg_items (code) VALUES ('kept?')");
  EXPECT_THROW(Exec(*conn_, "SELEC 1"), ZtError);
  EXPECT_TRUE(conn_->IsAlive());
  EXPECT_NO_THROW(conn_->SetCommandTimeout(2));
  conn_->Rollback();
  EXPECT_EQ(Count(), 0);
  EXPECT_EQ(Rows(*conn_, "SHOW statement_timeout").rows.at(0).at(0).ToText(), "2s");
  conn_->SetCommandTimeout(0);

  // Mode=Read: reads go through, writes are refused before they reach the server.
  auto reader = OpenBackend(*text_ + "Mode=Read;");
  EXPECT_EQ(Rows(*reader, "SELECT count(*) FROM zt_pg_items").rows.size(), 1u);
  try {
    Exec(*reader, "DELETE FROM zt_pg_items");
    ADD_FAILURE() << "a read-only connection deleted";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), platform::hr::kPermission) << e.Description();
  }
  EXPECT_THROW(Rows(*reader, "SELECT nextval('zt_pg_items_id_seq')"), ZtError);

  auto params = platform::ParseConnectionString(*text_);
  params.password = "wrong;pw";
  try {
    (*platform::FindDriver(params.driver))(params);
    FAIL() << "wrong password accepted";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), platform::hr::kLogin) << e.Description();
    EXPECT_EQ(e.Description().find("wrong;pw"), std::string::npos);
  }
  // A connection whose server side went away is reported dead, not open.
  auto victim = OpenBackend(*text_);
  const auto pid = Rows(*victim, "SELECT pg_backend_pid()").rows.at(0).at(0).ToInt64();
  EXPECT_TRUE(victim->IsAlive());
  Rows(*conn_, "SELECT pg_terminate_backend(" + std::to_string(pid) + ")");
  EXPECT_FALSE(victim->IsAlive());

  params = platform::ParseConnectionString(*text_);
  params.port = 1;
  try {
    (*platform::FindDriver(params.driver))(params);
    FAIL() << "connected to port 1";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), platform::hr::kFail) << e.Description();
  }
}

}  // namespace
}  // namespace zt::testing
