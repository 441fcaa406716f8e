# The installed package: both libraries, the public headers, and what find_package and pkg-config need.
include(CMakePackageConfigHelpers)

set(libraries kvcore)
if(TARGET kvplatform)
    list(APPEND libraries kvplatform)
endif()
install(
    TARGETS ${libraries}
    EXPORT kvcore
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

if(TARGET faultrep)
    install(TARGETS faultrep LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}) # loaded, and not linked
endif()

foreach(room core streams files frame config graphics)
    if(IS_DIRECTORY ${PROJECT_SOURCE_DIR}/${room})
        install(
            DIRECTORY ${PROJECT_SOURCE_DIR}/${room}
            DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kvcore
            FILES_MATCHING
            PATTERN "*.h"
            PATTERN "detail" EXCLUDE)
    endif()
endforeach()
install(
    DIRECTORY ${PROJECT_SOURCE_DIR}/platform
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kvcore
    FILES_MATCHING
    PATTERN "*.h"
    PATTERN "linux" EXCLUDE
    PATTERN "faultrep" EXCLUDE
    PATTERN "windows" EXCLUDE)

foreach(program kv storyboard)
    if(TARGET ${program})
        # The same path in the build folder and once installed: see kv_configure_library.
        set(program_rpath "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}" "$ORIGIN/../lib")
        list(REMOVE_DUPLICATES program_rpath)
        set_target_properties(
            ${program} PROPERTIES INSTALL_RPATH "${program_rpath}" BUILD_WITH_INSTALL_RPATH ${PROJECT_IS_TOP_LEVEL})
        install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    endif()
endforeach()
if(TARGET storyboard)
    # Where the program looks for its language file, if that is not beside it.
    install(FILES ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/storyboard_de.lng DESTINATION ${CMAKE_INSTALL_DATADIR}/storyboard)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kvcore)
install(
    EXPORT kvcore
    NAMESPACE kvcore::
    FILE kvcoreTargets.cmake
    DESTINATION ${package_dir})
configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/kvcoreConfig.cmake.in ${PROJECT_BINARY_DIR}/kvcoreConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kvcoreConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kvcoreConfig.cmake ${PROJECT_BINARY_DIR}/kvcoreConfigVersion.cmake
              ${CMAKE_CURRENT_LIST_DIR}/Resources.cmake
        DESTINATION ${package_dir})

# pkg-config: what a static link needs besides stands in Libs.private and Requires.private.
if(TARGET kvplatform)
    set(pc_libs "-lkvcore -lkvplatform")
    set(pc_requires_private "zlib icu-i18n icu-uc sqlite3 libxslt libxml-2.0 expat")
    set(pc_libs_private "-lstdc++")
else()
    set(pc_libs "-lkvcore")
    set(pc_requires_private "zlib")
    set(pc_libs_private "-lole32 -loleaut32 -luuid -lshell32 -lshlwapi -ladvapi32 -luser32 -lversion -lwinmm -lstdc++")
endif()
list(JOIN KVCORE_PUBLIC_OPTIONS " " pc_cflags)
# The prefix follows from where the file lies, so that a package may be installed, or moved, anywhere.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    set(pc_prefix "${CMAKE_INSTALL_PREFIX}")
else()
    file(RELATIVE_PATH pc_prefix "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
    string(PREPEND pc_prefix "\${pcfiledir}/")
    string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
endif()
if(NOT BUILD_SHARED_LIBS)
    string(APPEND pc_cflags " -DKVCORE_STATIC")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/kvcore.pc.in ${PROJECT_BINARY_DIR}/kvcore.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kvcore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
