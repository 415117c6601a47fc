#!/usr/bin/env bash
# Installs what building and testing lum needs on Debian 12 x86-64: the i386
# multiarch toolchain, GoogleTest and Google Benchmark for i386, qemu-user and
# Ninja. Quick and silent when everything is already there.
#   scripts/setup.sh [packaging] [abi] [charts]
# Each named group adds the tools of one step, for the scripts that run it:
#   packaging  lintian and fakeroot, for the test that builds and installs the .deb files
#   abi        abi-dumper and abi-compliance-checker, for the interface check
#   charts     gnuplot, for the charts of scripts/bench.sh
set -euo pipefail

packages=(
  g++-multilib cmake ninja-build pkg-config qemu-user binutils
  libgtest-dev:i386 libbenchmark-dev:i386 libgomp1:i386
  lib32asan8 lib32ubsan1
)
for group in "$@"; do
  case $group in
    packaging) packages+=(lintian fakeroot dpkg-dev file) ;;
    abi) packages+=(abi-dumper abi-compliance-checker) ;;
    charts) packages+=(gnuplot-nox) ;;
    *) echo "setup: unknown group '$group' (packaging, abi, charts)" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive

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
