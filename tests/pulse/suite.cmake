# Additions to the pulse suite (included from tests/CMakeLists.txt with exe, suite, dir set).
# Its tests need the private sound server that scripts/pulse-server starts: scripts/test runs
# them in a stage of their own (label "pulse"), one at a time, as they share that server.
pkg_check_modules(PULSE_TEST REQUIRED IMPORTED_TARGET libpulse libpulse-simple)
target_link_libraries(${exe} PRIVATE PkgConfig::PULSE_TEST)
target_compile_definitions(${exe} PRIVATE ZQ_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
# The no-server test runs the host application as a user would.
target_compile_definitions(${exe} PRIVATE ZQ_MONITOR_EXE="$<TARGET_FILE:zqmonitor>")
add_dependencies(${exe} zqmonitor)
