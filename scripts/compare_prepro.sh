#!/usr/bin/env bash
# Proves that a pre-processing build writes the same country stores as a
# reference build: both run the same sequence of batch runs, on copies of the
# same app folder with the same synthetic master stores, and after each run
# every table of every country store (and of the store inside each archive)
# is compared row by row, each value with its type and, for reals, its exact
# bits. The version files are compared byte for byte.
#
# The reference is another build's folder (a build of an earlier commit),
# given by --ref-admin and --ref-synth or as ARVEN_REF_BUILD=DIR.
#
#   scripts/compare_prepro.sh [--ref-admin PATH] [--new-admin PATH]
#                             [--ref-synth PATH] [--new-synth PATH]
#                             [--seeds "1 2 3"] [--nuts3 N] [--operations N]
#                             [--countries N|CC,CC]  (several: the new generator)
#                             [--keep]
#
# The sequence, per seed: all (level 3, a new store); then, after the same
# edits of both masters (newer dates and changed factors for some
# operations) and of both stores (some rows deleted): by-date, new, existing,
# selected, new-and-selected and all again with "DQ and Refs", over levels
# 3, 2, 3, 1, 0 and 2, each on the existing store.
set -euo pipefail

ROOT="$(cd "$(dirname "$0")/.." && pwd)"
REF_BUILD="${ARVEN_REF_BUILD:-}"
REF_ADMIN="${REF_BUILD:+$REF_BUILD/arven-admin}"
NEW_ADMIN="$ROOT/build/arven-admin"
REF_SYNTH="${REF_BUILD:+$REF_BUILD/bench/arven-synth}"
NEW_SYNTH="$ROOT/build/bench/arven-synth"
SEEDS="1 2 3"
NUTS3=60
OPERATIONS=80
COUNTRIES=""
KEEP=0
while [ $# -gt 0 ]; do
  case "$1" in
    --ref-admin) REF_ADMIN="$2"; shift 2 ;;
    --new-admin) NEW_ADMIN="$2"; shift 2 ;;
    --ref-synth) REF_SYNTH="$2"; shift 2 ;;
    --new-synth) NEW_SYNTH="$2"; shift 2 ;;
    --seeds) SEEDS="$2"; shift 2 ;;
    --nuts3) NUTS3="$2"; shift 2 ;;
    --operations) OPERATIONS="$2"; shift 2 ;;
    --countries) COUNTRIES="$2"; shift 2 ;;
    --keep) KEEP=1; shift ;;
    *) echo "unknown argument $1" >&2; exit 2 ;;
  esac
done

for tool in "$REF_ADMIN" "$REF_SYNTH" "$NEW_ADMIN" "$NEW_SYNTH"; do
  if [ -z "$tool" ] || [ ! -x "$tool" ]; then
    echo "compare_prepro.sh: name the reference build (ARVEN_REF_BUILD=DIR or --ref-admin and" \
      "--ref-synth); missing: ${tool:-the reference}" >&2
    exit 2
  fi
done

WORK="$(mktemp -d /tmp/compare-prepro-XXXXXX)"
[ "$KEEP" = 1 ] || trap 'rm -rf "$WORK"' EXIT

COMPARE="$WORK/compare.py"
cat >"$COMPARE" <<'EOF'
# compare.py A B: exit 1 and show the differences when the two stores differ
# in their tables, their schemas or any row (values with type and exact bits).
import sqlite3, sys

def value(v):
    if v is None: return "null"
    if isinstance(v, float): return "real:" + v.hex()
    if isinstance(v, int): return "int:%d" % v
    if isinstance(v, bytes): return "blob:" + v.hex()
    return "text:" + repr(v)

