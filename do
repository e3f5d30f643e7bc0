#!/usr/bin/env bash
# The one entry point for building, testing, fuzzing and benchmarking. Run `./do help`.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")"
ROOT=$(pwd)
JOBS=${JOBS:-2}
EXAMPLE_LIBRARY="$ROOT/examples/library/iTunes Music Library.xml"

# Debian packages the project needs, one per line: "group package why".
# `core` is what building and testing need (and what the image layer will link);
# `bench` is only for ./do bench.
PACKAGES=(
  "core  build-essential     C/C++ toolchain: g++ 12, make, libc headers"
  "core  g++                 the default compiler of every preset but fuzz"
  "core  cmake               the build system (presets need 3.25 or later)"
  "core  ninja-build         the generator every preset uses"
  "core  pkg-config          finds libplist and the image libraries"
  "core  libgtest-dev        the test suite (GoogleTest)"
  "core  libgmock-dev        matchers used by the test suite"
  "core  libbenchmark-dev    Google Benchmark programs under bench/"
  "core  clang               compiler of the fuzz preset"
  "core  libclang-rt-14-dev  libFuzzer and the sanitizer runtimes for clang"
  "core  python3             generates the sample library, fuzz seeds and bench data"
  "core  clang-format        ./do format and ./do format-check"
  "core  libpng-dev          PNG codec of the image layer"
  "core  libjpeg-dev         JPEG codec of the image layer"
  "core  libtiff-dev         TIFF codec of the image layer and the pasteboard"
  "core  zlib1g-dev          deflate, used by the PNG and TIFF libraries"
  "core  imagemagick         peer that checks our PICT output (convert)"
  "core  graphicsmagick      second peer that checks our PICT output (gm convert)"
  "core  netpbm              ppmtopict writes PICTs our decoder must read"
  "core  icnsutils           icns2png extracts our icon files (the older reader)"
  "bench libplist-dev        peer: libplist's XML reader, timed against ours"
  "bench libpugixml-dev      peer: a pugixml DOM load of the same file"
  "bench time                GNU /usr/bin/time: wall time and peak memory per run"
)

# Scratch folders made with `scratch VAR NAME`, removed when the script ends.
SCRATCH=()
trap '((${#SCRATCH[@]} == 0)) || rm -rf "${SCRATCH[@]}"' EXIT
scratch() {
  local dir
  dir=$(mktemp -d "${TMPDIR:-/tmp}/rvitunes-$2.XXXXXX")
  SCRATCH+=("$dir")
  printf -v "$1" '%s' "$dir"
}

say() { printf '%s\n' "$*"; }
heading() { printf '\n==> %s\n' "$*"; }
die() {
  printf 'do: %s\n' "$*" >&2
  exit 1
}

usage() {
  cat <<'EOF'
Usage: ./do COMMAND [ARGS]

  demo               install what is missing, build `ci`, run the command-line tool on the
                     example library (lint, print, convert, the library index), then start
                     the reference player on a copy of it and send it a few events
  test               install what is missing, build and run the tests (`ci`, then `sanitize`
                     with ASan + UBSan), then a 10-second fuzz run per target; ends with a
                     line "N passed, M failed"
  setup [bench]      install the Debian packages that are missing; `bench` adds the peers
                     and tools that ./do bench needs (the list is PACKAGES in this script)
  build [PRESET]     configure and build a preset (default: ci)
  bench              build `release` and run the peer comparison and the benchmarks
  fuzz [SECONDS]     build `fuzz` and run every fuzz target for SECONDS (default 60)
  format             clang-format the C++ files in place (tracked, or new and not ignored)
  format-check       report C++ files that clang-format would change
  help               this text

Presets: ci, sanitize, dev, release, fuzz (see CMakePresets.json).
Environment: JOBS (compile jobs, default 2), CTEST_PARALLEL_LEVEL (tests at once, default
JOBS); bench/compare-plist.sh reads RUNS, SHARED_DIR, BUILD_DIR and DATA.
EOF
}

# ---------------------------------------------------------------------------- setup

is_installed() {
  [[ "$(dpkg-query -W -f='${Status}' "$1" 2>/dev/null || true)" == "install ok installed" ]]
}

