// CZTADOUtilities, CZtDAOUtilities and CZtRSRecUtils.
#include "zt/recordset/recordset_utils.h"

#include "foundation/utf8.h"
#include "zt/event_logger.h"
#include "zt/text/compare.h"

namespace zt {

namespace {

constexpr const char* kAdoUtils = "CZTADOUtilities";
constexpr const char* kRecUtils = "CZtRSRecUtils";

// The old code read values through null-safe converters: Null (and Empty) count as 0.
std::int32_t NullSafeInt32(const Variant& v) {
  return v.IsNull() || v.IsEmpty() ? 0 : v.ToInt32();
}

// Whether a non-text field's stored value must be replaced by `value`. An equal value is not
// written, so that an unchanged field does not dirty the record; values the run time cannot
// compare (a number against a non-numeric text) differ.
bool NeedsWrite(const Variant& current, const Variant& value) {
  if (current.IsNull() || current.IsEmpty()) return true;
  try {
    const auto c = Variant::Compare(current, value);
    return !c || *c != 0;
  } catch (const ZtError&) {
    return true;
  }
}

bool IsVariableText(std::int32_t type) {
  return type == ado::adVarChar || type == ado::adVarWChar;
}

}  // namespace

// ---- CZTADOUtilities ------------------------------------------------------------------------

void CZTADOUtilities::CloseRecordsetADO(std::shared_ptr<Recordset>& rs) {
  Trap at(kAdoUtils, "CloseRecordsetADO");
  at.Reraising([&] {
    at = 10;
    if (!rs) return;
    if (rs->State() == ado::adStateOpen) rs->Close();
    at = 20;
    rs.reset();
  });
}

void CZTADOUtilities::CloseConnection(std::shared_ptr<Connection>& cn) {
  Trap at(kAdoUtils, "CloseConnection");
  at.Reraising([&] {
    at = 10;
    if (!cn) return;
    if (cn->State() == ado::adStateOpen) cn->Close();
    at = 20;
    cn.reset();
  });
}

std::int32_t CZTADOUtilities::GetMaxID(const std::shared_ptr<Connection>& cn,
                                       const std::string& table, const std::string& column,
                                       const std::string& where) {
  Trap at(kAdoUtils, "GetMaxID");
  return at.Reraising([&] {
    at = 10;
    if (!cn)
      throw ZtError(AdoErrorNumber(AdoError::kObjectClosed), kAdoUtils,
                    "Operation is not allowed when the object is closed.");
    std::string sql = "SELECT Max(" + column + ") FROM [" + table + "]";
    if (!where.empty()) sql += " WHERE " + where;
    at = 20;
    std::shared_ptr<Recordset> rs = cn->Execute(sql);
    at = 30;
    const std::int32_t id = rs->Eof() ? 0 : NullSafeInt32(rs->Fields(0).Value());
    at = 40;
    CloseRecordsetADO(rs);
    return id;
  });
}

bool CZTADOUtilities::MoveFirst(Recordset& rs) {
  Trap at(kAdoUtils, "MoveFirst");
  return at.Reraising([&] {
    at = 10;
    // An empty recordset has no first record to move to; it stays at its end.
    if (!(rs.Bof() && rs.Eof())) rs.MoveFirst();
    return true;
  });
}

bool CZTADOUtilities::FindFirst(Recordset& rs, const std::string& criteria) {
  Trap at(kAdoUtils, "FindFirst");
  return at.Reraising([&] {
    at = 10;
    if (!MoveFirst(rs)) return false;
    at = 20;
    if (rs.Eof()) return false;
    rs.Find(criteria, 0, ado::adSearchForward);
    return !rs.Eof();
  });
}

// ---- CZtDAOUtilities ------------------------------------------------------------------------

void CZtDAOUtilities::CloseDataBase(std::shared_ptr<dao::Database>& db) {
  Trap at("CZtDAOUtilities", "CloseDataBase");
  at.Reraising([&] {
    at = 10;
    if (!db) return;
    db->Close();
    db.reset();
  });
}

void CZtDAOUtilities::CloseRecordsetDAO(std::unique_ptr<dao::Recordset>& rs) {
  Trap at("CZtDAOUtilities", "CloseRecordsetDAO");
  at.Reraising([&] {
    at = 10;
    if (!rs) return;
    rs->Close();
    rs.reset();
  });
}

// ---- CZtRSRecUtils --------------------------------------------------------------------------

bool CZtRSRecUtils::SetFieldValue(Recordset& rs, const std::string& column, const Variant& value) {
  Trap at(kRecUtils, "SetFieldValue");
  return at.Reraising([&] {
    at = 10;
    if (!rs.HasField(column)) return false;  // a missing column is skipped, not an error
    at = 20;
    SetFieldValue2(rs.Fields(column), value);
    return true;
  });
}

bool CZtRSRecUtils::SetFieldValue2(Field& field, const Variant& value) {
  Trap at(kRecUtils, "SetFieldValue2");
  return at.Reraising([&] {
    at = 10;
    if (IsVariableText(field.Type())) {
      at = 20;
      SetFieldValue_String(field, value);
      return true;
    }
    at = 30;
    if (NeedsWrite(field.Value(), value)) field.SetValue(value);
    return true;
  });
}

void CZtRSRecUtils::SetFieldValue_String(Field& field, const Variant& value) {
  Trap at(kRecUtils, "SetFieldValue_String");
  at.Reraising([&] {
    at = 10;
    const Variant current = field.Value();
    const std::string old_text = current.IsNull() || current.IsEmpty() ? "" : current.ToText();
    const std::string new_text = value.IsNull() || value.IsEmpty() ? "" : value.ToText();
    at = 20;
    // Compared without regard to case on purpose: a change of case alone is not worth a write.
    if (TextEquals(old_text, new_text, CompareMode::Text) && !current.IsNull()) return;
    at = 30;
    if (TrimSpaces(new_text).empty()) {
      field.SetValue(Variant(std::string()));  // blanks store "", never Null
      return;
    }
    at = 40;
    const std::int64_t size = field.DefinedSize();
    if (size > 0 && static_cast<std::int64_t>(utf8::Length(new_text)) > size) {
      // Too long for the column: the record keeps its value, and the caller goes on; the
      // administrator learns of it from the log.
      ErrorHandler().LogError(
          TypeName() + ".SetFieldValue_String - unable to store '" + new_text + "' in field " +
              field.Name() + " since it only allows up to " + std::to_string(size) +
              " characters, so it will keep the original value '" + old_text + "'",
          nullptr, kEventWarning, kLevelError);
      return;
    }
    at = 50;
    field.SetValue(Variant(new_text));
  });
}

}  // namespace zt