def dump(path):
    db = sqlite3.connect("file:%s?mode=ro" % path, uri=True)
    out = {}
    tables = [r[0] for r in db.execute(
        "SELECT name FROM sqlite_master WHERE type='table' ORDER BY name")]
    for (kind, name, sql) in db.execute(
            "SELECT type, name, sql FROM sqlite_master ORDER BY type, name"):
        out.setdefault("(schema)", []).append("%s %s %s" % (kind, name, sql))
    for t in tables:
        q = '"' + t.replace('"', '""') + '"'
        rows = ["|".join(value(v) for v in r) for r in db.execute("SELECT * FROM " + q)]
        rows.sort()
        out[t] = rows
    db.close()
    return out

a, b = dump(sys.argv[1]), dump(sys.argv[2])
bad = 0
for t in sorted(set(a) | set(b)):
    if t not in a or t not in b:
        print("  table %s only in %s" % (t, sys.argv[1] if t in a else sys.argv[2])); bad += 1
        continue
    if a[t] != b[t]:
        bad += 1
        sa, sb = set(a[t]), set(b[t])
        print("  table %s differs: %d vs %d rows" % (t, len(a[t]), len(b[t])))
        for r in sorted(sa - sb)[:3]: print("    only ref: " + r)
        for r in sorted(sb - sa)[:3]: print("    only new: " + r)
rows = sum(len(v) for k, v in a.items() if k != "(schema)")
ops = sum(len(v) for k, v in a.items() if k.endswith("_OPS"))
print("  %s: %d tables, %d rows (%d NUTS<k>_OPS rows) %s" % (
    sys.argv[2].rsplit("/", 1)[-1], len(a) - 1, rows, ops, "DIFFER" if bad else "identical"))
sys.exit(1 if bad else 0)
EOF

FAILED=0
RUNS=0

# compare_side_by_side LABEL: compares every country store, the store in
# every archive and every version file of the two app folders.
compare_side_by_side() {
  local label="$1" ref="$WORK/ref/dbases/prepro" new="$WORK/new/dbases/prepro"
  echo "$label"
  for store in "$ref"/new_arven_operations_??.mdb; do
    local name
    name="$(basename "$store")"
    python3 "$COMPARE" "$store" "$new/$name" || FAILED=$((FAILED + 1))
  done
  for zip in "$ref"/zipped/arven_db_??.zip; do
    [ -e "$zip" ] || continue
    local name entry
    name="$(basename "$zip")"
    entry="$(unzip -Z1 "$zip")"
    mkdir -p "$WORK/unz/ref" "$WORK/unz/new"
    unzip -p "$zip" "$entry" >"$WORK/unz/ref/$entry"
    unzip -p "$new/zipped/$name" "$entry" >"$WORK/unz/new/$entry"
    echo "  in $name:"
    python3 "$COMPARE" "$WORK/unz/ref/$entry" "$WORK/unz/new/$entry" || FAILED=$((FAILED + 1))
  done
  for csv in "$ref"/zipped/arven_db_version_??.csv; do
    [ -e "$csv" ] || continue
    cmp -s "$csv" "$new/zipped/$(basename "$csv")" ||
      { echo "  $(basename "$csv") differs"; FAILED=$((FAILED + 1)); }
  done
  RUNS=$((RUNS + 1))
}

# both ARGS...: the same preprocess run in both app folders.
both() {
  "$REF_ADMIN" preprocess --app-dir "$WORK/ref" --countries "$CODES" "$@" >"$WORK/ref.log" 2>&1 ||
    { echo "reference run failed: $*"; cat "$WORK/ref.log"; exit 1; }
  "$NEW_ADMIN" preprocess --app-dir "$WORK/new" --countries "$CODES" "$@" >"$WORK/new.log" 2>&1 ||
    { echo "new run failed: $*"; cat "$WORK/new.log"; exit 1; }
  tail -n 2 "$WORK/ref.log" | sed 's/^/  ref: /'
  tail -n 2 "$WORK/new.log" | sed 's/^/  new: /'
  compare_side_by_side "after preprocess $*"
}

# sql_both DB SQL: the same edit of a store of both app folders.
sql_both() {
  sqlite3 "$WORK/ref/$1" "$2"
  sqlite3 "$WORK/new/$1" "$2"
}

