#!/usr/bin/env bash
# check_exports.sh <libNaxel.so>: the shared object may export names of its own namespaces, and weak
# copies of standard library templates; it may need nothing but the C++ and C run time.
set -euo pipefail
library=$1
status=0

own='(3Mox|4Obel|5Lumox|7Routing|3Acl|5Naxel)'
# Mangled: vtables and the like, guards and thunks, locals of functions, then the nested name. A
# specialisation of std::hash for an own type counts as own.
prefix='_Z(T[VTISC]|GV|GR|Th[n0-9]+_|Tv[n0-9]+_[n0-9]+_|Tc[hvn0-9_]+_)?Z*'
ours="^${prefix}(N[rVKRO]*(${own}|St4hashI(N[rVK]*)?${own}))"
standard="^${prefix}(N[rVKRO]*(S[tabsiod]|9__gnu_cxx)|S[tabsiod])|^_Z(nw|na|dl|da)"
# Type information of function types that name own types, as std::function leaves behind.
functions='^_ZT[IS]P?F'
linker='^(_init|_fini|_edata|_end|__bss_start)$'

foreign=$(nm -D --defined-only --format=posix "$library" |
  awk -v ours="$ours" -v standard="$standard" -v linker="$linker" \
    -v functions="$functions" -v own="$own" '
    $1 ~ ours || $1 ~ linker { next }
    $2 ~ /[WVwvu]/ && ($1 ~ standard || ($1 ~ functions && $1 ~ own)) { next }
    { print $2, $1 }')
if [[ -n $foreign ]]; then
  echo "exported, but not ours:"
  c++filt <<<"$foreign"
  status=1
fi

# A library that exports nothing would pass all of the above.
if ! nm -D --defined-only --format=posix "$library" | awk -v ours="$ours" '
    $1 ~ ours && $2 ~ /[TDBRV]/ { n++ } END { exit n == 0 }'; then
  echo "no symbol of the library is exported"
  status=1
fi

dynamic=$(readelf -d "$library")
needed=$(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic" |
  grep -vE '^(libstdc\+\+|libm|libgcc_s|libc|ld-linux[-a-z0-9_]*)\.so\.[0-9]+$' || true)
if [[ -n $needed ]]; then
  echo "needs more than the run time:"
  echo "$needed"
  status=1
fi
if ! grep -qE '\(SONAME\).*\[libNaxel\.so\.[0-9]+\.[0-9]+\]' <<<"$dynamic"; then
  echo "the soname does not carry the major and the minor version"
  status=1
fi
exit $status
