#!/usr/bin/env bash
# Installs the build into a temporary prefix and checks what a user of the installed tree gets:
# the ztdb program, headers that declare every public class, and a program of their own built
# against the library with find_package(ZtDBTools) and with pkg-config.
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
source_dir=$(cd "$here/../.." && pwd)
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
# A command that must fail (`! cmd` would not stop a `set -e` script).
fails() {
  if "$@" >/dev/null 2>&1; then
    echo "should have failed: $*" >&2
    exit 1
  fi
}
cmake --install "$build" --prefix "$prefix" >/dev/null
"$prefix/bin/ztdb" --version | grep -q 'ztdb 7.6'
"$prefix/bin/ztdb" --help | grep -q -- '--version'
version=$(sed -n 's/^project(ztdbtools VERSION \([0-9.]*\) .*/\1/p' "$source_dir/CMakeLists.txt")
lib=$(dirname "$(find "$prefix" -name 'libztdbtools.so' | head -1)")
# shellcheck disable=SC2206 # the flags are words of their own
flags=(${ZT_PROGRAM_FLAGS:-})

# <zt/ztdbtools.h> reaches every installed header (the plain C interface under zt/c/ is for C
# programs and stands on its own).
reached=$(echo '#include <zt/ztdbtools.h>' |
  c++ -std=c++20 -I"$prefix/include" -x c++ -fsyntax-only -H - 2>&1 >/dev/null |
  awk '{print $2}' | sed -n "s|^$prefix/include/||p" | sort -u)
installed=$(cd "$prefix/include" && find zt -name '*.h' ! -path 'zt/c/*' ! -name ztdbtools.h | sort)
unreached=$(comm -13 <(echo "$reached") <(echo "$installed"))
[[ -z $unreached ]] || { echo "not reached from <zt/ztdbtools.h>: $unreached"; exit 1; }

# Neither package file hands a consumer the library's drivers or a path into the source tree.
pkg_files=("$lib"/cmake/ZtDBTools/*.cmake "$lib/pkgconfig/ztdbtools.pc")
fails grep -E 'SQLite|PostgreSQL|ODBC|pugixml|LIBXML2' "$lib"/cmake/ZtDBTools/*.cmake
fails grep -F "$source_dir" "${pkg_files[@]}"
fails grep -F "$(cd "$build" && pwd)" "${pkg_files[@]}"

# With pkg-config: the version is the project's; --cflags names the include folder alone and
# --libs the library alone.
export PKG_CONFIG_PATH="$lib/pkgconfig"
[[ $(pkg-config --modversion ztdbtools) == "$version" ]]
# shellcheck disable=SC2046,SC2005 # echo joins pkg-config's words with single blanks
[[ $(echo $(pkg-config --cflags ztdbtools)) =~ ^-I[^\ ]+$ ]]
# shellcheck disable=SC2046,SC2005
[[ $(echo $(pkg-config --libs ztdbtools)) =~ ^-L[^\ ]+\ -lztdbtools$ ]]
mkdir "$prefix/pc" "$prefix/pc-db"
# shellcheck disable=SC2046 # pkg-config prints words
c++ -std=c++20 -Wall -Wextra -Wpedantic -Werror "${flags[@]}" $(pkg-config --cflags ztdbtools) \
  "$here/consumer/use.cpp" $(pkg-config --libs ztdbtools) -Wl,-rpath,"$lib" -o "$prefix/pc/use"
[[ $("$prefix/pc/use" "$prefix/pc-db") == "42 caught" ]]

# With find_package: the imported target alone gives the program its headers, C++20 and the
# library (and the path to it at run time).
cmake -S "$here/consumer" -B "$prefix/cmake" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Werror ${flags[*]}" \
  -DCMAKE_EXE_LINKER_FLAGS="${flags[*]}" >/dev/null
cmake --build "$prefix/cmake" >/dev/null
mkdir "$prefix/cmake-db"
[[ $("$prefix/cmake/use" "$prefix/cmake-db") == "42 caught" ]]
# A program that needs the next major version does not take this one.
fails cmake -S "$here/consumer" -B "$prefix/cmake-next" -DCMAKE_PREFIX_PATH="$prefix" \
  -DZT_WANT_VERSION=$((${version%%.*} + 1))

# The Python module, where it was built: it imports from its installed folder, finds the
# library under the prefix by itself, and has its type stubs beside it. (A sanitizer build's
# module needs the sanitizer run time preloaded into Python; the pytest suite checks that one.)
module=$(find "$prefix" -name 'ztdbtools.cpython-*.so' | head -1)
if [[ -n $module && -z ${ZT_PROGRAM_FLAGS:-} ]]; then
  [[ -f $(dirname "$module")/ztdbtools.pyi ]]
  (cd / && PYTHONPATH=$(dirname "$module") "${ZT_PYTHON:-python3}" -c \
    'import ztdbtools; assert "ZtDBTools404.CZtDataStore" in ztdbtools.classes()')
fi

# Internals stay inside the library: the file layer of the data store is not exported.
fails grep -q "zt::ds::CreateSqliteFile" <(nm -DC --defined-only "$lib/libztdbtools.so")
echo "installed ztdb runs from $prefix; programs build against the installed library with" \
  "find_package and pkg-config"
