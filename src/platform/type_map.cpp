#include "platform/type_map.h"

#include <cctype>
#include <cstdlib>
#include <map>

namespace zt::platform {

namespace {

struct Entry {
  std::int32_t ado;
  std::int64_t size;
  std::int32_t attributes;
  std::int32_t dao;
  bool autoinc = false;
};

constexpr std::int64_t kLongText = 536870910;
constexpr std::int64_t kLongBinary = 2147483647;

const std::map<std::string, Entry>& Table() {
  using namespace attr;
  static const std::map<std::string, Entry> t = {
      {"text", {202, 255, 0, 10}},
      {"varchar", {202, 255, 0, 10}},
      {"nvarchar", {202, 255, 0, 10}},
      {"character varying", {202, 255, 0, 10}},
      {"varchar2", {202, 255, 0, 10}},
      {"nvarchar2", {202, 255, 0, 10}},
      {"string", {202, 255, 0, 10}},
      {"char", {130, 1, kFixed, 10}},
      {"nchar", {130, 1, kFixed, 10}},
      {"character", {130, 1, kFixed, 10}},
      {"bpchar", {130, 1, kFixed, 10}},
      {"memo", {203, kLongText, kLong, 12}},
      {"longtext", {203, kLongText, kLong, 12}},
      {"mediumtext", {203, kLongText, kLong, 12}},
      {"longchar", {203, kLongText, kLong, 12}},
      {"note", {203, kLongText, kLong, 12}},
      {"ntext", {203, kLongText, kLong, 12}},
      {"clob", {203, kLongText, kLong, 12}},
      {"bit", {11, 2, kFixed, 1}},
      {"boolean", {11, 2, kFixed, 1}},
      {"bool", {11, 2, kFixed, 1}},
      {"yesno", {11, 2, kFixed, 1}},
      {"logical", {11, 2, kFixed, 1}},
      {"byte", {17, 1, kFixed, 2}},
      {"tinyint", {17, 1, kFixed, 2}},
      {"short", {2, 2, kFixed, 3}},
      {"smallint", {2, 2, kFixed, 3}},
      {"int2", {2, 2, kFixed, 3}},
      {"integer2", {2, 2, kFixed, 3}},
      {"long", {3, 4, kFixed, 4}},
      {"int", {3, 4, kFixed, 4}},
      {"integer", {3, 4, kFixed, 4}},
      {"int4", {3, 4, kFixed, 4}},
      {"mediumint", {3, 4, kFixed, 4}},
      {"counter", {3, 4, kFixed, 4, true}},
      {"autoincrement", {3, 4, kFixed, 4, true}},
      {"serial", {3, 4, kFixed, 4, true}},
      {"bigint", {20, 8, kFixed, 16}},
      {"int8", {20, 8, kFixed, 16}},
      {"bigserial", {20, 8, kFixed, 16, true}},
      {"single", {4, 4, kFixed, 6}},
      {"real", {4, 4, kFixed, 6}},
      {"float4", {4, 4, kFixed, 6}},
      {"double", {5, 8, kFixed, 7}},
      {"float", {5, 8, kFixed, 7}},
      {"float8", {5, 8, kFixed, 7}},
      {"double precision", {5, 8, kFixed, 7}},
      {"number", {5, 8, kFixed, 7}},
      {"currency", {6, 8, kFixed, 5}},
      {"money", {6, 8, kFixed, 5}},
      {"smallmoney", {6, 8, kFixed, 5}},
      {"datetime", {7, 8, kFixed, 8}},
      {"date", {7, 8, kFixed, 8}},
      {"time", {7, 8, kFixed, 8}},
      {"smalldatetime", {7, 8, kFixed, 8}},
      {"timestamp", {7, 8, kFixed, 8}},
      {"datetime2", {135, 16, kFixed, 8}},
      {"timestamp without time zone", {135, 16, kFixed, 8}},
      {"timestamp with time zone", {135, 16, kFixed, 8}},
      {"timestamptz", {135, 16, kFixed, 8}},
      {"decimal", {131, 19, kFixed, 20}},
      {"numeric", {131, 19, kFixed, 20}},
      {"dec", {131, 19, kFixed, 20}},
      {"guid", {72, 16, kFixed, 15}},
      {"uniqueidentifier", {72, 16, kFixed, 15}},
      {"uuid", {72, 16, kFixed, 15}},
      {"binary", {128, 255, kFixed, 9}},
      {"varbinary", {204, 255, 0, 9}},
      {"longbinary", {205, kLongBinary, kLong, 11}},
      {"oleobject", {205, kLongBinary, kLong, 11}},
      {"general", {205, kLongBinary, kLong, 11}},
      {"image", {205, kLongBinary, kLong, 11}},
      {"blob", {205, kLongBinary, kLong, 11}},
      {"longblob", {205, kLongBinary, kLong, 11}},
      {"mediumblob", {205, kLongBinary, kLong, 11}},
      {"bytea", {205, kLongBinary, kLong, 11}},
      {"rowversion", {128, 8, kFixed | kRowVersion, 9}},
  };
  return t;
}

}  // namespace

TypeMapping MapTypeName(const std::string& name, std::int64_t length, std::int32_t precision,
                        std::int32_t scale, bool jet_vocabulary) {
  // Split "DECIMAL(12, 2)" into the lower-case base name and its numbers.
  std::string base;
  std::vector<std::int64_t> args;
  const std::size_t paren = name.find('(');
  for (std::size_t i = 0; i < std::min(paren, name.size()); ++i)
    base += static_cast<char>(std::tolower(static_cast<unsigned char>(name[i])));
  while (!base.empty() && base.back() == ' ') base.pop_back();
  while (!base.empty() && base.front() == ' ') base.erase(0, 1);
  if (paren != std::string::npos) {
    const char* p = name.c_str() + paren + 1;
    while (*p && *p != ')') {
      char* end = nullptr;
      const long long v = std::strtoll(p, &end, 10);
      if (end == p) break;
      args.push_back(v);
      p = end;
      while (*p == ',' || *p == ' ') ++p;
    }
  }
  for (const char* suffix : {" unsigned", " identity"})
    if (const auto at = base.find(suffix); at != std::string::npos) base.erase(at);

  TypeMapping m;
  const auto it = Table().find(base);
  if (it == Table().end()) {
    m.ado_type = 200;
    m.defined_size = args.empty() ? (length > 0 ? length : 255) : args[0];
    return m;
  }
  const Entry& e = it->second;
  m.ado_type = e.ado;
  m.defined_size = e.size;
  m.attributes = e.attributes;
  m.dao_type = e.dao;
  m.auto_increment = e.autoinc;
  if (!jet_vocabulary) {
    if (base == "text") {
      m.ado_type = 203, m.defined_size = kLongText, m.attributes = attr::kLong, m.dao_type = 12;
    } else if (base == "timestamp" || base == "datetime" || base == "smalldatetime") {
      m.ado_type = 135, m.defined_size = 16;
    } else if (base == "date") {
      m.ado_type = 133, m.defined_size = 6;
    } else if (base == "time") {
      m.ado_type = 134, m.defined_size = 6;
    }
  }
  const bool sized =
      m.ado_type == 202 || m.ado_type == 130 || m.ado_type == 128 || m.ado_type == 204;
  if (sized) {
    if (!args.empty())
      m.defined_size = args[0];
    else if (length > 0)
      m.defined_size = length;
    else if (!jet_vocabulary && m.ado_type == 202) {
      // An unbounded VARCHAR on a server engine behaves as a long text.
      m.ado_type = 203, m.defined_size = kLongText, m.attributes = attr::kLong, m.dao_type = 12;
    }
  }
  if (m.ado_type == 131) {
    m.precision = !args.empty() ? static_cast<std::int32_t>(args[0]) : (precision ? precision : 18);
    m.scale = args.size() > 1 ? static_cast<std::int32_t>(args[1]) : scale;
  } else if (m.ado_type == 3) {
    m.precision = 10;
  } else if (m.ado_type == 2) {
    m.precision = 5;
  } else if (m.ado_type == 20) {
    m.precision = 19;
  } else if (m.ado_type == 5) {
    m.precision = 15;
  } else if (m.ado_type == 4) {
    m.precision = 7;
  } else if (m.ado_type == 6) {
    m.precision = 19;
  } else if (m.ado_type == 17) {
    m.precision = 3;
  }
  return m;
}

namespace {

std::string LowerAscii(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

TypeMapping LongText() {
  TypeMapping m;
  m.ado_type = 203, m.defined_size = kLongText, m.attributes = attr::kLong, m.dao_type = 12;
  return m;
}

}  // namespace

TypeMapping MapSqliteTypeName(const std::string& declared) {
  const std::string lower = LowerAscii(declared);
  const std::size_t paren = lower.find('(');
  std::string base = lower.substr(0, paren);
  while (!base.empty() && base.back() == ' ') base.pop_back();
  while (!base.empty() && base.front() == ' ') base.erase(0, 1);
  const bool has_length = paren != std::string::npos;
  if (base.empty()) return LongText();
  const auto any_exact = [] {
    TypeMapping m = MapTypeName("decimal");
    m.precision = 0, m.scale = 0;
    return m;
  };
  const auto known = Table().find(base);
  if (known != Table().end()) {
    // Where SQLite's own meaning differs from Jet's, a name without Jet's length is SQLite's.
    if (base == "integer" || base == "int") return MapTypeName("bigint");
    if (base == "real") return MapTypeName("double");
    if (!has_length &&
        (base == "text" || base == "varchar" || base == "nvarchar" || base == "character varying" ||
         base == "char" || base == "nchar" || base == "character" || base == "varchar2" ||
         base == "nvarchar2" || base == "string" || base == "bpchar"))
      return LongText();
    if (!has_length && (base == "decimal" || base == "numeric" || base == "dec"))
      return any_exact();
    return MapTypeName(declared, 0, 0, 0, /*jet_vocabulary=*/true);
  }
  // SQLite's affinity rules, in its order. "DECIMAL TEXT(38,10)" is how this library keeps an
  // exact decimal wider than a double in a file: text affinity, so the engine stores its digits.
  if (base.find("int") != std::string::npos) return MapTypeName("bigint");
  if (base.rfind("decimal text", 0) == 0 || base.rfind("numeric text", 0) == 0)
    return has_length ? MapTypeName("decimal" + declared.substr(paren)) : any_exact();
  if (base.find("char") != std::string::npos || base.find("clob") != std::string::npos ||
      base.find("text") != std::string::npos) {
    if (!has_length) return LongText();
    return MapTypeName("varchar" + declared.substr(paren));
  }
  if (base.find("blob") != std::string::npos) return MapTypeName("blob");
  if (base.find("real") != std::string::npos || base.find("floa") != std::string::npos ||
      base.find("doub") != std::string::npos)
    return MapTypeName("double");
  if (has_length) return MapTypeName("decimal" + declared.substr(paren));
  return any_exact();
}

namespace {
struct RowsetColumn {
  const char* name;
  std::int32_t type;
  std::int64_t size;
};

std::vector<ColumnInfo> RowsetColumns(std::initializer_list<RowsetColumn> cols) {
  std::vector<ColumnInfo> out;
  for (const auto& col : cols) {
    ColumnInfo c;
    c.name = col.name;
    c.type = col.type;
    c.defined_size = col.size;
    c.attributes = attr::kIsNullable | attr::kMayBeNull;
    out.push_back(std::move(c));
  }
  return out;
}
}  // namespace

std::vector<ColumnInfo> TablesRowsetColumns() {
  return RowsetColumns({{"TABLE_CATALOG", 202, 128},
                        {"TABLE_SCHEMA", 202, 128},
                        {"TABLE_NAME", 202, 128},
                        {"TABLE_TYPE", 202, 128},
                        {"TABLE_GUID", 72, 16},
                        {"DESCRIPTION", 203, 0},
                        {"TABLE_PROPID", 19, 4},
                        {"DATE_CREATED", 7, 8},
                        {"DATE_MODIFIED", 7, 8}});
}

std::vector<ColumnInfo> ColumnsRowsetColumns() {
  return RowsetColumns({{"TABLE_CATALOG", 202, 128},
                        {"TABLE_SCHEMA", 202, 128},
                        {"TABLE_NAME", 202, 128},
                        {"COLUMN_NAME", 202, 128},
                        {"ORDINAL_POSITION", 19, 4},
                        {"COLUMN_HASDEFAULT", 11, 2},
                        {"COLUMN_DEFAULT", 203, 0},
                        {"COLUMN_FLAGS", 19, 4},
                        {"IS_NULLABLE", 11, 2},
                        {"DATA_TYPE", 18, 2},
                        {"CHARACTER_MAXIMUM_LENGTH", 19, 4},
                        {"CHARACTER_OCTET_LENGTH", 19, 4},
                        {"NUMERIC_PRECISION", 18, 2},
                        {"NUMERIC_SCALE", 2, 2},
                        {"DATETIME_PRECISION", 19, 4},
                        {"DESCRIPTION", 203, 0}});
}

std::vector<ColumnInfo> PrimaryKeysRowsetColumns() {
  return RowsetColumns({{"TABLE_CATALOG", 202, 128},
                        {"TABLE_SCHEMA", 202, 128},
                        {"TABLE_NAME", 202, 128},
                        {"COLUMN_NAME", 202, 128},
                        {"COLUMN_GUID", 72, 16},
                        {"COLUMN_PROPID", 19, 4},
                        {"ORDINAL", 19, 4},
                        {"PK_NAME", 202, 128}});
}

std::vector<ColumnInfo> IndexRowsetColumns() {
  return RowsetColumns({{"TABLE_CATALOG", 202, 0},
                        {"TABLE_SCHEMA", 202, 0},
                        {"TABLE_NAME", 202, 0},
                        {"INDEX_CATALOG", 202, 0},
                        {"INDEX_SCHEMA", 202, 0},
                        {"INDEX_NAME", 202, 0},
                        {"PRIMARY_KEY", 11, 0},
                        {"UNIQUE", 11, 0},
                        {"CLUSTERED", 11, 0},
                        {"TYPE", 18, 0},
                        {"FILL_FACTOR", 3, 0},
                        {"INITIAL_SIZE", 3, 0},
                        {"NULLS", 3, 0},
                        {"SORT_BOOKMARKS", 11, 0},
                        {"AUTO_UPDATE", 11, 0},
                        {"NULL_COLLATION", 3, 0},
                        {"ORDINAL_POSITION", 19, 0},
                        {"COLUMN_NAME", 202, 0},
                        {"COLUMN_GUID", 72, 0},
                        {"COLUMN_PROPID", 19, 0},
                        {"COLLATION", 2, 0},
                        {"CARDINALITY", 21, 0},
                        {"PAGES", 3, 0},
                        {"FILTER_CONDITION", 202, 0},
                        {"INTEGRATED", 11, 0}});
}

std::vector<Variant> IndexRow(const Variant& catalog, const Variant& schema,
                              const std::string& table, const std::string& index, bool primary,
                              bool unique, bool clustered, std::int32_t ordinal,
                              const std::string& column) {
  const Variant null = Variant::Null();
  return {catalog,
          schema,
          Variant(table),
          catalog,
          schema,
          Variant(index),
          Variant(primary),
          Variant(unique),
          Variant(clustered),
          Variant(std::int32_t{1}),  // DBPROPVAL_IT_BTREE
          null,
          null,
          null,
          Variant(false),
          Variant(true),
          null,
          Variant(ordinal),
          Variant(column),
          null,
          null,
          Variant(std::int32_t{1}),
          null,
          null,
          null,
          Variant(clustered)};
}

std::vector<ColumnInfo> ForeignKeysRowsetColumns() {
  return RowsetColumns({{"PK_TABLE_CATALOG", 202, 128},
                        {"PK_TABLE_SCHEMA", 202, 128},
                        {"PK_TABLE_NAME", 202, 128},
                        {"PK_COLUMN_NAME", 202, 128},
                        {"PK_COLUMN_GUID", 72, 16},
                        {"PK_COLUMN_PROPID", 19, 4},
                        {"FK_TABLE_CATALOG", 202, 128},
                        {"FK_TABLE_SCHEMA", 202, 128},
                        {"FK_TABLE_NAME", 202, 128},
                        {"FK_COLUMN_NAME", 202, 128},
                        {"FK_COLUMN_GUID", 72, 16},
                        {"FK_COLUMN_PROPID", 19, 4},
                        {"ORDINAL", 19, 4},
                        {"UPDATE_RULE", 202, 20},
                        {"DELETE_RULE", 202, 20},
                        {"PK_NAME", 202, 128},
                        {"FK_NAME", 202, 128},
                        {"DEFERRABILITY", 2, 2}});
}

std::vector<ColumnInfo> ViewsRowsetColumns() {
  return RowsetColumns({{"TABLE_CATALOG", 202, 128},
                        {"TABLE_SCHEMA", 202, 128},
                        {"TABLE_NAME", 202, 128},
                        {"VIEW_DEFINITION", 203, 0},
                        {"CHECK_OPTION", 11, 2},
                        {"IS_UPDATABLE", 11, 2},
                        {"DESCRIPTION", 203, 0},
                        {"DATE_CREATED", 7, 8},
                        {"DATE_MODIFIED", 7, 8}});
}

std::vector<Variant> ForeignKeyRow(const Variant& catalog, const Variant& schema,
                                   const ForeignKeyColumn& k) {
  const Variant null = Variant::Null();
  return {catalog,
          schema,
          Variant(k.pk_table),
          Variant(k.pk_column),
          null,
          null,
          catalog,
          schema,
          Variant(k.fk_table),
          Variant(k.fk_column),
          null,
          null,
          Variant(k.ordinal),
          Variant(k.update_rule),
          Variant(k.delete_rule),
          null,
          k.fk_name.empty() ? null : Variant(k.fk_name),
          Variant(std::int32_t{3})};  // DBPROPVAL_DF_NOT_DEFERRABLE
}

std::vector<Variant> ViewRow(const Variant& catalog, const Variant& schema, const std::string& name,
                             const Variant& definition) {
  const Variant null = Variant::Null();
  return {catalog,        schema, Variant(name), definition, Variant(false),
          Variant(false), null,   null,          null};
}

}  // namespace zt::platform
