# The packages that CPack builds for Linux: Debian packages, one for each component that has content, and a TGZ of everything.
# packaging/make-packages calls CPack with the folders that each kind needs.
set(CPACK_PACKAGE_NAME libmarvo)
set(CPACK_PACKAGE_VENDOR "the maintainers of libmarvo")
set(CPACK_PACKAGE_CONTACT "the maintainers of libmarvo <maintainers@libmarvo.invalid>")
set(CPACK_PACKAGE_FILE_NAME libmarvo-${PROJECT_VERSION}-linux-x86_64)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each component has its own
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/finish-staging.cmake)
# Read by that script.
set(CPACK_MARVO_SOURCE_DIR ${PROJECT_SOURCE_DIR})
set(CPACK_MARVO_DOC_DIR share/doc/marvo)
if(TARGET marvo_tool)
    execute_process(COMMAND ${PROJECT_SOURCE_DIR}/packaging/bundled-versions ${CMAKE_CXX_COMPILER} cli11 nlohmann-json
        OUTPUT_VARIABLE CPACK_MARVO_BUNDLED OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    string(REPLACE "\n" ";" CPACK_MARVO_BUNDLED "${CPACK_MARVO_BUNDLED}")
endif()

# The notices are not a package: Debian's packages have them in their file "copyright".
get_cmake_property(components COMPONENTS)
set(CPACK_COMPONENTS_ALL runtime development tools documents)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    if(NOT component IN_LIST components)
        list(REMOVE_ITEM CPACK_COMPONENTS_ALL ${component})
    endif()
endforeach()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(debian ${PROJECT_SOURCE_DIR}/packaging/debian)
set(library_package libmarvo-${PROJECT_VERSION_MAJOR})
set(library_dependency "${library_package} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}
This library finds the keys on a smart card and loads one of them, with its
certificate, into OpenSSL. The client keeps its own TLS code, and the card
signs. It uses PKCS#11 modules through libp11 and its OpenSSL engine.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS libengine-pkcs11-openssl)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${debian}/shlibs ${debian}/symbols ${debian}/triggers)

set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} (development files)
This package contains the headers, the CMake package and the pkg-config file
for programs that use the library.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libmarvo-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library_dependency}, libssl-dev")

set(CPACK_COMPONENT_TOOLS_DESCRIPTION "diagnostic tool for TLS logins with smart cards
The tool marvo lists the keys on a smart card, explains why a key is not
offered, checks the whole installation, and logs in to a server.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME marvo-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libp11-3 (>= 0.4.12)") # the tool loads it without being linked to it
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS libengine-pkcs11-openssl)

set(CPACK_COMPONENT_DOCUMENTS_DESCRIPTION "${PROJECT_DESCRIPTION} (documents)
This package contains the guides and the reference of the library's interface
as HTML.")
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_NAME libmarvo-doc)
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_ARCHITECTURE all)

include(CPack)
