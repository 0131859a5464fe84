// The library's compiled-in texts (en-US): the numbered string table and the named messages.
// Each table is kept in one place; per-culture files may override any entry (resources.cpp).
#include "foundation/string_table.h"

namespace zt {

const std::map<std::int32_t, std::string_view>& NumberedStrings() {
  static const std::map<std::int32_t, std::string_view> table = {
      {101, "An unknown error occurred."},
      // Integrated security for SQL Server: "1" switches it on.
      {203, "0"},
      // Configuration file: XPath of the settings section, the selection-language property and
      // its value, the element and attribute names of an entry.
      {416, "//appSettings"},
      {417, "SelectionLanguage"},
      {418, "XPath"},
      {419, "add"},
      {420, "value"},
      {421, "key"},
      // Connection retries: attempts, milliseconds between them, and the error numbers on which
      // an open is retried (E_FAIL, and the OLE DB errors of a locked or busy file).
      {501, "5"},
      {502, "100"},
      {503, "-2147467259;-2147217900;-2147217815;-2147217911;-2147217887"},
      {600, "The resource string identifier is not numeric."},
      {702,
       "Cannot create a UNC name for the folder %1 on the computer %2.\n"
       "Make sure that the folder is shared and that you have permission to read it."},
      {9020, "This data provider is not yet supported: %1"},
      {10020, "This data provider is not yet supported: %1"},
      // Name of the user table of a MySQL data store, and the name it stands for.
      {10402, "tblUser_1"},
      {10403, "tblUser"},
      // OLE DB provider names and prefixes per provider type.
      {10450, "Microsoft.Jet.OLEDB.3.51"},
      {10451, "Microsoft.Jet.OLEDB.4.0"},
      {10452, "MSOLEDBSQL"},
      {10453, "OraOLEDB.Oracle"},
      {10454, "Microsoft.Jet"},
      {10455, "MSOLEDBSQL"},
      {10456, "OraOLEDB.Oracle"},
      {10457, "MSDASQL"},
      // PostgreSQL (provider type 32): provider name and prefix.
      {10458, "PostgreSQL"},
      {10459, "PostgreSQL"},
      // SQL Server discovery: the hosts asked (separated by ",", each "host" or "host:port";
      // the broadcast address asks every machine of the local network) and the milliseconds
      // answers are waited for; then the seconds a SQL Server login may take.
      {10470, "255.255.255.255"},
      {10471, "1000"},
      {10472, "15"},
  };
  return table;
}

const std::map<std::string, std::string_view, std::less<>>& NamedMessages() {
  static const std::map<std::string, std::string_view, std::less<>> table = {
      // Event types in a file-log line.
      {"ERROR_TYPE_ID", "Error"},
      {"WARNING_TYPE_ID", "Warning"},
      {"INFO_TYPE_ID", "Information"},
      // Provider captions.
      {"PROVIDER_JET", "Microsoft Access (Jet)"},
      {"PROVIDER_SQL", "Microsoft SQL Server"},
      {"PROVIDER_ORACLE", "Oracle"},
      {"PROVIDER_MYSQL", "MySQL"},
      {"PROVIDER_POSTGRESQL", "PostgreSQL"},
      // Yes/no words.
      {"BLN_YES", "Yes"},
      {"BLN_NO", "No"},
      {"BLN_TRUE", "True"},
      {"BLN_FALSE", "False"},
      // Errors raised by the library.
      {"tslResourceStringIdNotNumeric",
       "The resource string identifier is not numeric or the resource specification is invalid."},
      {"tslDSProviderNotSupportedErr", "This data provider is not yet supported: %1"},
      {"ERR_COULDNT_GET_UNC_PATH2",
       "Cannot create a UNC name for the folder %1 on the computer %2.\n"
       "Make sure that the folder is shared and that you have permission to read it."},
      {"ERR_DB_NOT_ALREADY_IN_SQL_SVR", "The database %1 is not attached to the SQL Server %2."},
      {"ERR_NEED_TO_INIT_SQLSVR",
       "The SQL Server %1 must be prepared for <ProductShortName> before it can be used."},
      {"ERR_SOURCE_SAME_AS_TARGET", "The source and the target are the same: %1"},
      {"SQL_VERSION_LESS_ON_NEW_SERVER",
       "The SQL Server version of the new server is lower than that of the current server."},
      {"tslDBFilesNotOnServerError2",
       "The database files of %1 are not on the server %2, so the database cannot be moved."},
      {"tslSQLServerVersionNotSupportedError2", "SQL Server version %1 on %2 is not supported."},
      {"tslSQLServerSecurityModeNotSupportedError",
       "The security mode of this SQL Server is not supported. Use SQL Server and Windows "
       "authentication."},
      {"tslSetTesselPermissionsInSQLServerError",
       "The application login could not be given its permissions on the SQL Server."},
      {"tslAddLoginError", "The login could not be added to the SQL Server."},
      {"ERR_SQLSVR_VERSION_UNREADABLE", "The SQL Server version cannot be read from: %1"},
      {"ERR_SQLSVR_BAD_NAME", "%1 cannot be passed to the server's command shell: %2"},
      {"tslInitializeSqlServerErr",
       "The SQL Server has not been prepared for use by the application."},
      {"tslAskSetPropertiesSqlServer",
       "Do you want to prepare the SQL Server now? You need the password of the 'sa' login."},
      {"INIT_SQL_MSG_TITLE", "Prepare SQL Server"},
      {"MSG_ENTER_SA_PASSWORD", "Enter the password of the SQL Server administrator (sa):"},
      {"TRY_AGAIN", "Try again?"},
      {"MSG_COULDNT_COPY_TBL_STRUCTURE", "The structure of table %1 could not be copied."},
      {"NUM_FAILED_RECORDS", "%1 records could not be copied."},
      {"COMPUTER_NAME", "Computer name"},
      {"LOGIN_NAME", "Login name"},
  };
  return table;
}

}  // namespace zt
