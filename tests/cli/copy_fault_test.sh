#!/usr/bin/env bash
# ztdb copy when things go wrong for real, on private PostgreSQL and MariaDB servers of its own
# (the shared test servers go on serving the other tests meanwhile):
#   - the target server dies in the middle of a table copy and comes back;
#   - the ztdb process is killed with SIGKILL in the middle of a table copy;
#   - both again for `ztdb import` of an XML file into a new table (and SIGKILL on SQLite).
# Afterwards the source file is byte for byte what it was, a table the target had before is as
# it was, the copied table is absent or complete (no row lost or twice), and the next copy
# finishes the job without a working table left behind.
#
#   tests/cli/copy_fault_test.sh path/to/ztdb
# Exits 77 (skipped) when the servers are not installed here.
set -euo pipefail
ztdb=$(realpath "$1")
here=$(cd "$(dirname "$0")" && pwd)
servers=$here/../servers/servers.sh
export PATH="$PATH:/usr/sbin:/sbin"
[[ -x /usr/lib/postgresql/15/bin/initdb && -x /usr/sbin/mariadbd ]] || {
  echo "copy faults: servers not installed, skipped"
  exit 77
}

work=$(mktemp -d /tmp/ztf.XXXXXX)
chmod 755 "$work"
export DBTEST_DIR=$work/s
cleanup() { "$servers" stop >/dev/null 2>&1 || true; rm -rf "$work"; }
trap cleanup EXIT
eval "$("$servers" start 2>/dev/null)"
cd "$work"

fail() { echo "copy faults: FAIL: $*" >&2; exit 1; }
ROWS=300000
python3 - "$ROWS" <<'PY'
import sqlite3, sys
n = int(sys.argv[1])
db = sqlite3.connect("source.db")
db.execute("CREATE TABLE tblBig (nId LONG NOT NULL PRIMARY KEY, tText TEXT(120), dWhen DATETIME,"
           " fDone BIT)")
db.executemany("INSERT INTO tblBig VALUES (?, ?, ?, ?)",
               ((i, "call %d: the printer on the third floor prints blank pages again" % i,
                 45000.5 + i / 1440, -1 if i % 3 else 0) for i in range(n)))
db.execute("CREATE TABLE tblKeep (nId LONG NOT NULL PRIMARY KEY, tName TEXT(20))")
db.executemany("INSERT INTO tblKeep VALUES (?, ?)", ((i, "keep %d" % i) for i in range(10)))
db.commit()
PY
before=$(sha256sum source.db)

pg_url="postgresql://$DBTEST_PG_USER@$DBTEST_PG_HOST:$DBTEST_PG_PORT/$DBTEST_PG_DB"
my_url="mysql://$DBTEST_MY_USER@$DBTEST_MY_HOST:$DBTEST_MY_PORT/$DBTEST_MY_DB"
export PGPASSWORD=$DBTEST_PG_PASSWORD ZTDB_TARGET_PASSWORD

# One value from the target server; "" while it is down.
ask() {
  case $1 in
    pg) psql -X -q -t -A -h 127.0.0.1 -p "$DBTEST_PG_PORT" -U "$DBTEST_PG_USER" \
          -d "$DBTEST_PG_DB" -c "$2" 2>/dev/null || true ;;
    my) mariadb --no-defaults -N -B -h 127.0.0.1 -P "$DBTEST_MY_PORT" -u "$DBTEST_MY_USER" \
          -p"$DBTEST_MY_PASSWORD" "$DBTEST_MY_DB" -e "$2" 2>/dev/null || true ;;
  esac
}
# The table's name quoted for the engine, which keeps it as written.
quoted() { [[ $1 == pg ]] && echo "\"$2\"" || echo "\`$2\`"; }
# The rows of a table, "absent" when there is no such table.
rows_of() {
  local tables n
  tables=$(ask "$1" "$( [[ $1 == pg ]] &&
    echo "SELECT relname FROM pg_class WHERE relkind = 'r' AND relnamespace = 'public'::regnamespace" ||
    echo "SELECT table_name FROM information_schema.tables WHERE table_schema = DATABASE()")")
  grep -qx "$2" <<<"$tables" || { echo absent; return; }
  n=$(ask "$1" "SELECT COUNT(*) FROM $(quoted "$1" "$2")")
  echo "${n:-unknown}"
}
# Waits (10 s at most) until the target is writing rows of the copy.
wait_for_rows() {
  local i q
  [[ $1 == pg ]] && q="SELECT COUNT(*) FROM pg_stat_activity WHERE query LIKE 'COPY %'" ||
    q="SELECT COUNT(*) FROM information_schema.processlist WHERE info LIKE 'LOAD DATA%' OR info LIKE 'INSERT INTO%'"
  for ((i = 0; i < 400; i++)); do
    [[ $(ask "$1" "$q") -gt 0 ]] && return 0
    sleep 0.025
  done
  return 1
}
check_after() {
  local engine=$1 what=$2 n
  [[ $(sha256sum source.db) == "$before" ]] || fail "$what: the source file changed"
  n=$(rows_of "$engine" tblBig)
  [[ $n == absent || $n == "$ROWS" ]] || fail "$what: the target holds $n of $ROWS rows"
  [[ $(rows_of "$engine" tblKeep) == 10 ]] || fail "$what: a table of the target changed"
  echo "copy faults: $what: tblBig $n"
}
finish_job() {
  local engine=$1 url=$2 what=$3 leftovers
  "$ztdb" copy source.db "$url" --tables tblBig --replace --verify >copy.log 2>&1 ||
    { cat copy.log >&2; fail "$what: the next copy failed"; }
  [[ $(rows_of "$engine" tblBig) == "$ROWS" ]] || fail "$what: the next copy is not complete"
  leftovers=$(ask "$engine" "$( [[ $engine == pg ]] &&
    echo "SELECT COUNT(*) FROM pg_class WHERE relname LIKE 'zt_copy_%'" ||
    echo "SELECT COUNT(*) FROM information_schema.tables WHERE table_name LIKE 'zt_copy_%'")")
  [[ $leftovers == 0 ]] || fail "$what: a working table was left behind"
  ask "$engine" "DROP TABLE $(quoted "$engine" tblBig)" >/dev/null
}

