#!/bin/sh
# check_build_symbols.sh TAG OBJECT...
# Fails when an object of build TAG defines a global or weak symbol that does
# not carry the tag: an untagged inline function or template would be merged
# by the linker with its twin from another build, and a generic-build caller
# could end up in SSE code.
#   tagged C names:      k2_...
#   tagged C++ names:    anything in namespace lum::k2 (mangled N3lum2k2...)
# The compiler's PC thunks (__x86.get_pc_thunk.*) are the same few bytes of
# plain i386 code in every build and are allowed.
set -eu
tag=$1; shift
[ $# -gt 0 ] || { echo "no objects given for $tag"; exit 1; }
bad=$(nm --defined-only -g "$@" | awk -v tag="$tag" '
  NF >= 3 {
    sym = $3
    if (index(sym, tag "_") == 1) next
    if (sym ~ ("3lum" length(tag) tag)) next
    if (sym ~ /^__x86\.get_pc_thunk\./) next
    print $2, sym
  }')
count=$(nm --defined-only -g "$@" | awk 'NF >= 3' | wc -l)
if [ -n "$bad" ]; then
  echo "build $tag defines symbols without its tag:"
  echo "$bad" | c++filt
  exit 1
fi
[ "$count" -gt 0 ] || { echo "build $tag defines no global symbols at all"; exit 1; }
echo "build $tag: $count global symbols, all tagged"
