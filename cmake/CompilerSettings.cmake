# What every one of our targets is compiled with, as one interface target.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # Precompiled headers need the sloppiness; the base directory lets several checkouts share results.
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env
        CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
        "CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}" CCACHE_NOHASHDIR=1 ${ORV_CCACHE_COMPILER} "${CCACHE}")
endif()

add_library(OrvCompilerSettings INTERFACE)
target_compile_options(OrvCompilerSettings INTERFACE
    -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Woverloaded-virtual -Werror
    -fstack-protector-strong)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # A constructor's parameter may have the name of the field that it fills, as in clang's view.
    target_compile_options(OrvCompilerSettings INTERFACE -Wshadow=local)
    # g++ 12 reports variables of coroutine frames as maybe uninitialised, and dangling
    # pointers inside the standard library's own headers, where there are none.
    # and, once two coroutines share an inlined frame allocator, calls of the wrong deallocator.
    target_compile_options(OrvCompilerSettings INTERFACE
        -Wno-maybe-uninitialized -Wno-dangling-pointer -Wno-mismatched-new-delete)
    if(CMAKE_UNITY_BUILD)
        # In sources that are compiled together, every unnamed namespace seems to come from a header.
        target_compile_options(OrvCompilerSettings INTERFACE -Wno-subobject-linkage)
    endif()
elseif(NOT CMAKE_UNITY_BUILD)
    # Compiled together, one source's locals would hide its neighbour's constants.
    target_compile_options(OrvCompilerSettings INTERFACE -Wshadow)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # Otherwise a precompiled header differs with the time its sources were checked out, and ccache
    # could hand out one that clang then refuses as outdated.
    target_compile_options(OrvCompilerSettings INTERFACE "SHELL:-Xclang -fno-pch-timestamp")
endif()
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT ORV_SANITIZE)
    target_compile_options(OrvCompilerSettings INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()
if(ORV_SANITIZE)
    target_compile_options(OrvCompilerSettings INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
        # This one looks at memory through a pipe, and takes every object for a broken one while there
        # is no descriptor left for it, which is something we test.
        -fno-sanitize=vptr
        # Only clang knows such lists.
        "$<$<CXX_COMPILER_ID:Clang,AppleClang>:-fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/sanitizers.ignore>")
    target_link_options(OrvCompilerSettings INTERFACE -fsanitize=address,undefined)
    # A quarter of the time for programs of a hundred megabytes, the last of which one core links alone.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
        include(CheckLinkerFlag)
        check_linker_flag(CXX -fuse-ld=lld ORV_HAS_LLD)
        if(ORV_HAS_LLD)
            target_link_options(OrvCompilerSettings INTERFACE -fuse-ld=lld)
        endif()
    endif()
endif()
if(ORV_FUZZ)
    target_compile_options(OrvCompilerSettings INTERFACE -fsanitize=fuzzer-no-link)
endif()
