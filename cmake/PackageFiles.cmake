# Run by CPack over the staged files of each Debian package, before it packs them: licence and list of
# changes where Debian wants them, manual pages compressed, no search path for libraries in programs.
set(packages_library ${CPACK_TALORA_LIBRARY_PACKAGE})
set(packages_development libtalora-dev)
set(packages_command talora)
set(packages_python python3-talora)

string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component library development command python)
    set(stage "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr")
    if(NOT EXISTS "${stage}")
        continue()
    endif()
    set(package "${packages_${component}}")
    set(folder "${stage}/share/doc/${package}")
    configure_file("${CPACK_TALORA_SOURCE}/cmake/debian-copyright" "${folder}/copyright" COPYONLY)
    file(WRITE "${folder}/changelog.Debian" "talora (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * Packaged from version ${CPACK_PACKAGE_VERSION}; what is new is in changelog.gz.

 -- ${CPACK_PACKAGE_CONTACT}  ${now}
")
    file(COPY_FILE "${CPACK_TALORA_SOURCE}/CHANGELOG.md" "${folder}/changelog")
    file(GLOB compressed "${folder}/changelog*" "${stage}/share/man/man1/*.1")
    foreach(file IN LISTS compressed)
        execute_process(COMMAND gzip -9nf "${file}" COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
    if(EXISTS "${stage}/share/zsh/site-functions")
        file(RENAME "${stage}/share/zsh/site-functions" "${stage}/share/zsh/vendor-completions")
    endif()
    file(GLOB_RECURSE programs "${stage}/bin/*" "${stage}/lib/python3/*.so")
    foreach(program IN LISTS programs)
        file(RPATH_REMOVE FILE "${program}")
    endforeach()
    file(GLOB_RECURSE files "${stage}/share/*" "${stage}/include/*")
    file(CHMOD ${files} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    # A library is no program, and Debian's are not executable.
    file(GLOB_RECURSE libraries "${stage}/lib/*.so*")
    foreach(library IN LISTS libraries)
        if(NOT IS_SYMLINK "${library}")
            file(CHMOD "${library}" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
        endif()
    endforeach()
endforeach()
