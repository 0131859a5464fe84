// A file written beside the one it will replace, then renamed over it: a reader sees the old
// content or the new, never half of it.
#pragma once

#include <streambuf>
#include <string>
#include <system_error>

#include "zt/export.h"

namespace zt {

// The new file is made for this write alone in the target's folder, with the mode of the file
// it replaces (a private file stays private). Where the file system allows, it has no name
// until Commit (O_TMPFILE), so that even a killed process leaves nothing behind; elsewhere it
// is ".<name>.<random>.tmp", created exclusively, so it never follows a link someone planted
// nor touches a file already there. Until Commit, nothing at `target` changes; a SiblingFile
// destroyed without Commit removes its file.
class ZT_TEST_EXPORT SiblingFile : public std::streambuf {
 public:
  explicit SiblingFile(std::string target);
  ~SiblingFile() override;
  SiblingFile(const SiblingFile&) = delete;
  SiblingFile& operator=(const SiblingFile&) = delete;

  // The error of creating the file; when set, writes fail and Commit returns it.
  const std::error_code& Error() const { return error_; }
  const std::string& TempPath() const { return temp_; }
  // Flushes to the disk and renames the file over the target. With `keep_backup`, the file it
  // replaces stays as target + ".bak" (an older one there goes): a second name for it is made
  // first, so that the target is never missing, whenever the process stops.
  std::error_code Commit(bool keep_backup = false);

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* s, std::streamsize n) override;
  int sync() override;

 private:
  bool Drain();
  std::error_code Name();

  std::string target_, temp_;  // temp_ is empty while the file has no name
  bool unnamed_ = false;
  int fd_ = -1;
  std::error_code error_;
  std::string buffer_;
};

}  // namespace zt
