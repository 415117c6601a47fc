# Callers may enter with a stack aligned to 4 bytes only: the SSE builds
# realign where they need to (clang has no way to state the incoming
# alignment and realigns in every function instead).
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  set(LUM_REALIGN_STACK -mstackrealign)
else()
  set(LUM_REALIGN_STACK -mincoming-stack-boundary=2)
endif()

# lum_add_build(<tag> <index> <flags>...)
#
# Compiles the shared image sources (LUM_IMAGE_SOURCES) once more, as object
# library lum_<tag>, for one instruction-set level: LUM_BUILD=<index> and
# LUM_TAG=<tag> select what differs, <flags> give the level's instruction set.
function(lum_add_build tag index)
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
