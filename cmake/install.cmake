# What a project that builds on the libraries needs: headers, a CMake package (korx::basic,
# korx::reader) and a pkg-config file for each library.
include(CMakePackageConfigHelpers)

install(DIRECTORY include/korx DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

# The prefix as seen from the pkg-config file itself, so that an installed tree can be moved.
file(RELATIVE_PATH PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
foreach(dir INCLUDEDIR LIBDIR)
    cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_${dir} BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE PC_${dir})
endforeach()

set(PC_DESCRIPTION_basic ${PROJECT_DESCRIPTION})
set(PC_DESCRIPTION_reader "Reads and empties the logs of korx_basic from outside")
foreach(name basic reader)
    set(PC_NAME korx_${name})
    set(PC_DESCRIPTION ${PC_DESCRIPTION_${name}})
    install(TARGETS ${PC_NAME} EXPORT korx_basic-targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    set_target_properties(${PC_NAME} PROPERTIES EXPORT_NAME ${name})
    configure_file(cmake/korx.pc.in ${PROJECT_BINARY_DIR}/${PC_NAME}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${PC_NAME}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/korx_basic)
install(EXPORT korx_basic-targets NAMESPACE korx:: DESTINATION ${package_dir})
configure_package_config_file(cmake/korx_basic-config.cmake.in
    ${PROJECT_BINARY_DIR}/korx_basic-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/korx_basic-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/korx_basic-config.cmake
    ${PROJECT_BINARY_DIR}/korx_basic-config-version.cmake
    DESTINATION ${package_dir})
