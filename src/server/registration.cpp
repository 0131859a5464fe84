// The registration file: where a host finds the library that serves a ProgID. It stands in for
// the registry keys that DllRegisterServer wrote, so it keeps their shape: one section per
// ProgID, naming the class and the library file.
#include <cstdlib>
#include <string>
#include <vector>

#include "zt/env.h"
#include "zt/error.h"
#include "zt/server/dispatch.h"

#ifndef ZT_LIBRARY_FILE
#define ZT_LIBRARY_FILE "libztdbtools.so"
#endif

namespace zt::server {

namespace {

constexpr const char* kFileName = "ztdbtools.progids";
constexpr const char* kDefaultFolder = "/etc/ztdbtools";

struct Section {
  std::string name;
  std::vector<std::string> lines;
};

bool SameText(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'a' && x <= 'z') x = static_cast<char>(x - 32);
    if (y >= 'a' && y <= 'z') y = static_cast<char>(y - 32);
    if (x != y) return false;
  }
  return true;
}

std::vector<Section> Parse(const std::string& text) {
  std::vector<Section> sections;
  std::size_t pos = 0;
  while (pos < text.size()) {
    std::size_t end = text.find('\n', pos);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(pos, end - pos);
    pos = end + 1;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.size() >= 2 && line.front() == '[' && line.back() == ']') {
      sections.push_back({line.substr(1, line.size() - 2), {}});
    } else if (!line.empty() && !sections.empty()) {
      sections.back().lines.push_back(line);
    }
  }
  return sections;
}

std::string Format(const std::vector<Section>& sections) {
  std::string text;
  for (const auto& section : sections) {
    text += "[" + section.name + "]\n";
    for (const auto& line : section.lines) text += line + "\n";
  }
  return text;
}

bool IsOurs(const Section& section) {
  const ClassInfo* info = FindClass(section.name);
  return info && SameText(section.name, info->ProgId());
}

// The file's sections without this library's ProgIDs.
std::vector<Section> OthersIn(const std::string& path) {
  std::vector<Section> kept;
  if (auto text = Env::Current().ReadFile(path)) {
    for (auto& section : Parse(*text))
      if (!IsOurs(section)) kept.push_back(std::move(section));
  }
  return kept;
}

[[noreturn]] void RaiseFileError(const std::string& path) {
  throw ZtError(rt::kPathFileAccess, std::string(kLibrarySource),
                rt::Description(rt::kPathFileAccess) + ": " + path);
}

}  // namespace

std::string RegistrationFile(const std::string& folder) {
  std::string dir = folder;
  if (dir.empty()) {
    const char* configured = std::getenv("ZT_REGISTRATION_DIR");
    dir = configured && *configured ? configured : kDefaultFolder;
  }
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  return dir + "/" + kFileName;
}

void RegisterServer(const std::string& folder) {
  const std::string path = RegistrationFile(folder);
  const std::string library = Env::Current().AppPath() + "/" + ZT_LIBRARY_FILE;
  auto sections = OthersIn(path);
  for (const ClassInfo* info : Classes()) {
    if (!info->Creatable()) continue;
    sections.push_back({info->ProgId(), {"Class=" + info->Name(), "Library=" + library}});
  }
  if (Env::Current().ReplaceFile(path, Format(sections))) RaiseFileError(path);
}

void UnregisterServer(const std::string& folder) {
  const std::string path = RegistrationFile(folder);
  if (!Env::Current().FileExists(path)) return;
  auto sections = OthersIn(path);
  // The file is ours alone when nothing else is left in it.
  std::error_code failed = sections.empty() ? Env::Current().RemoveFile(path)
                                            : Env::Current().ReplaceFile(path, Format(sections));
  if (failed) RaiseFileError(path);
}

std::string RegisteredLibrary(std::string_view prog_id, const std::string& folder) {
  auto text = Env::Current().ReadFile(RegistrationFile(folder));
  if (!text) return {};
  for (const auto& section : Parse(*text)) {
    if (!SameText(section.name, prog_id)) continue;
    for (const auto& line : section.lines)
      if (line.rfind("Library=", 0) == 0) return line.substr(8);
  }
  return {};
}

}  // namespace zt::server
