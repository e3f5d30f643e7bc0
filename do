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
  "core  help2man            man pages of rvitunes and rvitunes-player, from their --help"
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

  demo [ARGS]        install what is missing, build `ci`, run `rvitunes demo [ARGS]`: a
                     host's start-up and a player session on the built-in sample, step by
                     step (--file LIBRARY for your own, --json, --keep)
  test               install what is missing, build and run the tests (`ci`, then check the
                     installed package and a 60-second soak, then `sanitize` with ASan +
                     UBSan, the `concurrency` tests under TSan, a 10-second fuzz run per
                     target with a fixed seed); ends with a line "N passed, M failed"
  setup [bench]      install the Debian packages that are missing; `bench` adds the peers
                     and tools that ./do bench needs (the list is PACKAGES in this script)
  build [PRESET]     configure and build a preset (default: ci)
  package            build `ci` and make the Debian package build/ci/package/rvitunes_*.deb
  bench              build `release` and run the peer comparison and the benchmarks
  fuzz [SECONDS] [TARGET...] [--seed=N]
                     build `fuzz` and run each fuzz target (or the TARGETs named, e.g.
                     plist_xml) for SECONDS (default 60); --seed makes a run repeatable
  soak [SECONDS]     build `ci` and run rvitunes-soak for SECONDS (default 300): the player
                     daemon on a generated library, driven from 4 client processes x 4
                     threads with every answer checked, its memory and descriptors watched
  format             clang-format the C++ files in place (tracked, or new and not ignored)
  format-check       report C++ files that clang-format would change
  help               this text

