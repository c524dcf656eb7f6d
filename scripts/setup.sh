#!/usr/bin/env bash
# Shared set-up of ./run.sh and ./test.sh: installs what is missing (Debian
# and npm packages), builds, and prepares the program folder build/app with
# its assets and the demo master stores. Quick when everything is in place.
#
#   scripts/setup.sh [--with-browser] [--with-checks | --checks-only]
#
# --with-browser: the browser tests' Chromium. --with-checks: also the
# checked build in build-check (clang, address and undefined-behaviour
# sanitizers, the fuzz targets); --checks-only: that build alone.
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
BUILD="$ROOT/build"
CHECK="$ROOT/build-check"
APP="$BUILD/app"
WITH_BROWSER=0
WITH_CHECKS=0
CHECKS_ONLY=0
for arg in "$@"; do
  case "$arg" in
    --with-browser) WITH_BROWSER=1 ;;
    --with-checks) WITH_CHECKS=1 ;;
    --checks-only) WITH_CHECKS=1 CHECKS_ONLY=1 ;;
    *) echo "setup.sh: unknown option $arg" >&2; exit 2 ;;
  esac
done

log() { printf '[setup] %s\n' "$*"; }

# ---- Debian packages ------------------------------------------------------
packages=(cmake g++ make pkg-config clang-format libsqlite3-dev libcpp-httplib-dev libboost-dev libzip-dev zlib1g-dev
  libcurl4-openssl-dev libssl-dev libfmt-dev nlohmann-json3-dev libpugixml-dev libxlsxwriter-dev libgtest-dev libbenchmark-dev
  sqlite3 zip unzip ca-certificates xdg-utils python3
  poppler-utils  # pdfinfo and pdftotext: the tests of the report pack's PDF
  dpkg-dev file lintian)  # the Debian package: dpkg-shlibdeps, CPack's ELF detection, its check