for seed in $SEEDS; do
  rm -rf "$WORK/ref" "$WORK/new" "$WORK/masters"
  mkdir -p "$WORK/masters"
  if [ -n "$COUNTRIES" ]; then
    "$NEW_SYNTH" --out "$WORK/masters" --countries "$COUNTRIES" --nuts3 "$NUTS3" \
      --operations "$OPERATIONS" --seed "$seed" >/dev/null
  else
    "$REF_SYNTH" --out "$WORK/masters" --nuts3 "$NUTS3" --operations "$OPERATIONS" \
      --seed "$seed" >/dev/null
  fi
  CODES="$(sqlite3 "$WORK/masters/arven_rvcs.mdb" \
    "SELECT group_concat(NUTS, ',') FROM (SELECT NUTS FROM NUTS0 ORDER BY rowid)")"
  for side in ref new; do
    mkdir -p "$WORK/$side/dbases"
    cp "$WORK/masters/"*.mdb "$WORK/$side/dbases/"
  done
  OPS=($(sqlite3 "$WORK/masters/arven_operations.mdb" \
    'SELECT DISTINCT "Operation ID" FROM Operation_Activity_Delta ORDER BY 1'))
  echo "== seed $seed, countries $CODES, ${#OPS[@]} operations with deltas"

  both --level 3 --mode all

  # Newer master dates for every third operation and changed factors for
  # some activities, so that the runs by date and on selections rewrite rows
  # with other figures than they hold.
  sql_both dbases/arven_operations.mdb \
    "UPDATE Operations SET Last_Updated = '2031-05-06 07:08:09' WHERE \"Operation ID\" % 3 = 0;
     UPDATE Mitigation_Activity_Emission_Factors SET tCO2e = tCO2e * 1.37 + 0.011
       WHERE \"Activity ID\" % 2 = 0;
     UPDATE Yield_Activity_Impact_Factors SET Yield = Yield * 0.93 WHERE \"Activity ID\" % 3 = 1;"
  both --level 3 --mode by-date --existing-db

  # Rows gone for some pairs: "new" fills exactly those.
  for cc in ${CODES//,/ }; do
    sql_both "dbases/prepro/new_arven_operations_$cc.mdb" \
      "DELETE FROM NUTS2_OPS WHERE \"Operation ID\" % 4 = 1;
       DELETE FROM NUTS1_OPS WHERE \"Operation ID\" % 5 = 2;"
  done
  sql_both dbases/arven_operations.mdb \
    "UPDATE Adaptation_Activity_Impact_Factors SET \"Impact factor\" = \"Impact factor\" + 0.25;"
  both --level 2 --mode new --existing-db

  sql_both dbases/arven_operations.mdb \
    "UPDATE Mitigation_Activity_Emission_Factors SET tCO2e = tCO2e - 0.5 WHERE \"Activity ID\" % 2 = 1;"
  for cc in ${CODES//,/ }; do
    sql_both "dbases/prepro/new_arven_operations_$cc.mdb" \
      "DELETE FROM NUTS3_OPS WHERE \"Operation ID\" % 6 = 0;"
  done
  both --level 3 --mode existing --existing-db

  sel="${OPS[0]},${OPS[$(( ${#OPS[@]} / 2 ))]},${OPS[$(( ${#OPS[@]} - 1 ))]}"
  sql_both dbases/arven_operations.mdb \
    "UPDATE Yield_Activity_Impact_Factors SET Yield = Yield + 1;"
  both --level 1 --mode selected --existing-db --operations "$sel"

  for cc in ${CODES//,/ }; do
    sql_both "dbases/prepro/new_arven_operations_$cc.mdb" \
      "DELETE FROM NUTS0_OPS WHERE \"Operation ID\" % 2 = 0;"
  done
  both --level 0 --mode new-and-selected --existing-db --operations "${OPS[1]}"

  both --level 2 --mode all --existing-db --dq-refs
done

echo "$RUNS comparisons, $FAILED differences"
[ "$FAILED" = 0 ]
