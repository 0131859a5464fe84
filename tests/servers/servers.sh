#!/usr/bin/env bash
# Starts and stops the throw-away PostgreSQL 15 and MariaDB servers the tests run against.
#
#   tests/servers/servers.sh start    # both servers on 127.0.0.1, prints `export DBTEST_...` lines
#   tests/servers/servers.sh stop     # stops both and deletes their state folder
#   tests/servers/servers.sh status
#   tests/servers/servers.sh crash pg|my    # the server dies at once; its data stays
#   tests/servers/servers.sh resume pg|my   # and starts again on its port
#
# State lives in $DBTEST_DIR (default /tmp/zt-dbtest; keep it short: the Unix socket paths in it
# must stay under 107 bytes, and it must be reachable by the postgres and mysql users, so not
# under /root). Ports are picked at run time from 56432 / 56306 upwards, since a fixed port may be
# taken on a shared machine. The servers run with durability off: they hold test data only.
set -euo pipefail
export PATH="$PATH:/usr/sbin:/sbin"

DIR=${DBTEST_DIR:-/tmp/zt-dbtest}
USER_NAME=${DBTEST_USER:-dbtest}
PASSWORD=${DBTEST_PASSWORD:-dbtest_pw}
DB=${DBTEST_DB:-dbtest}
PG_BIN=${PG_BIN:-/usr/lib/postgresql/15/bin}
MARIADBD=${MARIADBD:-/usr/sbin/mariadbd}
PG=$DIR/pg
MY=$DIR/mariadb

say() { echo "servers: $*" >&2; }
fail() { say "ERROR: $*"; exit 1; }

