// CZtDataStore: definition members and connection strings.
#include <string>

#include "datastore/provider_types.h"
#include "foundation/paths.h"
#include "foundation/utf8.h"
#include "text/password_mask.h"
#include "zt/config.h"
#include "zt/datastore.h"
#include "zt/error.h"
#include "zt/text/compare.h"
#include "zt/text/strings.h"
#include "zt/trap.h"

namespace zt {

namespace {

constexpr std::string_view kTypeName = "CZtDataStore";
// Jet stored at most 14 characters of a password; a longer one in the connection string would
// not match what the security database holds, so the Jet forms cut it.
constexpr std::size_t kJetPasswordLength = 14;
// Positions in the old connection-string search were 16-bit integers.
constexpr std::size_t kMaxSearchPosition = 32767;

}  // namespace

CZtDataStore::CZtDataStore() {
  Trap at(kTypeName, "Class_Initialize");
  at.Returning([&] {
    at = 10;
    max_retries_ = Variant(LoadConfigResString(501)).ToInt32();
    at = 20;
    retry_interval_ = Variant(LoadConfigResString(502)).ToInt32();
  });
}

CZtDataStore::~CZtDataStore() = default;

// A text for a log line with every password item masked. The store writes its password into
// the connection string as given, so one holding a ";" would end its item early: the known
// password, whole and in the 14-character form of the Jet strings, tells the masking where such
// an item really ends. It is never searched for elsewhere in the text.
std::string CZtDataStore::MaskPasswords(const std::string& text, const std::string& password) {
  return text_detail::MaskPasswordItems(text, {password, utf8::Left(password, kJetPasswordLength)});
}

void CZtDataStore::Location(const std::string& value) {
  dao_conn_cache_.clear();
  location_ = value;
}

CZtProvider& CZtDataStore::ProviderObject() {
  if (!provider_object_) provider_object_ = std::make_unique<CZtProvider>();
  return *provider_object_;
}

std::string CZtDataStore::Provider() {
  Trap at(kTypeName, "Provider");
  return at.Returning(
      [&] {
        at = 10;
        if (TrimSpaces(provider_).empty())
          provider_ = ProviderObject().GetOLEDBProvider(provider_type_, "");
        return provider_;
      },
      std::string{});
}

std::string CZtDataStore::ODBCDriver() {
  if (!odbc_driver_.empty()) return odbc_driver_;
  // Jet and unknown types have no driver; nothing is stored for them.
  if (const ds::ProviderTypeRow* row = ds::FindProviderType(provider_type_))
    odbc_driver_ = std::string(row->odbc_driver);
  return odbc_driver_;
}

ds::DefinitionParts CZtDataStore::Parts() const {
  return {location_,
          name_,
          FullPath(),
          user_,
          password_,
          system_db_,
          (attributes_ & kAttrOdbcForm) != 0};
}

std::string CZtDataStore::FullPath() const {
  return JoinPath(location_, name_);
}

std::string CZtDataStore::ConnectionString() {
  Trap at(kTypeName, "ConnectionString");
  return at.Returning(
      [&] {
        at = 10;
        const std::string alt = TrimSpaces(alt_conn_);
        if (!alt.empty() && alt_op_ == kAltConnReplace) return alt_conn_;
        at = 20;
        const bool odbc = (attributes_ & kAttrOdbcForm) != 0;
        std::string s = odbc ? "Driver=" + ODBCDriver() + ";dbq=" : "Provider=" + Provider();
        at = 30;
        // A type without a row adds nothing after the provider.
        if (const ds::ProviderTypeRow* row = ds::FindProviderType(provider_type_))
          s += row->connection_tail(Parts(), ODBCDriver());
        at = 60;
        // The alternative text is appended untrimmed after a ";" even when the built string
        // already ends in one; administrators compare the ";;" that results, so it stays.
        if (!alt.empty() && alt_op_ != kAltConnIgnore) s += ";" + alt_conn_;
        return s;
      },
      std::string{});
}

std::string CZtDataStore::DAOConnectionString(const std::string& user_name,
                                              const std::string& password) {
  Trap at(kTypeName, "DAOConnectionString");
  return at.Returning(
      [&] {
        at = 10;
        if (!user_name.empty()) {
          user_ = user_name;
          password_ = password;
        }
        at = 20;
        const ds::ProviderTypeRow* row = ds::FindProviderType(provider_type_);
        if (dao_conn_cache_.empty() && row && row->dao_string)
          dao_conn_cache_ = row->dao_string(Parts(), ODBCDriver(), !user_name.empty());
        at = 30;
        if (InStr(1, ConnectionString(), "Integrated Security=SSPI", CompareMode::Text) != 0 &&
            InStr(1, dao_conn_cache_, "Trusted_Connection=Yes", CompareMode::Text) == 0)
          dao_conn_cache_ += ";Trusted_Connection=Yes";
        return dao_conn_cache_;
      },
      std::string{});
}

std::string CZtDataStore::GetValueFromConnectionString(const std::string& key,
                                                       std::string& conn_string) {
  Trap at(kTypeName, "GetValueFromConnectionString");
  return at.Returning(
      [&] {
        at = 10;
        if (conn_string.empty()) {
          std::string open = OpenConnectionString();
          if (!open.empty()) conn_string = open;
        }
        at = 20;
        const std::size_t pos =
            static_cast<std::size_t>(InStr(1, conn_string, key + "=", CompareMode::Text));
        if (pos > kMaxSearchPosition) rt::Raise(rt::kOverflow);
        if (pos == 0) return std::string{};
        at = 30;
        std::string value = utf8::Mid(conn_string, pos + utf8::Length(key) + 1);
        if (auto semi = value.find(';'); semi != std::string::npos) value.erase(semi);
        return value;
      },
      std::string{});
}

bool CZtDataStore::SameConnectionString(std::string& conn_string1, std::string& conn_string2,
                                        bool compare) {
  Trap at(kTypeName, "SameConnectionString");
  return at.Returning(
      [&] {
        if (!compare) return false;
        at = 10;
        auto value = [&](const char* key, std::string& cs) {
          return GetValueFromConnectionString(key, cs);
        };
        const ds::ProviderTypeRow* row = ds::FindProviderType(provider_type_);
        const ds::SameBy by = row ? row->same_by : ds::SameBy::kNever;
        if (!conn_string2.empty()) {
          at = 20;
          if (!TextEquals(value("DATABASE", conn_string1), value("DATABASE", conn_string2)))
            return false;
          if (by == ds::SameBy::kFile) return true;
          if (by == ds::SameBy::kServer)
            return TextEquals(value("SERVER", conn_string1), value("SERVER", conn_string2));
          return false;
        }
        at = 30;
        if (by == ds::SameBy::kFile) return TextEquals(value("DATABASE", conn_string1), FullPath());
        if (by == ds::SameBy::kServer)
          return TextEquals(value("DATABASE", conn_string1), name_) &&
                 TextEquals(value("SERVER", conn_string1), location_);
        return false;
      },
      false);
}

std::shared_ptr<IZtDSDefinition> CZtDataStore::Copy() const {
  auto copy = std::make_shared<CZtDataStore>();
  // The copy is a definition only: it gets no connection, so the "DAO database supplied by the
  // caller" bit does not travel with it.
  copy->attributes_ = attributes_ & ~kAttrDaoSupplied;
  copy->location_ = location_;
  copy->name_ = name_;
  copy->type_ = type_;
  copy->provider_type_ = provider_type_;
  copy->provider_ = provider_;
  copy->odbc_driver_ = odbc_driver_;
  copy->system_db_ = system_db_;
  copy->user_ = user_;
  copy->password_ = password_;
  copy->alt_conn_ = alt_conn_;
  copy->alt_op_ = alt_op_;
  copy->order_ = order_;
  copy->security_access_ = security_access_;
  copy->security_db_ = security_db_;
  copy->alt_location_ = alt_location_;
  copy->max_retries_ = max_retries_;
  copy->retry_interval_ = retry_interval_;
  copy->add_random_delay_ = add_random_delay_;
  return copy;
}

}  // namespace zt
