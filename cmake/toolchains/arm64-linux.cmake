# Builds for arm64 Linux and runs what was built under qemu. scripts/install-dependencies arm64 sets a machine up.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# libutils needs libbacktrace, which needs a plug-in of p7zip that the linker does not find.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,--allow-shlib-undefined)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -Wl,--allow-shlib-undefined)

# No -L: with the cross compiler's own folder as root, creating a thread hangs. The loader
# and the libraries are the installed ones.
get_filename_component(runtime ${CMAKE_CURRENT_LIST_DIR}/../../build/arm64-runtime ABSOLUTE)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -E LD_LIBRARY_PATH=${runtime})
