#!/usr/bin/env bash
# check_manual.sh <sources> <program>: the manual pages and completions that the program writes are well formed,
# name every option of the help, and their examples work.
set -euo pipefail
sources=$(realpath "$1")
program=$(realpath "$2")
PATH=$(dirname "$program"):$PATH

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
cp -r "$sources/examples" .
"$program" --documentation share
failed=0
fail() {
  echo "$*"
  failed=1
}

if LC_ALL=C grep -rlP '[^\n\x20-\x7e]' share; then fail "has bytes that are no plain text"; fi

mapfile -t commands < <(naxel --help | sed -n 's/^  \([a-z]\+\)  .*/\1/p' | grep -v '^naxel$')
((${#commands[@]} >= 4)) || fail "the help lists ${#commands[@]} commands"
bash=share/bash-completion/completions/naxel zsh=share/zsh/site-functions/_naxel
for command in "${commands[@]}"; do
  page=share/man/man1/naxel-$command.1
  grep -q "fBnaxel..$command\|fB$command" share/man/man1/naxel.1 || fail "naxel.1 leaves $command out"
  while read -r option; do
    grep -qF -- "\\fB${option//-/\\-}\\fR" "$page" || fail "$page leaves $option out"
    [[ $(sed -n "/^      $command)/,/;;/p" "$zsh") == *"$option"* ]] ||
      fail "$zsh leaves $option of $command out"
    [[ " $(sed -n "/^    $command)/,/^      ;;/s/^ *words='\(.*\)'/\1 /p" "$bash")" == *" $option "* ]] ||
      fail "$bash leaves $option of $command out"
  done < <(naxel "$command" --help | grep -v '^  naxel' | grep -oE -- '--[a-z0-9-]+' | grep -v -- '--help' | sort -u)
done

ran=0
for page in share/man/man1/*.1; do
  if command -v groff >/dev/null; then
    said=$(groff -man -Tutf8 -ww -z "$page" 2>&1)
    [[ -z $said ]] || fail "$page: $said"
  fi
  while IFS= read -r line; do
    ran=$((ran + 1))
    # 1 says that there are findings, which is what some examples are there to show.
    (eval "${line//\\-/-}") >out 2>&1 </dev/null || (($? == 1)) || fail "$page: ${line//\\-/-}: $(<out)"
  done < <(sed -n '/^\.EX/,/^\.EE/{/^\.E/!p}' "$page")
done
((ran >= 2 * ${#commands[@]})) || fail "only $ran examples were found"

# completes WORDS...: what bash offers for the last word.
completes() {
  COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
  _naxel
  echo "${COMPREPLY[*]}"
}
# shellcheck disable=SC1090  # written above
source "$bash"
while IFS='|' read -r words wanted; do
  read -ra line <<<"$words"
  [[ $words != *' ' ]] || line+=('')
  found=$(completes "${line[@]}")
  [[ $found == "$wanted" ]] || fail "completion of '$words': '$found' instead of '$wanted'"
done <<'CASES'
naxel com|compile
naxel --v|--version
naxel compile --la|--label-code
naxel compile --label-code |aligned compact
naxel compile --label-code = al|aligned
naxel compile --color =|auto always never
naxel gen --style g|groups
naxel verify examples/edge.j|examples/edge.json
naxel compile -o sha|share
naxel verify --seed 1|
naxel gen exam|
CASES
if command -v zsh >/dev/null; then zsh -n "$zsh" || fail "$zsh does not parse"; fi
echo "$ran examples"
exit $failed
