#!/usr/bin/env bash
# Runs every fuzz target for a while: the parsers of outside input (request
# paths and page commands, form bodies, the preferences file, CSV, country
# store archives). Builds the checked build (clang, address and
# undefined-behaviour sanitizers, libFuzzer) in build-check when needed.
#
#   scripts/fuzz.sh [SECONDS_PER_TARGET]     (default 60)
#
# A crash leaves its input in build-check/fuzz/<target>/ and ends non-zero.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
SECONDS_EACH="${1:-60}"
CHECK="$ROOT/build-check"

"$ROOT/scripts/setup.sh" --checks-only

status=0
for target in "$CHECK"/tests/fuzz/fuzz_*; do
  [ -x "$target" ] || continue
  name="$(basename "$target")"
  work="$CHECK/fuzz/$name"
  corpus="$work/corpus"
  mkdir -p "$corpus"
  seeds="$ROOT/tests/fuzz/seeds/$name"
  [ -d "$seeds" ] && cp -n "$seeds"/* "$corpus"/ 2>/dev/null || true
  if [ "$name" = fuzz_zip_entry ] && [ ! -f "$corpus/store.zip" ]; then
    # A well-formed archive of the expected entry, so the fuzzer starts inside the format.
    (cd "$work" && printf 'SQLite format 3\0' >new_arven_operations_LU.mdb &&
      zip -q -X store.zip new_arven_operations_LU.mdb && { printf 'A'; cat store.zip; } >"$corpus/store.zip" &&
      rm new_arven_operations_LU.mdb store.zip)
  fi
  echo "[fuzz] $name for ${SECONDS_EACH}s"
  if ! (cd "$work" && "$target" -max_total_time="$SECONDS_EACH" -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 "$corpus" 2>"$work/log.txt"); then
    tail -n 60 "$work/log.txt"
    echo "[fuzz] $name FAILED: the input is in $work"
    status=1
  else
    grep -E 'stat::number_of_executed_units|cov:' "$work/log.txt" | tail -n 2 || true
  fi
done
exit $status
