# Debian packages through CPack: liblum5, the runtime (the shared object and
# its SONAME link), and liblum-dev, what a program is built with (header,
# the development link liblum.so, lum.pc, the CMake package files). Both are
# i386 packages whatever the build machine's own architecture.
#   cpack --config build/release/CPackConfig.cmake
# Each package carries its own copyright file and changelog: Debian's policy
# wants them in every package, and lintian checks it.
set(LUM_DEB_RELEASE 1)
set(LUM_DEB_VERSION ${PROJECT_VERSION}-${LUM_DEB_RELEASE})
set(LUM_DEB_MAINTAINER "lum developers <lum-dev@example.org>")
set(LUM_DEB_RUNTIME liblum${PROJECT_VERSION_MAJOR})
set(LUM_DEB_DEV liblum-dev)

configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in
               ${PROJECT_BINARY_DIR}/debian/changelog.Debian @ONLY)
# -n: no name or time stamp in the compressed file, so equal sources give
# equal packages.
execute_process(COMMAND gzip -9nf ${PROJECT_BINARY_DIR}/debian/changelog.Debian
                RESULT_VARIABLE lum_gzip_result)
if(NOT lum_gzip_result EQUAL 0)
  message(FATAL_ERROR "lum: cannot compress the Debian changelog (gzip: ${lum_gzip_result})")
endif()
set(lum_components Runtime Development)
set(lum_packages ${LUM_DEB_RUNTIME} ${LUM_DEB_DEV})
foreach(component package IN ZIP_LISTS lum_components lum_packages)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright
                ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
          PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
          COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME lum)
set(CPACK_PACKAGE_VENDOR "the lum developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL Runtime Development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${LUM_DEB_RELEASE})
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE i386)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${LUM_DEB_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${LUM_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# Depends from the libraries liblum.so.5 links (the C library and the OpenMP
# runtime), and a shlibs file for the packages of programs built against it.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# The loader's cache is renewed through dpkg's ldconfig trigger, as Debian
# wants. CPack also writes maintainer scripts that call ldconfig themselves
# (lintian warns, harmlessly: the call is only redundant).
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
"image-processing primitives for 32-bit x86 - runtime
lum multiplies, divides and takes absolute differences of single-channel
8-bit, 16-bit and float images, and filters them with float kernels.
Every function is built once per instruction-set level, from plain x87
code to SSE4.1, and each call goes to the build selected for the processor.
.
This package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${LUM_DEB_DEV})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${LUM_DEB_RUNTIME} (= ${LUM_DEB_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
"image-processing primitives for 32-bit x86 - development files
lum multiplies, divides and takes absolute differences of single-channel
8-bit, 16-bit and float images, and filters them with float kernels.
Every function is built once per instruction-set level, from plain x87
code to SSE4.1, and each call goes to the build selected for the processor.
.
This package holds the C header, the pkg-config file and the CMake
package files.")

include(CPack)
