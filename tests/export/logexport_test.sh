#!/usr/bin/env bash
# The logexport tool from the shell: a conversion to standard output and to a file, --stamp,
# --help, and the error of each kind.
#   logexport_test.sh TOOL WORKDIR [RUNNER...]   (RUNNER runs Windows programs, e.g. Wine)
set -u
tool="$1"; work="$2"; shift 2
run() { "$@"; }
if [ $# -gt 0 ]; then runner=("$@"); run() { "${runner[@]}" "$@"; }; fi

mkdir -p "$work"
log="$work/sample.log"; text="$work/sample.txt"; junk="$work/junk.log"
failures=0
check() {  # description, condition result
  if [ "$2" -eq 0 ]; then echo "ok: $1"; else echo "FAILED: $1"; failures=$((failures + 1)); fi
}

# One plain record of level 2, "hello tool", and a trailer stamped 03-05 with zero keys.
{
  printf '\x02\x02\xff\xff\x0a\x00\x00\x00\x00\x66'
  printf 'hello tool'
  printf '\x56\x51\x10\x00\x01\x00\x00\x00\x03\x05'
  head -c 64 /dev/zero
} > "$log"
printf 'this is not a log file, only some text that is long enough to hold a trailer...\n' > "$junk"

line_re=$'^2 [0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\thello tool\r+$'

out=$(run "$tool" "$log"); status=$?
check "conversion to standard output" $([ $status -eq 0 ] && grep -Eq "$line_re" <<<"$out"; echo $?)

rm -f "$text"
run "$tool" "$log" -o "$text" >/dev/null; status=$?
check "conversion to a file" $([ $status -eq 0 ] && grep -Eq "$line_re" "$text"; echo $?)

out=$(run "$tool" "$log" --stamp | tr -d '\r'); status=$?
check "--stamp prints the trailer's month and day" $([ $status -eq 0 ] && [ "$out" = "03-05" ]; echo $?)

out=$(run "$tool" --help | tr -d '\r'); status=$?
check "--help documents the options" \
  $([ $status -eq 0 ] && grep -q 'usage: logexport LOG' <<<"$out" && grep -q -- '--image EXE' <<<"$out"; echo $?)

err=$(run "$tool" "$work/missing.log" 2>&1 >/dev/null); status=$?; err=${err//$'\r'/}
check "a missing file is an error" \
  $([ $status -eq 1 ] && [ $(wc -l <<<"$err") -eq 1 ] && grep -q 'cannot open' <<<"$err"; echo $?)

err=$(run "$tool" "$junk" 2>&1 >/dev/null); status=$?; err=${err//$'\r'/}
check "a file that is not a log is an error" \
  $([ $status -eq 1 ] && [ $(wc -l <<<"$err") -eq 1 ] && grep -q 'is not a log file' <<<"$err"; echo $?)

run "$tool" "$log" --bogus >/dev/null 2>&1; status=$?
check "an unknown option is a usage error" $([ $status -eq 2 ]; echo $?)
run "$tool" >/dev/null 2>&1; status=$?
check "no log file is a usage error" $([ $status -eq 2 ]; echo $?)

exit $failures
