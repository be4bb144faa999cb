# How everything in this project is compiled and linked.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # Clang counts sign conversions among -Wconversion, GCC does not in C++.
    add_compile_options(-Wno-sign-conversion -Wthread-safety -Wthread-safety-beta)
endif()

# Files and dates past 2 GiB and 2038 on 32-bit targets; _TIME_BITS is only accepted together with _FILE_OFFSET_BITS.
add_compile_definitions(_FILE_OFFSET_BITS=64)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    add_compile_definitions(_TIME_BITS=64)
endif()

if(KV_SANITIZE)
    # The module's entry is called through a type with the interface in place of the module's own class.
    set(kvSanitize -fsanitize=${KV_SANITIZE} -fno-sanitize=function)
    add_compile_options(${kvSanitize} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_compile_definitions(_GLIBCXX_ASSERTIONS)
    add_link_options(${kvSanitize})
endif()
if(KV_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

set(kvSharedObjectLinkOptions LINKER:-z,relro LINKER:-z,now)
if(NOT KV_SANITIZE) # what clang's instrumentation calls is in the program
    # A missing symbol is found when the shared object is linked, not when the gateway first calls it in the field.
    list(APPEND kvSharedObjectLinkOptions LINKER:-z,defs)
endif()
