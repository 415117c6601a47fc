# Whether this machine runs i386 programs, and if not, what runs them.
#
# Kernels built without IA32 emulation (or booted with it off) cannot execute
# an i386 program at all ("Exec format error"). There the tests, their
# discovery and the demo run under qemu-i386 with its most capable processor,
# so that all six builds are still exercised. Decided at configure time:
#   - LUM_EMULATOR, in the environment or the cache, forces the emulated path
#     with that command (e.g. "qemu-i386 -cpu max"), also on a machine that
#     runs i386 programs natively;
#   - otherwise a tiny i386 program is built and run, and qemu-i386 -cpu max
#     is taken only when it cannot run.
# Sets CMAKE_CROSSCOMPILING_EMULATOR (CTest and test discovery prepend it to
# every test program) and writes ${PROJECT_BINARY_DIR}/run-i386, through
# which the scripts and the shell-script tests run i386 programs of this
# build either way. LUM_EMULATOR_IN_USE (cache, internal) holds the command,
# empty when programs run natively.
set(LUM_EMULATOR "" CACHE STRING
    "Command that runs i386 programs, forcing the emulated path; empty: decided by a test run")

if(NOT "$ENV{LUM_EMULATOR}" STREQUAL "")
  set(lum_emulator "$ENV{LUM_EMULATOR}")
  set(lum_why "forced by LUM_EMULATOR")
elseif(NOT LUM_EMULATOR STREQUAL "")
  set(lum_emulator "${LUM_EMULATOR}")
  set(lum_why "forced by LUM_EMULATOR")
else()
  set(lum_emulator "")
  set(lum_probe_dir ${PROJECT_BINARY_DIR}/CMakeFiles/lum_runs_i386)
  file(WRITE ${lum_probe_dir}/probe.c "int main(void) { return 0; }\n")
  try_compile(lum_probe_built ${lum_probe_dir}/build ${lum_probe_dir}/probe.c
              COPY_FILE ${lum_probe_dir}/probe)
  if(NOT lum_probe_built)
    message(FATAL_ERROR "lum: cannot build an i386 program; run scripts/setup.sh first")
  endif()
  execute_process(COMMAND ${lum_probe_dir}/probe RESULT_VARIABLE lum_probe_result
                  OUTPUT_QUIET ERROR_QUIET)
  if(NOT lum_probe_result STREQUAL "0")
    find_program(LUM_QEMU_I386 qemu-i386)
    if(NOT LUM_QEMU_I386)
      message(FATAL_ERROR "lum: this machine cannot run i386 programs (${lum_probe_result}) "
                          "and qemu-i386 is missing; run scripts/setup.sh first")
    endif()
    set(lum_emulator "${LUM_QEMU_I386} -cpu max")
    set(lum_why "this machine cannot run i386 programs natively")
  endif()
endif()

set(LUM_EMULATOR_IN_USE "${lum_emulator}" CACHE INTERNAL "Emulator in use, empty natively")
if(lum_emulator STREQUAL "")
  unset(CMAKE_CROSSCOMPILING_EMULATOR)
  set(lum_run_line "unset LUM_EMULATED\nexec \"$@\"")
else()
  separate_arguments(lum_emulator_list UNIX_COMMAND "${lum_emulator}")
  message(STATUS "lum: i386 programs run under an emulator: ${lum_emulator} (${lum_why}); "
                 "times measured there say nothing about speed")
  set(lum_run_env "")
  if(LUM_SANITIZE OR LUM_FUZZ)
    # The leak check stops every thread through ptrace at exit, which the
    # emulator does not provide: the check would hang every program. And the
    # sanitizer's runtime, told "i686" by uname, takes the top gigabyte for a
    # kernel's and keeps no shadow for it, while the emulator maps memory
    # there: its address space is kept to the 3 GiB the runtime covers.
    list(PREPEND lum_emulator_list env ASAN_OPTIONS=detect_leaks=0 QEMU_RESERVED_VA=0xc0000000)
    set(lum_run_env "ASAN_OPTIONS=detect_leaks=0\nQEMU_RESERVED_VA=0xc0000000\nexport ASAN_OPTIONS QEMU_RESERVED_VA\n")
    message(STATUS "lum: AddressSanitizer's leak check is off under the emulator, its address space 3 GiB")
  endif()
  set(CMAKE_CROSSCOMPILING_EMULATOR ${lum_emulator_list})
  set(lum_run_line "LUM_EMULATED='${lum_emulator}'\nexport LUM_EMULATED\n${lum_run_env}exec ${lum_emulator} \"$@\"")
endif()

file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/run-i386 CONTENT
"#!/bin/sh
# Runs an i386 program of this build, natively or under the emulator chosen
# when the build was configured. LUM_EMULATED tells the program it is emulated.
@lum_run_line@
" @ONLY)
file(CHMOD ${PROJECT_BINARY_DIR}/run-i386 PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
     GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
