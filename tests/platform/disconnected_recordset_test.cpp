// Recordsets built in memory from columns and rows, with no connection behind them.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "engines.h"
#include "zt/error_codes.h"
#include "zt/platform.h"

namespace zt::testing {
namespace {

using namespace zt::ado;

std::vector<RecordsetColumn> Columns() {
  RecordsetColumn id{"nId", adInteger, 4, adFldUpdatable | adFldFixed};
  RecordsetColumn name{"tName", adVarWChar, 5};
  RecordsetColumn note{"tNote", adLongVarWChar, 0};
  RecordsetColumn stamp{"nStamp", adInteger, 4, adFldFixed | adFldIsNullable};  // not updatable
  return {id, name, note, stamp};
}

std::vector<std::vector<Variant>> Rows() {
  return {{1, "ab", Variant::Null(), 10}, {2, "cd", "x", 20}, {3, "ab", "y", 30}};
}

std::vector<std::int32_t> Ids(Recordset& rs) {
  std::vector<std::int32_t> ids;
  if (rs.RecordCount() == 0) return ids;
  for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext()) ids.push_back(rs.Value("nId").ToInt32());
  return ids;
}

TEST(DisconnectedRecordset, ReadsFindsAndFiltersWhatItWasGiven) {
  Recordset rs;
  rs.OpenDisconnected(Columns(), Rows(), adLockReadOnly);
  EXPECT_EQ(rs.State(), adStateOpen);
  EXPECT_EQ(rs.CursorType(), adOpenStatic);
  EXPECT_EQ(rs.ActiveConnection(), nullptr);
  EXPECT_EQ(rs.RecordCount(), 3);
  ASSERT_EQ(rs.GetFields().Count(), 4);
  EXPECT_EQ(rs.Fields("TNAME").Name(), "tName");
  EXPECT_EQ(rs.Fields(1).Type(), adVarWChar);
  EXPECT_EQ(rs.Fields(1).DefinedSize(), 5);
  EXPECT_EQ(rs.Fields(0).Attributes(), adFldUpdatable | adFldFixed);
  EXPECT_TRUE(rs.Fields("tNote").Value().IsNull());

  rs.Find("tName = 'cd'");
  EXPECT_EQ(rs.Value("nId").ToInt32(), 2);
  rs.Find("tName = 'ab'", 1);
  EXPECT_EQ(rs.Value("nId").ToInt32(), 3);
  rs.Find("tName = 'zz'");
  EXPECT_TRUE(rs.Eof());
  rs.SetFilter("tName = 'ab' OR nStamp > 15");
  EXPECT_EQ(Ids(rs), (std::vector<std::int32_t>{1, 2, 3}));
  rs.SetFilter("tName = 'ab' AND nStamp > 15");
  EXPECT_EQ(Ids(rs), (std::vector<std::int32_t>{3}));
  rs.SetFilter(Variant(adFilterNone));
  rs.MoveLast();
  rs.MovePrevious();
  EXPECT_EQ(rs.AbsolutePosition(), 2);

  // Read-only means read-only.
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.Fields("tName").SetValue("q")),
            AdoErrorNumber(AdoError::kNotUpdatable));
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.AddNew()), AdoErrorNumber(AdoError::kNotUpdatable));
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.Delete()), AdoErrorNumber(AdoError::kNotUpdatable));
  EXPECT_EQ(rs.Fields("tName").Value().ToText(), "cd");
}

