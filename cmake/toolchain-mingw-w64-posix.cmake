# Cross toolchain: Debian 12 -> Windows x86-64, mingw-w64 with POSIX threads, everything static.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(_triple x86_64-w64-mingw32)
set(CMAKE_C_COMPILER   ${_triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${_triple}-g++-posix)
set(CMAKE_RC_COMPILER  ${_triple}-windres)
set(CMAKE_AR           ${_triple}-gcc-ar-posix     CACHE FILEPATH "")
set(CMAKE_RANLIB       ${_triple}-gcc-ranlib-posix CACHE FILEPATH "")

# Where scripts/windows-deps.sh installed.
if(NOT DEFINED MINGW_PREFIX)
  get_filename_component(MINGW_PREFIX "${CMAKE_CURRENT_LIST_DIR}/../build/windows-deps/prefix" ABSOLUTE)
endif()
set(MINGW_PREFIX "${MINGW_PREFIX}" CACHE PATH "prefix of the cross-built libraries")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MINGW_PREFIX)

# Only the prefix and the mingw sysroot are searched: nothing of /usr/include or /usr/lib.
set(CMAKE_FIND_ROOT_PATH ${MINGW_PREFIX} /usr/${_triple})
# Below each root directly: the prefix has no /usr.
set(CMAKE_PREFIX_PATH /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# A host pkg-config must not answer with Linux libraries.
set(ENV{PKG_CONFIG_LIBDIR} "${MINGW_PREFIX}/lib/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# Windows 10 API level; lean headers; no min/max macros.
foreach(_l C CXX)
  set(CMAKE_${_l}_FLAGS_INIT "-D_WIN32_WINNT=0x0A00 -DWINVER=0x0A00 -DNOMINMAX -DWIN32_LEAN_AND_MEAN")
endforeach()
# libgcc, libstdc++, winpthread: all inside the .exe.  No time stamp: the same sources give the same program.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -Wl,--no-insert-timestamp")

# ctest and gtest_discover_tests run the .exe through this.
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run.sh" CACHE FILEPATH "")
