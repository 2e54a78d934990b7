# Release packages, made by cpack in a build directory (scripts/release makes all of them):
#   Linux:   a .deb (library, headers, CMake and pkg-config files, the tool, the Python module)
#            and a .tar.gz of the same tree
#   Windows: a .zip: trdcomp.dll, its import libraries (trdcomp.lib for MSVC, libtrdcomp.dll.a for
#            mingw-w64), the headers, the module-definition file, the CMake and pkg-config files
# Each also holds README.md, LICENSE and CHANGELOG.md: beside the rest in the zip, under
# share/doc/trdcomp on Linux.
if(WIN32)
  set(TRDCOMP_DOC_DIR .)
else()
  set(TRDCOMP_DOC_DIR ${CMAKE_INSTALL_DOCDIR})
endif()
install(FILES README.md LICENSE CHANGELOG.md DESTINATION ${TRDCOMP_DOC_DIR})
if(NOT PROJECT_IS_TOP_LEVEL)
  return()  # a project that adds trdcomp as a subdirectory packages itself
endif()

set(CPACK_PACKAGE_NAME trdcomp)
set(CPACK_PACKAGE_VENDOR "the trdcomp authors")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Packs and restores the messages of a securities-trading API")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_RESOURCE_FILE_README ${PROJECT_SOURCE_DIR}/README.md)
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_STRIP_FILES ON)
set(CPACK_OUTPUT_FILE_PREFIX packages)
if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_SYSTEM_NAME win64)
else()
  set(CPACK_GENERATOR DEB TGZ)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_MAINTAINER "the trdcomp authors")
  set(CPACK_DEBIAN_PACKAGE_SECTION libs)
  # Dependencies from the binaries' own needs (dpkg-shlibdeps): the C and C++ runtimes.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_RECOMMENDS python3)
endif()
include(CPack)
