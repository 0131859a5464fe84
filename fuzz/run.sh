#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a bounded time.
# Exits non-zero when a target crashes, reports a sanitizer error or does not build.
#   fuzz/run.sh [seconds per target, default 60]
set -euo pipefail

seconds="${1:-60}"
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${ZT_FUZZ_BUILD_DIR:-$root/build-fuzz}"

CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DZT_BUILD_FUZZ=ON -DZT_BUILD_TESTS=OFF >/dev/null
ninja -C "$build" zt_text_fuzz zt_conn_fuzz

status=0
for target in zt_text_fuzz zt_conn_fuzz; do
  corpus="$build/corpus/${target#zt_}"
  mkdir -p "$corpus"
  seeds="$root/fuzz/corpus/${target#zt_}"
  seeds="${seeds%_fuzz}"
  echo "== $target for ${seconds}s"
  # A crash leaves its input as crash-* in the build folder for reproduction.
  if ! (cd "$build" && "./fuzz/$target" -max_total_time="$seconds" -max_len=1024 \
          -print_final_stats=1 "$corpus" "$seeds"); then
    echo "== $target FAILED" >&2
    status=1
  fi
done
exit "$status"