for engine in pg my; do
  if [[ $engine == pg ]]; then url=$pg_url ZTDB_TARGET_PASSWORD=$DBTEST_PG_PASSWORD; else
    url=$my_url ZTDB_TARGET_PASSWORD=$DBTEST_MY_PASSWORD; fi
  "$ztdb" copy source.db "$url" --tables tblKeep >/dev/null 2>&1 || fail "$engine: first copy"

  # The server dies half-way through the rows.
  "$ztdb" copy source.db "$url" --tables tblBig >copy.log 2>&1 &
  pid=$!
  wait_for_rows "$engine" || fail "$engine: the copy never started writing rows"
  "$servers" crash "$engine"
  rc=0
  wait "$pid" || rc=$?
  [[ $rc == 1 ]] || { cat copy.log >&2; fail "$engine: a copy whose server died exited $rc"; }
  grep -q "0x8" copy.log || fail "$engine: the failure was not reported: $(cat copy.log)"
  "$servers" resume "$engine" 2>/dev/null
  check_after "$engine" "$engine server stopped mid-copy"
  finish_job "$engine" "$url" "$engine server stopped mid-copy"

  # ztdb itself is killed half-way through the rows.
  "$ztdb" copy source.db "$url" --tables tblBig >copy.log 2>&1 &
  pid=$!
  wait_for_rows "$engine" || fail "$engine: the copy never started writing rows"
  kill -KILL "$pid"
  wait "$pid" 2>/dev/null || true
  # The server notices the lost client and rolls back; give it a moment to do so.
  for ((i = 0; i < 100; i++)); do
    n=$(rows_of "$engine" tblBig)
    [[ $n == absent || $n == "$ROWS" ]] && break
    sleep 0.1
  done
  check_after "$engine" "ztdb killed mid-copy to $engine"
  finish_job "$engine" "$url" "ztdb killed mid-copy to $engine"
done

# An import into a new table either makes the whole table or leaves no table at all, nor any
# working table.
"$ztdb" -S "sqlite://$work/source.db" export tblBig --xml big.xml >/dev/null 2>&1 || fail "export"
import_gone() {
  local n
  for ((i = 0; i < 100; i++)); do
    n=$(rows_of "$1" tblImp)
    [[ $n == absent ]] && return 0
    sleep 0.1
  done
  fail "$2: the import left tblImp with $n rows"
}
no_working_table() {
  [[ $(ask "$1" "SELECT COUNT(*) FROM $( [[ $1 == pg ]] && echo pg_class WHERE relname ||
    echo information_schema.tables WHERE table_name) LIKE 'zt_import_%'") == 0 ]] ||
    fail "$1: $2: the import left a working table behind"
}
# Starts an import into tblImp and returns once its rows are going in.
start_import() {
  "$ztdb" -S "$url" import big.xml --into tblImp >import.log 2>&1 &
  pid=$!
  wait_for_rows "$engine" || fail "$engine: the import never started writing rows"
}
for engine in pg my; do
  if [[ $engine == pg ]]; then url=$pg_url ZTDB_PASSWORD=$DBTEST_PG_PASSWORD; else
    url=$my_url ZTDB_PASSWORD=$DBTEST_MY_PASSWORD; fi
  export ZTDB_PASSWORD
  start_import
  kill -KILL "$pid"
  wait "$pid" 2>/dev/null || true
  import_gone "$engine" "ztdb killed mid-import to $engine"
  no_working_table "$engine" "ztdb killed mid-import"
  start_import
  "$servers" crash "$engine"
  rc=0
  wait "$pid" || rc=$?
  [[ $rc == 1 ]] || { cat import.log >&2; fail "$engine: an import whose server died exited $rc"; }
  "$servers" resume "$engine" 2>/dev/null
  import_gone "$engine" "$engine server stopped mid-import"
  no_working_table "$engine" "server stopped mid-import"
  "$ztdb" -S "$url" import big.xml --into tblImp >import.log 2>&1 ||
    { cat import.log >&2; fail "$engine: the next import failed"; }
  [[ $(rows_of "$engine" tblImp) == "$ROWS" ]] || fail "$engine: the next import is not complete"
  no_working_table "$engine" "complete import"
  echo "copy faults: $engine imports killed and crashed: nothing left, then complete"
done
sqlite3 imp.db "CREATE TABLE tblKeep (n)"
before_imp=$(sqlite3 imp.db .dump)
"$ztdb" -S "sqlite://$work/imp.db" import big.xml --into tblImp >import.log 2>&1 &
pid=$!
# Its transaction has begun writing once the rollback journal is there.
for ((i = 0; i < 400; i++)); do [[ -e imp.db-journal ]] && break; sleep 0.025; done
[[ -e imp.db-journal ]] || fail "the SQLite import never started writing"
kill -KILL "$pid"
wait "$pid" 2>/dev/null || true
[[ $(sqlite3 imp.db .dump) == "$before_imp" ]] || fail "a killed SQLite import changed the file"
echo "copy faults: 7 passed, 0 failed"
