# Resources: strings, dialogs, pictures, version blocks, as resource scripts (.rc) describe them.
#
#   kvcore_add_resources(<target> <script> [DEPENDS <file>...] [INCLUDE_DIRECTORIES <folder>...] [DEFINITIONS <name>...])
#
# makes them part of a program or a shared library, on every target alike: on Windows where the system looks for them,
# elsewhere as a note of the ELF file, which survives stripping. FindResourceW, LoadStringW and their like find them
# there by the module's handle. May be called several times for a target.
#
#   kvcore_add_resource_library(<name> <script> [OUTPUT <file>] [DEPENDS ...] [INCLUDE_DIRECTORIES ...] [DEFINITIONS ...])
#
# makes a file of its own that holds nothing else, such as a language file: a Windows library without code, which loads
# on every target. OUTPUT is its whole path; without it, <name> in the folder of this build. The target builds with all.
#
# The script is preprocessed by the project's own compiler; the rest is done by windres and ld of MinGW's binutils. A
# header that it includes rebuilds it; pictures and other files that it names must stand in DEPENDS.

if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    set(_kvcore_resource_tools i686-w64-mingw32-)
else()
    set(_kvcore_resource_tools x86_64-w64-mingw32-)
endif()
find_program(KVCORE_WINDRES NAMES ${_kvcore_resource_tools}windres windres)
find_program(KVCORE_RESOURCE_LINKER NAMES ${_kvcore_resource_tools}ld)
mark_as_advanced(KVCORE_WINDRES KVCORE_RESOURCE_LINKER)

# _kvcore_compile_resources(<result> <name> <script> <format> ...): compiles into a file of the current binary folder.
function(_kvcore_compile_resources result name script format)
    cmake_parse_arguments(PARSE_ARGV 4 arg "" "OUTPUT" "DEPENDS;INCLUDE_DIRECTORIES;DEFINITIONS")
    if(NOT KVCORE_WINDRES)
        message(FATAL_ERROR "Resources need windres: install binutils-mingw-w64-x86-64")
    endif()
    cmake_path(ABSOLUTE_PATH script BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR} NORMALIZE OUTPUT_VARIABLE source)
    cmake_path(GET source PARENT_PATH folder)
    cmake_path(GET source STEM stem)
    if(format STREQUAL res)
        set(extension res)
    else()
        set(extension o)
    endif()
    set(output ${CMAKE_CURRENT_BINARY_DIR}/${name}.${stem}.${extension})
    set(options -I ${folder})
    foreach(include IN LISTS arg_INCLUDE_DIRECTORIES)
        list(APPEND options -I ${include})
    endforeach()
    foreach(definition IN LISTS arg_DEFINITIONS)
        list(APPEND options -D ${definition})
    endforeach()
    set(preprocessor --preprocessor=${CMAKE_CXX_COMPILER})
    foreach(argument -E -xc -DRC_INVOKED -MD -MF ${output}.d -MQ ${output})
        list(APPEND preprocessor --preprocessor-arg=${argument})
    endforeach()
    add_custom_command(
        OUTPUT ${output}
        COMMAND ${KVCORE_WINDRES} ${preprocessor} ${options} -J rc -O ${format} -o ${output} ${source}
        DEPENDS ${source} ${arg_DEPENDS}
        DEPFILE ${output}.d
        WORKING_DIRECTORY ${folder}
        COMMENT "Compiling resources ${stem}"
        VERBATIM)
    set(${result} ${output} PARENT_SCOPE)
endfunction()

function(kvcore_add_resources target script)
    get_target_property(type ${target} TYPE)
    if(NOT type MATCHES "^(EXECUTABLE|SHARED_LIBRARY|MODULE_LIBRARY)$")
        message(FATAL_ERROR "kvcore_add_resources: ${target} is no module: resources belong to programs and shared "
                            "libraries")
    endif()
    if(WIN32)
        _kvcore_compile_resources(object ${target} ${script} coff ${ARGN})
        set_source_files_properties(${object} PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
        target_sources(${target} PRIVATE ${object})
        return()
    endif()
    _kvcore_compile_resources(compiled ${target} ${script} res ${ARGN})
    # A note is name's size, content's size, kind, name, content, each part at a multiple of 4.
    set(source ${compiled}.cpp)
    file(
        CONFIGURE
        OUTPUT ${source}
        CONTENT [[
asm(".pushsection .note.kvcore.resources,\"a\",@note\n"
    ".balign 4\n"
    ".long 7, 2f - 1f, 1\n"
    ".asciz \"KVCore\"\n"
    ".balign 4\n"
    "1: .incbin \"@compiled@\"\n"
    "2: .balign 4\n"
    ".popsection\n");
]]
        @ONLY)
    set_source_files_properties(
        ${source} PROPERTIES OBJECT_DEPENDS ${compiled} GENERATED ON SKIP_PRECOMPILE_HEADERS ON SKIP_UNITY_BUILD_INCLUSION ON)
    target_sources(${target} PRIVATE ${source} ${compiled})
endfunction()

function(kvcore_add_resource_library name script)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "OUTPUT" "")
    if(NOT KVCORE_RESOURCE_LINKER)
        message(FATAL_ERROR "Resource libraries need MinGW's ld: install binutils-mingw-w64-x86-64")
    endif()
    _kvcore_compile_resources(object ${name} ${script} coff ${ARGN})
    set(output ${CMAKE_CURRENT_BINARY_DIR}/${name})
    if(arg_OUTPUT)
        set(output ${arg_OUTPUT})
    endif()
    add_custom_command(
        OUTPUT ${output}
        COMMAND ${KVCORE_RESOURCE_LINKER} -shared --entry 0 --no-insert-timestamp -o ${output} ${object}
        DEPENDS ${object}
        COMMENT "Linking resource library ${name}"
        VERBATIM)
    add_custom_target(${name} ALL DEPENDS ${output})
endfunction()
