# The router's processor, with Debian's cross compiler and the libraries of its arm64 packages; what is built runs under
# qemu's user emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_OBJCOPY aarch64-linux-gnu-objcopy)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /usr/lib/x86_64-linux-gnu/cmake)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
