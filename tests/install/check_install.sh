#!/bin/sh
# check_install.sh BUILD_DIR THIS_DIR TOOLCHAIN RUN
# Installs the build into a scratch prefix, then builds and runs a C consumer
# against it twice: through pkg-config and through find_package(lum). RUN
# runs an i386 program (natively, or under the emulator the build chose).
set -eu
build=$1 here=$2 toolchain=$3 run=$4
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" > "$work/install.log"
libdir=$prefix/lib
[ -d "$libdir" ] || libdir=$(dirname "$(find "$prefix" -name 'liblum.so.5' | head -n 1)")
test -f "$prefix/include/lum.h"
test -L "$libdir/liblum.so" && test -L "$libdir/liblum.so.5"

echo "-- pkg-config"
PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH
gcc -m32 -std=c99 -Wall -Werror "$here/consumer.c" -o "$work/consumer_pc" \
    $(pkg-config --cflags --libs lum)
LD_LIBRARY_PATH=$libdir "$run" "$work/consumer_pc"

echo "-- find_package"
cmake -S "$here" -B "$work/cmake" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
      -DCMAKE_PREFIX_PATH="$prefix" > "$work/configure.log"
cmake --build "$work/cmake" > "$work/build.log"
"$run" "$work/cmake/consumer"
