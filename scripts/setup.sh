#!/usr/bin/env bash
# Installs what building and testing lum needs on Debian 12 x86-64: the i386
# multiarch toolchain, GoogleTest and Google Benchmark for i386, qemu-user,
# Ninja and clang-format. Quick and silent when everything is already there.
#   scripts/setup.sh [packaging] [abi] [charts] [fuzz] [valgrind]
# Each named group adds the tools of one step, for the scripts that run it:
#   packaging  lintian and fakeroot, for the test that builds and installs the .deb files
#   abi        abi-dumper and abi-compliance-checker, for the interface check
#   charts     gnuplot, for the charts of scripts/bench.sh
#   fuzz       clang with libFuzzer and the sanitizers for i386, for scripts/fuzz.sh; and
#              clang's OpenMP runtime for i386, unpacked into build/deps (Debian cannot
#              install it beside the x86-64 one clang itself uses)
#   valgrind   valgrind and the i386 C library's debugging symbols it needs
set -euo pipefail

packages=(
  g++-multilib cmake ninja-build pkg-config qemu-user binutils python3 clang-format
  libgtest-dev:i386 libbenchmark-dev:i386 libgomp1:i386
  lib32asan8 lib32ubsan1
)
fuzz=false
for group in "$@"; do
  case $group in
    packaging) packages+=(lintian fakeroot dpkg-dev file) ;;
    abi) packages+=(abi-dumper abi-compliance-checker) ;;
    charts) packages+=(gnuplot-nox) ;;
    fuzz) packages+=(clang-14 libclang-rt-14-dev libomp-14-dev); fuzz=true ;;
    valgrind) packages+=(valgrind libc6-dbg:i386) ;;
    *) echo "setup: unknown group '$group' (packaging, abi, charts, fuzz, valgrind)" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive

# clang's OpenMP runtime for i386, from its Debian package, into the tree.
i386_libomp() {
  local deps tmp
  deps="$(cd "$(dirname "$0")/.." && pwd)/build/deps/libomp-i386"
  [ -f "$deps/libomp.so.5" ] && return 0
  tmp=$(mktemp -d)
  if ! (cd "$tmp" && apt-get download -q libomp5-14:i386 >/dev/null 2>&1); then
    $sudo apt-get update -q -o Acquire::Retries=3 >/dev/null
    (cd "$tmp" && apt-get download -q libomp5-14:i386 >/dev/null)
  fi
  dpkg-deb -x "$tmp"/libomp5-14_*_i386.deb "$tmp/unpacked"
  mkdir -p "$deps"
  cp "$tmp/unpacked/usr/lib/llvm-14/lib/libomp.so.5" "$deps/"
  rm -rf "$tmp"
}
install_missing() {
  [ ${#missing[@]} -eq 0 ] && return 0
  if ! dpkg --print-foreign-architectures | grep -qx i386; then
    $sudo dpkg --add-architecture i386
  fi
  # A transient failure of one index must not stop the set-up: apt still has
  # the other lists, and the install below says clearly what it cannot find.
  for attempt in 1 2 3; do
    if $sudo apt-get update -q -o Acquire::Retries=3 >/dev/null; then break; fi
    echo "setup: apt-get update failed (attempt $attempt), retrying" >&2
    sleep 3
  done
  echo "setup: installing ${missing[*]}"
  $sudo apt-get install -y -q --no-install-recommends "${missing[@]}" >/dev/null
}

install_missing
if $fuzz; then i386_libomp; fi
