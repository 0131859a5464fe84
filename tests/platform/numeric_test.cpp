// Exact numerics on every engine: DECIMAL/NUMERIC and currency values travel as their digits, so
// values a double cannot hold come back as they went in.
#include <gtest/gtest.h>

#include "engines.h"
#include "zt/platform.h"

namespace zt::testing {
namespace {

using namespace zt::ado;

class NumericTest : public EngineTest {
 protected:
  // A table with an exact column of 28 digits (10 decimals) and a currency-sized one.
  void MakeNumericTable(const std::string& name) {
    const Engine& e = GetParam();
    const std::string exact = e.name == "PostgreSQL" ? "NUMERIC(28,10)" : "DECIMAL(28,10)";
    cn->Execute("DROP TABLE IF EXISTS [" + name + "]");
    cn->Execute("CREATE TABLE [" + name + "] ([id] " + e.t_int +
                " NOT NULL PRIMARY KEY, [amount] " + exact + ", [price] " + e.t_money + ")");
  }

  // What the engine keeps of `text` written into the exact column. SQLite's numeric affinity
  // turns a number that is not whole into a real: only its first 15 digits survive, and it reads
  // back as a double.
  bool KeepsExactly(const Decimal& d) const {
    if (!GetParam().is_file) return true;
    return d.scale == 0 && d.hi == 0 && d.lo <= static_cast<std::uint64_t>(INT64_MAX);
  }

