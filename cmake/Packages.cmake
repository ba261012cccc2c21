# Debian packages, made by CPack: libtalora6, libtalora-dev, talora and, with TALORA_PYTHON, python3-talora.
#
#     cmake --preset package && cmake --build --preset package --target package
#
# That preset's prefix, /usr, puts libraries where Debian wants them; packages made in another build folder
# work too.  cmake/PackageFiles.cmake mends what CPack leaves undone in the staged files.
set(TALORA_MAINTAINER "Talora developers <developers@talora.invalid>" CACHE STRING
    "Who answers for packages made here: NAME <ADDRESS>")
set(library_package libtalora${PROJECT_VERSION_MAJOR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME talora)
set(CPACK_PACKAGE_VENDOR "")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has one of its own
set(CPACK_PACKAGE_CONTACT "${TALORA_MAINTAINER}")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development)
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/PackageFiles.cmake")
# What the script needs to know.
set(CPACK_TALORA_SOURCE "${PROJECT_SOURCE_DIR}")
set(CPACK_TALORA_LIBRARY_PACKAGE ${library_package})

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

# The first line of a description says what the package is, the others what for.
set(about "A Bayesian belief network says how things depend on one another. Given what
has been observed, Talora says how probable everything else is then, exactly
and the same on every run. It learns the tables of networks from cases, tests
networks and simulates cases.")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/cmake/triggers")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "exact inference in Bayesian belief networks - library
${about}
.
This package has the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtalora-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "exact inference in Bayesian belief networks - development files
${about}
.
This package has the header, the CMake package and the pkg-config file.")

if(TARGET talora_command)
    list(APPEND CPACK_COMPONENTS_ALL command)
    set(CPACK_DEBIAN_COMMAND_PACKAGE_NAME talora)
    set(CPACK_DEBIAN_COMMAND_PACKAGE_SECTION math)
    set(CPACK_COMPONENT_COMMAND_DEPENDS library)
    set(CPACK_COMPONENT_COMMAND_DESCRIPTION "exact inference in Bayesian belief networks - command
${about}
.
This package has the command talora, its manual pages and some networks.")
endif()

if(TALORA_PYTHON)
    list(APPEND CPACK_COMPONENTS_ALL python)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-talora)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3, python3-numpy")
    if(DEFINED Python_VERSION_MINOR)  # the module is for this one only
        math(EXPR next_minor "${Python_VERSION_MINOR} + 1")
        string(CONCAT CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.${Python_VERSION_MINOR}), "
            "python3 (<< 3.${next_minor}), python3-numpy")
    endif()
    set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/cmake/python/postinst"
        "${PROJECT_SOURCE_DIR}/cmake/python/prerm")
    set(CPACK_COMPONENT_PYTHON_DEPENDS library)
    set(CPACK_COMPONENT_PYTHON_DESCRIPTION "exact inference in Bayesian belief networks - Python 3
${about}
.
This package has the Python module talora.")
endif()

include(CPack)
