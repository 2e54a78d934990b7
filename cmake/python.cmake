# The Python module, installed beside the shared library into TRDCOMP_PYTHON_DIR (relative to the
# prefix; lib/python3/site-packages unless set). A generated trdcomp/_installed.py holds the
# library's path relative to the module, so that the module finds the library it was installed
# with, wherever the tree is moved, without pip or environment variables:
#   PYTHONPATH=<prefix>/lib/python3/site-packages python3 -c "import trdcomp"
if(WIN32 OR NOT TRDCOMP_TYPE STREQUAL "SHARED_LIBRARY")
  return()
endif()
option(TRDCOMP_PYTHON "Install the Python module beside the shared library" ON)
if(NOT TRDCOMP_PYTHON)
  return()
endif()
set(TRDCOMP_PYTHON_DIR lib/python3/site-packages CACHE STRING
  "Where the Python module is installed, relative to the prefix")
cmake_path(ABSOLUTE_PATH TRDCOMP_PYTHON_DIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}
  OUTPUT_VARIABLE python_dir)
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}
  OUTPUT_VARIABLE library_dir)
file(RELATIVE_PATH library_dir ${python_dir}/trdcomp ${library_dir})
file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/python/_installed.py CONTENT
  "# Generated at build time: the library installed with this module, relative to it.
LIBRARY = \"${library_dir}/$<TARGET_SONAME_FILE_NAME:trdcomp>\"
")
install(DIRECTORY python/trdcomp/ DESTINATION ${TRDCOMP_PYTHON_DIR}/trdcomp
  FILES_MATCHING PATTERN "*.py" PATTERN "__pycache__" EXCLUDE)
install(FILES ${PROJECT_BINARY_DIR}/python/_installed.py DESTINATION ${TRDCOMP_PYTHON_DIR}/trdcomp)
