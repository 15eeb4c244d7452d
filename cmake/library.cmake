# Packed relative relocations are two thousand bytes less in a file whose size is budgeted. They need a
# linker that makes them and a libc that takes them.
include(CheckCXXSourceCompiles)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    set(CMAKE_REQUIRED_LINK_OPTIONS -Wl,--fatal-warnings,-z,pack-relative-relocs)
    check_cxx_source_compiles("
        #include <features.h>
        #if !__GLIBC_PREREQ(2, 36)
        #error libc would not load it
        #endif
        int main() {}" KORX_PACKS_RELOCATIONS)
    unset(CMAKE_REQUIRED_LINK_OPTIONS)
endif()

# korx_library(<target> <source>...): a shared library with the exports.map beside its CMakeLists.txt
# and <target> without "korx_" as its name below korx::.
#
# C++ as a language, without its run-time library: nothing here throws, and --as-needed then leaves
# libstdc++ out of NEEDED.
function(korx_library target)
    set(exports ${CMAKE_CURRENT_SOURCE_DIR}/exports.map)
    string(REGEX REPLACE "^korx_" "korx::" alias ${target})
    add_library(${target} SHARED ${ARGN})
    add_library(${alias} ALIAS ${target})
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        C_VISIBILITY_PRESET hidden
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        LINK_DEPENDS ${exports})
    target_include_directories(${target}
        PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
            $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
        PRIVATE ${PROJECT_SOURCE_DIR}/src)
    target_compile_definitions(${target} PRIVATE _GNU_SOURCE)
    target_compile_options(${target} PRIVATE
        -fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-builtin-malloc
        -ffunction-sections -fdata-sections # what nobody calls is left out
        $<$<CXX_COMPILER_ID:GNU>:-Wlogical-op -Wduplicated-cond>)
    # Or libgcc would bring a static constructor that asks the processor for its atomics. Elsewhere a
    # call through the table of addresses is shorter than one with a stub: everything is bound early.
    if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
        target_compile_options(${target} PRIVATE -mno-outline-atomics)
    else()
        target_compile_options(${target} PRIVATE -fno-plt)
    endif()
    target_link_options(${target} PRIVATE
        -Wl,--version-script=${exports} -Wl,--as-needed -static-libgcc
        -Wl,-z,noseparate-code -Wl,--gc-sections
        $<$<BOOL:${KORX_PACKS_RELOCATIONS}>:-Wl,-z,pack-relative-relocs>)
    target_link_libraries(${target} PRIVATE korx_shipped korx_warnings)
endfunction()
