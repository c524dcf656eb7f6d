#!/usr/bin/env bash
# Builds the Debian package build/arven_<version>_amd64.deb: the set-up
# (the programs, and the program folder build/app whose scripts and demo
# stores the package ships), then CPack, then lintian, which must report no
# errors. Prints the package's path on its last line.
#
#   scripts/package.sh
#   apt install ./build/arven_*.deb
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
BUILD="$ROOT/build"
"$ROOT/scripts/setup.sh"

log() { printf '[package] %s\n' "$*"; }
rm -f "$BUILD"/arven_*_amd64.deb
log "building the Debian package"
if ! (cd "$BUILD" && cpack -G DEB --config CPackConfig.cmake) >"$BUILD/package.log" 2>&1; then
  cat "$BUILD/package.log"
  log "CPack failed"
  exit 1
fi
debs=("$BUILD"/arven_*_amd64.deb)
[ -f "${debs[0]}" ] || { cat "$BUILD/package.log"; log "no package was made"; exit 1; }
log "checking it with lintian"
# Lintian has its own rules for root; its findings are the same.
lintian --allow-root --fail-on error "${debs[0]}" || {
  log "lintian reports errors"
  exit 1
}
echo "${debs[0]}"
