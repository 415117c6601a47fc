#!/bin/sh
# check_exports.sh LIBRARY VERSION_SCRIPT HEADER
# The library's dynamic symbol table holds exactly the names of the version
# script, and each of those names is declared in the public header.
set -eu
lib=$1 map=$2 header=$3
tmp=$(mktemp -d); trap 'rm -rf "$tmp"' EXIT
nm -D --defined-only "$lib" | awk 'NF >= 3 {print $3}' | sed 's/@.*//' | sort -u > "$tmp/exported"
sed -n '/global:/,/local:/p' "$map" | grep -E '^\s+[A-Za-z_][A-Za-z0-9_]*;' |
  sed 's/[[:space:];]//g' | sort -u > "$tmp/public"
status=0
if ! diff -u "$tmp/public" "$tmp/exported" > "$tmp/diff"; then
  echo "exported symbols differ from the public list (- missing, + leaked):"
  grep -E '^[-+][^-+]' "$tmp/diff"
  status=1
fi
while read -r name; do
  grep -Eq "[^A-Za-z0-9_]${name}[^A-Za-z0-9_]" "$header" || { echo "$name is not declared in $header"; status=1; }
done < "$tmp/public"
[ $status -eq 0 ] && echo "$(wc -l < "$tmp/exported") public symbols exported, nothing else"
exit $status
