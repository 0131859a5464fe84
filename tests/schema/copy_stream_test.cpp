// The streaming copy of a table's rows between live engines, for real: the rows that arrive are
// exactly those of the source (texts in every script, memo with tabs and line breaks, dates with
// their seconds, Nulls), a value too long for its target field refuses its record, a text in a
// numeric field is left out, and a load the engine refuses falls back to the per-record results
// that a record-by-record copy gives.
#include "schema/copy_stream.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/sql_text.h"
#include "support/engines.h"
#include "zt/error.h"
#include "zt/platform.h"

namespace zt::testing {
namespace {

using schema::StreamCopyOptions;
using schema::StreamCopyResult;
using schema::StreamPath;
using schema::StreamTableRows;

constexpr int kRows = 1200;
constexpr int kTooLong = 13;   // its [tName] has 60 characters
constexpr int kNotNumber = 7;  // its [nAmount] is "abc"
constexpr const char* kTable = "tblCopyStream";
constexpr const char* kTableSql = "[tblCopyStream]";

// One source record as the test writes it.
struct Record {
  int id = 0;
  Variant name, note, amount, score, when, flag;
};

std::vector<Record> MakeRecords(bool dirty) {
  std::vector<Record> out;
  for (int i = 1; i <= kRows; ++i) {
    Record r;
    r.id = i;
    r.name =
        (i % 11 == 0) ? Variant::Null() : Variant("Ünïcødé 日本語 Ωμέγα #" + std::to_string(i));
    // 45 characters in 135 bytes: within a 50-character field.
    if (i % 13 == 0) {
      std::string wide;
      for (int k = 0; k < 45; ++k) wide += "日";
      r.name = wide;
    }
    if (dirty && i == kTooLong) r.name = std::string(60, 'x');
    r.note = (i % 7 == 0) ? Variant::Null()
                          : Variant("line one\tcol\\two\nline 'three' \"" + std::to_string(i) +
                                    std::string(static_cast<std::size_t>(i % 300), 'm'));
    r.amount = (dirty && i == kNotNumber) ? Variant("abc") : Variant(std::to_string(i * 3));
    r.score = (i % 5 == 0) ? Variant::Null() : Variant(i / 8.0);
    r.when = Date::FromParts(2020 + i % 5, 1 + i % 12, 1 + i % 28, i % 24, i % 60, (i * 7) % 60);
    r.flag = (i % 9 == 0) ? Variant::Null() : Variant(i % 2 == 0);
    out.push_back(r);
  }
  return out;
}

std::size_t Characters(const std::string& utf8) {
  std::size_t n = 0;
  for (unsigned char c : utf8) n += (c & 0xC0) != 0x80;
  return n;
}

std::string Text(const Variant& v) {
  return v.IsNull() || v.IsEmpty() ? "<null>" : v.ToText();
}

// The rows of the table, one canonical line per row, by key.
std::map<int, std::string> ReadRows(const std::shared_ptr<Connection>& cn) {
  std::map<int, std::string> out;
  auto rs = std::make_shared<Recordset>();
  rs->Open(
      std::string("SELECT [nId], [tName], [tNote], [nAmount], [dblScore], [dWhen], [fFlag] FROM ") +
          kTableSql,
      cn);
  for (; !rs->Eof(); rs->MoveNext()) {
    std::string line;
    for (int c = 1; c < 7; ++c) line += Text(rs->Fields(c).Value()) + "|";
    out[static_cast<int>(rs->Fields(0).Value().ToInt64())] = line;
  }
  return out;
}

// What the target should hold for a record the rules accept.
std::string Expected(const Record& r) {
  const Variant amount = r.amount.IsNumeric() ? Variant(r.amount.ToInt64()) : Variant::Null();
  return Text(r.name) + "|" + Text(r.note) + "|" + Text(amount) + "|" + Text(r.score) + "|" +
         Text(r.when) + "|" + Text(r.flag) + "|";
}

struct Pair {
  std::string source, target;
};

void PrintTo(const Pair& p, std::ostream* os) {
  *os << p.source << " to " << p.target;
}

class CopyStreamTest : public ::testing::TestWithParam<Pair> {
 protected:
  void SetUp() override {
    const Engine& s = EngineNamed(GetParam().source);
    const Engine& t = EngineNamed(GetParam().target);
    ZT_NEED_ENGINE(s.Available(), s.name);
    ZT_NEED_ENGINE(t.Available(), t.name);
    dir_ = std::filesystem::temp_directory_path() /
           ("zt_copy_stream_" + std::to_string(getpid()) + "_" + s.name + "_" + t.name);
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
    source_ = Open(s, "source.db");
    target_ = Open(t, "target.db");
    source_engine_ = &s;
    target_engine_ = &t;
  }
  void TearDown() override {
    for (auto* cn : {&source_, &target_})
      if (*cn && (*cn)->State() == ado::adStateOpen) {
        try {
          (*cn)->Execute(std::string("DROP TABLE ") + kTableSql);
        } catch (const ZtError&) {
        }
        (*cn)->Close();
      }
    std::filesystem::remove_all(dir_);
  }

