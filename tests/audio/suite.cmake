# Additions to the audio suite (included from tests/CMakeLists.txt with exe, suite, dir set):
# libsndfile reads back the WAV files the virtual speaker writes, as a user of --output would.
target_link_libraries(${exe} PRIVATE PkgConfig::SNDFILE)
