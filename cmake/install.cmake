# The installation, in five components:
#   runtime      the shared library
#   development  headers, import libraries, CMake package, pkg-config file
#   tools        programs and their manual pages
#   documents    guides and reference
#   notices      licences of this software and of the software that it contains. Debian's packages have their own form of them
# All paths in installed files are relative, so the installation can be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/marvo)
include(install_${platform})
include(install_documents)

install(TARGETS marvo marvo_headers EXPORT marvo
    RUNTIME COMPONENT runtime
    LIBRARY COMPONENT runtime
    ARCHIVE COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/marvo TYPE INCLUDE COMPONENT development)

install(EXPORT marvo NAMESPACE marvo:: FILE marvoTargets.cmake DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(cmake/marvoConfig.cmake.in ${PROJECT_BINARY_DIR}/marvoConfig.cmake
    INSTALL_DESTINATION ${package_dir}
    PATH_VARS library_file microsoft_import_file
    NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
# The major version is the version of the interface, which a client is compiled against.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/marvoConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/marvoConfig.cmake ${PROJECT_BINARY_DIR}/marvoConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT development)

file(RELATIVE_PATH prefix_from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig ${prefix_from_pkgconfig})
configure_file(cmake/marvo.pc.in ${PROJECT_BINARY_DIR}/marvo.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/marvo.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

install(FILES LICENSE TYPE DOC COMPONENT notices)
list(TRANSFORM notices PREPEND packaging/notices/)
list(TRANSFORM licences PREPEND LICENSES/)
install(FILES ${notices} ${licences} DESTINATION ${CMAKE_INSTALL_DOCDIR}/licences COMPONENT notices)
