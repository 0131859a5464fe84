// The file members of Env on the real file system, for every environment that does not replace
// them. None throws: a failure comes back as its error code.
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <system_error>

#include "foundation/sibling_file.h"
#include "zt/env.h"

namespace zt {

namespace fs = std::filesystem;

namespace {

std::error_code LastError() {
  return {errno, std::generic_category()};
}

}  // namespace

bool Env::FileExists(const std::string& path) {
  std::error_code ec;
  return fs::exists(fs::status(path, ec));
}

bool Env::PathInUse(const std::string& path) {
  std::error_code ec;
  return fs::exists(fs::symlink_status(path, ec));
}

std::error_code Env::RenameFile(const std::string& from, const std::string& to) {
  std::error_code ec;
  fs::rename(from, to, ec);
  return ec;
}

std::error_code Env::CopyFile(const std::string& from, const std::string& to) {
  // The copy is made exclusively: something that appeared at `to` after the caller looked is
  // someone else's and is neither followed (a link) nor overwritten.
  std::error_code ec;
  fs::copy_file(from, to, fs::copy_options::none, ec);
  return ec;
}

std::error_code Env::RemoveFile(const std::string& path) {
  // unlink, never remove: a folder that happens to carry a file's name (a journal's, say) is not
  // the caller's to take away.
  if (::unlink(path.c_str()) != 0) return LastError();
  return {};
}

std::optional<std::string> Env::ReadFile(const std::string& path) {
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return std::nullopt;
  return text;
}

std::error_code Env::ReplaceFile(const std::string& path, const std::string& text) {
  return WriteFile(
      path, [&](std::ostream& out) { out << text; }, false);
}

std::error_code Env::WriteFile(const std::string& path,
                               const std::function<void(std::ostream&)>& write, bool keep_backup) {
  SiblingFile file(path);
  if (file.Error()) return file.Error();
  std::ostream out(&file);
  write(out);
  out.flush();
  return file.Commit(keep_backup);
}

}  // namespace zt