Presets: ci, sanitize, tsan, dev, release, fuzz (see CMakePresets.json).
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
    [[ "$preset" != ci ]] || check_install "$ROOT/build/ci"
    [[ "$preset" != ci ]] || run_soak 60
  done
  run_tsan "$log/tsan.txt"

  heading "fuzz smoke run"
  if ! have_libfuzzer; then
    say "fuzz: skipped, clang cannot link libFuzzer (packages clang, libclang-rt-14-dev)"
  elif ! "$ROOT/do" build fuzz; then
    problems+=("build of fuzz failed")
  elif ! "$ROOT/do" fuzz 10 --seed=1; then
    problems+=("fuzz smoke run found a problem")
  fi

  heading "summary"
  local p
  for p in "${problems[@]}"; do say "FAILED: $p"; done
  say "$passed passed, $failed failed"
  ((${#problems[@]} == 0 && failed == 0))
}

# ---------------------------------------------------------------------------- install

# install_step WHAT COMMAND...: one check of check_install; counts it in cmd_test's `passed`
# or `failed` and names a failure in `problems`. The command's output is shown only on failure.
install_step() {
  local what=$1 out
  shift
  out=$("$@" 2>&1) && {
    say "ok: $what"
    passed=$((passed + 1))
    return 0
  }
  printf '%s\n' "$out" | tail -n 25
  say "FAILED: $what"
  failed=$((failed + 1))
  problems+=("install check: $what")
  return 1
}

# expect_lines FILE PATTERN...: every extended regular expression matches a line of FILE.
expect_lines() {
  local file=$1 pattern status=0
  shift
  for pattern in "$@"; do
    grep -Eq -- "$pattern" "$file" || {
      say "missing a line matching: $pattern"
      status=1
    }
  done
  ((status == 0)) || cat "$file"
  return "$status"
}

# check_host PROGRAM OUT [PATTERN...]: runs the example host on the sample library into OUT and
# checks what a host shows of it.
check_host() {
  local program=$1 out=$2
  shift 2
  "$program" "$EXAMPLE_LIBRARY" >"$out" || return 1
  expect_lines "$out" '^loaded: 21 playlists, 30 tracks, 40 icons$' \
    '^  Library +library +30 tracks$' '^  Purchased Music +special +11 tracks$' \
    '^tracks of "Library" \(first 5 of 30\):$' "$@"
}

# check_install BUILD: installs BUILD into a scratch prefix and uses it as a host would: builds
# examples/host with the CMake package and with pkg-config, runs it without and with an
# installed player on a private event bus, and runs the installed programs.
check_install() {
  local build=$1 work prefix resources pcdir player_pid
  scratch work install
  prefix="$work/prefix"
  resources="$prefix/share/rvitunes/Contents/Frameworks/RVITunesHelper.framework/Resources"
  heading "install check: $(basename "$build") into $prefix"

  install_step "cmake --install" cmake --install "$build" --prefix "$prefix" || return 0
  # The host must not touch the user's settings, nor see a player the user runs.
  mkdir -p "$work/home" "$work/run"
  local -x HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" XDG_RUNTIME_DIR="$work/run"
  # The example host does not live under the prefix, so it is told where the icons are.
  local -x RVITUNES_RESOURCE_DIR="$resources"

  if install_step "examples/host builds with find_package" \
    bash -c 'cmake -S "$1/examples/host" -B "$2" -G Ninja -DCMAKE_PREFIX_PATH="$3" &&
             cmake --build "$2"' _ "$ROOT" "$work/host" "$prefix"; then
    install_step "examples/host lists the sample library" \
      check_host "$work/host/rvitunes-host-example" "$work/host.txt" \
      '^player: none runs on the event bus$' || true
  fi

  pcdir=$(find "$prefix" -name rvitunes.pc -printf '%h\n' | head -n 1)
  if install_step "examples/host builds with pkg-config" \
    bash -c 'PKG_CONFIG_PATH="$1" && export PKG_CONFIG_PATH &&
             c++ -std=c++20 "$2/examples/host/main.cpp" -o "$3" $(pkg-config --cflags --libs rvitunes)' \
    _ "$pcdir" "$ROOT" "$work/host-pc"; then
    install_step "the pkg-config build lists the sample library" \
      check_host "$work/host-pc" "$work/host-pc.txt" || true
  fi

  install_step "rvitunes --version" \
    bash -c '"$1/bin/rvitunes" --version | grep -Eq "^rvitunes [0-9]+\.[0-9]+\.[0-9]+$"' _ "$prefix" || true
  install_step "rvitunes-player --version" \
    bash -c '"$1/bin/rvitunes-player" --version | grep -Eq "^rvitunes-player [0-9]+\.[0-9]+\.[0-9]+$"' _ "$prefix" || true
  # Without the override the installed tool finds the icons beside itself, under the prefix.
  install_step "rvitunes icons finds the installed icons" \
    bash -c 'unset RVITUNES_RESOURCE_DIR; "$1/bin/rvitunes" icons >"$2" &&
             (($(grep -c "$3/lumo-" "$2") == 40))' _ "$prefix" "$work/icons.txt" "$resources" || true

  # The installed player on a copy of the library; the host then shows what it plays.
  mkdir -p "$work/player"
  cp "$EXAMPLE_LIBRARY" "$work/player/"
  "$prefix/bin/rvitunes-player" --library "$work/player/$(basename "$EXAMPLE_LIBRARY")" \
    2>"$work/player.log" &
  player_pid=$!
  for _ in $(seq 50); do
    "$prefix/bin/rvitunes" player ping --timeout 1 >/dev/null 2>&1 && break
    sleep 0.1
  done
  if [[ -x "$work/host/rvitunes-host-example" ]]; then
    install_step "examples/host shows the running player" \
      check_host "$work/host/rvitunes-host-example" "$work/host-player.txt" \
      '^player: iTunes, pid [0-9]+, version [0-9.]+$' '^state: (playing|paused|stopped)$' '^current track: ' || true
  fi
  "$prefix/bin/rvitunes" event aevt quit "" >/dev/null 2>&1 || kill "$player_pid" 2>/dev/null || true
  wait "$player_pid" 2>/dev/null || true

  if command -v help2man >/dev/null; then
    install_step "man pages rvitunes.1 and rvitunes-player.1" \
      test -s "$prefix/share/man/man1/rvitunes.1" -a -s "$prefix/share/man/man1/rvitunes-player.1" ||
      true
  else
    say "skipped: man pages (help2man is not installed)"
  fi
  if [[ -f "$ROOT/apps/rvitunes/rvitunes.bash-completion" ]]; then
    install_step "bash completion" test -s "$prefix/share/bash-completion/completions/rvitunes" ||
      true
  fi
}

# ---------------------------------------------------------------------------- package

cmd_package() {
  command -v cpack >/dev/null || die "cpack not found: run ./do setup"
  command -v dpkg-deb >/dev/null || die "package: dpkg-deb is needed to make a .deb"
  cmd_build ci
  heading "cpack -G DEB"
  (cd "$ROOT/build/ci" && cpack -G DEB -B "$ROOT/build/ci/package")
  local deb
  deb=$(ls -t "$ROOT"/build/ci/package/rvitunes_*.deb 2>/dev/null | head -n 1 || true)
  [[ -n "$deb" && -f "$deb" ]] || die "package: cpack made no .deb"
  heading "$(basename "$deb")"
  dpkg-deb --info "$deb" | sed -n 's/^ \(Package\|Version\|Architecture\|Depends\|Installed-Size\):/&/p'
  say "$(dpkg-deb -c "$deb" | grep -vc '/$') files, $(du -h "$deb" | cut -f1) package: $deb"
}

# ---------------------------------------------------------------------------- soak, tsan

# run_soak SECONDS: a load run of build/ci's rvitunes-soak; counts as one passed or failed part
# of cmd_test and names a failure in `problems`.
run_soak() {
  local seconds=$1 soak="$ROOT/build/ci/tools/soak/rvitunes-soak"
  heading "soak for ${seconds}s (build/ci)"
  if [[ -x "$soak" ]] && "$soak" --seconds "$seconds"; then
    passed=$((passed + 1))
  else
    [[ -x "$soak" ]] || say "soak: $soak was not built"
    failed=$((failed + 1))
    problems+=("soak run of ${seconds}s")
  fi
}

# run_tsan LOG: builds the `tsan` preset's targets (the test programs labelled "concurrency")
# and runs their tests under ThreadSanitizer; the counts join cmd_test's.
run_tsan() {
  heading "build tsan (the concurrency tests only)"
  if ! { cmake --preset tsan >/dev/null && cmake --build --preset tsan -j "$JOBS"; }; then
    problems+=("build of tsan failed")
    return 0
  fi
  run_ctest tsan "$1" || problems+=("tests of tsan failed")
  count_ctest "$1"
}

cmd_soak() {
  local seconds=${1:-300}
  [[ "$seconds" =~ ^[0-9]+$ ]] && ((seconds > 0)) || die "soak: SECONDS must be a positive number, not '$seconds'"
  command -v cmake >/dev/null || die "cmake not found: run ./do setup"
  heading "build ci: rvitunes-soak and the player"
  cmake --preset ci >/dev/null
  cmake --build --preset ci -j "$JOBS" --target rvitunes-soak
  heading "soak for ${seconds}s"
  "$ROOT/build/ci/tools/soak/rvitunes-soak" --seconds "$seconds" --progress
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

# Each fuzz/fuzz_NAME.cpp builds build/fuzz/fuzz/fuzz_NAME and starts from a scratch copy of
# fuzz/corpus/NAME/ and the regression inputs of tests/corpus/fuzz/NAME/.
cmd_fuzz() {
  local seconds=60 seed="" arg
  local -a wanted=()
  for arg in "$@"; do
    case "$arg" in
      --seed=*)
        seed=${arg#--seed=}
        [[ "$seed" =~ ^[0-9]+$ ]] || die "fuzz: --seed needs a number, not '$seed'"
        ;;
      -*) die "fuzz: unknown option '$arg' (see ./do help)" ;;
      *)
        if [[ "$arg" =~ ^[0-9]+$ ]] && ((${#wanted[@]} == 0)); then
          seconds=$arg
        else
          wanted+=("${arg#fuzz_}")
        fi
        ;;
    esac
  done
  local w
  for w in "${wanted[@]}"; do
    [[ -e "$ROOT/fuzz/fuzz_$w.cpp" ]] ||
      die "fuzz: no target '$w'; the targets are: $(cd "$ROOT/fuzz" && ls fuzz_*.cpp | sed 's/^fuzz_//; s/\.cpp$//' | tr '\n' ' ')"
  done
  have_libfuzzer || die "fuzz: clang with libFuzzer is needed: run ./do setup (clang, libclang-rt-14-dev)"
  cmd_build fuzz

  local work src name bin out findings=0 ran=0
  local -a options=(-max_total_time="$seconds" -max_len=16384 -timeout=10 -rss_limit_mb=2048
    -print_final_stats=1)
  # A fixed seed makes the run repeatable: the same build explores the same inputs in the same
  # order, so a failure in CI is a change in the code, not a lucky draw.
  [[ -z "$seed" ]] || options+=(-seed="$seed")
  scratch work fuzz
  mkdir -p "$ROOT/fuzz/artifacts"
  for src in "$ROOT"/fuzz/fuzz_*.cpp; do
    [[ -e "$src" ]] || continue
    name=$(basename "$src" .cpp)
    if ((${#wanted[@]} > 0)) && [[ " ${wanted[*]} " != *" ${name#fuzz_} "* ]]; then
      continue
    fi
    bin="$ROOT/build/fuzz/fuzz/$name"
    if [[ ! -x "$bin" ]]; then
      say "fuzz: $name was not built (is it listed in fuzz/CMakeLists.txt?)"
      findings=$((findings + 1))
      continue
    fi
    heading "fuzz $name for ${seconds}s${seed:+, seed $seed}"
    # The inputs are copied so that those libFuzzer adds never land in the repository.
    mkdir -p "$work/$name"
    cp -R "$ROOT/fuzz/corpus/${name#fuzz_}/." "$work/$name/" 2>/dev/null ||
      say "fuzz: no seed corpus in fuzz/corpus/${name#fuzz_}, starting empty"
    cp -R "$ROOT/tests/corpus/fuzz/${name#fuzz_}/." "$work/$name/" 2>/dev/null || true
    out="$work/$name.log"
    ran=$((ran + 1))
    if UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 "$bin" "$work/$name" "${options[@]}" \
      -artifact_prefix="$ROOT/fuzz/artifacts/$name-" >"$out" 2>&1; then
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

# "N executions[ in S s], cov C, ft F" from libFuzzer's final statistics in LOG.
stat_line() {
  local execs secs cov ft
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$1" | tail -n 1)
  secs=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$1" | tail -n 1)
  cov=$(grep -o 'cov: [0-9]*' "$1" | tail -n 1 | cut -d' ' -f2)
  ft=$(grep -o 'ft: [0-9]*' "$1" | tail -n 1 | cut -d' ' -f2)
  printf '%s executions%s%s' "${execs:-?}" "${secs:+ in $secs s}" "${cov:+, cov $cov, ft $ft}"
}

# ---------------------------------------------------------------------------- demo

# The tool's own walk through a host's start-up and a player session on the sample library
# built into it (rvitunes demo --help); it keeps everything it writes in a scratch folder.
cmd_demo() {
  cmd_setup
  cmd_build ci
  local cli="$ROOT/build/ci/apps/rvitunes/rvitunes"
  [[ -x "$cli" ]] || die "demo: $cli was not built"
  heading "rvitunes demo"
  "$cli" demo "$@"
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
    demo) cmd_demo "$@" ;;
    package) cmd_package ;;
    bench) cmd_bench ;;
    fuzz) cmd_fuzz "$@" ;;
    soak) cmd_soak "$@" ;;
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
