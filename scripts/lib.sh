# Shared by the scripts: configuring and building the project's configurations.
# build/native  native, optimised, with debug info
# build/asan    native with AddressSanitizer and UndefinedBehaviorSanitizer
# build/win     32-bit Windows (MinGW-w64), tests run under Wine with build/win/wineprefix
# build/fuzz    clang, libFuzzer targets with ASan and UBSan
# build/bench   native, Release, with the benchmarks

jobs=$(nproc)

build_native() {  # name, extra cmake args...
  local name="$1"; shift
  cmake -S . -B "build/$name" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null &&
    cmake --build "build/$name" -j"$jobs"
}

build_windows() {
  cmake -S . -B build/win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null &&
    cmake --build build/win -j"$jobs" && prepare_wine build/win
}

build_fuzz() {
  CC=clang CXX=clang++ cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DDESKAID_FUZZ=ON -DDESKAID_SANITIZE=ON -DDESKAID_TESTS=OFF >/dev/null &&
    cmake --build build/fuzz -j"$jobs"
}

build_bench() {
  cmake -S . -B build/bench -DCMAKE_BUILD_TYPE=Release -DDESKAID_BENCH=ON -DDESKAID_TESTS=OFF \
        >/dev/null && cmake --build build/bench -j"$jobs"
}

# The Wine prefix lives in the build tree. Creating it takes a while, so it is done once, up front,
# and the server is kept warm between the many short test processes.
wine_env() {
  export WINEPREFIX="$root/$1/wineprefix" WINEARCH=win32 WINEDEBUG=-all \
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
