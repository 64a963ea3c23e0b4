#!/usr/bin/env bash
# README's C++ examples are the marked parts of the example tests, verbatim: every part between
# "// README: <name>" and "// README: end" (less the marker's indentation) stands whole in one
# of README's cpp blocks, and a block holds nothing beside such parts but #include lines.
#   readme_blocks_test.sh README EXAMPLE_SOURCE...
set -u
readme="$1"; shift
failures=0
fail() { echo "FAILED: $1"; failures=$((failures + 1)); }

# The README's cpp blocks, each as one string.
blocks=()
block="" inside=0
while IFS= read -r line || [ -n "$line" ]; do
  if [ $inside -eq 0 ] && [ "$line" = '```cpp' ]; then inside=1; block=""; continue; fi
  if [ $inside -eq 1 ] && [ "$line" = '```' ]; then inside=0; blocks+=("$block"); continue; fi
  [ $inside -eq 1 ] && block+="$line"$'\n'
done < "$readme"
[ ${#blocks[@]} -gt 0 ] || fail "no cpp block in $readme"

# Each marked part, dedented, must stand in a block; it is then taken out of that block.
parts=0
for source in "$@"; do
  name="" part="" indent=""
  while IFS= read -r line || [ -n "$line" ]; do
    if [[ "$line" =~ ^([[:space:]]*)//\ README:\ (.*)$ ]]; then
      if [ "${BASH_REMATCH[2]}" != end ]; then
        name="${BASH_REMATCH[2]}"; indent="${BASH_REMATCH[1]}"; part=""; continue
      fi
      parts=$((parts + 1)) found=0
      for i in "${!blocks[@]}"; do
        if [[ "${blocks[$i]}" == *"$part"* ]]; then
          blocks[$i]="${blocks[$i]/"$part"/}"; found=1; break
        fi
      done
      [ $found -eq 1 ] || fail "README has no block holding the part '$name' of $(basename "$source")"
      name=""
      continue
    fi
    [ -n "$name" ] && part+="${line#"$indent"}"$'\n'
  done < "$source"
done
[ $parts -gt 0 ] || fail "no marked part in the example sources"

# What remains of each block may only be #include lines and blank lines.
for i in "${!blocks[@]}"; do
  rest=$(grep -vE '^(#include .*)?[[:space:]]*$' <<<"${blocks[$i]}")
  [ -z "$rest" ] || fail "README's cpp block $((i + 1)) holds lines that no example test runs: ${rest%%$'\n'*}"
done

[ $failures -eq 0 ] && echo "ok: $parts marked parts, ${#blocks[@]} README blocks, all alike"
exit $((failures > 0))
