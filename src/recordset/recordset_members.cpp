// The late-bound members of the recordset helpers and the recordset XML exchange.
#include "server/member_table.h"
#include "zt/platform.h"
#include "zt/platform/dao.h"
#include "zt/recordset/recordset_utils.h"
#include "zt/xml/xml_manip.h"

namespace zt {
namespace {

const server::Registrar<CZTADOUtilities> kAdo("CZTADOUtilities", [](auto& t) {
  using U = CZTADOUtilities;
  t.Method("CloseRecordsetADO", &U::CloseRecordsetADO)
      .Method("CloseConnection", &U::CloseConnection)
      .Method("GetMaxID", &U::GetMaxID, 1)
      .Method("MoveFirst", &U::MoveFirst)
      .Method("FindFirst", &U::FindFirst);
});

const server::Registrar<CZtDAOUtilities> kDao("CZtDAOUtilities", [](auto& t) {
  // A DAO recordset is owned by one holder and cannot be handed out; only the database is.
  t.Method("CloseDataBase", &CZtDAOUtilities::CloseDataBase);
});

const server::Registrar<CZtRSRecUtils> kRec("CZtRSRecUtils", [](auto& t) {
  using U = CZtRSRecUtils;
  t.Method("SetFieldValue", &U::SetFieldValue)
      .Method("SetFieldValue2", &U::SetFieldValue2);
});

const server::Registrar<CZtRecordMgr> kRecordMgr("CZtRecordMgr", [](auto& t) {
  using M = CZtRecordMgr;
  t.Method("RemoveDuplicateRecords", &M::RemoveDuplicateRecords)
      .Get("LastRecordsDeleted", &M::LastRecordsDeleted)
      .Method("DuplicateRemovalStatements", &M::DuplicateRemovalStatements)
      .Method("CountDuplicateRecords", &M::CountDuplicateRecords);
});

const server::Registrar<CZtXMLManip> kXml("CZtXMLManip", [](auto& t) {
  using X = CZtXMLManip;
  const server::Defaults save{{false, false, 1}};
  const server::Defaults open{{false, 1}};
  t.Method("SaveRSToXML", &X::SaveRSToXML, save)
      .Method("SaveRSToXMLFile", &X::SaveRSToXMLFile, save)
      .Method("OpenXMLToRS", &X::OpenXMLToRS, open)
      .Method("OpenXMLFileToRS", &X::OpenXMLFileToRS, open);
});

}  // namespace
}  // namespace zt
