#!/usr/bin/env bash
# The main job on the embedded default (SQLite): installs what is needed, builds, and shows the
# tool at work on a sample data store in ./sample.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZT_BUILD_TESTS=OFF >/dev/null
cmake --build build -j "$(nproc)" --target ztdb
ztdb=$PWD/build/tools/ztdb/ztdb
"$ztdb" --version
"$ztdb" about

# A sample help-desk data store, worked on as an administrator would.
rm -rf sample && mkdir -p sample && cd sample
set -x
"$ztdb" create --sample
"$ztdb" connstr
"$ztdb" validate
"$ztdb" tables --json
"$ztdb" version
"$ztdb" set-version 7 7
"$ztdb" version
"$ztdb" delete-records tblTickets --where "fClosed = -1" --dry-run
"$ztdb" delete-records tblTickets --where "fClosed = -1"
"$ztdb" compact
# The main job: the whole data store copied to another one, checked column by column. The same
# command takes a server on either side, e.g.
#   ZTDB_TARGET_PASSWORD=... ztdb copy helpdesk.db postgresql://tessel@127.0.0.1:5432/helpdesk
"$ztdb" copy helpdesk.db copy.db --indexes --verify
"$ztdb" -n copy.db validate
