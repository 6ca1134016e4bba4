# Additions to the host suite (included from tests/CMakeLists.txt with exe, suite, dir set).

# The suite runs the built host application as a separate process, as a user would; it links
# neither library itself, only libsndfile to read the WAV files the host writes.
set_property(TARGET ${exe} PROPERTY LINK_LIBRARIES GTest::gtest GTest::gtest_main PkgConfig::SNDFILE)
target_compile_definitions(${exe} PRIVATE ZQ_MONITOR_EXE="$<TARGET_FILE:zqmonitor>")
add_dependencies(${exe} zqmonitor)
# The tone measurement it shares with the other suites, compiled in (it needs neither library).
target_sources(${exe} PRIVATE ${CMAKE_SOURCE_DIR}/tests/support/tone_pitch.cpp)
target_include_directories(${exe} PRIVATE ${CMAKE_SOURCE_DIR}/tests/support)
