// Engine type names to ADO DataTypeEnum codes, DAO type codes and field attributes, and the
// shape of the indexes rowset: the tables every driver shares.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/driver.h"
#include "zt/export.h"
#include "zt/platform.h"

namespace zt::platform {

// ADO field attribute bits (FieldAttributeEnum) used by the layer: short names for the public
// zt::ado constants, so that there is one table of the numbers.
namespace attr {
inline constexpr std::int32_t kUpdatable = ado::adFldUpdatable;
inline constexpr std::int32_t kUnknownUpdatable = ado::adFldUnknownUpdatable;
inline constexpr std::int32_t kFixed = ado::adFldFixed;
inline constexpr std::int32_t kIsNullable = ado::adFldIsNullable;
inline constexpr std::int32_t kMayBeNull = ado::adFldMayBeNull;
inline constexpr std::int32_t kLong = ado::adFldLong;
inline constexpr std::int32_t kRowId = ado::adFldRowID;
inline constexpr std::int32_t kRowVersion = ado::adFldRowVersion;
inline constexpr std::int32_t kKeyColumn = ado::adFldKeyColumn;
}  // namespace attr

struct ZT_TEST_EXPORT TypeMapping {
  std::int32_t ado_type = 200;
  std::int64_t defined_size = 0;
  std::int32_t attributes = 0;  // kFixed / kLong / kRowVersion as the type implies
  std::int32_t precision = 255;
  std::int32_t scale = 255;
  std::int32_t dao_type = 10;   // DAO DataTypeEnum
  bool auto_increment = false;  // COUNTER, AUTOINCREMENT, SERIAL
};

// Maps a declared or catalogued type name ("VARCHAR(50)", "character varying", "LONG",
// "DECIMAL(12,2)", "int4" ...) to its codes. `length`, `precision` and `scale` are used when the
// name carries none. With `jet_vocabulary`, names keep their Access meaning: TEXT is a
// 255-character text, MEMO the long text, DATETIME a date (7); otherwise TEXT is a long text and
// DATETIME / TIMESTAMP a timestamp (135), as the server providers reported them. Unknown names map
// to a variable text (200).
//
//   names                                              ADO   size      DAO
//   TEXT(n) VARCHAR(n) NVARCHAR(n) CHARACTER VARYING   202   n         10 Text
//   CHAR(n) NCHAR(n) CHARACTER                         130   n         10 Text
//   MEMO LONGTEXT NTEXT CLOB (TEXT off Jet)            203   2^29-2    12 Memo
//   BIT BOOLEAN BOOL YESNO LOGICAL                     11    2         1 Boolean
//   BYTE TINYINT UNSIGNED BYTE                         17    1         2 Byte
//   SHORT SMALLINT INT2                                2     2         3 Integer
//   LONG INT INTEGER INT4 COUNTER AUTOINCREMENT SERIAL 3     4         4 Long
//   BIGINT INT8 BIGSERIAL                              20    8         16 BigInt
//   SINGLE REAL FLOAT4                                 4     4         6 Single
//   DOUBLE FLOAT FLOAT8 DOUBLE PRECISION NUMBER        5     8         7 Double
//   CURRENCY MONEY SMALLMONEY                          6     8         5 Currency
//   DATETIME DATE TIME SMALLDATETIME TIMESTAMP (Jet)   7     8         8 Date
//   DATETIME SMALLDATETIME TIMESTAMP DATETIME2 (off)   135   16        8 Date
//   DATE / TIME (off Jet)                              133 / 134  6    8 Date
//   DECIMAL NUMERIC DEC                                131   19        20 Decimal
//   GUID UNIQUEIDENTIFIER UUID                         72    16        15 GUID
//   BINARY(n)                                          128   n         9 Binary
//   VARBINARY(n)                                       204   n         9 Binary
//   LONGBINARY OLEOBJECT IMAGE BLOB BYTEA              205   2^31-1    11 Long binary
//   ROWVERSION                                         128   8         9 Binary, row version
ZT_TEST_EXPORT TypeMapping MapTypeName(const std::string& name, std::int64_t length = 0,
                                       std::int32_t precision = 0, std::int32_t scale = 0,
                                       bool jet_vocabulary = false);

// Maps the declared type of a column of an SQLite file. Two vocabularies meet in one file: the
// Jet names this library writes (LONG, SHORT, SINGLE, CURRENCY, TEXT(n), MEMO, LONGTEXT, YESNO,
// DATETIME, LONGBINARY ...) keep their Jet meaning, so DAO type codes round-trip; names written by
// other SQLite programs keep SQLite's meaning, by its affinity rules: INTEGER and INT are 64-bit
// (20), REAL and FLOAT double (5), TEXT, VARCHAR and CHAR without a length an unbounded text
// (203), NUMERIC(p,s) / DECIMAL(p,s) exact (131 with p and s; without them precision and scale are
// 0: any exact number), BLOB binary (205). A name neither vocabulary knows goes by SQLite's rules
// (contains INT: 64-bit integer; CHAR, CLOB or TEXT: text; BLOB: binary; REAL, FLOA or DOUB:
// double; anything else: an exact number); a column declared without a type holds any value and
// reads as an unbounded text.
ZT_TEST_EXPORT TypeMapping MapSqliteTypeName(const std::string& declared);

// The columns of the indexes rowset (OLE DB's 25, in order).
ZT_TEST_EXPORT std::vector<ColumnInfo> IndexRowsetColumns();
// The columns of the tables (20), columns (4) and primary keys (28) rowsets, with the OLE DB
// names, types and sizes; every driver lists its rows under these.
ZT_TEST_EXPORT std::vector<ColumnInfo> TablesRowsetColumns();
ZT_TEST_EXPORT std::vector<ColumnInfo> ColumnsRowsetColumns();
ZT_TEST_EXPORT std::vector<ColumnInfo> PrimaryKeysRowsetColumns();
// One row of the indexes rowset.
ZT_TEST_EXPORT std::vector<Variant> IndexRow(const Variant& catalog, const Variant& schema,
                                             const std::string& table, const std::string& index,
                                             bool primary, bool unique, bool clustered,
                                             std::int32_t ordinal, const std::string& column);

// One column pair of a foreign key: the table that holds the key (`fk_table`), the table it
// refers to (`pk_table`), the 1-based position of the pair in the key and the rules
// ("CASCADE", "SET NULL", "SET DEFAULT", "NO ACTION", "RESTRICT"). `fk_name` may be "" where the
// engine gives relationships no names (SQLite); the copy names them then.
struct ZT_TEST_EXPORT ForeignKeyColumn {
  std::string pk_table, pk_column, fk_table, fk_column;
  std::int32_t ordinal = 1;
  std::string update_rule = "NO ACTION", delete_rule = "NO ACTION";
  std::string fk_name;
};
// The columns of the foreign keys rowset (27) and of the views rowset (23), with the OLE DB names.
ZT_TEST_EXPORT std::vector<ColumnInfo> ForeignKeysRowsetColumns();
ZT_TEST_EXPORT std::vector<ColumnInfo> ViewsRowsetColumns();
ZT_TEST_EXPORT std::vector<Variant> ForeignKeyRow(const Variant& catalog, const Variant& schema,
                                                  const ForeignKeyColumn& k);
// One view; `definition` is its query (the SELECT, in the engine's own quoting), Null where
// the engine cannot give it as SQL (an Access query).
ZT_TEST_EXPORT std::vector<Variant> ViewRow(const Variant& catalog, const Variant& schema,
                                            const std::string& name, const Variant& definition);

}  // namespace zt::platform
