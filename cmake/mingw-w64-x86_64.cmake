# Cross-builds for 64-bit Windows with mingw-w64 (Debian: g++-mingw-w64-x86-64-posix). Programs
# built this way run on Linux under Wine, which ctest and the test discovery use as emulator.
#   cmake -S . -B build/windows --toolchain cmake/mingw-w64-x86_64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(TRDCOMP_MINGW_TRIPLE x86_64-w64-mingw32)

# The posix thread model gives std::thread and std::mutex; the win32 one lacks them in g++ 12.
find_program(CMAKE_CXX_COMPILER NAMES ${TRDCOMP_MINGW_TRIPLE}-g++-posix ${TRDCOMP_MINGW_TRIPLE}-g++
  REQUIRED)
find_program(CMAKE_C_COMPILER NAMES ${TRDCOMP_MINGW_TRIPLE}-gcc-posix ${TRDCOMP_MINGW_TRIPLE}-gcc)
find_program(CMAKE_RC_COMPILER NAMES ${TRDCOMP_MINGW_TRIPLE}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${TRDCOMP_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# The GCC runtime (libstdc++, libgcc, winpthread) is linked into every DLL and program, so they
# depend on system DLLs only and run where they are copied.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")

if(NOT DEFINED CMAKE_CROSSCOMPILING_EMULATOR)
  find_program(TRDCOMP_WINE NAMES wine64 wine PATHS /usr/lib/wine /usr/lib64/wine)
  if(TRDCOMP_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${TRDCOMP_WINE})
  endif()
endif()
