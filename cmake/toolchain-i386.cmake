# 32-bit x86 Linux on an x86-64 Debian host, through the multilib compiler.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)

# The multilib GCC; the fuzz preset names clang instead, whose sanitizer
# coverage the fuzzers need.
if(NOT CMAKE_C_COMPILER)
  set(CMAKE_C_COMPILER gcc)
  set(CMAKE_CXX_COMPILER g++)
endif()

# The baseline every object shares: plain i686 with x87 math. The image
# builds add their own instruction-set flags on top (see LumBuilds.cmake).
# (clang does x87 math on i686 without being told, and refuses the option
# where SSE is enabled.)
set(lum_baseline "-m32 -march=i686 -mtune=generic")
if(NOT CMAKE_C_COMPILER MATCHES "clang")
  string(APPEND lum_baseline " -mfpmath=387")
endif()
set(CMAKE_C_FLAGS_INIT "${lum_baseline}")
set(CMAKE_CXX_FLAGS_INIT "${lum_baseline}")
set(CMAKE_ASM_FLAGS_INIT "-m32")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-m32")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-m32")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-m32")

set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_FIND_ROOT_PATH /usr/lib/i386-linux-gnu /usr/lib32)
list(APPEND CMAKE_PREFIX_PATH /usr/lib/i386-linux-gnu/cmake)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/i386-linux-gnu/pkgconfig:/usr/share/pkgconfig")
