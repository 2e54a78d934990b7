# Installation: the public headers, the library (shared with its SONAME links, or static, or
# both), a CMake package with a version file, and pkg-config files.
#   find_package(trdcomp 1.0 REQUIRED)        -> trdcomp::trdcomp (and trdcomp::trdcomp_static)
#   pkg-config --cflags --libs trdcomp        (trdcomp-static: the static library beside it)
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(TRDCOMP_INSTALL_TARGETS trdcomp)
if(TARGET trdcomp_static)
  list(APPEND TRDCOMP_INSTALL_TARGETS trdcomp_static)
endif()
install(TARGETS ${TRDCOMP_INSTALL_TARGETS} EXPORT trdcompTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Every header of include/ is public; nothing of src/ is.
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

set(TRDCOMP_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/trdcomp)
install(EXPORT trdcompTargets NAMESPACE trdcomp:: DESTINATION ${TRDCOMP_CMAKE_DIR})
configure_package_config_file(cmake/trdcompConfig.cmake.in
  ${PROJECT_BINARY_DIR}/trdcompConfig.cmake INSTALL_DESTINATION ${TRDCOMP_CMAKE_DIR})
# 1.x satisfies a request for 1.0; a 2.0 would not.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/trdcompConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/trdcompConfig.cmake
  ${PROJECT_BINARY_DIR}/trdcompConfigVersion.cmake DESTINATION ${TRDCOMP_CMAKE_DIR})

# pkg-config. A static library needs the C++ runtime when a C program links it, and
# TRDCOMP_STATIC on Windows.
set(TRDCOMP_PC_RUNTIME "")
foreach(lib IN LISTS CMAKE_CXX_IMPLICIT_LINK_LIBRARIES)
  if(lib MATCHES "^(stdc\\+\\+|c\\+\\+|c\\+\\+abi|m)$")
    string(APPEND TRDCOMP_PC_RUNTIME " -l${lib}")
  endif()
endforeach()
if(TRDCOMP_TYPE STREQUAL "STATIC_LIBRARY")
  set(TRDCOMP_PC_CFLAGS " -DTRDCOMP_STATIC")
  set(TRDCOMP_PC_LIBS_PRIVATE "${TRDCOMP_PC_RUNTIME}")
else()
  set(TRDCOMP_PC_CFLAGS "")
  set(TRDCOMP_PC_LIBS_PRIVATE "")
endif()
# Relative to the .pc file where the directories allow it, so that the tree can move
# (cmake --install --prefix).
set(TRDCOMP_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" AND NOT IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  file(RELATIVE_PATH up "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
  string(REGEX REPLACE "/$" "" up "${up}")
  set(TRDCOMP_PC_PREFIX "\${pcfiledir}/${up}")
endif()
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_LIBDIR BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE
  TRDCOMP_PC_LIBDIR)
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_INCLUDEDIR BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE
  TRDCOMP_PC_INCLUDEDIR)
set(TRDCOMP_PC_NAME trdcomp)
set(TRDCOMP_PC_LIBS "-L\${libdir} -ltrdcomp")
configure_file(cmake/trdcomp.pc.in ${PROJECT_BINARY_DIR}/trdcomp.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/trdcomp.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(TARGET trdcomp_static)
  set(TRDCOMP_PC_NAME trdcomp-static)
  set(TRDCOMP_PC_CFLAGS " -DTRDCOMP_STATIC")
  get_target_property(name trdcomp_static OUTPUT_NAME)
  set(TRDCOMP_PC_LIBS
    "\${libdir}/${CMAKE_STATIC_LIBRARY_PREFIX}${name}${CMAKE_STATIC_LIBRARY_SUFFIX}")
  set(TRDCOMP_PC_LIBS_PRIVATE "${TRDCOMP_PC_RUNTIME}")
  configure_file(cmake/trdcomp.pc.in ${PROJECT_BINARY_DIR}/trdcomp-static.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/trdcomp-static.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
