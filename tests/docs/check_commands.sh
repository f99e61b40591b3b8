#!/usr/bin/env bash
# check_commands.sh <sources> <program>: runs the commands that README.md and docs/ show and compares what
# they print, on both outputs.
#
# A fenced block with lines "$ COMMAND" shows below each what it prints; blank lines at the end do not
# count. A shown line that begins with "..." stands for any lines. A command that ends with a backslash
# goes on in the next line; "$ echo $?" shows the exit code of the command before. A block that opens with
# ```KIND FILE is a file of that name. The commands of a document run in its order, in a directory of its
# own that has the folders of the sources which users meet.
#
# naxel runs, and what shows files. What installs, builds or starts what was built does not. Any other
# command is a fault, lest it pass for a tested one.
#
# Commands without output, `naxel ...` in the text or a line of a block without "$", have to succeed. They
# run if they are complete: if they name a file that there is, or call the generator.
set -euo pipefail
shopt -s extglob
sources=$1
PATH=$(dirname "$(realpath "$2")"):$PATH

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0 ran=0 code=0 printed=''

run() {
  ran=$((ran + 1))
  if printed=$(cd "$directory" && bash -c "(exit $code); $1" 2>&1 </dev/null); then code=0; else code=$?; fi
}

fail() {
  printf '%s\n' "$@"
  failed=1
}

# The shown lines with the printed ones in place of "...". What follows a "..." is expected where most of it
# agrees, and after the last one at the end, so that a comparison names only the lines that differ.
filled_in() {
  awk 'NR == FNR { shown[m = FNR] = $0; next }
    { printed[n = FNR] = $0 }
    END {
      for (at = i = 1; i <= m; ++i) {
        if (shown[i] !~ /^\.\.\./) { print shown[i]; ++at; continue }
        for (span = 0; i + span < m && shown[i + span + 1] !~ /^\.\.\./; ++span);
        last = n - span + 1 > at ? n - span + 1 : at
        most = -1
        for (from = i + span == m ? last : at; from <= last; ++from) {
          equal = 0
          for (k = 0; k < span; ++k) equal += shown[i + 1 + k] "" == printed[from + k] ""
          if (equal > most) { most = equal; best = from }
        }
        while (at < best) print printed[at++]
      }
    }' <(echo "$shown") <(echo "$printed")
}

# Checks the command that has been read, if there is one.
finish() {
  case $command in
    '' | make* | cmake* | ctest* | apt-get* | git* | c++* | g++* | clang++* | ./*) ;;
    naxel\ * | cat\ * | head\ * | grep\ * | diff\ * | echo\ *)
      run "$command"
      shown=${shown%%*($'\n')}
      diff -u --label "$place, shown" --label printed <(filled_in) <(echo "$printed") ||
        fail "$place: $command"
      ;;
    *) fail "$place: nothing checks this kind of command: $command" ;;
  esac
  command='' shown=''
}

is_complete() {
  local word
  [[ $1 != *[\[\<\|]* ]] || return 1
  for word in $1; do
    if [[ $word == gen || -f $directory/$word ]]; then return 0; fi
  done
  return 1
}

cd "$sources"
for document in README.md docs/*.md; do
  directory=$work/$document
  mkdir -p "$directory"
  cp -r examples schema "$directory"
  number=0 inside=false command='' shown=''
  while IFS= read -r line; do
    number=$((number + 1))
    if [[ $line == '```'* ]]; then
      finish
      if $inside; then inside=false; else inside=true; fi
      file=
      if [[ $line =~ \ ([^ ]+)$ ]]; then file=$directory/${BASH_REMATCH[1]}; fi
    elif $inside && [[ -n $file ]]; then
      printf '%s\n' "$line" >>"$file"
    elif $inside && [[ $line == '$ '* ]]; then
      finish
      command=${line#'$ '} place=$document:$number
    elif [[ $command == *\\ && -z $shown ]]; then
      command+=$'\n'$line
    elif [[ -n $command ]]; then
      shown+=$line$'\n'
    fi
  done <"$document"

  # shellcheck disable=SC2016  # the backquotes are those of the text
  while IFS=: read -r number command; do
    command=${command//'`'/}
    is_complete "$command" || continue
    run "$command"
    if [[ $code != 0 ]]; then fail "$document:$number: $command" "$printed"; fi
  done < <(grep -noE '`naxel [^`]+`|^naxel .+' "$document" || true)

  # A reader of documents that finds nothing would find no fault either.
  if [[ $document == README.md && $ran -lt 2 ]]; then fail "$document: shows no commands"; fi
done
echo "$ran commands"
exit $failed
