#!/usr/bin/env bash
# Runs every fuzz target for a while: the parsers of outside input (request
# paths and page commands, form bodies, the preferences file, CSV, .xlsx
# workbooks, country store archives). Builds the checked build (clang, address and
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
  if [ "$name" = fuzz_xlsx ] && [ ! -f "$corpus/book.xlsx" ]; then
    # A small workbook, stored without compression so that changed bytes reach the XML.
    (cd "$work" && rm -rf book && mkdir -p book/_rels book/xl/_rels book/xl/worksheets && cd book &&
      printf '<?xml version="1.0"?><Types/>' >'[Content_Types].xml' &&
      printf '<Relationships><Relationship Id="r1" Target="xl/workbook.xml" Type="officeDocument"/></Relationships>' >_rels/.rels &&
      printf '<workbook><sheets><sheet name="Export_Output" sheetId="1" r:id="r1" xmlns:r="x"/></sheets></workbook>' >xl/workbook.xml &&
      printf '<Relationships><Relationship Id="r1" Target="worksheets/sheet1.xml"/><Relationship Id="r2" Target="sharedStrings.xml"/></Relationships>' >xl/_rels/workbook.xml.rels &&
      printf '<sst><si><t>NUTS</t></si><si><r><t>VAL</t></r><r><t>UE_1</t></r></si></sst>' >xl/sharedStrings.xml &&
      printf '<worksheet><sheetData><row r="1"><c r="A1" t="s"><v>0</v></c><c r="B1" t="s"><v>1</v></c></row><row r="2"><c r="A2" t="inlineStr"><is><t>DK011</t></is></c><c r="B2"><v>12.5</v></c></row></sheetData></worksheet>' >xl/worksheets/sheet1.xml &&
      zip -0 -q -X -r "$corpus/book.xlsx" . && cd .. && rm -rf book)
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
