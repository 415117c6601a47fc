#!/usr/bin/env bash
# Sets up the machine, builds the release preset and runs the demo. The demo
# writes its PGM images to build/release/demo-output/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset release > /dev/null
cmake --build --preset release --target lumdemo
mkdir -p build/release/demo-output
build/release/examples/lumdemo build/release/demo-output
