#!/usr/bin/env bash
# Crash logs of Windows hosts named on Linux and by the Windows converter. The default-linked
# crash child of each 64-bit Windows build fails under Wine, once in its executable and once in
# its DLL; the native logexport, and the build's own logexport under Wine, then name every frame
# in the child's modules, with file and line, from that build's images alone: DWARF inside the
# GCC build's images, PDB files beside the clang build's (whose images carry DWARF only for the
# MinGW runtime's start code). Each log converted against the other build's images names nothing
# in the child and says that it is a different build.
#   windows_logs_named_natively.sh LOGEXPORT WORKDIR GCC_BUILD CLANG_BUILD
# Runs inside a Wine session (scripts/wine-session): WINEPREFIX and the loader come from it.
set -u
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
source "$root/scripts/lib.sh"
tool="$1"; work="$(realpath -m "$2")"; gcc_build="$3"; clang_build="$4"
windows_path() { local p="${1//\//\\}"; echo "Z:$p"; }
rm -rf "$work"; mkdir -p "$work"
failures=0
check() {  # description, condition result
  if [ "$2" -eq 0 ]; then echo "ok: $1"; else echo "FAILED: $1"; failures=$((failures + 1)); fi
}

# Every frame in the child's modules, each named with a line: from the failure out to main, and
# beyond it the runtime's start code.
all_named() {  # text file
  awk -F'\t' '
    /<crash_(child_default\.exe|plugin\.dll)\+0x/ {
      frames++
      if ($2 ~ /\?\?/ || $2 !~ /\.(cpp|c):[0-9]+\)/) { print "  unnamed: " $2; bad = 1 }
      if ($2 ~ /returns to main \(/) main = 1
    }
    END { exit (bad || !main || frames < 3) }' "$1"
}

for build in gcc clang; do
  dir=$([ $build = gcc ] && echo "$gcc_build" || echo "$clang_build")
  crash_dir="$dir/tests/crash"
  if [ $build = clang ]; then
    # The statically linked MinGW runtime brings DWARF of its own; the child's code has none.
    check "clang: no DWARF of the child's code in its image, and its PDB lies beside it" \
      $( ! llvm-dwarfdump --debug-info "$crash_dir/crash_child_default.exe" |
           grep -q 'crash_child\.cpp' && [ -f "$crash_dir/crash_child_default.pdb" ]; echo $?)
  fi
  for kind in access plugin; do
    out="$work/$build-$kind"; mkdir -p "$out"
    timeout 120 "${WINELOADER:-wine}" "$crash_dir/crash_child_default.exe" "$kind" "$(windows_path "$out")" \
      >/dev/null 2>&1
    "$tool" "$out/crash.log" --symbols "$crash_dir" -o "$out/named.txt"
    check "$build, crash in the $kind: logexport --symbols exits 0" $?
    check "$build, crash in the $kind: every frame in its modules named with file and line" \
      $(all_named "$out/named.txt"; echo $?)
    sed 's/^/  /' "$out/named.txt"
    timeout 120 "${WINELOADER:-wine}" "$dir/tools/logexport.exe" "$(windows_path "$out/crash.log")" \
      --symbols "$(windows_path "$(realpath "$crash_dir")")" -o "$(windows_path "$out/windows.txt")" >/dev/null 2>&1
    check "$build, crash in the $kind: the Windows logexport names every frame in its modules" \
      $(all_named "$out/windows.txt"; echo $?)
    sed 's/^/  /' "$out/windows.txt"
  done
done

# Each build's log against the other build's images.
for pair in "gcc $clang_build" "clang $gcc_build"; do
  set -- $pair
  "$tool" "$work/$1-access/crash.log" --symbols "$2/tests/crash" -o "$work/$1-other.txt"
  check "$1's log against the other build: the child is a different build, and nothing named" \
    $(grep '<crash_child_default\.exe+0x' "$work/$1-other.txt" |
      awk '!/\?\? \(.*crash_child_default\.exe is a different build: its / { bad = 1 } END { exit bad + (NR == 0) }'; echo $?)
done

[ $failures -eq 0 ] && echo "all checks passed" || echo "$failures checks failed"
exit $((failures > 0))
