#!/usr/bin/env bash
# check_edges.sh <source root> <table>: holds every #include of the sources against the table of allowed edges,
# prints each breach as file:line and fails if there is any.
set -euo pipefail
root=$1
table=$2
cd "$root"

folders=(src)
for folder in drivers tools bench tests fuzz; do
  [[ -d $folder ]] && folders+=("$folder")
done

find "${folders[@]}" \( -name '*.h' -o -name '*.cpp' \) -print0 | sort -z |
  xargs -0 awk -v table="$table" '
  # Turns a pattern with * into an anchored regular expression.
  function regex(pattern) {
    gsub(/[.+]/, "[&]", pattern)
    gsub(/[*]/, ".*", pattern)
    return "^" pattern "$"
  }
  function covers(entry, path) {
    return path == entry || index(path, entry "/") == 1 || (entry ~ /[*]/ && path ~ regex(entry))
  }
  function stem(path) { sub(/^.*\//, "", path); sub(/\.[a-z]+$/, "", path); return path }
  function breach(text) { printf "%s:%d: %s\n", FILENAME, FNR, text; breaches++ }

  function unitOf(path,    unit, best) {
    best = ""
    for (unit in allowed)
      if (covers(unit, path) && length(unit) > length(best)) best = unit
    return best
  }
  function edgeIsAllowed(from, target,    n, i, entry) {
    if (covers(from, target)) return 1
    n = split(allowed[from], entry, " ")
    for (i = 1; i <= n; i++) if (covers(entry[i], target)) return 1
    return 0
  }
  function smIsOpen(path, target) {
    return target !~ /Sm\.h$/ || (target in frameSm) || (path in owner) ||
           unitOf(path) ~ /^(tests|support|fuzz|bench)$/ || index(stem(path), stem(target)) == 1
  }

  BEGIN {
    while ((getline line < table) > 0) {
      sub(/#.*/, "", line)
      if (line !~ /:/) continue
      name = line; sub(/:.*/, "", name); gsub(/[ \t]/, "", name)
      rest = line; sub(/[^:]*:/, "", rest)
      n = split(rest, word, " ")
      if (name == "frame-sm") { for (i = 1; i <= n; i++) frameSm[word[i]] }
      else if (name == "owner") { for (i = 1; i <= n; i++) owner[word[i]] }
      else {
        allowed[name] = rest
        top = name; sub(/\/.*/, "", top); rooted[top]
      }
    }
  }

  FNR == 1 {
    path = FILENAME; sub(/^src\//, "", path); sub(/^tests\/support\//, "support/", path)
    sub(/^drivers\/[a-z]+\//, "", path)
    if (path !~ /main\.cpp$/) sub(/^tools\/naxel\//, "", path)
    unit = unitOf(path)
    if (unit == "") breach("no row of the table covers this file")
  }

  /^[ \t]*#[ \t]*include[ \t]*["<]/ {
    includes++
    quoted = ($0 ~ /include[ \t]*"/)
    target = $0
    sub(/^[^"<]*["<]/, "", target); sub(/[">].*$/, "", target)
    top = target; sub(/\/.*/, "", top)
    if (!(top in rooted)) {
      # Beside the programs that have headers of their own, only paths of the table are written in quotes.
      if (quoted && unit !~ /^(bench|fuzz)$/) breach("include path \"" target "\" starts nowhere in the table")
      next
    }
    if (unit == "") next
    if (!edgeIsAllowed(unit, target)) breach(unit " may not include " target)
    else if (!smIsOpen(path, target)) breach("state machine " target " is closed to this file")
  }

  END {
    if (includes == 0) { print "no includes found below " FILENAME; exit 1 }
    exit breaches > 0
  }'