  std::shared_ptr<Connection> Open(const Engine& e, const std::string& file) {
    auto cn = std::make_shared<Connection>();
    cn->Open(e.ConnectionString((dir_ / file).string()));
    try {
      cn->Execute(std::string("DROP TABLE ") + kTableSql);
    } catch (const ZtError&) {
    }
    return cn;
  }

  // The source table is wider than the target's (a 60-character name, a text amount, and a
  // column the target lacks); the target has a key.
  void CreateTables(const std::vector<Record>& records) {
    const Engine& s = *source_engine_;
    const Engine& t = *target_engine_;
    const std::string text60 = s.is_file ? "TEXT(60)" : "VARCHAR(60)";
    const std::string text20 = s.is_file ? "TEXT(20)" : "VARCHAR(20)";
    source_->Execute(std::string("CREATE TABLE ") + kTableSql + " ([nId] " + s.t_int +
                     ", [tName] " + text60 + ", [tNote] " + s.t_memo + ", [nAmount] " + text20 +
                     ", [dblScore] " + s.t_double + ", [dWhen] " + s.t_date + ", [fFlag] " +
                     s.t_bool + ", [tOnlyHere] " + text20 + ")");
    target_->Execute(std::string("CREATE TABLE ") + kTableSql + " ([nId] " + t.t_int +
                     " NOT NULL PRIMARY KEY, [tName] " + t.t_text50 + ", [tNote] " + t.t_memo +
                     ", [nAmount] " + t.t_int + ", [dblScore] " + t.t_double + ", [dWhen] " +
                     t.t_date + ", [fFlag] " + t.t_bool + ")");
    PreparedStatement ins(*source_,
                          std::string("INSERT INTO ") + kTableSql +
                              " ([nId], [tName], [tNote], [nAmount], [dblScore], [dWhen], "
                              "[fFlag], [tOnlyHere]) VALUES (?, ?, ?, ?, ?, ?, ?, 'x')");
    source_->BeginTrans();
    for (const Record& r : records) {
      ins.Bind(0, r.id);
      ins.Bind(1, r.name);
      ins.Bind(2, r.note);
      ins.Bind(3, r.amount);
      ins.Bind(4, r.score);
      ins.Bind(5, r.when);
      ins.Bind(6, r.flag);
      ins.Execute();
    }
    source_->CommitTrans();
  }

  // Copies and checks the rows against the records; returns the result.
  StreamCopyResult CopyAndCheck(const std::vector<Record>& records, StreamCopyOptions options,
                                const std::map<int, std::string>& kept = {}) {
    std::vector<std::int64_t> progress;
    options.progress = [&](std::int64_t n) { progress.push_back(n); };
    options.progress_every = 500;
    const auto before = ReadRows(source_);
    const StreamCopyResult result = StreamTableRows(source_, target_, kTable, options);
    EXPECT_EQ(ReadRows(source_), before) << "the source is never written";

    std::map<int, std::string> expected = kept;
    for (const Record& r : records)
      if (r.id != kTooLong || Characters(r.name.ToText()) <= 50)
        expected.emplace(r.id, Expected(r));
    const auto rows = ReadRows(target_);
    EXPECT_EQ(rows.size(), expected.size());
    for (const auto& [id, line] : expected)
      EXPECT_EQ(rows.count(id) ? rows.at(id) : "", line) << id;
    EXPECT_FALSE(progress.empty());
    if (!progress.empty()) {
      EXPECT_EQ(progress.back(), static_cast<std::int64_t>(records.size()));
    }
    return result;
  }

  bool BothSqlite() const { return source_engine_->is_file && target_engine_->is_file; }

