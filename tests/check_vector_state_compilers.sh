#!/bin/sh
# check_vector_state_compilers.sh SOURCE_DIR WORK_DIR
# k1's MMX rule and every build's fences hold by construction, not by where
# one compiler at one level put its instructions: the project is configured
# in WORK_DIR with each compiler, k1's objects built (with k1's own flags for
# that compiler, cmake/LumBuilds.cmake and variants/k1) at each level, and
# check_vector_state.py run on them. g++ at -O0, -O1 and -O3 (the presets'
# own checks cover -O2), clang++-14 at -O0 to -O3.
set -eu
src=$1 work=$2
checker=$src/tests/check_vector_state.py
failed=0

# check COMPILER C_COMPILER LEVEL...
check() {
  cxx=$1 cc=$2; shift 2
  dir=$work/$cxx
  # Objects only: OpenMP's flags are given, its runtime is never linked.
  cmake -S "$src" -B "$dir" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$src/cmake/toolchain-i386.cmake" \
        -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=Level \
        -DLUM_BUILD_TESTS=OFF -DLUM_BUILD_BENCHMARKS=OFF -DOpenMP_CXX_FLAGS=-fopenmp \
        -DOpenMP_CXX_LIB_NAMES=omp -DOpenMP_omp_LIBRARY=/unused/libomp.so >/dev/null
  for level in "$@"; do
    cmake -DCMAKE_CXX_FLAGS_LEVEL="$level" "$dir" >/dev/null
    if ! cmake --build "$dir" --target lum_k1 -j2 >"$dir/build.log" 2>&1; then
      echo "$cxx $level: k1 does not build"; tail -n 20 "$dir/build.log"; failed=1; continue
    fi
    printf '%s %s: ' "$cxx" "$level"
    python3 "$checker" $(find "$dir" -path '*lum_k1.dir*' -name '*.o' | sort) || failed=1
  done
}

check g++ gcc -O0 -O1 -O3
if command -v clang++-14 >/dev/null 2>&1; then
  check clang++-14 clang-14 -O0 -O1 -O2 -O3
else
  echo "clang++-14 is not installed: scripts/setup.sh fuzz installs it"
  failed=1
fi
exit $failed
