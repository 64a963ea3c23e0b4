# Shared by the scripts: configuring and building the project's configurations.
# build/native  preset native: optimised, with debug info
# build/asan    preset sanitized: AddressSanitizer and UndefinedBehaviorSanitizer
# build/limbs32 preset limbs32: the big integer tests for 32-bit x86 Linux, against i386 GMP
# build/win     preset windows: 32-bit Windows (MinGW-w64), tests under Wine (build/win/wineprefix)
# build/win64   preset windows64: 64-bit Windows (MinGW-w64), tests under 64-bit Wine
#               (build/win64/wineprefix, a 64-bit prefix)
# build/fuzz    preset fuzz: clang, libFuzzer targets with ASan and UBSan
# build/bench   preset benchmarks: native, Release, with the benchmarks
#
# Not every machine runs 32-bit x86 programs: a kernel built without that support refuses them
# ("Exec format error"). There the 32-bit Windows build is still built and inspected but its
# programs do not run, Wine runs through its 64-bit loader only (the usual `wine` starts every
# program, 64-bit ones too, through the 32-bit loader), and the 64-bit Windows build is the one
# under test. 32-bit Linux programs (the limb tests against i386 GMP) run under qemu-i386 there.

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
# The 32-bit build's prefix is prepared only where its programs can run.
build_windows() { build_preset windows "$@" && { ! x86_32_runs || prepare_wine build/win; }; }
build_windows64() { build_preset windows64 "$@" && prepare_wine build/win64; }
build_windows64_clang() { build_preset windows64-clang "$@" && prepare_wine build/win64-clang; }
build_fuzz() { build_preset fuzz "$@"; }
build_bench() { build_preset benchmarks "$@"; }

# Can this machine execute 32-bit x86 programs? A tiny -m32 program is built and run once; the
# answer is exported (DESKAID_X86_32 yes or no, and DESKAID_X86_32_WHY for a no), so the scripts
# and test runners started later in the same run do not ask again. DESKAID_NO_X86_32=1 forces
# "no", so that the path of a 64-bit-only machine can be tried on any machine.
x86_32_runs() {
  if [ -z "${DESKAID_X86_32:-}" ]; then
    if [ -n "${DESKAID_NO_X86_32:-}" ] && [ "$DESKAID_NO_X86_32" != 0 ]; then
      DESKAID_X86_32=no DESKAID_X86_32_WHY="DESKAID_NO_X86_32 is set"
    else
      local probe
      probe=$(mktemp -d)
      if ! printf 'int main(void) { return 0; }\n' |
           gcc -m32 -x c - -o "$probe/probe" >/dev/null 2>&1; then
        DESKAID_X86_32=no DESKAID_X86_32_WHY="gcc -m32 cannot build a program"
      elif ! "$probe/probe" 2>"$probe/err"; then
        DESKAID_X86_32=no
        DESKAID_X86_32_WHY="a 32-bit program does not run: $(sed -n '$s/.*: //p' "$probe/err")"
      else
        DESKAID_X86_32=yes DESKAID_X86_32_WHY=
      fi
      rm -rf "$probe"
    fi
    export DESKAID_X86_32 DESKAID_X86_32_WHY
  fi
  [ "$DESKAID_X86_32" = yes ]
}

# Runs a 32-bit x86 Linux program: directly where the machine can, else under qemu-i386 (called
# by hand, with no handler registered with the kernel).
run_x86_32() {
  if x86_32_runs; then "$@"; else qemu-i386 -L / "$@"; fi
}

# The Wine build folder for the programs that run here: the 32-bit build where 32-bit programs
# run, the 64-bit build elsewhere.
windows_build_here() {
  if x86_32_runs; then echo build/win; else echo build/win64; fi
}

# The Wine prefix lives in the build tree. Creating it takes a while, so it is done once, up front,
# and the server is kept warm between the many short test processes.
# The 64-bit build's prefix is a 64-bit one (which runs 32-bit programs too); the others are 32-bit.
wine_arch() {
  case "$1" in *win64*) echo win64 ;; *) echo win32 ;; esac
}

