# Manual pages and completion scripts, which the command itself writes.
#
# They can be written only where the command runs; a build for another machine goes without.
if(TARGET talora_command AND NOT CMAKE_CROSSCOMPILING)
    set(texts "${PROJECT_BINARY_DIR}/texts")
    add_custom_command(OUTPUT "${texts}/commands.md"
        COMMAND talora_command --manual "${texts}"
        DEPENDS talora_command
        COMMENT "Writing manual pages and completion scripts" VERBATIM)
    add_custom_target(talora_texts ALL DEPENDS "${texts}/commands.md")
    # Optional: who builds the command alone can still install it.
    install(DIRECTORY "${texts}/share/man/" DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT command OPTIONAL)
    # Shells look for what is installed by packages and by administrators in different folders.
    set(zsh_folder share/zsh/site-functions)
    if(CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND EXISTS /etc/debian_version)
        set(zsh_folder share/zsh/vendor-completions)
    endif()
    install(DIRECTORY "${texts}/share/zsh/vendor-completions/" DESTINATION ${zsh_folder}
        COMPONENT command OPTIONAL)
    install(DIRECTORY "${texts}/share/bash-completion" "${texts}/share/fish" DESTINATION share
        COMPONENT command OPTIONAL)
endif()
file(GLOB example_nets CONFIGURE_DEPENDS Examples/*.dne)
install(FILES ${example_nets} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/talora/examples COMPONENT command)
