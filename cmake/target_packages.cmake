# A cross-build uses a package only when it was found for its target. find_package may find the
# build machine's copy (headers under /usr/include, Linux libraries): the cross compiler then
# reads glibc's headers or links Linux objects, and the whole build fails. So, when
# cross-compiling, a program that includes the package's headers and links its targets is built
# for the target first; the parts that need the package are left out if it does not build.
#
#   trdcomp_usable_for_target(<var> <code> <target>...)
#
# sets <var> (cached) to whether <code>, a translation unit with main(), builds for the target
# against the imported <target>s. Native builds take packages as found.
function(trdcomp_usable_for_target var code)
  if(NOT CMAKE_CROSSCOMPILING)
    set(${var} TRUE PARENT_SCOPE)
    return()
  endif()
  foreach(target IN LISTS ARGN)
    if(NOT TARGET ${target})
      set(${var} FALSE PARENT_SCOPE)
      return()
    endif()
  endforeach()
  if(DEFINED CACHE{${var}})
    return()
  endif()
  set(dir ${PROJECT_BINARY_DIR}/target-packages/${var})
  file(WRITE ${dir}/check.cpp "${code}\n")
  try_compile(usable ${dir}/build SOURCES ${dir}/check.cpp LINK_LIBRARIES ${ARGN}
    CXX_STANDARD 20 OUTPUT_VARIABLE output)
  file(WRITE ${dir}/output.txt "${output}")
  set(${var} ${usable} CACHE INTERNAL "${ARGN} build for the target")
endfunction()