# A process is alive when /proc has it and it is not a zombie: PID 1 here reaps late, so
# `kill -0` would call a stopped server alive.
alive() {
  [[ -n ${1:-} && -r /proc/$1/stat ]] || return 1
  [[ $(awk '{print $3}' "/proc/$1/stat" 2>/dev/null) != Z ]]
}
port_free() { ! (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
free_port() {
  local p
  for ((p = $1; p < $1 + 200; p++)); do port_free "$p" && { echo "$p"; return; }; done
  fail "no free port from $1"
}
# initdb and postgres refuse to run as root; run them as the server's own OS user.
as() {
  local u=$1; shift
  if [[ $EUID -eq 0 ]]; then (cd / && runuser -u "$u" -- "$@"); else "$@"; fi
}

pg_up() { [[ -f $PG/port ]] && "$PG_BIN/pg_isready" -q -h "$PG" -p "$(cat "$PG/port")"; }
# -l detaches the server's output: a CI pipe must not stay open on it.
pg_run() {
  as postgres "$PG_BIN/pg_ctl" -D "$PG/data" -l "$PG/server.log" -w -t 60 \
    -o "-p $1 -c listen_addresses=127.0.0.1 -c unix_socket_directories=$PG -c fsync=off \
        -c synchronous_commit=off -c full_page_writes=off -c max_connections=200" start >/dev/null ||
    { tail -20 "$PG/server.log" >&2; fail "PostgreSQL did not start"; }
}
pg_start() {
  if pg_up; then return; fi
  pg_stop
  [[ -x $PG_BIN/initdb ]] || fail "PostgreSQL 15 is not installed ($PG_BIN)"
  local owner=postgres port
  port=$(free_port 56432)
  mkdir -p "$PG"
  printf '%s\n' "$PASSWORD" >"$PG/pw"
  [[ $EUID -eq 0 ]] && chown -R "$owner:" "$PG"
  as $owner "$PG_BIN/initdb" -D "$PG/data" -U postgres --pwfile="$PG/pw" --auth-local=trust \
    --auth-host=scram-sha-256 -E UTF8 --locale=C.UTF-8 --no-sync >"$PG/initdb.log" 2>&1 ||
    { cat "$PG/initdb.log" >&2; fail "initdb failed"; }
  rm -f "$PG/pw"
  echo "$port" >"$PG/port"
  pg_run "$port"
  psql -X -q -v ON_ERROR_STOP=1 -h "$PG" -p "$port" -U postgres -d postgres >/dev/null <<SQL ||
CREATE ROLE "$USER_NAME" LOGIN CREATEDB PASSWORD '$PASSWORD';
CREATE DATABASE "$DB" OWNER "$USER_NAME";
SQL
    fail "could not create the PostgreSQL test user"
  say "PostgreSQL up on 127.0.0.1:$port"
}
pg_stop() {
  if [[ -f $PG/data/postmaster.pid ]] && alive "$(head -1 "$PG/data/postmaster.pid")"; then
    as postgres "$PG_BIN/pg_ctl" -D "$PG/data" -m fast -w -t 60 stop >/dev/null || say "pg_ctl stop failed"
  fi
  rm -rf "$PG"
}

my_ping() { mariadb-admin --no-defaults --socket="$MY/mysqld.sock" -uroot ping >/dev/null 2>&1; }
my_options() {
  MY_OPTS=(--no-defaults --datadir="$MY/data" --user="$1" --innodb-log-file-size=16M
    --innodb-buffer-pool-size=64M --innodb-doublewrite=0 --innodb-flush-log-at-trx-commit=0
    --skip-name-resolve --character-set-server=utf8mb4 --collation-server=utf8mb4_general_ci)
}
my_owner() { if id -u mysql >/dev/null 2>&1; then echo mysql; else echo root; fi; }
my_run() {
  local i
  setsid "$MARIADBD" "${MY_OPTS[@]}" --port="$1" --bind-address=127.0.0.1 --max-connections=300 \
    --socket="$MY/mysqld.sock" --pid-file="$MY/mysqld.pid" --log-error="$MY/error.log" \
    </dev/null >/dev/null 2>&1 &
  local pid=$!
  for ((i = 0; i < 600; i++)); do
    my_ping && break
    alive "$pid" || { tail -20 "$MY/error.log" >&2; fail "mariadbd exited while starting"; }
    sleep 0.1
  done
  my_ping || fail "MariaDB did not answer within 60 s"
}
# Fault tests: a server dies at once, as on a power cut (its data stays), and comes back.
crash() {
  case $1 in
    pg) as postgres "$PG_BIN/pg_ctl" -D "$PG/data" -m immediate -w stop >/dev/null ;;
    my) local pid; pid=$(cat "$MY/mysqld.pid"); kill -KILL "$pid"
        while alive "$pid"; do sleep 0.05; done ;;
    *) fail "crash pg|my" ;;
  esac
}
resume() {
  case $1 in
    pg) pg_run "$(cat "$PG/port")" ;;
    my) my_options "$(my_owner)"; my_run "$(cat "$MY/port")" ;;
    *) fail "resume pg|my" ;;
  esac
}
my_start() {
  if [[ -f $MY/port ]] && my_ping; then return; fi
  my_stop
  [[ -x $MARIADBD ]] || fail "MariaDB server is not installed ($MARIADBD)"
  local owner port
  owner=$(my_owner)
  port=$(free_port 56306)
  mkdir -p "$MY"
  [[ $EUID -eq 0 ]] && chown "$owner:" "$MY"
  # --no-defaults ignores /etc/mysql; utf8mb4 must then be asked for (the built-in is latin1).
  my_options "$owner"
  mariadb-install-db "${MY_OPTS[@]}" --auth-root-authentication-method=normal --skip-test-db \
    >"$MY/install.log" 2>&1 || { cat "$MY/install.log" >&2; fail "mariadb-install-db failed"; }
  echo "$port" >"$MY/port"
  my_run "$port"
  mariadb --no-defaults --socket="$MY/mysqld.sock" -uroot >/dev/null <<SQL ||
CREATE DATABASE IF NOT EXISTS \`$DB\` CHARACTER SET utf8mb4;
CREATE USER IF NOT EXISTS '$USER_NAME'@'%' IDENTIFIED BY '$PASSWORD';
GRANT ALL PRIVILEGES ON *.* TO '$USER_NAME'@'%';
SQL
    fail "could not create the MariaDB test user"
  say "MariaDB up on 127.0.0.1:$port"
}
my_stop() {
  if [[ -f $MY/mysqld.pid ]]; then
    local pid i
    pid=$(cat "$MY/mysqld.pid" 2>/dev/null || true)
    if alive "$pid"; then
      kill -TERM "$pid" 2>/dev/null || true
      for ((i = 0; i < 600; i++)); do alive "$pid" || break; sleep 0.05; done
      alive "$pid" && kill -KILL "$pid" 2>/dev/null || true
    fi
  fi
  rm -rf "$MY"
}

env_lines() {
  local out=""
  if [[ -f $PG/port ]]; then
    out+="export DBTEST_PG_HOST=127.0.0.1 DBTEST_PG_PORT=$(cat "$PG/port") DBTEST_PG_DB=$DB"
    out+=" DBTEST_PG_USER=$USER_NAME DBTEST_PG_PASSWORD=$PASSWORD DBTEST_PG_SOCKET_DIR=$PG"$'\n'
  fi
  if [[ -f $MY/port ]]; then
    out+="export DBTEST_MY_HOST=127.0.0.1 DBTEST_MY_PORT=$(cat "$MY/port") DBTEST_MY_DB=$DB"
    out+=" DBTEST_MY_USER=$USER_NAME DBTEST_MY_PASSWORD=$PASSWORD DBTEST_MY_SOCKET=$MY/mysqld.sock"$'\n'
  fi
  printf '%s' "$out" | tee "$DIR/env.sh"
}

case ${1:-} in
  start)
    mkdir -p "$DIR"; chmod 755 "$DIR"
    # Both servers initialise in parallel: about two seconds for the pair.
    (pg_start) & a=$!
    (my_start) & b=$!
    ok=0; wait $a || ok=1; wait $b || ok=1
    [[ $ok -eq 0 ]] || fail "a server did not start; run '$0 stop' to clean up"
    env_lines ;;
  stop) pg_stop; my_stop; rm -rf "$DIR" ;;
  crash) crash "${2:-}" ;;
  resume) resume "${2:-}" ;;
  status) pg_up && say "PostgreSQL up" || say "PostgreSQL down"; my_ping && say "MariaDB up" || say "MariaDB down" ;;
  *) sed -n '2,11p' "$0" >&2; exit 2 ;;
esac
