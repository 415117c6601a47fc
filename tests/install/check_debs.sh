#!/bin/sh
# check_debs.sh BUILD_DIR THIS_DIR TOOLCHAIN RUN
# Builds the two Debian packages with CPack, has lintian check them (no
# error allowed), installs them with dpkg -i and builds the C consumer
# against the installed system through pkg-config and find_package(lum);
# then removes them again. Installing needs root; as another user, with no
# sudo that asks nothing, the packages are unpacked with dpkg-deb -x into a
# scratch root instead, and the test says so.
set -eu
build=$1 here=$2 toolchain=$3 run=$4
work=$(mktemp -d)
. "$here/consume.sh"
for tool in cpack lintian dpkg-deb dpkg-shlibdeps; do
  command -v $tool > /dev/null || { echo "$tool is missing: run scripts/setup.sh packaging"; exit 1; }
done

echo "-- cpack"
cpack --config "$build/CPackConfig.cmake" -B "$work/debs" > "$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log"; exit 1; }
runtime=$(ls "$work"/debs/liblum5_*_i386.deb) dev=$(ls "$work"/debs/liblum-dev_*_i386.deb)
for deb in "$runtime" "$dev"; do
  dpkg-deb -f "$deb" Package Version Architecture Depends | sed 's/^/   /'
done

echo "-- lintian"
lintian_status=0
lintian --fail-on error --tag-display-limit 0 "$runtime" "$dev" > "$work/lintian.log" 2>&1 ||
  lintian_status=$?
grep -v '^running with root' "$work/lintian.log" || true
[ $lintian_status -eq 0 ] || { echo "lintian reports errors (status $lintian_status)"; exit 1; }

sudo=
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo > /dev/null && sudo -n true 2> /dev/null; then sudo="sudo -n"; fi
fi
if [ "$(id -u)" -eq 0 ] || [ -n "$sudo" ]; then
  for p in liblum5 liblum-dev; do
    if dpkg-query -W -f='${Status}' $p 2> /dev/null | grep -q 'ok installed'; then
      echo "$p is already installed on this machine: the test installs and removes its own, remove it first"
      exit 1
    fi
  done
  # dpkg waits for no lock: retry while another package tool holds it.
  dpkg_retry() {
    for attempt in 1 2 3 4 5 6 7 8 9 10 11 12; do
      $sudo dpkg "$@" > "$work/dpkg.log" 2>&1 && return 0
      grep -q 'lock' "$work/dpkg.log" || { cat "$work/dpkg.log"; return 1; }
      sleep 10
    done
    cat "$work/dpkg.log"; return 1
  }
  trap 'dpkg_retry --purge liblum-dev liblum5 || echo "could not remove liblum-dev and liblum5"; rm -rf "$work"' EXIT
  echo "-- dpkg -i"
  dpkg_retry -i "$runtime" "$dev"
  dpkg-query -W -f='   ${Package} ${Version} ${Status}\n' liblum5 liblum-dev
  consume installed /usr/lib/i386-linux-gnu/pkgconfig ""
else
  trap 'rm -rf "$work"' EXIT
  echo "-- not root and no sudo without a password: the packages are unpacked with dpkg-deb -x"
  echo "   into a scratch root instead of installed with dpkg -i"
  root=$work/root
  dpkg-deb -x "$runtime" "$root" && dpkg-deb -x "$dev" "$root"
  LD_LIBRARY_PATH=$root/usr/lib/i386-linux-gnu
  export LD_LIBRARY_PATH
  consume unpacked "$root/usr/lib/i386-linux-gnu/pkgconfig" "$root/usr"
fi
