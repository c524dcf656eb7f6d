#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: the unit and golden
# tests through ctest, then the browser tests in headless Chromium.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
"$ROOT/scripts/setup.sh" --with-browser
status=0
ctest --test-dir "$ROOT/build" --output-on-failure -j"$(nproc)" || status=1
if compgen -G "$ROOT/e2e/*.test.mjs" >/dev/null; then
  node --test --test-concurrency=1 "$ROOT"/e2e/*.test.mjs || status=1
fi
exit $status