[ "$WITH_BROWSER" = 1 ] && packages+=(chromium fonts-dejavu-core)
[ "$WITH_CHECKS" = 1 ] && packages+=(clang libclang-rt-14-dev)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
# Node.js may come from another source than Debian; only its absence counts.
command -v node >/dev/null 2>&1 || missing+=(nodejs)
command -v npm >/dev/null 2>&1 || missing+=(npm)
if [ "${#missing[@]}" -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  log "installing Debian packages: ${missing[*]}"
  $SUDO apt-get update -q
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

# ---- npm packages (pinned in package-lock.json) -----------------------------
stamp="$ROOT/node_modules/.arven-lock"
if [ ! -f "$stamp" ] || ! cmp -s "$ROOT/package-lock.json" "$stamp"; then
  log "installing npm packages"
  (cd "$ROOT" && npm ci --no-audit --no-fund --loglevel=error)
  cp "$ROOT/package-lock.json" "$stamp"
fi

# ---- builds ------------------------------------------------------------------------
# build_in DIR LABEL [CMAKE OPTIONS...]: configures DIR once, then builds it.
build_in() {
  local dir="$1" label="$2"
  shift 2
  [ -f "$dir/CMakeCache.txt" ] || cmake -S "$ROOT" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
  log "building $label"
  if ! cmake --build "$dir" -j"$(nproc)" >"$dir/build.log" 2>&1; then
    cat "$dir/build.log"
    log "$label: build failed"
    exit 1
  fi
  grep -E 'warning|error' "$dir/build.log" || true
}

if [ "$WITH_CHECKS" = 1 ]; then
  CC=clang CXX=clang++ build_in "$CHECK" "the checked build (sanitizers, fuzz targets)" \
    -DARVEN_SANITIZE=ON -DARVEN_FUZZ=ON -DARVEN_BENCH=OFF
  [ "$CHECKS_ONLY" = 1 ] && exit 0
fi
build_in "$BUILD" "the program"

# ---- program folder ---------------------------------------------------------------
mkdir -p "$APP/dbases" "$APP/javascript" "$APP/graphics" "$APP/help"
# The two libraries every chart script names define themselves once: a page
# of several charts names them once per chart, and the chart library raises
# an error when it is loaded over itself.
# define_once SOURCE TARGET GLOBAL
define_once() {
  local guard="if (typeof window.$3 === 'undefined') {"
  if [ ! -f "$2" ] || [ "$1" -nt "$2" ] || [ "$(head -n 1 "$2")" != "$guard" ]; then
    { printf '%s\n' "$guard"; cat "$1"; printf '\n}\n'; } >"$2.tmp"
    mv "$2.tmp" "$2"
  fi
}
define_once "$ROOT/node_modules/highcharts/highcharts.js" "$APP/javascript/highcharts.js" Highcharts
define_once "$ROOT/node_modules/jquery/dist/jquery.min.js" "$APP/javascript/jquery.Min.js" jQuery
cp -u "$ROOT/node_modules/highcharts/modules/exporting.js" "$APP/javascript/exporting.js"
cp -u "$ROOT/node_modules/highcharts/modules/offline-exporting.js" "$APP/javascript/offline-exporting.js"
for dir in graphics help; do
  [ -d "$ROOT/$dir" ] && cp -ru "$ROOT/$dir/." "$APP/$dir/"
done

# Demo master stores, rebuilt when the CSV text or the importer changed.
masters_stamp="$APP/dbases/.demo-masters"
want="$(cat "$ROOT"/data/demo/*.csv "$BUILD/arven-admin" | sha1sum | cut -d' ' -f1)"
if [ ! -f "$masters_stamp" ] || [ "$(cat "$masters_stamp")" != "$want" ]; then
  log "loading the demo master stores"
  "$BUILD/arven-admin" import-masters --app-dir "$APP" --from "$ROOT/data/demo"
  # The GIS export of the demo RVCs, as the RVC import reads it: the area of
  # each NUTS3 area in each class, one table Export_Output_<RVC ID> per RVC
  # (and Export_Output, that of RVC 1, for an import of one RVC); then the
  # import fills the per-RVC tables NUTS3_<RVC Short Name>.
  rvcs="$APP/dbases/arven_rvcs.mdb"
  export_store="$APP/dbases/rvcs/NUTS3_Import.mdb"
  mkdir -p "$APP/dbases/rvcs"
  rm -f "$export_store.tmp"
  values=""
  for c in $(seq 1 20); do
    values+=", SUM(CASE WHEN d.\"RVC Class\" = $c THEN d.Percent * n.GIS_AREA / 100 ELSE 0 END) AS VALUE_$c"
  done
  sql="ATTACH '$rvcs' AS m;"
  for id in $(sqlite3 "$rvcs" "SELECT \"RVC ID\" FROM RVC_List WHERE \"RVC Type\" <> 3 AND \"RVC ID\" IN (SELECT \"RVC ID\" FROM NUTS3_RVC_Data_Dist)"); do
    sql+="CREATE TABLE Export_Output_$id AS SELECT n.NUTS AS NUTS $values FROM m.NUTS3 n JOIN m.NUTS3_RVC_Data_Dist d ON d.NUTS3_ID = n.NUTS3_ID AND d.\"RVC ID\" = $id GROUP BY n.NUTS3_ID ORDER BY n.rowid;"
  done
  sql+="CREATE TABLE Export_Output AS SELECT * FROM Export_Output_1;"
  # Through standard input: the statements outgrow an argument.
  printf '%s\n' "$sql" | sqlite3 "$export_store.tmp"
  mv "$export_store.tmp" "$export_store"
  "$BUILD/arven-admin" rvc-import --all --app-dir "$APP" | tail -1
  echo "$want" >"$masters_stamp"
  rm -f "$APP/dbases/.demo-stores"
fi

# Demo country stores: the admin build's pre-processing run makes and zips
# them, and each archive is installed as the downloader installs it.
stores_stamp="$APP/dbases/.demo-stores"
if [ ! -f "$stores_stamp" ] || [ "$(cat "$stores_stamp")" != "$want" ]; then
  log "building the demo country stores"
  "$BUILD/arven-admin" preprocess --app-dir "$APP" --countries DK,IE,LU --level 3 --mode all \
    | grep -E 'Pre-processing|pairs' || true
  for cc in DK IE LU; do
    "$BUILD/arven-downloader" --app-dir "$APP" --install-archive "$APP/dbases/prepro/zipped/arven_db_$cc.zip"
  done
  echo "$want" >"$stores_stamp"
fi
