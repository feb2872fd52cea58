# Cross build for arm64 macOS on Debian, without Apple's SDK. On a Mac the ordinary compiler serves.
# MACOS_PREFIX may name a prefix with cross-built libraries; without it, everything is compiled and
# linked against stubs made here, which is the check that `cmake --preset macos-check` stands for.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(CMAKE_SYSTEM_VERSION 22)  # Darwin 22 is macOS 13
get_filename_component(here "${CMAKE_CURRENT_LIST_DIR}" ABSOLUTE)
get_filename_component(root "${here}/../.." ABSOLUTE)
set(frameworks "${root}/build/macos-frameworks")

set(CMAKE_C_COMPILER "${here}/bin/macos-cc")
set(CMAKE_AR "${here}/bin/macos-ar" CACHE FILEPATH "")
set(CMAKE_RANLIB "${here}/bin/macos-ranlib" CACHE FILEPATH "")
find_program(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool-19)  # CMake insists on it for Darwin

# ccache cannot tell what hides behind a wrapper: these two files say which compiler and how called.
file(SHA256 "${here}/zig-path" zig_version)
file(SHA256 "${here}/bin/macos-tool" wrapper)
set(ORV_CCACHE_COMPILER CCACHE_COMPILERTYPE=clang "CCACHE_COMPILERCHECK=string:${zig_version}${wrapper}")

# No SDK to look up with xcrun; the compiler wrapper's target decides architecture and oldest system.
set(CMAKE_OSX_SYSROOT "" CACHE STRING "" FORCE)
set(CMAKE_OSX_ARCHITECTURES "" CACHE STRING "" FORCE)
set(CMAKE_OSX_DEPLOYMENT_TARGET "" CACHE STRING "" FORCE)

if(NOT MACOS_PREFIX)
    set(MACOS_PREFIX "${root}/build/macos-prefix")
endif()
if(MACOS_PREFIX STREQUAL "${root}/build/macos-prefix")
    set(CMAKE_CXX_COMPILER "${here}/bin/macos-check-c++")
else()
    set(CMAKE_CXX_COMPILER "${here}/bin/macos-c++")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MACOS_PREFIX)

get_property(in_try_compile GLOBAL PROPERTY IN_TRY_COMPILE)
if(NOT in_try_compile AND NOT macos_stubs_made)
    set(macos_stubs_made ON)  # CMake reads this file several times in one configuration
    file(GLOB stubs CONFIGURE_DEPENDS "${here}/frameworks/*/*.h")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
        ${stubs} "${here}/make-frameworks" "${here}/make-check-prefix" "${here}/tbd.sh")
    execute_process(COMMAND "${here}/make-frameworks" "${frameworks}" COMMAND_ERROR_IS_FATAL ANY)
    if(MACOS_PREFIX STREQUAL "${root}/build/macos-prefix")
        execute_process(COMMAND "${here}/make-check-prefix" "${MACOS_PREFIX}" COMMAND_ERROR_IS_FATAL ANY)
    endif()
endif()

# Packages are looked up in the prefix only, never in /usr.
set(CMAKE_FIND_ROOT_PATH "${MACOS_PREFIX}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_PREFIX_PATH /)
list(APPEND CMAKE_FIND_ROOT_PATH "${frameworks}")
set(CMAKE_FRAMEWORK_PATH "${frameworks}")
set(ENV{PKG_CONFIG_LIBDIR} "${MACOS_PREFIX}/lib/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")
