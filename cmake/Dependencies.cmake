# Third-party libraries, found once. Asio and Beast are compiled in one source of OrvPlatform
# instead of in every file that includes them.
find_package(Threads REQUIRED)
find_package(OpenSSL 3 REQUIRED)
set(smallCurl "")
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    execute_process(COMMAND "${PROJECT_SOURCE_DIR}/Tools/small-curl"
        OUTPUT_VARIABLE smallCurl OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endif()
if(smallCurl)
    find_package(CURL 7.87 REQUIRED CONFIG PATHS "${smallCurl}" NO_DEFAULT_PATH)
else()
    find_package(CURL 7.87 REQUIRED)
endif()
find_package(fmt 9 REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(Boost 1.81 REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(utf8proc REQUIRED IMPORTED_TARGET libutf8proc)

add_library(OrvDependencies INTERFACE)
target_link_libraries(OrvDependencies INTERFACE
    Threads::Threads OpenSSL::SSL OpenSSL::Crypto CURL::libcurl fmt::fmt
    nlohmann_json::nlohmann_json Boost::headers PkgConfig::utf8proc)
target_compile_definitions(OrvDependencies INTERFACE
    BOOST_ASIO_SEPARATE_COMPILATION BOOST_BEAST_SEPARATE_COMPILATION BOOST_ASIO_NO_DEPRECATED)

if(APPLE)
    foreach(framework CoreFoundation IOKit SystemConfiguration Security CFNetwork)
        find_library(${framework}_FRAMEWORK ${framework} REQUIRED)
        target_link_libraries(OrvDependencies INTERFACE "${${framework}_FRAMEWORK}")
    endforeach()
else()
    pkg_check_modules(plist REQUIRED IMPORTED_TARGET libplist-2.0)
    target_link_libraries(OrvDependencies INTERFACE PkgConfig::plist)
endif()
