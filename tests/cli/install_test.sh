#!/usr/bin/env bash
# Installs the build into a temporary prefix and checks that the installed ztdb runs.
set -euo pipefail
build=$1
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
"$prefix/bin/ztdb" --version | grep -q 'ztdb 7.6'
"$prefix/bin/ztdb" --help | grep -q -- '--version'
echo "installed ztdb runs from $prefix"
