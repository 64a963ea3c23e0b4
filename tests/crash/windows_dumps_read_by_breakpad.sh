#!/usr/bin/env bash
# Crash dumps of Windows hosts read by Breakpad's processor and dump reader, an independent
# oracle. The default-linked crash child of each 64-bit Windows build fails under Wine in the ways
# the handler must survive; for each dump, Breakpad's programs must
#   - read every stream (the dump reader: nothing refused; Wine's writer makes no memory-info
#     stream, whose absence it reports);
#   - find the crashed thread, and in it the failure where the log places it (the faulting
#     instruction, or for the runtime's failures the crash address at the host's call);
#   - know the child's module by the CodeView identity that the log's module record gives, and
#     for the clang build its PDB's name;
# and the child must end with the failure's code.
#   windows_dumps_read_by_breakpad.sh BREAKPAD_BIN LOGEXPORT WORKDIR GCC_BUILD CLANG_BUILD
# Runs inside a Wine session (scripts/wine-session): WINEPREFIX and the loader come from it.
set -u
bin="$1"; tool="$2"; work="$(realpath -m "$3")"; gcc_build="$4"; clang_build="$5"
windows_path() { local p="${1//\//\\}"; echo "Z:$p"; }
rm -rf "$work"; mkdir -p "$work"
failures=0
check() {  # description, condition result
  if [ "$2" -eq 0 ]; then echo "ok: $1"; else echo "FAILED: $1"; failures=$((failures + 1)); fi
}
child=crash_child_default.exe

# kind, flag, exit status (low byte, as the shell sees it), where the log places the failure:
# "pc" for the faulting instruction, "call" for the crash address at the host's call.
cases_gcc="access - 5 pc
abort - 21 call
terminate - 21 call
purecall - 21 call
parameter - 23 call
threads2 - 5 pc
threads8 - 5 pc
threadslate - 5 pc
busylog - 5 pc
heaplock - 5 pc
heapdamage - 5 pc
plugin - 5 pc
access annotated 5 pc"
cases_clang="access - 5 pc
heaplock - 5 pc
abort - 21 call
threads8 - 5 pc
plugin - 5 pc"

for build in gcc clang; do
  dir=$([ $build = gcc ] && echo "$gcc_build" || echo "$clang_build")
  cases=$([ $build = gcc ] && echo "$cases_gcc" || echo "$cases_clang")
  while read -r kind flag status place; do
    name="$build, $kind${flag/#-/}"
    out="$work/$build-$kind-$flag"; mkdir -p "$out"
    args=("$kind" "$(windows_path "$out")"); [ "$flag" != - ] && args+=("$flag")
    timeout 120 "${WINELOADER:-wine}" "$dir/tests/crash/$child" "${args[@]}" >/dev/null 2>&1
    check "$name: exits with the failure's code" $([ $? -eq "$status" ]; echo $?)
    dump=$(ls "$out"/*.dmp 2>/dev/null | head -1)
    if [ -z "$dump" ]; then check "$name: a dump beside the log" 1; continue; fi
    "$tool" "$out/crash.log" -o "$out/log.txt"
    "$bin/minidump_stackwalk" -m "$dump" > "$out/stackwalk.txt" 2>/dev/null
    check "$name: the processor reads the dump" $?
    "$bin/minidump_dump" "$dump" > "$out/dump.txt" 2> "$out/dump-errors.txt"
    check "$name: the dump reader refuses nothing" \
      $(! grep ERROR "$out/dump-errors.txt" | grep -v 'GetMemoryInfoList() failed' | grep -q . &&
        grep -q '^MinidumpMemoryList' "$out/dump.txt" && grep -q '^MDException' "$out/dump.txt"
        echo $?)

    # The log's failure: the module and offset it names, and that module's identity.
    at=$(grep -m1 -o "Crash: .* at \[[0-9A-F]*\] <[^>]*+0x[0-9A-F]*>" "$out/log.txt")
    module=$(sed 's/.*<\(.*\)+0x[0-9A-F]*>$/\1/' <<<"$at")
    offset=$(sed 's/.*+0x\([0-9A-F]*\)>$/\1/' <<<"$at")
    record=$(grep -m1 -o "Module: \"$module\".*" "$out/log.txt")
    # A failure inside the system's own code (Wine's system modules carry no CodeView record):
    # the identity checked is the child's, which the log names in the failure's frames.
    owner=$module
    if grep -qi 'path="C:\\windows\\' <<<"$record"; then
      owner=$child; record=$(grep -m1 -o "Module: \"$owner\".*" "$out/log.txt")
    fi
    cv=$(sed -n 's/.* cv=\([0-9A-F]*\).*/\1/p' <<<"$record")
    pdb=$(sed -n 's/.* pdb="\([^"]*\)".*/\1/p' <<<"$record")
    IFS='|' read -r _ reason address thread < <(grep -m1 '^Crash|' "$out/stackwalk.txt")
    IFS='|' read -r _ _ _ _ _ base _ < <(grep -m1 -F "Module|$module|" "$out/stackwalk.txt")
    IFS='|' read -r _ _ _ debug_file debug_id _ < <(grep -m1 -F "Module|$owner|" "$out/stackwalk.txt")
    frame0=$(grep -m1 "^$thread|0|" "$out/stackwalk.txt" | cut -d'|' -f3,7)
    if [ "$place" = pc ]; then
      check "$name: crashed thread's top frame at the log's failure ($reason)" \
        $([ -n "$offset" ] && [ "$frame0" = "$module|0x$(tr A-F a-f <<<"${offset#"${offset%%[!0]*}"}")" ]; echo $?)
    else
      check "$name: crash address at the log's failure ($reason)" \
        $([ -n "$offset" ] && [ $((address)) -eq $((base + 0x$offset)) ]; echo $?)
    fi
    check "$name: $owner known by the log's CodeView identity" \
      $([ -n "$cv" ] && [ "${debug_id^^}" = "$cv" ]; echo $?)
    if [ $build = clang ]; then
      pdb="${pdb##*[/\\]}"
      check "$name: and by its PDB's name" $([ -n "$pdb" ] && [ "$debug_file" = "$pdb" ]; echo $?)
    fi
    if [ "$flag" = annotated ]; then
      check "$name: the annotations' stream is in the dump" \
        $(grep -q 'stream_type *= 0x44534b41' "$out/dump.txt"; echo $?)
    fi
  done <<<"$cases"
done

[ $failures -eq 0 ] && echo "all checks passed" || echo "$failures checks failed"
exit $((failures > 0))