TEST(DisconnectedRecordset, BatchEditsStayPendingUntilAcceptedOrDropped) {
  Recordset rs;
  rs.OpenDisconnected(Columns(), Rows());
  EXPECT_EQ(rs.LockType(), adLockBatchOptimistic);
  rs.Find("nId = 2");
  rs.Fields("tName").SetValue("new");
  rs.Update();
  EXPECT_EQ(rs.Fields("tName").OriginalValue().ToText(), "cd");
  rs.MoveFirst();
  rs.Delete();
  rs.AddNew();
  rs.Fields("nId").SetValue(4);
  rs.Fields("tName").SetValue("four");
  rs.Update();
  EXPECT_TRUE(rs.Fields("tNote").Value().IsNull()) << "a column never set is Null";
  rs.SetFilter(Variant(adFilterPendingRecords));
  EXPECT_EQ(Ids(rs), (std::vector<std::int32_t>{2, 4}));
  rs.SetFilter(Variant(adFilterNone));
  EXPECT_EQ(Ids(rs), (std::vector<std::int32_t>{2, 3, 4}));

  rs.CancelBatch();
  EXPECT_EQ(Ids(rs), (std::vector<std::int32_t>{1, 2, 3}));
  rs.Find("nId = 2");
  EXPECT_EQ(rs.Value("tName").ToText(), "cd");

  rs.Fields("tName").SetValue("new");
  rs.MoveFirst();  // writes the edit into the batch
  rs.Delete();
  rs.UpdateBatch();
  EXPECT_EQ(Ids(rs), (std::vector<std::int32_t>{2, 3}));
  rs.MoveFirst();
  EXPECT_EQ(rs.Value("tName").ToText(), "new");
  EXPECT_EQ(rs.Fields("tName").OriginalValue().ToText(), "new");
  rs.SetFilter(Variant(adFilterPendingRecords));
  EXPECT_EQ(rs.RecordCount(), 0);
}

TEST(DisconnectedRecordset, ImmediateEditsAndRefusedValues) {
  Recordset rs;
  rs.OpenDisconnected(Columns(), Rows(), adLockOptimistic);
  rs.MoveFirst();
  rs.Fields("tName").SetValue("zz");
  rs.Update();
  EXPECT_EQ(rs.Fields("tName").OriginalValue().ToText(), "zz");

  // Too long (characters, not bytes), Null where the column takes none, a column that cannot
  // be changed: each refused, the row as it was.
  const auto multiple_step = hr::kMultipleStep;
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.Fields("tName").SetValue("abcdef")), multiple_step);
  rs.Fields("tName").SetValue("\xc3\xa4\xc3\xb6\xc3\xbc\xc3\xa4\xc3\xb6");  // five characters
  rs.CancelUpdate();
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.Fields("nId").SetValue(Variant::Null())), multiple_step);
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.Fields("nStamp").SetValue(1)),
            AdoErrorNumber(AdoError::kNotUpdatable));
  EXPECT_EQ(rs.Value("tName").ToText(), "zz");
  EXPECT_EQ(rs.Value("nId").ToInt32(), 1);

  // A new row without its required column is refused at Update and can still be completed.
  rs.AddNew();
  rs.Fields("tName").SetValue("n");
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.Update()), multiple_step);
  EXPECT_EQ(rs.EditMode(), adEditAdd);
  rs.Fields("nId").SetValue(9);
  rs.Update();
  rs.MoveFirst();
  rs.Delete();
  EXPECT_EQ(Ids(rs), (std::vector<std::int32_t>{2, 3, 9}));
}

TEST(DisconnectedRecordset, BadShapesAreRefusedAndLeaveItClosed) {
  const auto invalid = AdoErrorNumber(AdoError::kInvalidArgument);
  Recordset rs;
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.OpenDisconnected({})), invalid);
  auto twice = Columns();
  twice[2].name = "NID";
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.OpenDisconnected(twice, Rows())), invalid);
  auto unnamed = Columns();
  unnamed[1].name.clear();
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.OpenDisconnected(unnamed)), invalid);
  auto short_row = Rows();
  short_row[1].pop_back();
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.OpenDisconnected(Columns(), short_row)), invalid);
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.OpenDisconnected(Columns(), Rows(), 7)), invalid);
  auto too_long = Rows();
  too_long[2][1] = "toolong";
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.OpenDisconnected(Columns(), too_long)), hr::kMultipleStep);
  auto null_key = Rows();
  null_key[0][0] = Variant::Null();
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.OpenDisconnected(Columns(), null_key)), hr::kMultipleStep);
  EXPECT_EQ(rs.State(), adStateClosed);

  // Empty is fine; a second open is not.
  rs.OpenDisconnected(Columns());
  EXPECT_TRUE(rs.Eof() && rs.Bof());
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.OpenDisconnected(Columns(), Rows())),
            AdoErrorNumber(AdoError::kObjectOpen));
  EXPECT_EQ(rs.RecordCount(), 0);
  rs.Close();
  rs.OpenDisconnected(Columns(), Rows());
  EXPECT_EQ(rs.RecordCount(), 3);
}

}  // namespace
}  // namespace zt::testing
