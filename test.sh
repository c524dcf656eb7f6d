#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: the Debian package
# and its lintian check, the unit and golden tests through ctest, then the
# browser tests in headless Chromium. Under CI=true (or ARVEN_CHECKS=1) it
# also runs ctest in the sanitizer build and each fuzz target for 30 seconds.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
CHECKS=0
[ "${CI:-}" = true ] || [ "${ARVEN_CHECKS:-}" = 1 ] && CHECKS=1
if [ "$CHECKS" = 1 ]; then
  "$ROOT/scripts/setup.sh" --with-browser --with-checks
else
  "$ROOT/scripts/setup.sh" --with-browser
fi
status=0
# The Debian package, checked by lintian; the browser tests unpack it.
"$ROOT/scripts/package.sh" || status=1
ctest --test-dir "$ROOT/build" --output-on-failure -j"$(nproc)" || status=1
if compgen -G "$ROOT/e2e/*.test.mjs" >/dev/null; then
  node --test --test-concurrency=1 "$ROOT"/e2e/*.test.mjs || status=1
fi
if [ "$CHECKS" = 1 ]; then
  echo "[test] ctest under the address and undefined-behaviour sanitizers"
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --test-dir "$ROOT/build-check" --output-on-failure -j"$(nproc)" || status=1
  "$ROOT/scripts/fuzz.sh" 30 || status=1
fi
exit $status
