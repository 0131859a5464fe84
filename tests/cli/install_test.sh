#!/usr/bin/env bash
# Installs the build into a temporary prefix and checks that the installed ztdb runs.
set -euo pipefail
build=$1
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
"$prefix/bin/ztdb" --version | grep -q 'ztdb 7.6'
"$prefix/bin/ztdb" --help | grep -q -- '--version'

# A program built against the installed headers and library alone: the public classes, their
# errors and the data-access layer are exported, and what they throw is caught as zt::ZtError.
lib=$(dirname "$(find "$prefix" -name 'libztdbtools.so' | head -1)")
cat >"$prefix/use.cpp" <<'CPP'
#include <zt/ztdbtools.h>
#include <cstdio>
#include <string>
int main(int, char** argv) {
  auto ds = std::make_shared<zt::CZtDataStore>();
  ds->GeneralProviderType(zt::ProviderTypeFromName("sqlite"));
  ds->Location(argv[1]);
  ds->DataStoreName("use.db");
  ds->CreatePhysicalDataStore();
  auto cn = ds->GetConnection(1);
  cn->Execute("CREATE TABLE [t] ([n] INTEGER)");
  cn->Execute("INSERT INTO [t] ([n]) VALUES (42)");
  auto rs = cn->Execute("SELECT [n] FROM [t]");
  const std::string n = rs->Value("n").ToText();
  try {
    cn->Execute("SELECT * FROM [no_such_table]");
    return 1;
  } catch (const zt::ZtError& e) {
    std::printf("%s %s\n", n.c_str(), e.Number() != 0 ? "caught" : "zero");
  }
  return 0;
}
CPP
# shellcheck disable=SC2086 # the flags are words of their own
c++ -std=c++20 -Wall -Werror ${ZT_PROGRAM_FLAGS:-} -I"$prefix/include" "$prefix/use.cpp" -L"$lib" -lztdbtools \
  -Wl,-rpath,"$lib" -o "$prefix/use"
[[ $("$prefix/use" "$prefix") == "42 caught" ]]
# Internals stay inside the library: the file layer of the data store is not exported.
! nm -DC --defined-only "$lib/libztdbtools.so" | grep -q "zt::ds::CreateSqliteFile"
echo "installed ztdb runs from $prefix; a program builds against the installed library"
