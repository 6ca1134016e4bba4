# The Windows build (cmake/mingw-w64-x86_64.cmake): what every target compiles with, and how
# the two DLLs are made.
#
# The MinGW runtime (libstdc++, libgcc, winpthread) is linked statically into each DLL and
# program: zqCoreAudio.dll and zqplatform.dll then import only Windows system DLLs (and
# zqCoreAudio.dll its zqplatform.dll), so a host ships two files, and no other libstdc++-6.dll
# that a host or another plug-in carries can stand in for the one the DLL was built against.
# Memory crosses the DLL boundary safely (std::wstring in CStringW, device records) because
# every copy of the runtime allocates from the same C runtime's heap (msvcrt.dll).
add_compile_definitions(UNICODE _UNICODE NOMINMAX _WIN32_WINNT=0x0601)
add_link_options(-static)
# The DLLs and programs in one folder, as they are shipped: the loader finds the DLLs beside the
# program that needs them.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

# name.dll with the import library libname.dll.a, as a MinGW-w64 host links it (-lname); the
# Windows DLLs the system's code calls.
function(zq_windows_library target)
  set_target_properties(${target} PROPERTIES PREFIX "" IMPORT_PREFIX "lib")
  target_sources(${target} PRIVATE $<TARGET_OBJECTS:zq_windows_guids>)
  target_link_libraries(${target} PRIVATE ole32 avrt user32 advapi32 uuid ksguid)
endfunction()
