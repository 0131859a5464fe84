// Data views without a database: the text form written and read back, the unsupported
// serialization members, the collection's keyed access, a view's main table type and related
// fields.
#include "zt/definitions/dataview.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "definitions_fixture.h"
#include "support/test_env.h"
#include "zt/definitions/field.h"
#include "zt/error.h"
#include "zt/platform.h"

namespace zt::testing {
namespace {

std::shared_ptr<CZtDataView> View(std::int32_t id, std::int32_t query, std::int32_t order,
                                  const std::string& name, const std::string& description) {
  auto v = std::make_shared<CZtDataView>();
  v->ID(id);
  v->QueryID(query);
  v->Order(order);
  v->Name(name);
  v->Description(description);
  return v;
}

// Equal views give equal lines once every field is encoded (the encoding is reversible).
void ExpectSameViews(CZtDataViewCol& a, CZtDataViewCol& b) {
  for (CZtDataViewCol* c : {&a, &b}) c->EncodeFields(true);
  EXPECT_EQ(a.Keys(), b.Keys());
  EXPECT_EQ(a.ToString(), b.ToString());
}

TEST(DataViewText, ACollectionWrittenAndReadBackIsEqual) {
  RecordingEnv env;
  CZtDataViewCol views;
  views.Add(View(4, 11, 2, "Open calls", "Not closed yet"));
  views.Add(View(1, 0, 0, "All", ""));
  views.FieldDelimiter("|");
  views.ChildrenFieldDelimiter(",");
  EXPECT_EQ(views.ToString(), "4,11,2,Open calls,Not closed yet|1,0,0,All,");
  CZtDataViewCol back;
  back.FieldDelimiter("|");
  back.ChildrenFieldDelimiter(",");
  back.FromString(views.ToString());
  ExpectSameViews(views, back);

  // Values holding both delimiters (and the encoder's own escape) survive when encoded.
  views.Add(View(9, 3, 1, "a|b,c", "100% of 1,2|3"));
  views.EncodeFields(true);
  back.EncodeFields(true);
  back.FromString(views.ToString());
  ExpectSameViews(views, back);
  EXPECT_EQ(back.Item(9)->Description(), "100% of 1,2|3");

  back.FromString("");
  EXPECT_EQ(back.Count(), 0);

  // A malformed line or a repeated ID changes nothing.
  back.EncodeFields(false);
  back.FromString("1,0,0,All,");
  for (const char* bad : {"1,0,All,", "x,0,0,All,", "1,0,0,A,|1,0,0,B,"}) {
    EXPECT_THROW(back.FromString(bad), ZtError) << bad;
    EXPECT_EQ(back.Keys(), std::vector<std::int32_t>{1}) << bad;
  }
}

TEST(DataViewText, FormatMaskAndReplaceAreRefusedWithTheirTexts) {
  RecordingEnv env;
  CZtDataView v;
  CZtDataViewCol c;
  EXPECT_EQ(Thrown([&] { (void)v.FormatMask(); }).second,
            "CZtDataView.IZtSerializable_FormatMask (Get).  Currently not implemented.");
  EXPECT_EQ(Thrown([&] { c.Replace("x"); }).second,
            "CZtDataViewCol.IZtSerializable_Replace (Let).  Currently not implemented.");
}

TEST(DataViewCollection, KeyedAccessCopiesAndRefusals) {
  RecordingEnv env;
  CZtDataViewCol views;
  views.Add(View(5, 1, 1, "Five", ""));
  views.Add(View(2, 1, 1, "Two", ""));
  EXPECT_EQ(views.Keys(), (std::vector<std::int32_t>{5, 2}));  // insertion order, not ID order
  EXPECT_EQ(views.Key(1), 2);
  EXPECT_EQ(Thrown([&] { views.Add(View(5, 0, 0, "again", "")); }).first, 457);
  EXPECT_EQ(Thrown([&] { views.Item(3); }).first, 32811);
  EXPECT_EQ(Thrown([&] { views.Key(2); }).first, 9);
  EXPECT_EQ(views.Count(), 2);

  // A copy holds views of its own.
  auto copy = views.Copy();
  copy->Item(5)->Name("Changed in the copy");
  copy->Remove(2);
  EXPECT_EQ(views.Item(5)->Name(), "Five");
  EXPECT_EQ(views.Count(), 2);
}

std::shared_ptr<CZtField> Field(std::int32_t id, std::int32_t view, std::int32_t relationship,
                                std::int32_t ds_type) {
  auto f = std::make_shared<CZtField>();
  f->FieldID(id);
  f->DataViewID(view);
  f->RelationShipType(relationship);
  f->TableDSType(ds_type);
  return f;
}

TEST(DataViewFields, MainTableTypeAndRelatedFieldsFollowTheViewsFields) {
  RecordingEnv env;
  const DataViewFields fields = {
      Field(10, 3, 2, 16),   // the view's, but of a related table
      Field(11, 4, -1, 2),   // another view's main table
      Field(12, 3, -1, 32),  // the view's main table
      Field(13, 3, -1, 1),   // also the main table, later in order
      Field(14, 0, -1, 4),
  };
  CZtDataView view;
  view.ID(3);
  EXPECT_EQ(view.GetMainTableDsType(fields, Variant()), 32);
  // With keys, their order decides.
  EXPECT_EQ(view.GetMainTableDsType(fields, Variant::Array({Variant("13"), Variant(12)})), 1);
  EXPECT_EQ(view.GetMainTableDsType(fields, Variant::Array({Variant(10), Variant(11)})), 0);
  EXPECT_EQ(Thrown([&] { view.GetMainTableDsType(fields, Variant::Array({Variant("x")})); }).first,
            13);
  EXPECT_EQ(Thrown([&] { view.GetMainTableDsType(fields, Variant::Array({Variant(99)})); }).first,
            32811);
  view.ID(7);
  EXPECT_EQ(view.GetMainTableDsType(fields, Variant()), 0);

  view.ID(3);
  const DataViewFields related = view.GetRelatedFields(fields);
  ASSERT_EQ(related.size(), 3u);
  EXPECT_EQ(related[0]->FieldID(), 10);
  EXPECT_EQ(related[2]->FieldID(), 13);
  EXPECT_EQ(related[1], fields[2]);  // the collection's own field, not a copy
}

}  // namespace
}  // namespace zt::testing
