# What a project that builds on the library needs: headers, a CMake package (korx::basic) and a
# pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS korx_basic EXPORT korx_basic-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
set_target_properties(korx_basic PROPERTIES EXPORT_NAME basic)
if(NOT TARGET korx_reader)
    set(without_reader PATTERN "reader.h" EXCLUDE)
endif()
install(DIRECTORY include/korx DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.h" ${without_reader})

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

# The prefix as seen from the file itself, so that an installed tree can be moved.
file(RELATIVE_PATH PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
foreach(dir INCLUDEDIR LIBDIR)
    cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_${dir} BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE PC_${dir})
endforeach()
configure_file(cmake/korx_basic.pc.in ${PROJECT_BINARY_DIR}/korx_basic.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/korx_basic.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