  std::filesystem::path dir_;
  std::shared_ptr<Connection> source_, target_;
  const Engine* source_engine_ = nullptr;
  const Engine* target_engine_ = nullptr;
};

// The field is named as the target keeps it (PostgreSQL folds the bracketed names of the test's
// CREATE TABLE), so the texts are compared without regard to case.
const std::string kTooLongMessage =
    ".CopyFieldValue, Field: tName, Value: " + std::string(60, 'x') +
    "  Source field value too long for target field.";

TEST_P(CopyStreamTest, RowsArriveExactlyAndRefusalsAreCountedPerRecord) {
  const auto records = MakeRecords(true);
  CreateTables(records);
  const StreamCopyResult r = CopyAndCheck(records, {});
  EXPECT_EQ(r.rows, kRows - 1);
  EXPECT_EQ(r.failed, 1);
  ASSERT_EQ(r.messages.size(), 1u);
  EXPECT_EQ(platform::AsciiLower(r.messages[0]), platform::AsciiLower(kTooLongMessage));
  // A refused value keeps the SQLite pair off INSERT ... SELECT, which would not refuse it.
  EXPECT_EQ(r.path, StreamPath::kBulk);
}

TEST_P(CopyStreamTest, CleanRowsBetweenSqliteFilesGoThroughAttach) {
  const auto records = MakeRecords(false);
  CreateTables(records);
  const StreamCopyResult r = CopyAndCheck(records, {});
  EXPECT_EQ(r.rows, kRows);
  EXPECT_EQ(r.failed, 0);
  EXPECT_EQ(r.path, BothSqlite() ? StreamPath::kAttach : StreamPath::kBulk);
  if (!BothSqlite()) return;
  // The general path gives the same rows.
  target_->Execute(std::string("DELETE FROM ") + kTableSql);
  StreamCopyOptions general;
  general.allow_attach = false;
  EXPECT_EQ(CopyAndCheck(records, general).path, StreamPath::kBulk);
  // With the same columns in the same order the statement names none (SQLite's record transfer).
  target_->Execute(std::string("DELETE FROM ") + kTableSql);
  source_->Execute(std::string("ALTER TABLE ") + kTableSql + " DROP COLUMN [tOnlyHere]");
  EXPECT_EQ(CopyAndCheck(records, {}).path, StreamPath::kAttach);
}

// A key already in the target makes the engine refuse the bulk load; the copy is redone record
// by record and gives what the record-by-record copy gives: every record written except the
// duplicates and the records the rules refuse, each counted with its reason.
TEST_P(CopyStreamTest, RefusedLoadFallsBackToPerRecordResults) {
  const auto records = MakeRecords(true);
  CreateTables(records);
  const std::set<int> existing = {5, 900};
  std::map<int, std::string> kept;
  for (int id : existing) {
    target_->Execute(std::string("INSERT INTO ") + kTableSql + " ([nId], [tName]) VALUES (" +
                     std::to_string(id) + ", 'old')");
    kept[id] = "old|<null>|<null>|<null>|<null>|<null>|";
  }
  // The reference: the record-by-record outcome of each source record, in source order.
  std::int64_t ref_rows = 0, ref_failed = 0;
  std::vector<bool> ref_refused_by_rules;
  for (const Record& r : records) {
    if (Characters(Text(r.name)) > 50) {
      ++ref_failed;
      ref_refused_by_rules.push_back(true);
    } else if (existing.count(r.id)) {
      ++ref_failed;
      ref_refused_by_rules.push_back(false);
    } else {
      ++ref_rows;
    }
  }
  std::map<int, std::string> expected_kept = kept;
  std::vector<Record> fresh;
  for (const Record& r : records)
    if (!existing.count(r.id)) fresh.push_back(r);
  // The duplicates keep their old rows.
  const StreamCopyResult r = StreamTableRows(source_, target_, kTable);
  EXPECT_EQ(r.path, StreamPath::kPerRecord);
  EXPECT_EQ(r.rows, ref_rows);
  EXPECT_EQ(r.failed, ref_failed);
  ASSERT_EQ(r.messages.size(), ref_refused_by_rules.size());
  for (std::size_t i = 0; i < r.messages.size(); ++i) {
    if (ref_refused_by_rules[i])
      EXPECT_EQ(platform::AsciiLower(r.messages[i]), platform::AsciiLower(kTooLongMessage));
    else
      EXPECT_NE(r.messages[i].find_first_not_of(' '), std::string::npos);
  }
  std::map<int, std::string> expected = expected_kept;
  for (const Record& rec : fresh)
    if (Characters(Text(rec.name)) <= 50) expected.emplace(rec.id, Expected(rec));
  EXPECT_EQ(ReadRows(target_), expected);
  EXPECT_FALSE(target_->InTransaction());
}

// Inside a transaction the caller opened, the rows go record by record into it, and rolling it
// back leaves the table as it was.
TEST_P(CopyStreamTest, CallersTransactionIsJoined) {
  const auto records = MakeRecords(true);
  CreateTables(records);
  target_->BeginTrans();
  const StreamCopyResult r = StreamTableRows(source_, target_, kTable);
  EXPECT_EQ(r.path, StreamPath::kPerRecord);
  EXPECT_EQ(r.rows, kRows - 1);
  EXPECT_EQ(r.failed, 1);
  ASSERT_TRUE(target_->InTransaction());
  target_->RollbackTrans();
  EXPECT_TRUE(ReadRows(target_).empty());
}

INSTANTIATE_TEST_SUITE_P(Engines, CopyStreamTest,
                         ::testing::Values(Pair{"SQLite", "SQLite"}, Pair{"SQLite", "PostgreSQL"},
                                           Pair{"SQLite", "MariaDB"}, Pair{"PostgreSQL", "SQLite"},
                                           Pair{"MariaDB", "PostgreSQL"}),
                         [](const ::testing::TestParamInfo<Pair>& info) {
                           return info.param.source + "To" + info.param.target;
                         });

}  // namespace
}  // namespace zt::testing
