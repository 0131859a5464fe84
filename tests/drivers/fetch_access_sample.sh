#!/usr/bin/env bash
# fetch_access_sample.sh DIR - puts a real Access 97 file, DIR/testodbc.mdb, in place for the
# MDB Tools tests. The file ships (gzipped) with Debian's Free Pascal database units: taken from
# the installed package when it is there, else from the package downloaded into DIR.
# ZT_ACCESS_SAMPLE_DOWNLOAD=1 always downloads. Exit 0 with the file in place, non-zero (and a reason on stderr) otherwise.
set -euo pipefail
dir=${1:?usage: fetch_access_sample.sh DIR}
member=usr/share/doc/fp-units-db/3.2.2/examples/odbc/testodbc.mdb.gz
mkdir -p "$dir"
out="$dir/testodbc.mdb"
[[ -s $out ]] && exit 0
if [[ -f /$member && -z ${ZT_ACCESS_SAMPLE_DOWNLOAD:-} ]]; then
  gunzip -c "/$member" > "$out.part"
else
  (cd "$dir" && apt-get download fp-units-db-3.2.2 >/dev/null 2>&1) || {
    echo "fetch_access_sample: apt-get download fp-units-db-3.2.2 failed" >&2
    exit 1
  }
  deb=$(ls "$dir"/fp-units-db-3.2.2_*.deb | head -n 1)
  dpkg-deb --fsys-tarfile "$deb" | tar -xO "./$member" | gunzip > "$out.part"
  rm -f "$deb"
fi
mv "$out.part" "$out"
