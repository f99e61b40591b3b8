#!/usr/bin/env bash
# check_guides.sh <prefix> <library folder> <compiler> <documents>: compiles every complete program of the
# documents against the installation, as a user would, and compares what it prints with the next block
# without a kind. Traces on standard error are not compared.
set -euo pipefail
prefix=$1 libdir=$2 compiler=$3 documents=$4
with_program=(agent-guide driver-guide)

work=$prefix/../guides
rm -rf "$work"
mkdir -p "$work"
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig LD_LIBRARY_PATH=$prefix/$libdir
read -ra flags < <(pkg-config --cflags --libs naxel-testing)
failed=0

# Files NAME-LINE.cpp and NAME-LINE.shown; compilers name places in the document.
for document in "$documents"/*.md; do
  awk -v base="$work/$(basename "$document" .md)-" -v document="docs/$(basename "$document")" '
    !/^```/ { text = text $0 "\n"; next }
    !inside { inside = 1; kind = $0; line = NR; text = ""; next }
    { inside = 0 }
    kind == "```cpp" && text ~ /int main\(/ {
      program = base line
      printf "#line %d \"%s\"\n%s", line + 1, document, text >(program ".cpp")
    }
    kind == "```" && program { printf "%s", text >(program ".shown"); program = "" }' "$document"
done

for source in "$work"/*.cpp; do
  program=${source%.cpp}
  place=docs/$(basename "${program%-*}").md:${program##*-}
  if ! "$compiler" -std=c++20 "$source" -o "$program" "${flags[@]}"; then
    echo "$place: the program does not compile"
    failed=1
  elif ! timeout 60 "$program" >"$program.printed" 2>"$program.traced"; then
    cat "$program.traced"
    echo "$place: the program fails"
    failed=1
  elif ! diff -u --label "$place, shown" --label printed "$program.shown" "$program.printed"; then
    failed=1
  fi
done

for guide in "${with_program[@]}"; do
  if ! compgen -G "$work/$guide-*.cpp" >/dev/null; then
    echo "docs/$guide.md: there is no program"
    failed=1
  fi
done
exit $failed
