# Packages for a cross build, from what the distribution has for this machine: libraries that are headers only are the
# same for every processor, and GoogleTest's package of sources is built along. find_package looks here first.

set(kvHostHeaders ${CMAKE_BINARY_DIR}/host-headers)
set(kvGoogleTestSources /usr/src/googletest)

# Lets a headers-only library in through a directory that holds a link to it and nothing else: with /usr/include itself
# on its path, the cross compiler would take this machine's C library for the target's.
function(kv_add_headers target folder)
    if(TARGET ${target})
        return()
    endif()
    if(NOT EXISTS /usr/include/${folder})
        message(FATAL_ERROR "/usr/include/${folder} is missing: the distribution's package of ${target}")
    endif()
    file(MAKE_DIRECTORY ${kvHostHeaders})
    file(CREATE_LINK /usr/include/${folder} ${kvHostHeaders}/${folder} SYMBOLIC)
    add_library(${target} INTERFACE IMPORTED GLOBAL)
    set_target_properties(${target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${kvHostHeaders})
endfunction()

function(kv_add_googletest)
    if(TARGET gtest)
        return()
    endif()
    set(INSTALL_GTEST OFF)
    add_subdirectory(${kvGoogleTestSources} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
    # This project's warnings are not held against it, and it stays out of the directory of this project's programs.
    set_target_properties(gtest gtest_main gmock gmock_main PROPERTIES COMPILE_OPTIONS -w)
endfunction()

macro(kv_provide_package method package)
    if("${package}" STREQUAL "nlohmann_json")
        kv_add_headers(nlohmann_json::nlohmann_json nlohmann)
        set(${package}_FOUND TRUE)
    elseif("${package}" STREQUAL "RapidJSON")
        kv_add_headers(RapidJSON rapidjson)
        set(RAPIDJSON_INCLUDE_DIRS ${kvHostHeaders})
        set(${package}_FOUND TRUE)
    elseif("${package}" STREQUAL "CLI11")
        kv_add_headers(CLI11::CLI11 CLI)
        set(${package}_FOUND TRUE)
    elseif("${package}" STREQUAL "utf8cpp")
        kv_add_headers(utf8cpp utf8)
        set(${package}_FOUND TRUE)
    elseif("${package}" STREQUAL "GTest")
        kv_add_googletest()
        set(${package}_FOUND TRUE)
    endif()
endmacro()

cmake_language(SET_DEPENDENCY_PROVIDER kv_provide_package SUPPORTED_METHODS FIND_PACKAGE)
