#!/usr/bin/env bash
# Renews the committed dump of lum's interface, tests/interface/liblum.abi,
# from the debug build (the dump needs -g). Run it after a deliberate
# extension of the interface, check that `git diff` shows only what was
# added, and commit the dump; the test abi_matches_reference of the debug
# build compares every build against it.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh abi
cmake --preset debug > /dev/null
cmake --build --preset debug --target lum
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' build/debug/CMakeCache.txt)
abi-dumper "build/debug/liblum.so.$version" -o tests/interface/liblum.abi -lver "$version" \
  -public-headers include -quiet
echo "renewed tests/interface/liblum.abi (lum $version)"
