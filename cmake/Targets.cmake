# What the project's targets share. Nothing here is global: a project that adds this tree keeps its own flags.

# <kvcore/core/String.h> names the same file in the tree and in an installed package: the tree is seen through a link.
set(KVCORE_INCLUDE_ROOT ${PROJECT_BINARY_DIR}/include)
file(MAKE_DIRECTORY ${KVCORE_INCLUDE_ROOT})
if(NOT EXISTS ${KVCORE_INCLUDE_ROOT}/kvcore)
    file(CREATE_LINK ${PROJECT_SOURCE_DIR} ${KVCORE_INCLUDE_ROOT}/kvcore SYMBOLIC)
endif()

if(PROJECT_IS_TOP_LEVEL)
    set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
    set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
    set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
endif()

# An instruction may throw; an access through a null pointer faults and is no promise; what only faults is kept.
set(KVCORE_PUBLIC_OPTIONS -fno-optimize-sibling-calls -fnon-call-exceptions -fno-delete-null-pointer-checks -fno-delete-dead-exceptions)

# kv_configure(<target>): language level, warnings as errors, sanitizers and visibility.
function(kv_configure target)
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Woverloaded-virtual -Werror)
    if(NOT WIN32)
        target_compile_options(${target} PRIVATE -fno-semantic-interposition)
    elseif(CMAKE_SIZEOF_VOID_P EQUAL 4)
        # Numbers come out as on the other targets only in the vector unit: the older unit computes with more digits. And
        # 32-bit Windows promises its callees no more than words on a word's boundary, where the vector unit wants more.
        target_compile_options(${target} PRIVATE -msse2 -mfpmath=sse -mpreferred-stack-boundary=2)
    endif()
    set_target_properties(
        ${target} PROPERTIES CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    if(KVCORE_SANITIZE)
        target_compile_options(
            ${target} PRIVATE -fsanitize=${KVCORE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1)
        target_link_options(${target} PRIVATE -fsanitize=${KVCORE_SANITIZE})
    endif()
    if(KVCORE_BUILD_FUZZERS)
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
endfunction()

# kv_precompile(<target> [<header>...]): reads these and what nearly every source includes once for all sources. That is
# half of the time of a build; every source still includes what it uses.
function(kv_precompile target)
    target_precompile_headers(
        ${target} PRIVATE <kvcore/platform/win32.h> <map> <memory> <mutex> <string> <vector> ${ARGN})
    if(WIN32) # whose headers claim names such as `byte` for themselves; the same sources are looked through elsewhere
        target_compile_options(${target} PRIVATE -Wno-shadow)
    endif()
endfunction()

# kv_compile_quickly(<target>): for programs whose own code is never what takes the time, other than the library's. What
# the address sanitizer puts into code is optimised longest and matters least there. The thread sanitizer's calls,
# unoptimised, stand where no exception may come from, which an exhausted stack's does.
function(kv_compile_quickly target)
    set(level -O1)
    if(KVCORE_SANITIZE MATCHES address)
        set(level -O0)
    endif()
    target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:${level}>)
    if(KVCORE_SANITIZE MATCHES undefined) # checks of every access, which the address sanitizer checks anyway
        target_compile_options(${target} PRIVATE -fno-sanitize=null,alignment,object-size,vptr)
    endif()
endfunction()

# kv_configure_library(<target>): the same for what is installed, which has no losing conversions unwritten.
function(kv_configure_library target)
    kv_configure(${target})
    target_compile_options(${target} PRIVATE -Wconversion)
    target_include_directories(
        ${target} PUBLIC $<BUILD_INTERFACE:${KVCORE_INCLUDE_ROOT}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_compile_definitions(${target} PRIVATE KVCORE_BUILD)
    # Hardware faults become exceptions only where the compiler expects them, and the log knows its caller by the
    # address to which a call returns, which a call by way of a jump would hide: in the users' code, too.
    foreach(option IN LISTS KVCORE_PUBLIC_OPTIONS)
        target_compile_options(${target} PUBLIC $<$<COMPILE_LANG_AND_ID:CXX,GNU>:${option}>)
    endforeach()
    if(NOT BUILD_SHARED_LIBS)
        target_compile_definitions(${target} PUBLIC KVCORE_STATIC)
    endif()
    # What one source of a library calls of another goes there directly, as it does on Windows.
    if(NOT WIN32)
        target_link_options(${target} PRIVATE LINKER:-Bsymbolic-functions)
    endif()
    # The libraries lie side by side, here and wherever they are installed, so the path is right from the start. One that
    # is changed at the installation is padded with colons until then, and to the system's loader those mean the current
    # directory: what lies there would run in place of the system's libraries.
    set_target_properties(
        ${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} POSITION_INDEPENDENT_CODE ON
                             INSTALL_RPATH "$ORIGIN" BUILD_WITH_INSTALL_RPATH ON)
    if(NOT CMAKE_LIBRARY_OUTPUT_DIRECTORY)
        set_target_properties(${target} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
    endif()
    add_library(kvcore::${target} ALIAS ${target})
endfunction()

# kv_add_version(<target> <description>): gives a library the project's version as a version block. A module without one
# has no product version, and no language file that has one is ever accepted for it. A static library has none of its own.
function(kv_add_version target description)
    get_target_property(type ${target} TYPE)
    if(NOT type STREQUAL SHARED_LIBRARY)
        return()
    endif()
    string(REPLACE "." "," numbers ${PROJECT_VERSION})
    string(APPEND numbers ",0")
    configure_file(${PROJECT_SOURCE_DIR}/cmake/Version.rc.in ${CMAKE_CURRENT_BINARY_DIR}/${target}Version.rc @ONLY)
    kvcore_add_resources(${target} ${CMAKE_CURRENT_BINARY_DIR}/${target}Version.rc)
endfunction()

# CLI11 is headers alone, so every target uses the host's copy, seen without the rest of the host's headers.
function(kv_use_cli11 target)
    if(CMAKE_CROSSCOMPILING)
        set(root ${PROJECT_BINARY_DIR}/cli11)
        if(NOT EXISTS ${root}/CLI)
            file(MAKE_DIRECTORY ${root})
            file(CREATE_LINK /usr/include/CLI ${root}/CLI SYMBOLIC)
        endif()
        target_include_directories(${target} SYSTEM PUBLIC ${root})
    else()
        find_package(CLI11 REQUIRED)
        target_link_libraries(${target} PUBLIC CLI11::CLI11)
    endif()
    kv_precompile(${target} <kvcore/core/String.h>) # CLI11 itself would cost more than it saves
    kv_compile_quickly(${target})
endfunction()
