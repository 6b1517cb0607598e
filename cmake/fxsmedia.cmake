# Compile settings and the few functions with which every folder declares what it builds.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O2")
set(CMAKE_C_FLAGS_RELEASE "-O2")
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -g1")
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Release, MinSizeRel, RelWithDebInfo or Debug" FORCE)
endif()

set(FXSMEDIA_TIME_BITS 64 CACHE STRING "Bits of time_t where the C library leaves the choice (32-bit glibc)")
# 32-bit programs without large files don't see directory entries whose inode or offset needs more bits.
add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=${FXSMEDIA_TIME_BITS})

set(FXSMEDIA_SANITIZE "" CACHE STRING "Sanitizers to build everything with, e.g. address,undefined")

add_compile_options(-Wall -Wextra -Wshadow -Wconversion -Wundef -Wcast-align)
# A designated initialiser names what differs from the default.
add_compile_options(-Wno-missing-field-initializers)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # The strings that share a block are linked in a ring, local variables among them; each unlinks itself when it
    # dies, which the compiler cannot see.
    add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-dangling-pointer>)
endif()
add_compile_options(-ffunction-sections -fdata-sections)
add_link_options(-Wl,--gc-sections)
if(FXSMEDIA_SANITIZE)
    add_compile_options(-fsanitize=${FXSMEDIA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${FXSMEDIA_SANITIZE})
endif()

include(harden)

# The product's own code needs no C++ runtime library: no exceptions, no RTTI, no guarded statics.
set(FXS_PRODUCT_OPTIONS -fno-exceptions -fno-rtti -fno-threadsafe-statics)

# fxs_library(<target> <source>...): a static library of the process.
function(fxs_library target)
    add_library(${target} STATIC ${ARGN})
    target_include_directories(${target} PUBLIC ${CMAKE_SOURCE_DIR})
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:${FXS_PRODUCT_OPTIONS}>)
    fxs_harden(${target})
endfunction()

# Tools and tests are built as one unit each: the headers that they share cost most of the time. Under the sanitizers
# and where FXSMEDIA_QUICK asks for it they are hardly optimised; what is under test keeps its optimisation.
function(fxs_build_quickly target)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
    if(FXSMEDIA_QUICK)
        # At low levels GCC takes an array in an object for the array's first member.
        target_compile_options(${target} PRIVATE -O${FXSMEDIA_QUICK} $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow>)
    elseif(FXSMEDIA_SANITIZE)
        target_compile_options(${target} PRIVATE -O0)
    endif()
endfunction()

# fxs_tool_library(<target> <source>...): a static library of a tool, free to use the standard library.
function(fxs_tool_library target)
    add_library(${target} STATIC ${ARGN})
    target_include_directories(${target} PUBLIC ${CMAKE_SOURCE_DIR})
    fxs_build_quickly(${target})
endfunction()

# fxs_tool(<target> <source>...): a program that lands beside the process in the top of the build folder. Its --version
# is that of the project.
function(fxs_tool target)
    add_executable(${target} ${ARGN})
    target_include_directories(${target} PRIVATE ${CMAKE_SOURCE_DIR})
    target_compile_definitions(${target} PRIVATE FXSMEDIA_VERSION="${PROJECT_VERSION}")
    set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
    fxs_build_quickly(${target})
endfunction()

# What was asked for and is not here ends the configuration with what to install.
function(fxs_missing what package)
    file(RELATIVE_PATH folder ${CMAKE_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
    message(FATAL_ERROR "${folder} needs ${what}, which is not here: install ${package} (the name of Debian's package).")
endfunction()

# fxs_find_package(<package> <Debian package>): what find_package() knows, where cmake/third_party has not got it.
macro(fxs_find_package package debian)
    if(NOT TARGET ${package}::${package})
        find_package(${package} QUIET)
        if(NOT ${package}_FOUND)
            fxs_missing(${package} ${debian})
        endif()
    endif()
endmacro()

# fxs_find_module(<PREFIX> <Debian package> <module>...): what pkg-config knows, as PkgConfig::<PREFIX>.
macro(fxs_find_module prefix debian)
    if(NOT TARGET PkgConfig::${prefix})
        fxs_find_package(PkgConfig pkg-config)
        pkg_check_modules(${prefix} QUIET IMPORTED_TARGET ${ARGN})
        if(NOT ${prefix}_FOUND)
            fxs_missing("${ARGN}" ${debian})
        endif()
    endif()
endmacro()

# fxs_find_oracle(<PREFIX> <Debian package> <module>...): the same for a library of this machine that tests compare with.
macro(fxs_find_oracle)
    if(FXSMEDIA_ORACLES)
        fxs_find_module(${ARGV})
    endif()
endmacro()

# fxs_computes(<test>...), fxs_waits(<test>...): what ctest -j counts are thirds of a processor, -j6 for two processors: a
# test that computes takes three, one that mostly waits for real time takes one and begins early.
function(fxs_computes)
    set_tests_properties(${ARGN} PROPERTIES PROCESSORS 3)
endfunction()
function(fxs_waits)
    set_tests_properties(${ARGN} PROPERTIES PROCESSORS 1 COST 60)
endfunction()

# fxs_test(<name> SOURCES <source>... LIBRARIES <library>... [ORACLES <library>...] [WAITS] [SHARDS <n>]): a GoogleTest
# program, run by ctest under its name. One with oracles exists only where FXSMEDIA_ORACLES is on. WAITS: it mostly waits for
# real time (fxs_waits). SHARDS: its cases are divided among so many tests, <name>_0 and on.
function(fxs_test name)
    cmake_parse_arguments(TEST "WAITS" "TIMEOUT;SHARDS" "SOURCES;LIBRARIES;ORACLES" ${ARGN})
    if(TEST_ORACLES AND NOT FXSMEDIA_ORACLES)
        message(STATUS "Left out, needs ${TEST_ORACLES}: ${name}")
        return()
    endif()
    add_executable(${name} ${TEST_SOURCES})
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
    target_link_libraries(${name} PRIVATE ${TEST_LIBRARIES} ${TEST_ORACLES} GTest::gtest GTest::gtest_main)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    fxs_build_quickly(${name})
    if(NOT TEST_TIMEOUT)
        set(TEST_TIMEOUT $<IF:$<BOOL:${CMAKE_CROSSCOMPILING_EMULATOR}>,1200,300>)
    endif()
    if(NOT TEST_SHARDS)
        set(TEST_SHARDS 1)
    endif()
    math(EXPR last "${TEST_SHARDS} - 1")
    foreach(shard RANGE ${last})
        set(test ${name})
        if(last)
            set(test ${name}_${shard})
        endif()
        add_test(NAME ${test} COMMAND ${name})
        set_tests_properties(${test} PROPERTIES
            TIMEOUT ${TEST_TIMEOUT} ENVIRONMENT "GTEST_TOTAL_SHARDS=${TEST_SHARDS};GTEST_SHARD_INDEX=${shard}")
        if(TEST_WAITS)
            fxs_waits(${test})
        else()
            fxs_computes(${test})
        endif()
    endforeach()
endfunction()
