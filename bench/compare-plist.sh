#!/usr/bin/env bash
# Times our property-list loader against other readers on one large library file:
# one process per run, wall time and peak RSS from GNU time, medians over RUNS runs.
#
# Environment:
#   BUILD_DIR   build folder holding bench/ (default: build/release)
#   SHARED_DIR  folder holding bench/gen_library.py (default: ../shared beside the repository)
#   RUNS        runs per reader (default 5)
#   DATA        the library file (default: bench/data/library-100k.xml, generated when absent)
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ROOT=$(git -C "$here" rev-parse --show-toplevel 2>/dev/null || (cd "$here/.." && pwd))
SHARED_DIR=${SHARED_DIR:-$ROOT/../shared}
BUILD_DIR=${BUILD_DIR:-$ROOT/build/release}
RUNS=${RUNS:-5}
DATA=${DATA:-$ROOT/bench/data/library-100k.xml}
TIME=/usr/bin/time

say() { printf '%s\n' "$*"; }
die() {
  printf 'compare-plist: %s\n' "$*" >&2
  exit 1
}

[[ "$RUNS" =~ ^[1-9][0-9]*$ ]] || die "RUNS must be a positive number"
"$TIME" --version 2>&1 | grep -q GNU || die "GNU time is needed at $TIME (package time)"

if [[ ! -s "$DATA" ]]; then
  generator="$SHARED_DIR/bench/gen_library.py"
  [[ -f "$generator" ]] || die "$DATA is missing and $generator was not found (set SHARED_DIR)"
  say "Generating $DATA (100,000 tracks, 1,000 playlists)..."
  mkdir -p "$(dirname "$DATA")"
  python3 "$generator" --tracks 100000 --playlists 1000 --out "$DATA.part"
  mv "$DATA.part" "$DATA"
fi
file_bytes=$(stat -L -c %s "$DATA")
cat "$DATA" >/dev/null # every reader starts from the page cache

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

declare -A wall rss
order=()

# median: the middle of the numbers on stdin (the mean of the two middle ones for an even count).
median() {
  sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# measure NAME COMMAND...: RUNS timed runs of COMMAND on the library file.
measure() {
  local name=$1 i w m
  shift
  : >"$tmp/walls"
  : >"$tmp/rss"
  for ((i = 1; i <= RUNS; i++)); do
    if ! "$TIME" -f '%e %M' -o "$tmp/time" "$@" "$DATA" >/dev/null 2>"$tmp/err"; then
      say "skipping $name: it failed: $(tail -n 2 "$tmp/err")"
      return 0
    fi
    read -r w m <"$tmp/time"
    echo "$w" >>"$tmp/walls"
    echo "$m" >>"$tmp/rss"
  done
  wall[$name]=$(median <"$tmp/walls")
  rss[$name]=$(median <"$tmp/rss")
  order+=("$name")
  say "$name: median ${wall[$name]} s, ${rss[$name]} KiB"
}

# program NAME BINARY [WHY]: measures a loader built under BUILD_DIR/bench, or says why not.
program() {
  local bin="$BUILD_DIR/bench/$2"
  if [[ -x "$bin" ]]; then
    measure "$1" "$bin"
  else
    say "skipping $1: $bin was not built${3:+ ($3)}"
  fi
}

say "Library: $DATA ($file_bytes bytes), $RUNS runs each"
program floor scan_floor
program ours load_ours
program libplist load_libplist "needs libplist-dev: ./do setup bench"
program pugixml load_pugixml "needs libpugixml-dev: ./do setup bench"
if command -v python3 >/dev/null; then
  measure plistlib python3 -c '
import plistlib, sys
with open(sys.argv[1], "rb") as f:
    root = plistlib.load(f)
print(len(root), flush=True)
import os; os._exit(0)'
else
  say "skipping plistlib: python3 not found"
fi

# ratio A B: A / B with two decimals, or "n/a" when either is missing or B is zero.
ratio() {
  awk -v a="${1:-}" -v b="${2:-}" 'BEGIN { if (a == "" || b == "" || b + 0 == 0) print "n/a"; else printf "%.2f\n", a / b }'
}

# rss_ratio NAME: the peak RSS of NAME over the file size, or "n/a".
rss_ratio() {
  if [[ -z "${rss[$1]:-}" ]]; then
    echo n/a
  else
    awk -v k="${rss[$1]}" -v f="$file_bytes" 'BEGIN { printf "%.2f\n", k * 1024 / f }'
  fi
}

say ""
printf '%-10s %12s %14s %12s %14s\n' reader "wall s" "peak RSS MiB" "RSS / file" "time / floor"
for name in "${order[@]}"; do
  printf '%-10s %12s %14s %12s %14s\n' "$name" "${wall[$name]}" \
    "$(awk -v k="${rss[$name]}" 'BEGIN { printf "%.1f", k / 1024 }')" \
    "$(rss_ratio "$name")" "$(ratio "${wall[$name]}" "${wall[floor]:-}")"
done

say ""
say "ours / floor, time:      $(ratio "${wall[ours]:-}" "${wall[floor]:-}")"
say "libplist / ours, time:   $(ratio "${wall[libplist]:-}" "${wall[ours]:-}")"
say "pugixml / ours, time:    $(ratio "${wall[pugixml]:-}" "${wall[ours]:-}")"
say "ours peak RSS / file:    $(rss_ratio ours)"
