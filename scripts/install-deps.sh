#!/usr/bin/env bash
# Installs the Debian packages the project needs. Quiet, and quick when they are all present.
#   scripts/install-deps.sh          # what building and running the library needs
#   scripts/install-deps.sh --test   # plus the test servers, ODBC drivers and test tools
set -euo pipefail

pkgs=(build-essential cmake ninja-build pkg-config libsqlite3-dev libpq-dev unixodbc unixodbc-dev
  libpugixml-dev libxml2-dev libcli11-dev nlohmann-json3-dev odbc-postgresql odbc-mariadb tdsodbc
  libsqliteodbc odbc-mdbtools mdbtools-dev mdbtools libmariadb-dev python3-dev pybind11-dev)
if [[ ${1:-} == --test ]]; then
  pkgs+=(googletest libgtest-dev libbenchmark-dev postgresql-15 postgresql-client-15 mariadb-server
    mariadb-client clang libclang-rt-14-dev chromium python3-pytest)
fi

missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q '^install ok installed' || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "install-deps: installing ${missing[*]}" >&2
SUDO=""
[[ $EUID -ne 0 ]] && SUDO=sudo
$SUDO apt-get update -qq
# policy-rc.d on these machines keeps mariadb-server's postinst from starting a system server;
# the tests start their own.
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" \
  >/tmp/zt-apt.log 2>&1 || { tail -30 /tmp/zt-apt.log >&2; exit 1; }
