# Windows: the DLL is trdcomp.dll. Built with mingw-w64 it exports its C++ functions under their
# GNU names and, for programs built with MSVC, under their MSVC-decorated names too, and comes
# with an import library MSVC's linker reads (trdcomp.lib) beside the GNU one
# (libtrdcomp.dll.a). The toolchain file links the GCC runtime into it.
include(GNUInstallDirs)

# The installable static libraries get objects of their own, compiled without dllexport: a
# program or DLL that links one must not export the library's functions itself.
set(TRDCOMP_STATIC_TARGETS "")
if(TRDCOMP_TYPE STREQUAL "STATIC_LIBRARY")
  list(APPEND TRDCOMP_STATIC_TARGETS trdcomp)
endif()
if(TARGET trdcomp_static)
  list(APPEND TRDCOMP_STATIC_TARGETS trdcomp_static)
endif()
if(TRDCOMP_STATIC_TARGETS)
  get_target_property(sources trdcomp_objects SOURCES)
  add_library(trdcomp_static_objects OBJECT ${sources})
  target_include_directories(trdcomp_static_objects
    PUBLIC ${PROJECT_SOURCE_DIR}/include PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_compile_definitions(trdcomp_static_objects PRIVATE TRDCOMP_STATIC)
  set_target_properties(trdcomp_static_objects PROPERTIES CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_link_libraries(trdcomp_static_objects PRIVATE trdcomp_warnings)
  foreach(target IN LISTS TRDCOMP_STATIC_TARGETS)
    set_property(TARGET ${target} PROPERTY SOURCES $<TARGET_OBJECTS:trdcomp_static_objects>)
  endforeach()
endif()

if(NOT TRDCOMP_TYPE STREQUAL "SHARED_LIBRARY")
  return()
endif()
set_target_properties(trdcomp PROPERTIES PREFIX "")
if(NOT MINGW)
  return()  # an MSVC build has the decorated names already
endif()

option(TRDCOMP_MSVC_NAMES "Export the C++ functions under MSVC-decorated names too" ON)
if(NOT TRDCOMP_MSVC_NAMES)
  return()
endif()
find_program(TRDCOMP_CLANG NAMES clang++-14 clang++)
find_program(TRDCOMP_LLVM_OBJDUMP NAMES llvm-objdump-14 llvm-objdump)
find_program(TRDCOMP_LLVM_DLLTOOL NAMES llvm-dlltool-14 llvm-dlltool)
string(REGEX REPLACE "objcopy([^/]*)$" "c++filt\\1" TRDCOMP_CXXFILT_GUESS "${CMAKE_OBJCOPY}")
find_program(TRDCOMP_CXXFILT NAMES ${TRDCOMP_CXXFILT_GUESS} c++filt)
foreach(tool TRDCOMP_CLANG TRDCOMP_LLVM_OBJDUMP TRDCOMP_LLVM_DLLTOOL TRDCOMP_CXXFILT)
  if(NOT ${tool})
    message(FATAL_ERROR "The DLL's MSVC-decorated exports need clang, llvm (llvm-objdump, "
      "llvm-dlltool) and c++filt; ${tool} was not found. Install them (scripts/setup does), or "
      "configure with -DTRDCOMP_MSVC_NAMES=OFF for a DLL with GNU names only.")
  endif()
endforeach()

set(TRDCOMP_MSVC_DIR ${PROJECT_BINARY_DIR}/msvc)
file(GLOB TRDCOMP_PUBLIC_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h)
# clang, targeting MSVC, reads the public headers with the mingw compiler's standard headers.
set(TRDCOMP_MSVC_INCLUDES ${PROJECT_SOURCE_DIR}/include ${CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES})
list(JOIN TRDCOMP_MSVC_INCLUDES "|" includes)
list(JOIN TRDCOMP_PUBLIC_HEADERS "|" headers)
add_custom_command(
  OUTPUT ${TRDCOMP_MSVC_DIR}/aliases.def ${TRDCOMP_MSVC_DIR}/trdcomp.def
    ${TRDCOMP_MSVC_DIR}/msvc_special.obj
  COMMAND ${CMAKE_COMMAND} "-DOBJECTS=$<JOIN:$<TARGET_OBJECTS:trdcomp_objects>,|>"
    -DOBJCOPY=${CMAKE_OBJCOPY} -DCXXFILT=${TRDCOMP_CXXFILT} -DCLANG=${TRDCOMP_CLANG}
    -DOBJDUMP=${TRDCOMP_LLVM_OBJDUMP} "-DINCLUDES=${includes}" "-DHEADERS=${headers}"
    -DDLL=$<TARGET_FILE_NAME:trdcomp> -DWORK=${TRDCOMP_MSVC_DIR}
    -DDEF=${TRDCOMP_MSVC_DIR}/aliases.def -DIMPORT_DEF=${TRDCOMP_MSVC_DIR}/trdcomp.def
    -DSPECIAL_OBJ=${TRDCOMP_MSVC_DIR}/msvc_special.obj
    -P ${PROJECT_SOURCE_DIR}/cmake/msvc_aliases.cmake
  DEPENDS $<TARGET_OBJECTS:trdcomp_objects> ${PROJECT_SOURCE_DIR}/cmake/msvc_aliases.cmake
    ${TRDCOMP_PUBLIC_HEADERS}
  COMMENT "MSVC-decorated names of the exported functions, MSVC special members"
  VERBATIM)
# The MSVC special members and vtables are compiled by clang and linked into the DLL.
target_sources(trdcomp PRIVATE ${TRDCOMP_MSVC_DIR}/aliases.def ${TRDCOMP_MSVC_DIR}/msvc_special.obj)

# The import library for MSVC's linker: the decorated names and the C names.
set(TRDCOMP_MSVC_IMPLIB $<TARGET_LINKER_FILE_DIR:trdcomp>/trdcomp.lib)
add_custom_command(TARGET trdcomp POST_BUILD
  COMMAND ${TRDCOMP_LLVM_DLLTOOL} -m i386:x86-64 -d ${TRDCOMP_MSVC_DIR}/trdcomp.def
    -l ${TRDCOMP_MSVC_IMPLIB}
  VERBATIM)
install(FILES ${TRDCOMP_MSVC_IMPLIB} ${TRDCOMP_MSVC_DIR}/trdcomp.def
  DESTINATION ${CMAKE_INSTALL_LIBDIR})
