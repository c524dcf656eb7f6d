#!/usr/bin/env bash
# Installs what is missing, builds, prepares the demo data and starts ARVEN.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
"$ROOT/scripts/setup.sh"
exec "$ROOT/build/arven" --app-dir "$ROOT/build/app" "$@"
