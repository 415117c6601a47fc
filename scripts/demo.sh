#!/usr/bin/env bash
# Sets up the machine, builds the release preset and runs the demo. The demo
# writes its PGM images to build/release/demo-output/. On a machine that
# cannot run i386 programs it runs under qemu-i386 (see README).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset release | sed -n 's/^-- lum: /note: /p'
cmake --build --preset release --target lumdemo
mkdir -p build/release/demo-output
build/release/run-i386 build/release/examples/lumdemo build/release/demo-output
