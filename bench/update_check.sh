#!/usr/bin/env bash
# Times the update check of 27 country rows and the software row:
#  1. against a local static server (python3 -m http.server) that has every file;
#  2. against a server that accepts connections and never answers;
#  3. the welcome page's silent check at start-up against that server (the
#     time from the program's start to its address being printed).
# Usage: bench/update_check.sh [BUILD_DIR]   (default: build)
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
BUILD="$(cd "${1:-$ROOT/build}" && pwd)"
work="$(mktemp -d)"
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

mkdir -p "$work/app/dbases" "$work/www/downloads" "$work/config/arven"
cp "$BUILD"/app/dbases/new_arven_operations_*.mdb "$work/app/dbases/"
echo -n "1.1.8" >"$work/www/downloads/arven_version118.csv"
for cc in AT BE BG CY CZ DE DK EE ES FI FR GR HU IE IT LT LU LV MT NL PL PT RO SE SI SK UK; do
  echo "01/01/2030" >"$work/www/downloads/arven_db_version_$cc.csv"
done

python3 -u -m http.server 0 --bind 127.0.0.1 --directory "$work/www" >"$work/http.log" 2>/dev/null &
pids+=($!)
python3 -u -c '
import socket, sys, time
s = socket.socket(); s.bind(("127.0.0.1", 0)); s.listen(64)
print(s.getsockname()[1], flush=True)
time.sleep(3600)' >"$work/stall.log" &
pids+=($!)
for _ in $(seq 50); do
  grep -q "port" "$work/http.log" 2>/dev/null && [ -s "$work/stall.log" ] && break
  sleep 0.1
done
http_port="$(sed -n 's/.* port \([0-9]*\).*/\1/p' "$work/http.log" | head -1)"
stall_port="$(head -1 "$work/stall.log")"

run_check() {  # server address -> seconds
  printf '[Settings]\nUpdate_Server=%s\nShowSplash=0\n' "$1" >"$work/config/arven/ARVEN.ini"
  local start end
  start=$(date +%s%N)
  XDG_CONFIG_HOME="$work/config" "$BUILD/arven" --check-updates --app-dir "$work/app" >/dev/null 2>&1
  end=$(date +%s%N)
  echo $(((end - start) / 1000000))
}
best() { sort -n | head -1; }

echo "check of 28 rows, local static server: $(for i in 1 2 3; do run_check "http://127.0.0.1:$http_port"; done | best) ms (best of 3)"
echo "check of 28 rows, server that never answers: $(for i in 1 2 3; do run_check "http://127.0.0.1:$stall_port"; done | best) ms (best of 3)"

# Start-up to the printed address, with the silent check against the stalled server.
printf '[Settings]\nUpdate_Server=http://127.0.0.1:%s\nShowSplash=0\n' "$stall_port" >"$work/config/arven/ARVEN.ini"
start=$(date +%s%N)
XDG_CONFIG_HOME="$work/config" HOME="$work" "$BUILD/arven" --app-dir "$work/app" --no-browser --port 0 >"$work/arven.log" 2>&1 &
arven=$!
pids+=($arven)
# The address is printed before the start-up runs; the welcome page is written
# after the check, so wait for it.
for _ in $(seq 200); do [ -f "$work/app/welcome.htm" ] && break; sleep 0.02; done
end=$(date +%s%N)
echo "start-up to the welcome page, server that never answers: $(((end - start) / 1000000)) ms"