# wine_env BUILD_DIR [ARCH]: the settings of the build folder's Wine prefix (BUILD_DIR relative to
# the tree or absolute; ARCH win32 or win64, by default from the folder's name), and the loader
# and server that run it. Every Wine call then goes through wine_run and wine_server: on a machine
# without 32-bit support a 64-bit prefix is run by the 64-bit loader and server by their own
# names, and new processes that Wine starts use the same loader (WINELOADER).
wine_env() {
  local dir="$1"
  case "$dir" in /*) ;; *) dir="$root/$dir" ;; esac
  export WINEPREFIX="$dir/wineprefix" WINEARCH="${2:-$(wine_arch "$1")}" WINEDEBUG=-all \
         WINEDLLOVERRIDES="mscoree,mshtml="
  if [ "$WINEARCH" = win64 ] && ! x86_32_runs; then
    export WINELOADER=/usr/lib/wine/wine64 WINESERVER=/usr/lib/wine/wineserver64
  else
    unset WINELOADER WINESERVER
  fi
}

wine_run() { "${WINELOADER:-wine}" "$@"; }
wine_server() { "${WINESERVER:-wineserver}" "$@"; }

prepare_wine() {  # build dir [arch]
  ( wine_env "$@"
    wine_server -k >/dev/null 2>&1 || true  # a server left over by an interrupted run
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
      echo "creating the Wine prefix $WINEPREFIX"
      mkdir -p "$WINEPREFIX"
      wine_run wineboot -i >/dev/null 2>&1 </dev/null
      wine_server -w
    fi
    # A program that crashes on purpose (the tests of the divide fault do) must simply end, as on a
    # Windows without a debugger: no debugger is started and no crash dialog waits for a click.
    wine_run reg delete 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' /v Debugger /f \
      >/dev/null 2>&1 </dev/null || true
    wine_run reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f \
      >/dev/null 2>&1 </dev/null || true
    # Wine draws the caption buttons with its Marlett font (from Debian's fonts-wine), which this
    # Wine does not find in its data folder: without it the close box shows the letter "r".
    local fonts="$WINEPREFIX/drive_c/windows/Fonts"
    if [ -f /usr/share/wine/fonts/marlett.ttf ] && [ ! -f "$fonts/marlett.ttf" ]; then
      mkdir -p "$fonts" && cp /usr/share/wine/fonts/marlett.ttf "$fonts/"
    fi
    wine_server -w )
}

stop_wine() {
  ( wine_env "$1"; wine_server -k >/dev/null 2>&1 || true )
}

# Reads the export table of a Windows build's deskaid.dll without running it, so that it is checked
# on any machine: the image must be of the build's width and export nothing (no export table, or
# one that lists no function and no name).
dll_exports_nothing() {  # build dir
  local dll="$1/deskaid.dll" objdump=i686-w64-mingw32-objdump format=pei-i386
  if [ "$(wine_arch "$1")" = win64 ]; then objdump=x86_64-w64-mingw32-objdump format=pei-x86-64; fi
  local headers
  headers=$("$objdump" -p "$dll") || return 1
  if ! grep -q "file format $format\$" <<<"$headers"; then
    echo "$dll is not a $format image"; return 1
  fi
  # The counts follow "Number in:": of the export address table and of the name table.
  if sed -n '/^Number in:/,/^Table Addresses/p' <<<"$headers" | grep -q 'Table[[:space:]]*0*[1-9a-f]'; then
    echo "$dll exports something:"; grep -A12 'The Export Tables' <<<"$headers"; return 1
  fi
  echo "$dll ($format) exports nothing"
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
# against GMP: preset limbs32, the big integer tests alone for 32-bit x86 Linux beside Debian's
# i386 GMP, with GoogleTest built from its packaged sources. Its tests run through CTest, under
# qemu-i386 where this machine does not run 32-bit programs (cmake/run-x86-32). The Windows build
# runs the same code under Wine, where no GMP is at hand.
build_limbs32() { build_preset limbs32 "$@"; }

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
