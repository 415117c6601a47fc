# Callers may enter with a stack aligned to 4 bytes only: the SSE builds
# realign where they need to (clang has no way to state the incoming
# alignment and realigns in every function instead).
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  set(LUM_REALIGN_STACK -mstackrealign)
else()
  set(LUM_REALIGN_STACK -mincoming-stack-boundary=2)
endif()

# The builds, from their one list (core/builds.h): LUM_BUILD_TAGS holds the
# tags k0, k1, .. in index order, so a tag's position is its index.
file(STRINGS ${PROJECT_SOURCE_DIR}/core/builds.h lum_build_lines REGEX "X\\(k[0-9]+, [0-9]+,")
string(REGEX MATCHALL "X\\(k[0-9]+, [0-9]+," lum_build_entries "${lum_build_lines}")
set(LUM_BUILD_TAGS)
foreach(entry ${lum_build_entries})
  string(REGEX REPLACE "X\\((k[0-9]+), ([0-9]+)," "\\1" tag "${entry}")
  string(REGEX REPLACE "X\\((k[0-9]+), ([0-9]+)," "\\2" index "${entry}")
  list(LENGTH LUM_BUILD_TAGS position)
  if(NOT index EQUAL position)
    message(FATAL_ERROR "core/builds.h lists ${tag} with index ${index} in place ${position}")
  endif()
  list(APPEND LUM_BUILD_TAGS ${tag})
endforeach()
if(NOT LUM_BUILD_TAGS)
  message(FATAL_ERROR "no build found in core/builds.h")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/core/builds.h)

# lum_add_build(<tag> <flags>...)
#
# Compiles the shared image sources (LUM_IMAGE_SOURCES) once more, as object
# library lum_<tag>, for one instruction-set level: LUM_BUILD=<index> (the
# tag's index in the list) and LUM_TAG=<tag> select what differs, <flags>
# give the level's instruction set.
function(lum_add_build tag)
  list(FIND LUM_BUILD_TAGS ${tag} index)
  if(index LESS 0)
    message(FATAL_ERROR "lum_add_build: ${tag} is not a build of core/builds.h")
  endif()
  set(target lum_${tag})
  add_library(${target} OBJECT ${LUM_IMAGE_SOURCES})
  target_compile_definitions(${target} PRIVATE LUM_BUILD=${index} LUM_TAG=${tag}
                                               LUM_BUILDING_LIBRARY)
  # The image code is reached through a C interface and never throws; without
  # unwinding tables for exceptions no build drags in the untagged, weak
  # personality reference the compiler emits for some parallel regions.
  target_compile_options(${target} PRIVATE -fno-exceptions ${ARGN})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}
                                               ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(${target} PRIVATE OpenMP::OpenMP_CXX)
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON
                                             CXX_VISIBILITY_PRESET hidden
                                             VISIBILITY_INLINES_HIDDEN ON)
  set_property(GLOBAL APPEND PROPERTY LUM_BUILD_TARGETS ${target})
endfunction()
