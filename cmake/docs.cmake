# What explains the libraries. The manual pages of section 5 and the guide are written by hand; the
# reference, as HTML and as manual pages of section 3, is made from the comments of the headers.
option(KORX_DOCS "Build the reference and the guide's examples (needs Doxygen and Python)" OFF)

file(GLOB format_pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/man/*.5)
install(FILES ${format_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
install(FILES CHANGELOG.md docs/guide.md docs/reliability.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY examples/guide DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

if(KORX_DOCS)
    find_package(Doxygen REQUIRED)
    find_package(Python3 REQUIRED COMPONENTS Interpreter)
    set(reference ${PROJECT_BINARY_DIR}/docs)
    file(GLOB public_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/korx/*.h)
    file(WRITE ${reference}/Doxyfile
        "@INCLUDE = docs/Doxyfile\nPROJECT_NUMBER = ${PROJECT_VERSION}\nOUTPUT_DIRECTORY = ${reference}\n")
    add_custom_command(OUTPUT ${reference}/made
        COMMAND ${CMAKE_COMMAND} -E rm -rf ${reference}/html ${reference}/xml
        COMMAND Doxygen::doxygen ${reference}/Doxyfile
        COMMAND Python3::Interpreter docs/manual.py
            ${reference}/xml ${PROJECT_VERSION} ${reference}/man3
        COMMAND ${CMAKE_COMMAND} -E touch ${reference}/made
        DEPENDS ${public_headers} docs/Doxyfile docs/mainpage.dox docs/manual.py
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
        COMMENT "Making the reference" VERBATIM)
    add_custom_target(reference ALL DEPENDS ${reference}/made)
    install(DIRECTORY ${reference}/man3 DESTINATION ${CMAKE_INSTALL_MANDIR})
    install(DIRECTORY ${reference}/html DESTINATION ${CMAKE_INSTALL_DOCDIR})
    add_subdirectory(examples/guide)

    # What the pages of section 5 are compared with.
    add_executable(format_facts ${PROJECT_SOURCE_DIR}/docs/facts.cpp)
    target_include_directories(format_facts PRIVATE ${PROJECT_SOURCE_DIR}/src
        ${PROJECT_SOURCE_DIR}/include)
    target_link_libraries(format_facts PRIVATE korx_warnings)
endif()
