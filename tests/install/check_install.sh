#!/bin/sh
# check_install.sh BUILD_DIR THIS_DIR TOOLCHAIN RUN
# Installs the build into a scratch prefix, then builds and runs a C consumer
# against it twice: through pkg-config and through find_package(lum). RUN
# runs an i386 program (natively, or under the emulator the build chose).
set -eu
build=$1 here=$2 toolchain=$3 run=$4
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
. "$here/consume.sh"

cmake --install "$build" --prefix "$prefix" > "$work/install.log"
libdir=$prefix/lib/i386-linux-gnu
test -f "$prefix/include/lum.h"
test -L "$libdir/liblum.so" && test -L "$libdir/liblum.so.5"

# The consumer finds the library through the loader's path here, as an
# installed tree outside the loader's directories needs.
LD_LIBRARY_PATH=$libdir
export LD_LIBRARY_PATH
consume prefix "$libdir/pkgconfig" "$prefix"
