#!/usr/bin/env bash
# Sets up the machine, builds the release preset and runs the demo, on the
# binary PGM given or on its generated scene. The demo writes its PGM images
# and their contact sheet to build/release/demo-output/. On a machine that
# cannot run i386 programs it runs under qemu-i386 (see README).
#   scripts/demo.sh [IMAGE.pgm]
set -euo pipefail
image=()   # the user's path, from where the script was started
[ $# -gt 0 ] && image=("$(realpath -- "$1")")
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset release | sed -n 's/^-- lum: /note: /p'
cmake --build --preset release --target lumdemo
mkdir -p build/release/demo-output
build/release/run-i386 build/release/examples/lumdemo -o build/release/demo-output "${image[@]}"