  // Checks that row `id` holds `amount` (and `price` when given) exactly.
  void ExpectRow(const std::string& table, int id, const Decimal& amount,
                 std::optional<Currency> price = std::nullopt) {
    SCOPED_TRACE("row " + std::to_string(id) + " amount " + amount.ToText());
    auto rs = cn->Execute("SELECT [amount], [price] FROM [" + table +
                          "] WHERE [id] = " + std::to_string(id));
    ASSERT_FALSE(rs->Eof());
    const Variant got = rs->Fields("amount").Value();
    if (KeepsExactly(amount)) {
      ASSERT_EQ(got.Type(), VarType::Decimal);
      EXPECT_EQ(Decimal::Compare(*got.AsDecimal(), amount), 0) << got.ToText();
    } else {
      // A real, or a whole number when the rounded real is one (12345678901234568).
      EXPECT_EQ(got.ToDouble(), amount.ToDouble());
    }
    if (price) {
      const Variant p = rs->Fields("price").Value();
      EXPECT_EQ(p.ToDecimal().ToCurrency(), *price) << p.ToText();
    }
  }
};

// Values a double cannot carry: more than 15-17 digits, binary fractions, integers past 2^53.
const char* const kAmounts[] = {"12345678901234567.8901",
                                "0.1",
                                "0.2",
                                "-0.0001",
                                "0.3",
                                "9007199254740993",
                                "-123456789012345678",
                                "99999999999999999.9999999999",
                                "-12345.6700",
                                "0"};

TEST_P(NumericTest, DecimalsRoundTripThroughParametersUpdatesAndBulkLoads) {
  const Engine& e = GetParam();
  MakeNumericTable("zt_exact");
  PreparedStatement ins(*cn, "INSERT INTO [zt_exact] ([id], [amount]) VALUES (?, ?)");
  int id = 0;
  for (const char* text : kAmounts) {
    ins.Bind(0, ++id);
    ins.Bind(1, Decimal::Parse(text));
    EXPECT_EQ(ins.Execute(), 1);
  }
  id = 0;
  for (const char* text : kAmounts) ExpectRow("zt_exact", ++id, Decimal::Parse(text));

  if (!e.is_file) {
    // The engine adds exact values: 0.1 + 0.2 is 0.3, not 0.30000000000000004.
    auto sum = cn->Execute("SELECT SUM([amount]) FROM [zt_exact] WHERE [id] IN (2, 3)");
    EXPECT_EQ(Decimal::Compare(sum->Fields(0).Value().ToDecimal(), Decimal::Parse("0.3")), 0);
    // The server compares exactly: the neighbour of a 21-digit value is not it.
    EXPECT_EQ(Count("zt_exact", "[amount] = 12345678901234567.8901"), 1);
    EXPECT_EQ(Count("zt_exact", "[amount] = 12345678901234567.8902"), 0);
    // Wider than a Decimal holds: the value comes as its text rather than failing the fetch.
    const Variant wide =
        cn->Execute("SELECT CAST(1234567890123456789012345678901234567890 AS DECIMAL(40,0))")
            ->Fields(0)
            .Value();
    EXPECT_EQ(wide.Type(), VarType::String);
    EXPECT_EQ(wide.ToText(), "1234567890123456789012345678901234567890");
  }

  // A recordset edit that changes only the last digit is seen as a change and written exactly;
  // a new row takes its decimal as it is.
  {
    Recordset rs;
    rs.Open("SELECT * FROM [zt_exact] ORDER BY [id]", cn, adOpenKeyset, adLockOptimistic);
    const Decimal next = Decimal::Parse("9007199254740995");
    rs.MoveFirst();
    while (rs.Fields("id").Value().ToInt32() != 6) rs.MoveNext();
    rs.Fields("amount").SetValue(next);
    rs.Update();
    rs.AddNew();
    rs.Fields("id").SetValue(100);
    rs.Fields("amount").SetValue(Decimal::Parse("-99999999999999999.9999999999"));
    rs.Update();
    rs.Close();
    ExpectRow("zt_exact", 6, next);
    ExpectRow("zt_exact", 100, Decimal::Parse("-99999999999999999.9999999999"));
  }

  // A bulk load writes the same digits.
  cn->Execute("DELETE FROM [zt_exact]");
  {
    BulkInserter bulk(*cn, "zt_exact", {"id", "amount"});
    id = 0;
    for (const char* text : kAmounts) bulk.AddRow({++id, Decimal::Parse(text)});
    bulk.AddRow({++id, Variant::Null()});
    bulk.Finish();
  }
  id = 0;
  for (const char* text : kAmounts) ExpectRow("zt_exact", ++id, Decimal::Parse(text));
  EXPECT_TRUE(cn->Execute("SELECT [amount] FROM [zt_exact] WHERE [id] = " + std::to_string(id + 1))
                  ->Fields(0)
                  .Value()
                  .IsNull());
}

TEST_P(NumericTest, CurrencyRoundTripsExactly) {
  const Engine& e = GetParam();
  MakeNumericTable("zt_cash");
  // The currency range's ends need 19 digits; SQLite keeps currency as a real (15 digits).
  std::vector<Currency> prices = {Currency{-1}, Currency{3000}, Currency{123456789012},
                                  Currency{-5}};
  if (!e.is_file) {
    prices.push_back(Currency{INT64_MAX});
    prices.push_back(Currency{INT64_MIN});
    prices.push_back(Currency{9007199254740993});
  }
  PreparedStatement ins(*cn, "INSERT INTO [zt_cash] ([id], [amount], [price]) VALUES (?, ?, ?)");
  for (std::size_t i = 0; i < prices.size(); ++i) {
    ins.Bind(0, static_cast<int>(i + 1));
    ins.Bind(1, Decimal::FromInt64(0));
    ins.Bind(2, prices[i]);
    EXPECT_EQ(ins.Execute(), 1);
  }
  for (std::size_t i = 0; i < prices.size(); ++i)
    ExpectRow("zt_cash", static_cast<int>(i + 1), Decimal::FromInt64(0), prices[i]);

  if (e.is_file) {
    // A whole number past the currency range, which the file holds as an integer, keeps its
    // digits instead of wrapping around.
    cn->Execute("INSERT INTO [zt_cash] ([id], [price]) VALUES (99, 1000000000000000000)");
    const Variant big =
        cn->Execute("SELECT [price] FROM [zt_cash] WHERE [id] = 99")->Fields(0).Value();
    EXPECT_EQ(big.ToText(), "1000000000000000000");
    cn->Execute("INSERT INTO [zt_cash] ([id], [price]) VALUES (98, -922337203685477)");
    EXPECT_EQ(
        cn->Execute("SELECT [price] FROM [zt_cash] WHERE [id] = 98")->Fields(0).Value().ToText(),
        "-922337203685477");
  }
  cn->Execute("DELETE FROM [zt_cash]");
  {
    BulkInserter bulk(*cn, "zt_cash", {"id", "price"});
    for (std::size_t i = 0; i < prices.size(); ++i)
      bulk.AddRow({static_cast<int>(i + 1), prices[i]});
    bulk.Finish();
  }
  for (std::size_t i = 0; i < prices.size(); ++i) {
    auto rs = cn->Execute("SELECT [price] FROM [zt_cash] WHERE [id] = " + std::to_string(i + 1));
    EXPECT_EQ(rs->Fields(0).Value().ToDecimal().ToCurrency(), prices[i]) << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Engines, NumericTest, ::testing::ValuesIn(AllEngines()),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace zt::testing
