# The fuzz build (preset "fuzz", scripts/fuzz.sh): the library and the fuzz
# targets compiled by clang with libFuzzer's coverage and the address and
# undefined-behaviour sanitizers, every finding fatal. clang's OpenMP needs
# clang's runtime for i386, which Debian cannot install beside the x86-64 one;
# scripts/setup.sh fuzz unpacks its package into build/deps (LUM_I386_LIBOMP).
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "LUM_FUZZ needs clang (cmake --preset fuzz)")
endif()
if(NOT EXISTS "${LUM_I386_LIBOMP}")
  message(FATAL_ERROR "no OpenMP runtime for i386 at '${LUM_I386_LIBOMP}': run scripts/setup.sh fuzz")
endif()
set(OpenMP_CXX_FLAGS -fopenmp)
set(OpenMP_CXX_LIB_NAMES omp)
set(OpenMP_omp_LIBRARY ${LUM_I386_LIBOMP})
# (clang also warns of constants and helpers that some builds do not use.)
add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                    -fno-sanitize-recover=all -Wno-unused-const-variable -Wno-unused-function
                    -Wno-unused-private-field)
add_link_options(-fsanitize=address,undefined)
