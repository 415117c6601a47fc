# Sourced by the install checks. consume NAME PKG_CONFIG_LIBDIR CMAKE_PREFIX
# builds the C consumer twice, through pkg-config (searching only
# PKG_CONFIG_LIBDIR) and through find_package(lum) (CMAKE_PREFIX may be
# empty: the toolchain's own search path), and runs both with $run.
# Expects $here, $toolchain, $run and $work.
consume() {
  name=$1 pclibdir=$2 prefix=$3
  echo "-- $name: pkg-config"
  PKG_CONFIG_LIBDIR=$pclibdir PKG_CONFIG_PATH= pkg-config --exists lum ||
    { echo "pkg-config finds no lum in $pclibdir"; return 1; }
  flags=$(PKG_CONFIG_LIBDIR=$pclibdir PKG_CONFIG_PATH= pkg-config --cflags --libs lum)
  gcc -m32 -std=c99 -Wall -Werror "$here/consumer.c" -o "$work/$name-pc" $flags || return 1
  "$run" "$work/$name-pc" || return 1
  echo "-- $name: find_package"
  cmake -S "$here" -B "$work/$name-cmake" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
        ${prefix:+-DCMAKE_PREFIX_PATH="$prefix"} > "$work/$name-configure.log" ||
    { cat "$work/$name-configure.log"; return 1; }
  cmake --build "$work/$name-cmake" > "$work/$name-build.log" || { cat "$work/$name-build.log"; return 1; }
  "$run" "$work/$name-cmake/consumer"
}
