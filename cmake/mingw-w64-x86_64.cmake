# Cross-compiling for 64-bit Windows with Debian's MinGW-w64, POSIX thread model (its C++
# library has std::thread and std::mutex, which the concurrency runtime's pieces use; GCC 12's
# win32 model has neither). Third-party libraries come from the prefix that scripts/windows-deps
# cross-builds from Debian's source packages (ZQ_WINDOWS_DEPS, default build/windows-deps/prefix);
# nothing of the Linux system's /usr is searched. Programs run under Wine (wine64).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_AR x86_64-w64-mingw32-gcc-ar-posix CACHE FILEPATH "")
set(CMAKE_RANLIB x86_64-w64-mingw32-gcc-ranlib-posix CACHE FILEPATH "")

if(NOT ZQ_WINDOWS_DEPS)
  if(DEFINED ENV{ZQ_WINDOWS_DEPS})
    set(ZQ_WINDOWS_DEPS "$ENV{ZQ_WINDOWS_DEPS}")
  else()
    get_filename_component(ZQ_WINDOWS_DEPS "${CMAKE_CURRENT_LIST_DIR}/../build/windows-deps/prefix" ABSOLUTE)
  endif()
endif()
# Try-compile projects see the toolchain file again, without the cache: hand the prefix on.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZQ_WINDOWS_DEPS)

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 "${ZQ_WINDOWS_DEPS}")
set(CMAKE_PREFIX_PATH "${ZQ_WINDOWS_DEPS}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# pkg-config finds the prefix's .pc files and nothing of the build machine's.
set(ENV{PKG_CONFIG_LIBDIR} "${ZQ_WINDOWS_DEPS}/lib/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")

# wine64 from Debian installs its loader here; there is no `wine` command without the wine package.
if(EXISTS /usr/lib/wine/wine64)
  set(CMAKE_CROSSCOMPILING_EMULATOR /usr/lib/wine/wine64)
else()
  set(CMAKE_CROSSCOMPILING_EMULATOR wine)
endif()
