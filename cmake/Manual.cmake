# The target "reference" writes the pages of the manual that are derived from the code, "manual" makes all
# of it into HTML (Debian: python3-sphinx, python3-myst-parser).
find_package(Python3 COMPONENTS Interpreter QUIET)
if(Python3_FOUND AND TARGET talora_command)
    add_custom_target(reference
        COMMAND Python3::Interpreter "${PROJECT_SOURCE_DIR}/Scripts/make-reference.py" $<TARGET_FILE:talora_command>
        COMMAND Python3::Interpreter "${PROJECT_SOURCE_DIR}/Scripts/list-messages.py"
        COMMENT "Writing the reference" VERBATIM)
    add_dependencies(reference talora_command)
endif()
find_program(SPHINX_BUILD sphinx-build)
mark_as_advanced(SPHINX_BUILD)
if(SPHINX_BUILD)
    add_custom_target(manual
        COMMAND "${SPHINX_BUILD}" -q -W --keep-going -b html "${PROJECT_SOURCE_DIR}/Docs" "${PROJECT_BINARY_DIR}/manual"
                -d "${PROJECT_BINARY_DIR}/manual-doctrees"
        COMMENT "Making the manual: ${PROJECT_BINARY_DIR}/manual/index.html" VERBATIM)
    install(DIRECTORY "${PROJECT_BINARY_DIR}/manual/" DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/talora/html OPTIONAL
        COMPONENT manual EXCLUDE_FROM_ALL)
else()
    add_custom_target(manual
        COMMAND ${CMAKE_COMMAND} -E echo "The manual in HTML needs Sphinx and a parser for Markdown: apt-get install python3-sphinx python3-myst-parser"
        COMMAND ${CMAKE_COMMAND} -E false VERBATIM)
endif()
