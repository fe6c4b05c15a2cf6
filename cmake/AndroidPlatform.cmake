# The Android platform libraries, as target android_platform: on Android those of the sysroot, elsewhere
# Debian's own builds. Debian's live in a folder of their own, which has to be named in the run path; CMake
# does so in the build folder.
if(ANDROID)
    set(platform_include_dir /usr/include)
    set(platform_library_dirs /usr/lib/aarch64-linux-android /usr/lib/aarch64-linux-android/34)
else()
    set(platform_include_dir /usr/include/android)
    set(platform_library_dirs /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
endif()
find_path(ANDROID_INCLUDE_DIR utils/LightRefBase.h PATHS ${platform_include_dir} NO_DEFAULT_PATH)
foreach(lib utils cutils log)
    find_library(ANDROID_${lib}_LIBRARY ${lib} PATHS ${platform_library_dirs} NO_DEFAULT_PATH)
    if(NOT ANDROID_INCLUDE_DIR OR NOT ANDROID_${lib}_LIBRARY)
        message(FATAL_ERROR "Android platform library lib${lib} not found in ${platform_include_dir} and "
            "${platform_library_dirs}: run scripts/install-dependencies, or complete the sysroot")
    endif()
    list(APPEND ANDROID_PLATFORM_LIBRARIES ${ANDROID_${lib}_LIBRARY})
endforeach()

add_library(android_platform INTERFACE)
target_link_libraries(android_platform INTERFACE ${ANDROID_PLATFORM_LIBRARIES})
if(NOT ANDROID)
    target_include_directories(android_platform SYSTEM INTERFACE ${ANDROID_INCLUDE_DIR})
    # The packaged utils/StrongPointer.h uses fixed-width integers without including them. A precompiled
    # header is of use only as the first one; it includes them itself.
    target_compile_options(android_platform INTERFACE
        "$<$<NOT:$<BOOL:$<TARGET_PROPERTY:PRECOMPILE_HEADERS_REUSE_FROM>>>:SHELL:-include cstdint>")
    get_filename_component(ANDROID_LIBRARY_DIR ${ANDROID_utils_LIBRARY} DIRECTORY)
    # For the libraries that these need in turn.
    target_link_options(android_platform INTERFACE -Wl,-rpath-link,${ANDROID_LIBRARY_DIR})
endif()
