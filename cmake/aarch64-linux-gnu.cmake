# Cross-compiling for 64-bit ARM Linux with Debian's g++-aarch64-linux-gnu. Libraries come from
# Debian's arm64 packages installed beside the host's (multiarch: libhwy-dev:arm64,
# libgtest-dev:arm64), which the cross compiler finds in /usr/include and
# /usr/lib/aarch64-linux-gnu by itself. Tests run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
# "max": every extension QEMU emulates, SVE and SVE2 included, so that each kernel target runs.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64;-cpu;max)
