# Compiler settings, as two interface targets:
#   cindral_flags_common    everything that is compiled here
#   cindral_flags_shipping  the library that ships, on top of the common ones
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()

set(CINDRAL_SANITIZE "" CACHE STRING "Sanitizers for -fsanitize=, for instance address,undefined")

# For builds whose tools need not be fast.
set(CINDRAL_LIBRARY_FLAGS "" CACHE STRING "Further compiler flags for the library that ships")

find_package(Threads REQUIRED)

add_library(cindral_flags_common INTERFACE)
target_compile_features(cindral_flags_common INTERFACE cxx_std_17)
target_compile_options(cindral_flags_common INTERFACE -Wall -Wextra -Werror -fno-omit-frame-pointer)
target_include_directories(cindral_flags_common INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(cindral_flags_common INTERFACE Threads::Threads)
if(CINDRAL_SANITIZE)
    target_compile_options(cindral_flags_common INTERFACE -fsanitize=${CINDRAL_SANITIZE} -fno-sanitize-recover=all)
    # The sanitizers call dlopen in the program's place. Of the two kinds of run path, only the old one holds
    # for them as well.
    target_link_options(cindral_flags_common INTERFACE
        -fsanitize=${CINDRAL_SANITIZE} -Wl,--disable-new-dtags)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # Instrumented, gcc 12 takes members of the standard library's regular expressions for uninitialised.
        target_compile_options(cindral_flags_common INTERFACE -Wno-maybe-uninitialized)
    endif()
endif()

# Signed overflow traps in every build type: time arithmetic that leaves its range must not go on.
# Bounds and rate classes come out equal on every processor, so products and sums are rounded one by one.
# dlclose must really unmap the library, so nothing may be emitted as a unique symbol.
add_library(cindral_flags_shipping INTERFACE)
target_link_libraries(cindral_flags_shipping INTERFACE cindral_flags_common)
target_compile_options(cindral_flags_shipping INTERFACE
    -fvisibility=hidden -fvisibility-inlines-hidden -fexceptions -ffp-contract=off
    -fsanitize=signed-integer-overflow ${CINDRAL_LIBRARY_FLAGS})
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(cindral_flags_shipping INTERFACE
        -fsanitize-trap=signed-integer-overflow -Wthread-safety)
else()
    target_compile_options(cindral_flags_shipping INTERFACE
        -fsanitize-undefined-trap-on-error -fno-gnu-unique)
endif()
