# Tests of the installed package, with client projects in new folders.
# add_install_test(<name> <function of check-install> [<argument>...])
function(add_install_test name)
    add_test(NAME install.${name} COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/check-install ${ARGN})
    set(environment
        BUILD=${PROJECT_BINARY_DIR} CONSUMERS=${CMAKE_CURRENT_SOURCE_DIR} VERSION=${PROJECT_VERSION}
        WORK=${CMAKE_CURRENT_BINARY_DIR}/install/${name} ${install_test_environment})
    set_tests_properties(install.${name} PROPERTIES TIMEOUT 300 ENVIRONMENT "${environment}")
endfunction()

file(GLOB headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include/marvo/*)
string(TOLOWER "${CMAKE_BUILD_TYPE}" build_type)
add_install_test(RuntimeIsOnlyTheLibrary component runtime ${installed_library})
add_install_test(DevelopmentFilesAreComplete component development ${headers} ${installed_imports}
    lib/cmake/marvo/marvoConfig.cmake lib/cmake/marvo/marvoConfigVersion.cmake
    lib/cmake/marvo/marvoTargets.cmake lib/cmake/marvo/marvoTargets-${build_type}.cmake
    lib/pkgconfig/marvo.pc)
list(TRANSFORM notices PREPEND share/doc/marvo/licences/ OUTPUT_VARIABLE installed_notices)
add_install_test(NoticesAreComplete component notices share/doc/marvo/LICENSE ${installed_notices})
add_install_test(DocumentsAreComplete documents ${PROJECT_SOURCE_DIR}/docs/check-links
    index.html CHANGELOG.html SECURITY.html docs/client-guide.html docs/architecture.html docs/decisions/index.html
    reference/index.html reference/ossl__scard__c_8h.html reference/marvo_8hpp.html
    docs/schema/list.json docs/schema/version.json)
add_install_test(FilesContainNoPathOfBuild no_build_paths)
add_install_test(ClientFindsMovedPackage find_package ${run_program})
add_install_test(ClientUsesPkgConfig use_pkg_config ${run_program})
add_install_test(LaterInterfaceVersionIsRefused refused_version 5)
add_install_test(EarlierInterfaceVersionIsRefused refused_version 3)
add_install_test(LaterMinorVersionIsRefused refused_version ${PROJECT_VERSION_MAJOR}.99)
add_install_test(UnknownComponentIsRefused unknown_component)
add_install_test(MissingLibraryIsReportedWithRemedy missing_library ${installed_library})
add_install_test(MissingDevelopmentFilesAreReported missing_development)