# setup [GROUP...]: installs the missing packages of `core` and of the named groups.
cmd_setup() {
  local groups=" core $* " line group pkg why
  local missing=()
  for group in "$@"; do
    [[ "$group" == core || "$group" == bench ]] || die "setup: unknown group '$group' (core, bench)"
  done
  if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    die "setup needs dpkg-query and apt-get (Debian or a derivative); elsewhere install the packages of the PACKAGES table in ./do by hand"
  fi
  for line in "${PACKAGES[@]}"; do
    read -r group pkg why <<<"$line"
    [[ "$groups" == *" $group "* ]] || continue
    if ! is_installed "$pkg"; then
      say "setup: will install $pkg ($why)"
      missing+=("$pkg")
    fi
  done
  if ((${#missing[@]} == 0)); then
    say "setup: nothing to install ($(xargs <<<"$groups") packages present)"
    return 0
  fi

  local -a sudo=()
  if ((EUID != 0)); then
    command -v sudo >/dev/null ||
      die "not root and no sudo: run as root: apt-get install -y --no-install-recommends ${missing[*]}"
    sudo=(sudo)
  fi
  say "setup: apt-get update"
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q ||
    die "apt-get update failed"
  say "setup: apt-get install ${missing[*]}"
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -q --no-install-recommends "${missing[@]}" ||
    die "apt-get install failed for: ${missing[*]}"
}

# ---------------------------------------------------------------------------- build

cmd_build() {
  local preset=${1:-ci}
  command -v cmake >/dev/null || die "cmake not found: run ./do setup"
  heading "build $preset"
  cmake --preset "$preset"
  cmake --build --preset "$preset" -j "$JOBS"
}

# ---------------------------------------------------------------------------- test

# run_ctest PRESET LOG: runs the tests of a preset, its output also into LOG.
run_ctest() {
  heading "ctest $1"
  CTEST_PARALLEL_LEVEL=${CTEST_PARALLEL_LEVEL:-$JOBS} ctest --preset "$1" 2>&1 | tee "$2"
}

# Adds the counts of ctest's summary line ("95% tests passed, 1 tests failed out of 20") in
# LOG to the globals `passed` and `failed`.
count_ctest() {
  local summary total fails
  summary=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$1" | tail -n 1 || true)
  [[ -n "$summary" ]] || return 0
  fails=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<<"$summary")
  total=$(sed -E 's/.* failed out of ([0-9]+).*/\1/' <<<"$summary")
  passed=$((passed + total - fails))
  failed=$((failed + fails))
}

cmd_test() {
  local passed=0 failed=0 problems=() preset log
  scratch log test

  cmd_setup
  for preset in ci sanitize; do
    if ! "$ROOT/do" build "$preset"; then
      problems+=("build of $preset failed")
      continue
    fi
    run_ctest "$preset" "$log/$preset.txt" || problems+=("tests of $preset failed")
    count_ctest "$log/$preset.txt"
  done

  heading "fuzz smoke run"
  if ! have_libfuzzer; then
    say "fuzz: skipped, clang cannot link libFuzzer (packages clang, libclang-rt-14-dev)"
  elif ! "$ROOT/do" build fuzz; then
    problems+=("build of fuzz failed")
  elif ! "$ROOT/do" fuzz 10; then
    problems+=("fuzz smoke run found a problem")
  fi

  heading "summary"
  local p
  for p in "${problems[@]}"; do say "FAILED: $p"; done
  say "$passed passed, $failed failed"
  ((${#problems[@]} == 0 && failed == 0))
}

# ---------------------------------------------------------------------------- fuzz

have_libfuzzer() {
  command -v clang++ >/dev/null || return 1
  local probe
  scratch probe libfuzzer
  printf '%s\n' 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }' \
    >"$probe/probe.cpp"
  clang++ -fsanitize=fuzzer "$probe/probe.cpp" -o "$probe/probe" >/dev/null 2>&1
}

# Each fuzz/fuzz_NAME.cpp builds build/fuzz/fuzz/fuzz_NAME and seeds from fuzz/corpus/NAME/.
cmd_fuzz() {
  local seconds=${1:-60}
  [[ "$seconds" =~ ^[0-9]+$ ]] || die "fuzz: SECONDS must be a number, not '$seconds'"
  have_libfuzzer || die "fuzz: clang with libFuzzer is needed: run ./do setup (clang, libclang-rt-14-dev)"
  cmd_build fuzz

  local work src name bin out findings=0 ran=0
  scratch work fuzz
  mkdir -p "$ROOT/fuzz/artifacts"
  for src in "$ROOT"/fuzz/fuzz_*.cpp; do
    [[ -e "$src" ]] || continue
    name=$(basename "$src" .cpp)
    bin="$ROOT/build/fuzz/fuzz/$name"
    if [[ ! -x "$bin" ]]; then
      say "fuzz: $name was not built (is it listed in fuzz/CMakeLists.txt?)"
      findings=$((findings + 1))
      continue
    fi
    heading "fuzz $name for ${seconds}s"
    # The seeds are copied so that inputs libFuzzer adds never land in the repository.
    mkdir -p "$work/$name"
    cp -R "$ROOT/fuzz/corpus/${name#fuzz_}/." "$work/$name/" 2>/dev/null ||
      say "fuzz: no seed corpus in fuzz/corpus/${name#fuzz_}, starting empty"
    out="$work/$name.log"
    ran=$((ran + 1))
    if UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 "$bin" "$work/$name" \
      -max_total_time="$seconds" -max_len=16384 -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="$ROOT/fuzz/artifacts/$name-" >"$out" 2>&1; then
      say "$name: $(stat_line "$out"), nothing found"
    else
      tail -n 60 "$out"
      say "$name: FOUND A PROBLEM after $(stat_line "$out"); the input is in fuzz/artifacts/ (listed above)"
      findings=$((findings + 1))
    fi
  done
  ((ran > 0)) || die "fuzz: no fuzz targets under fuzz/"
  ((findings == 0))
}

# "N executions[ in S s]" from libFuzzer's final statistics in LOG.
stat_line() {
  local execs secs
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$1" | tail -n 1)
  secs=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$1" | tail -n 1)
  printf '%s executions%s' "${execs:-?}" "${secs:+ in $secs s}"
}

# ---------------------------------------------------------------------------- demo

cmd_demo() {
  cmd_setup
  cmd_build ci
  local cli="$ROOT/build/ci/apps/rvitunes/rvitunes" tmp
  [[ -x "$cli" ]] || die "demo: $cli was not built"
  scratch tmp demo

  heading "rvitunes plist lint examples/library/iTunes Music Library.xml"
  "$cli" plist lint "$EXAMPLE_LIBRARY"

  heading "rvitunes plist print (first 40 lines)"
  "$cli" plist print "$EXAMPLE_LIBRARY" >"$tmp/print.txt"
  head -n 40 "$tmp/print.txt"
  say "... ($(wc -l <"$tmp/print.txt") lines in all)"

  heading "rvitunes plist convert --format json"
  "$cli" plist convert --format json -o "$tmp/library.json" "$EXAMPLE_LIBRARY"
  head -n 15 "$tmp/library.json"
  say "... ($(wc -c <"$tmp/library.json") bytes of JSON)"

  heading "rvitunes plist convert --format binary1, then lint the result"
  "$cli" plist convert --format binary1 -o "$tmp/library.plist" "$EXAMPLE_LIBRARY"
  say "$(wc -c <"$EXAMPLE_LIBRARY") bytes of XML -> $(wc -c <"$tmp/library.plist") bytes of bplist00"
  "$cli" plist lint "$tmp/library.plist"

  heading "rvitunes library playlists: what the framework indexes (show flags 0xFFFF)"
  "$cli" library playlists --file "$EXAMPLE_LIBRARY" --flags 0xFFFF

  heading "rvitunes player status --embedded: the framework's controller on an in-process player"
  "$cli" player status --embedded "$EXAMPLE_LIBRARY"
  heading "rvitunes player search Kate --embedded"
  "$cli" player search Kate --embedded "$EXAMPLE_LIBRARY"
  heading "rvitunes player playlists --embedded: the playlist cache's tree"
  "$cli" player playlists --embedded "$EXAMPLE_LIBRARY"

  demo_player "$cli" "$tmp"
}

# demo_player CLI SCRATCH: the reference player on a copy of the sample library, on a private
# event bus, answering a few of the events the framework sends.
demo_player() {
  local cli=$1 tmp=$2 pid status
  local library="$tmp/player/iTunes Music Library.xml"
  mkdir -p "$tmp/player" "$tmp/run"
  cp "$EXAMPLE_LIBRARY" "$library"
  export XDG_RUNTIME_DIR="$tmp/run"

  heading "rvitunes player serve: the reference player on a copy of the sample library"
  "$cli" player serve --library "$library" &
  pid=$!
  for _ in $(seq 50); do
    "$cli" player ping --timeout 1 >/dev/null 2>&1 && break
    sleep 0.1
  done
  "$cli" player ping

  local get="'----':obj { form:prop, want:type(prop), seld:type(%s), from:%s }"
  local library_playlist="obj { form:indx, want:type(cLiP), seld:1, from:null() }"
  local first_track="obj { form:indx, want:type(cTrk), seld:1, from:${library_playlist} }"
  heading "count the playlists (core/cnte)"
  "$cli" event core cnte "kocl:type(cPly), '----':null()"
  heading "name of the library playlist (core/getd pnam)"
  "$cli" event core getd "$(printf "$get" pnam "$library_playlist")"
  heading "name and artist of its first track"
  "$cli" event core getd "$(printf "$get" pnam "$first_track")"
  "$cli" event core getd "$(printf "$get" pArt "$first_track")"
  heading "play it (hook/Play), then ask for the state and the current track's name"
  "$cli" event hook Play "'----':${first_track}"
  "$cli" event core getd "$(printf "$get" pPlS null\(\))"
  "$cli" event core getd "$(printf "$get" pnam "obj { form:prop, want:type(prop), seld:type(pTrk), from:null() }")"
  heading "an object that does not exist answers -1728"
  "$cli" event core getd "$(printf "$get" pnam "obj { form:indx, want:type(cTrk), seld:100000, from:${library_playlist} }")" || true
  heading "quit (aevt/quit)"
  "$cli" event aevt quit ""
  status=0
  wait "$pid" || status=$?
  say "the player exited with status $status"
}

# ---------------------------------------------------------------------------- bench

cmd_bench() {
  cmd_setup bench
  cmd_build release
  heading "bench/compare-plist.sh"
  BUILD_DIR="$ROOT/build/release" "$ROOT/bench/compare-plist.sh"
  local bin ran=0
  for bin in "$ROOT"/build/release/bench/bench_*; do
    [[ -x "$bin" ]] || continue
    heading "$(basename "$bin")"
    "$bin"
    ran=$((ran + 1))
  done
  ((ran > 0)) || say "bench: no Google Benchmark programs were built"
}

# ---------------------------------------------------------------------------- format

cxx_files() {
  if git -C "$ROOT" rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    git -C "$ROOT" ls-files -z --cached --others --exclude-standard -- '*.cpp' '*.cc' '*.h' '*.hpp'
  else
    find src include tests bench fuzz apps examples \( -name '*.cpp' -o -name '*.cc' \
      -o -name '*.h' -o -name '*.hpp' \) -print0 2>/dev/null
  fi
}

cmd_format() {
  command -v clang-format >/dev/null || die "clang-format not found: run ./do setup"
  cxx_files | xargs -0 -r clang-format -i
  say "format: done"
}

cmd_format_check() {
  command -v clang-format >/dev/null || die "clang-format not found: run ./do setup"
  local report
  report=$(cxx_files | xargs -0 -r clang-format --dry-run -Werror 2>&1 || true)
  if [[ -z "$report" ]]; then
    say "format-check: clean"
    return 0
  fi
  # One line per file: its name and the first lines that differ.
  sed -nE 's/^([^:]+):([0-9]+):[0-9]+: error: code should be clang-formatted.*/\1 \2/p' <<<"$report" |
    awk '{ n[$1]++; if (n[$1] <= 5) l[$1] = l[$1] (n[$1] > 1 ? "," : "") $2 }
         END { for (f in n) printf "  %s: %d place(s), lines %s%s\n", f, n[f], l[f], (n[f] > 5 ? ",..." : "") }' |
    sort
  die "format-check: these files differ from .clang-format; ./do format fixes them"
}

# ---------------------------------------------------------------------------- main

main() {
  local cmd=${1:-help}
  (($# == 0)) || shift
  case "$cmd" in
    setup) cmd_setup "$@" ;;
    build) cmd_build "$@" ;;
    test) cmd_test ;;
    demo) cmd_demo ;;
    bench) cmd_bench ;;
    fuzz) cmd_fuzz "$@" ;;
    format) cmd_format ;;
    format-check) cmd_format_check ;;
    help | -h | --help) usage ;;
    *)
      printf 'do: unknown command "%s"\n\n' "$cmd" >&2
      usage >&2
      exit 2
      ;;
  esac
}

main "$@"
