# Additions to the host suite (included from tests/CMakeLists.txt with exe, suite, dir set).

# The suite runs the built host application as a separate process, as a user would; it links
# neither library itself, only libsndfile to read the WAV files the host writes.
set_property(TARGET ${exe} PROPERTY LINK_LIBRARIES GTest::gtest GTest::gtest_main PkgConfig::SNDFILE PkgConfig::FUSE3)
target_compile_definitions(${exe} PRIVATE ZQ_MONITOR_EXE="$<TARGET_FILE:zqmonitor>")
add_dependencies(${exe} zqmonitor)
# What it shares with the other suites, compiled in (none of it needs either library): the tone
# measurement, WAV files, and the bridge's hidraw node served through FUSE below a fake sysfs tree.
target_sources(${exe} PRIVATE ${CMAKE_SOURCE_DIR}/tests/support/tone_pitch.cpp
                              ${CMAKE_SOURCE_DIR}/tests/support/wav_file.cpp
                              ${CMAKE_SOURCE_DIR}/tests/support/bridge_chip.cpp
                              ${CMAKE_SOURCE_DIR}/tests/support/fuse_hidraw_folder.cpp
                              ${CMAKE_SOURCE_DIR}/tests/support/fake_usb_sysfs.cpp)
target_include_directories(${exe} PRIVATE ${CMAKE_SOURCE_DIR}/tests/support)
