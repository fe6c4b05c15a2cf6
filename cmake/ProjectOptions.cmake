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

set(CINDRAL_LIBRARY_FLAGS "" CACHE STRING "More compiler flags for the library alone, for instance --coverage")
option(CINDRAL_EXPLORE "Make every access of what threads share without a lock a call of the simulation (sim/SharedCell.h)")
set(CINDRAL_SANITIZE "" CACHE STRING "Sanitizers for -fsanitize=, for instance address,undefined")

# For builds that compile cindral-replay and the harness of the campaigns only to have them tested: a few large
# pieces, little optimisation and only lines to debug by take a quarter of the time.
set(CINDRAL_TOOL_FLAGS "" CACHE STRING "Further compiler flags for cindral-replay and the campaigns' harness")
option(CINDRAL_UNITY_TOOLS "Compile cindral-replay in a few large pieces")

find_package(Threads REQUIRED)

add_library(cindral_flags_common INTERFACE)
target_compile_features(cindral_flags_common INTERFACE cxx_std_17)
target_compile_options(cindral_flags_common INTERFACE -Wall -Wextra -Werror -fno-omit-frame-pointer)
target_include_directories(cindral_flags_common INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(cindral_flags_common INTERFACE Threads::Threads)
if(CINDRAL_SANITIZE)
    # The sanitizers call dlopen in the program's place. Of the two kinds of run path, only the old one holds
    # for them as well.
    target_link_options(cindral_flags_common INTERFACE
        -fsanitize=${CINDRAL_SANITIZE} -Wl,--disable-new-dtags)
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
        -fsanitize-trap=signed-integer-overflow -Wthread-safety -Wthread-safety-beta)
else()
    target_compile_options(cindral_flags_shipping INTERFACE
        -fsanitize-undefined-trap-on-error -fno-gnu-unique)
endif()
if(CINDRAL_EXPLORE)
    target_compile_definitions(cindral_flags_common INTERFACE CINDRAL_EXPLORE)
endif()
if(CINDRAL_EXPLORE OR CINDRAL_SANITIZE STREQUAL "thread")
    target_compile_options(cindral_flags_shipping INTERFACE
        "SHELL:-include ${PROJECT_SOURCE_DIR}/sim/VisibleCounts.h")
endif()
if(CINDRAL_SANITIZE STREQUAL "thread")
    # It looks at the library alone; sim/Unseen.h says why. The platform's reference counts have a fence, of
    # which gcc warns that its thread sanitizer does not see it, even where the fence is not needed any more.
    target_compile_options(cindral_flags_shipping INTERFACE
        -fsanitize=thread $<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
elseif(CINDRAL_SANITIZE)
    target_compile_options(cindral_flags_common INTERFACE -fsanitize=${CINDRAL_SANITIZE} -fno-sanitize-recover=all)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        # One copy of the sanitizer, found behind the program's own definitions of the calls it intercepts. The
        # service's libraries have types of their own, so a call into them is never of the function's type.
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libclang_rt.asan-${CMAKE_SYSTEM_PROCESSOR}.so
            OUTPUT_VARIABLE sanitizer OUTPUT_STRIP_TRAILING_WHITESPACE)
        get_filename_component(sanitizer_folder "${sanitizer}" DIRECTORY)
        if(NOT sanitizer_folder)
            message(FATAL_ERROR "clang lacks its sanitizers' runtime: install libclang-rt-dev")
        endif()
        target_compile_options(cindral_flags_common INTERFACE -shared-libsan -fno-sanitize=function)
        target_link_options(cindral_flags_common INTERFACE -shared-libsan -Wl,-rpath,${sanitizer_folder})
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # Instrumented, gcc 12 takes members of the standard library's regular expressions for uninitialised.
        target_compile_options(cindral_flags_common INTERFACE -Wno-maybe-uninitialized)
    endif()
endif()
# The sanitizers want the types at run time and the code as it is written.
if(NOT CINDRAL_SANITIZE)
    # As a platform tree builds, and a tenth smaller: nothing here asks for a type at run time.
    target_compile_options(cindral_flags_shipping INTERFACE -fno-rtti)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # Inlines across the folders. Fat, because the component tests link the same objects as they are.
        # Code is generated when linking, so what it is generated by is said there again.
        target_compile_options(cindral_flags_shipping INTERFACE -flto=auto -ffat-lto-objects)
        target_link_options(cindral_flags_shipping INTERFACE
            -flto=auto -fno-gnu-unique -fsanitize=signed-integer-overflow -fsanitize-undefined-trap-on-error)
    endif()
endif()
