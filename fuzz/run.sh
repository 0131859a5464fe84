#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs them for a bounded time.
# Exits non-zero when a target crashes, reports a sanitizer error or does not build.
#   fuzz/run.sh [seconds, default 60]
# The whole pass gets two and a half times the given seconds (150 s for CI's `fuzz/run.sh 60`),
# split evenly among the targets (at least 5 s each), so that adding a target does not lengthen
# the pass; each target's share is printed before it runs.
set -euo pipefail

seconds="${1:-60}"
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${ZT_FUZZ_BUILD_DIR:-$root/build-fuzz}"
targets=(zt_text_fuzz zt_conn_fuzz zt_url_fuzz zt_config_fuzz zt_xml_fuzz zt_sqlbrowser_fuzz
  zt_c_variant_fuzz zt_python_value_fuzz)

share=$((seconds * 5 / 2 / ${#targets[@]}))
((share < 5)) && share=5

CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DZT_BUILD_FUZZ=ON -DZT_BUILD_TESTS=OFF >/dev/null
ninja -C "$build" "${targets[@]}"

status=0
for target in "${targets[@]}"; do
  name="${target#zt_}"
  name="${name%_fuzz}"
  corpus="$build/corpus/$name"
  mkdir -p "$corpus"
  echo "== $target for ${share}s"
  # A crash leaves its input as crash-* in the build folder for reproduction.
  # The embedded interpreter keeps caches that the per-input leak check would take for leaks.
  extra=() leaks=1
  [[ $target == zt_python_value_fuzz ]] && extra=(-detect_leaks=0) leaks=0
  if ! (cd "$build" && ASAN_OPTIONS="detect_leaks=$leaks" "./fuzz/$target" \
          -max_total_time="$share" -max_len=1024 \
          -print_final_stats=1 "${extra[@]}" "$corpus" "$root/fuzz/corpus/$name"); then
    echo "== $target FAILED" >&2
    status=1
  fi
done
exit "$status"
