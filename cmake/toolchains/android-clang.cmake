# Builds the library for Android 14 with an unmodified clang:
#   cmake -S . -B build/android -G Ninja --toolchain cmake/toolchains/android-clang.cmake \
#       -DANDROID_SYSROOT=<folder>
# The folder holds usr/include with the headers of bionic, libutils, libcutils and liblog,
# usr/include/c++/v1 with those of libc++, and usr/lib/aarch64-linux-android[/34] with the libraries.
# Without a clang of the platform, name the folder of its runtime (lib/clang/<version>) in
# ANDROID_CLANG_RESOURCES.
set(CMAKE_SYSTEM_NAME Android)
# CMake's word for: this file knows how to build, look for no NDK.
set(CMAKE_SYSTEM_VERSION 1)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ANDROID_SYSROOT ANDROID_CLANG_RESOURCES)
if(NOT IS_DIRECTORY "${ANDROID_SYSROOT}/usr/include")
    message(FATAL_ERROR "ANDROID_SYSROOT=\"${ANDROID_SYSROOT}\" has no folder usr/include")
endif()
set(CMAKE_SYSROOT ${ANDROID_SYSROOT})
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-android)

set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-android34)
set(CMAKE_CXX_FLAGS_INIT -stdlib=libc++)
if(ANDROID_CLANG_RESOURCES)
    string(APPEND CMAKE_CXX_FLAGS_INIT " -resource-dir ${ANDROID_CLANG_RESOURCES}")
endif()
set(CMAKE_SHARED_LINKER_FLAGS_INIT -fuse-ld=lld)
set(CMAKE_EXE_LINKER_FLAGS_INIT -fuse-ld=lld)
# The sysroot need not hold what only programs need.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
