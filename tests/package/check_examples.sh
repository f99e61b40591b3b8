#!/usr/bin/env bash
# check_examples.sh <prefix> <library folder> <sources>: builds and runs the examples against the installation as
# the guides say: each fenced block whose first line is a command about examples/agent or examples/driver. What a
# command that begins with ./ prints, and any other one too if the guide shows something below it, is compared.
set -euo pipefail
prefix=$1 libdir=$2 sources=$3

work=$prefix/../examples
rm -rf "$work"
mkdir -p "$work"
cp -r "$sources/examples" "$work"
cd "$work"
export CMAKE_PREFIX_PATH=$prefix CMAKE_GENERATOR=Ninja CMAKE_BUILD_PARALLEL_LEVEL=2
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig LD_LIBRARY_PATH=$prefix/$libdir
failed=0 ran=0 command='' shown=''

finish() {
  [[ -n $command ]] || return 0
  ran=$((ran + 1))
  if ! bash -c "$command" >printed 2>traced; then
    echo "$place: $command fails"
    cat printed traced
    exit 1
  fi
  if [[ $command == ./* || -n $shown ]]; then
    diff -u --label "$place, shown" --label printed <(printf '%s' "$shown") printed || failed=1
  fi
  command='' shown=''
}

for document in agent-guide driver-guide; do
  inside=0 n=0
  while IFS= read -r line; do
    n=$((n + 1))
    if [[ $line == '```'* ]]; then
      finish
      inside=$((!inside)) ours=0 first=1
    elif ((inside)) && [[ $line == '$ '* && ($ours == 1 || $first == 1 && $line == *examples/@(agent|driver)*) ]]; then
      finish
      ours=1 first=0 command=${line#'$ '} place=docs/$document.md:$n
    elif ((inside && ours)); then
      if [[ $command == *\\ && -z $shown ]]; then command+=$'\n'$line; else shown+=$line$'\n'; fi
    else
      first=0
    fi
  done <"$sources/docs/$document.md"
done
if ((ran < 7)); then
  echo "the guides do not show how the examples are built and run"
  failed=1
fi
exit $failed
