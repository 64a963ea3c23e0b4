# Shared by the scripts: configuring and building the project's configurations.
# build/native  preset native: optimised, with debug info
# build/asan    preset sanitized: AddressSanitizer and UndefinedBehaviorSanitizer
# build/win     preset windows: 32-bit Windows (MinGW-w64), tests under Wine (build/win/wineprefix)
# build/win64   preset windows64: 64-bit Windows (MinGW-w64), tests under 64-bit Wine
#               (build/win64/wineprefix, a 64-bit prefix)
# build/fuzz    preset fuzz: clang, libFuzzer targets with ASan and UBSan
# build/bench   preset benchmarks: native, Release, with the benchmarks

# Each configuration is a preset of CMakePresets.json; these helpers configure and build one.
# Sourced from a shell of one's own too, so the tree is found from this file when no script set it:
# the Wine prefixes must land in the tree's build folders, never at /build.
root="${root:-$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)}"
jobs=$(nproc)

build_preset() {  # preset, extra cmake args...
  local preset="$1"; shift
  cmake --preset "$preset" "$@" >/dev/null && cmake --build --preset "$preset" -j"$jobs"
}

build_native() { build_preset native "$@"; }
build_sanitized() { build_preset sanitized "$@"; }
build_windows() { build_preset windows "$@" && prepare_wine build/win; }
build_windows64() { build_preset windows64 "$@" && prepare_wine build/win64; }
build_fuzz() { build_preset fuzz "$@"; }
build_bench() { build_preset benchmarks "$@"; }

# The Wine prefix lives in the build tree. Creating it takes a while, so it is done once, up front,
# and the server is kept warm between the many short test processes.
# The 64-bit build's prefix is a 64-bit one (which runs 32-bit programs too); the others are 32-bit.
wine_arch() {
  case "$1" in *win64*) echo win64 ;; *) echo win32 ;; esac
}

wine_env() {
  export WINEPREFIX="$root/$1/wineprefix" WINEARCH="$(wine_arch "$1")" WINEDEBUG=-all \
         WINEDLLOVERRIDES="mscoree,mshtml="
}

prepare_wine() {
  ( wine_env "$1"
    wineserver -k >/dev/null 2>&1 || true  # a server left over by an interrupted run
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
      echo "creating the Wine prefix $WINEPREFIX"
      mkdir -p "$WINEPREFIX"
      wineboot -i >/dev/null 2>&1 </dev/null
      wineserver -w
    fi
    # A program that crashes on purpose (the tests of the divide fault do) must simply end, as on a
    # Windows without a debugger: no debugger is started and no crash dialog waits for a click.
    wine reg delete 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' /v Debugger /f \
      >/dev/null 2>&1 </dev/null || true
    wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f \
      >/dev/null 2>&1 </dev/null || true
    # Wine draws the caption buttons with its Marlett font (from Debian's fonts-wine), which this
    # Wine does not find in its data folder: without it the close box shows the letter "r".
    local fonts="$WINEPREFIX/drive_c/windows/Fonts"
    if [ -f /usr/share/wine/fonts/marlett.ttf ] && [ ! -f "$fonts/marlett.ttf" ]; then
      mkdir -p "$fonts" && cp /usr/share/wine/fonts/marlett.ttf "$fonts/"
    fi
    wineserver -w )
}

stop_wine() {
  ( wine_env "$1"; wineserver -k >/dev/null 2>&1 || true )
}

# Runs a command with a virtual X display (Xvfb) and a Wine session of build dir $1 started on it,
# for everything that may open a window.
with_display() {
  local dir="$1"; shift
  xvfb-run -a -s "-screen 0 1280x1024x24" "$root/scripts/wine-session" "$dir" "$@"
}

# Sums the GoogleTest cases that ran in a CTest run, from the per-suite output CTest kept.
summarize_gtest() {
  local dir="$1"
  local log="$dir/Testing/Temporary/LastTest.log"
  [ -f "$log" ] || return 0
  local passed failed
  passed=$(grep -ahoE '^\[  PASSED  \] [0-9]+ test' "$log" | awk '{s+=$4} END {print s+0}')
  failed=$(grep -ahoE '^\[  FAILED  \] [0-9]+ test' "$log" | awk '{s+=$4} END {print s+0}')
  echo "GoogleTest cases in $dir: $passed passed, $failed failed"
}

# The shipped 32-bit build's limb arithmetic (32-bit limbs, and the 32-bit x86 assembly rows)
# against GMP: the big integer sources and their tests built with g++ -m32 beside Debian's i386
# GMP, with GoogleTest compiled from its packaged sources. The Windows build runs the same code
# under Wine, where no GMP is at hand.
build_limbs32() {
  local dir=build/limbs32 gtest=/usr/src/googletest/googletest
  local flags=(-m32 -O2 -g -std=c++17 -Wall -Wextra -pthread)
  mkdir -p "$dir"
  if [ ! -f "$dir/gtest.a" ]; then
    g++ "${flags[@]}" -I"$gtest/include" -I"$gtest" -c "$gtest/src/gtest-all.cc" -o "$dir/gtest-all.o" &&
      g++ "${flags[@]}" -I"$gtest/include" -c "$gtest/src/gtest_main.cc" -o "$dir/gtest_main.o" &&
      ar rcs "$dir/gtest.a" "$dir/gtest-all.o" "$dir/gtest_main.o" || return 1
  fi
  g++ "${flags[@]}" -I. -Itests -I"$gtest/include" deskaid/math/*.cpp deskaid/math/internal/*.cpp \
    tests/math/*.cpp "$dir/gtest.a" -lgmp -o "$dir/math_tests_i386"
}

fuzz_smoke() {  # seconds per target
  local secs="$1" ok=0
  for f in build/fuzz/fuzz/*_fuzz; do
    [ -x "$f" ] || continue
    local name corpus
    name=$(basename "$f")
    corpus="build/fuzz/corpus/$name"
    mkdir -p "$corpus"
    if "$f" -max_total_time="$secs" -print_final_stats=1 "$corpus" >"build/fuzz/$name.log" 2>&1; then
      echo "$name: $(grep -a 'stat::number_of_executed_units' "build/fuzz/$name.log" | awk '{print $2}') runs, clean"
    else
      echo "$name: FAILED"; tail -40 "build/fuzz/$name.log"; ok=1
    fi
  done
  return $ok
}
