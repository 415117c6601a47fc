#!/bin/sh
# check_header.sh CC CXX INCLUDE_DIR SOURCE
# Compiles SOURCE, which includes only lum.h, as C89, C99 and C11 and as
# C++11 through C++20, each with -Wall -Wextra -Werror -pedantic: whatever
# standard a user builds with, the header must not warn.
set -u
cc=$1 cxx=$2 include=$3 source=$4
status=0
for std in c89 c99 c11; do
  if $cc -m32 -std=$std -Wall -Wextra -Werror -pedantic -Wstrict-prototypes \
      -I"$include" -x c -c "$source" -o /dev/null; then
    echo "ok   $std"
  else
    echo "FAIL $std"; status=1
  fi
done
for std in c++11 c++14 c++17 c++20; do
  if $cxx -m32 -std=$std -Wall -Wextra -Werror -pedantic \
      -I"$include" -x c++ -c "$source" -o /dev/null; then
    echo "ok   $std"
  else
    echo "FAIL $std"; status=1
  fi
done
exit $status
