#!/bin/sh
# Every C and C++ source of the tree is laid out as .clang-format says:
# clang-format would change nothing. Lay a file out with `clang-format -i`.
#   check_format.sh CLANG_FORMAT SOURCE_DIR
set -eu
format=$1
cd "$2"
find include core image variants tests bench examples \
  \( -name '*.h' -o -name '*.cpp' -o -name '*.inc' -o -name '*.c' \) -not -path '*/corpus/*' -print |
  sort | xargs "$format" --dry-run -Werror
