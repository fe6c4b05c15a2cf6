# Debian's own builds of the Android platform libraries, as target android_platform.
# They live in a folder of their own, which has to be named in the run path.
find_path(ANDROID_INCLUDE_DIR utils/LightRefBase.h PATHS /usr/include/android NO_DEFAULT_PATH)
foreach(lib utils cutils log)
    find_library(ANDROID_${lib}_LIBRARY ${lib}
        PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH)
    if(NOT ANDROID_INCLUDE_DIR OR NOT ANDROID_${lib}_LIBRARY)
        message(FATAL_ERROR "Android platform library lib${lib} not found: run scripts/install-dependencies")
    endif()
    list(APPEND ANDROID_PLATFORM_LIBRARIES ${ANDROID_${lib}_LIBRARY})
endforeach()
get_filename_component(ANDROID_LIBRARY_DIR ${ANDROID_utils_LIBRARY} DIRECTORY)

add_library(android_platform INTERFACE)
target_include_directories(android_platform SYSTEM INTERFACE ${ANDROID_INCLUDE_DIR})
# The packaged utils/StrongPointer.h uses fixed-width integers without including them.
target_compile_options(android_platform INTERFACE -include cstdint)
target_link_libraries(android_platform INTERFACE ${ANDROID_PLATFORM_LIBRARIES})
target_link_options(android_platform INTERFACE -Wl,-rpath,${ANDROID_LIBRARY_DIR} -Wl,-rpath-link,${ANDROID_LIBRARY_DIR})
