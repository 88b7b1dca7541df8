# Checks of the client headers, the presets, the includes, and configuring and building.
find_program(MARVO_CLANGXX NAMES clang++ clang++-14 clang++-15 clang++-16 clang++-17 clang++-18 clang++-19)
find_program(MARVO_GXX NAMES g++ g++-12 g++-13 g++-14)
if(NOT MARVO_CLANGXX OR NOT MARVO_GXX)
    message(FATAL_ERROR "The client headers are tested with both compilers: g++ and clang++ must be installed.")
endif()
set(client_warnings -Wall -Wextra -Wconversion -Wshadow -Wold-style-cast -Wpedantic -Werror)
set(include_dir ${PROJECT_SOURCE_DIR}/include)

# add_header_test(<name> <compiler> <argument>...): the source must compile without a warning.
function(add_header_test name compiler)
    add_test(NAME headers.${name}
        COMMAND ${compiler} ${client_warnings} -I ${include_dir} -fsyntax-only ${ARGN})
endfunction()

foreach(standard IN ITEMS c++11 c++17 c++20)
    string(REPLACE "+" "x" suffix ${standard})
    foreach(compiler IN ITEMS GXX CLANGXX)
        add_header_test(ClientCompilesWithoutWarnings.${compiler}.${suffix} ${MARVO_${compiler}}
            -std=${standard} ${CMAKE_CURRENT_SOURCE_DIR}/client_headers.cpp)
    endforeach()
    # For Windows with the Microsoft ABI.
    add_header_test(ClientCompilesWithoutWarnings.Microsoft.${suffix} ${MARVO_CLANGXX}
        --target=x86_64-pc-windows-msvc -std=${standard} ${CMAKE_CURRENT_SOURCE_DIR}/client_headers.cpp)
endforeach()
foreach(header IN ITEMS ossl_scard_if ossl_scard_cfg)
    foreach(compiler IN ITEMS GXX CLANGXX)
        add_header_test(${header}CompilesAlone.${compiler} ${MARVO_${compiler}}
            -std=c++11 -x c++ ${include_dir}/marvo/${header}.h)
    endforeach()
    add_test(NAME headers.${header}IncludesOnlyStddef
        COMMAND ${CMAKE_COMMAND} -DHEADER=${include_dir}/marvo/${header}.h "-DALLOWED=#include <stddef.h>"
            -P ${CMAKE_CURRENT_SOURCE_DIR}/header_includes.cmake)
endforeach()

# The header for C.
set(c_header ${include_dir}/marvo/ossl_scard_c.h)
find_program(MARVO_CLANG NAMES clang clang-14 clang-15 clang-16 clang-17 clang-18 clang-19 REQUIRED)
find_program(MARVO_GCC NAMES gcc gcc-12 gcc-13 gcc-14 REQUIRED)
foreach(compiler IN ITEMS GCC CLANG)
    foreach(standard IN ITEMS c99 c11)
        add_test(NAME headers.ossl_scard_cCompilesAlone.${compiler}.${standard}
            COMMAND ${MARVO_${compiler}} -Wall -Wextra -Wconversion -Wshadow -Werror -pedantic-errors
                -std=${standard} -fsyntax-only -x c ${c_header})
    endforeach()
endforeach()
add_header_test(ossl_scard_cCompilesAsCxx.Gxx ${MARVO_GXX} -std=c++11 -x c++ ${c_header})
add_header_test(ossl_scard_cCompilesAsCxx.Microsoft ${MARVO_CLANGXX} --target=x86_64-pc-windows-msvc
    -std=c++11 -x c++ ${c_header})
add_test(NAME headers.ossl_scard_cIncludesOnlyStdboolAndStddef
    COMMAND ${CMAKE_COMMAND} -DHEADER=${c_header} "-DALLOWED=#include <stdbool.h>|#include <stddef.h>"
        -P ${CMAKE_CURRENT_SOURCE_DIR}/header_includes.cmake)

add_test(NAME presets.HaveDocumentedNamesAndMakeWarningsErrors
    COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${PROJECT_SOURCE_DIR} -DCTEST_COMMAND=${CMAKE_CTEST_COMMAND}
        -P ${CMAKE_CURRENT_SOURCE_DIR}/presets.cmake)

add_test(NAME sources.IncludesPointDownwards
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/check-includes ${PROJECT_SOURCE_DIR})
add_test(NAME sources.IncludeCheckFindsEachViolation
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/check-includes-test ${CMAKE_CURRENT_SOURCE_DIR}/check-includes
        ${CMAKE_CURRENT_BINARY_DIR}/check-includes-test)
add_test(NAME sources.ChecksSkipWhatGitIgnores
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/file-checks-test ${PROJECT_SOURCE_DIR}/tools/test
        ${CMAKE_CURRENT_BINARY_DIR}/file-checks-test)
add_test(NAME sources.DocumentChecksFindEachMistake
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/check-documents-test ${PROJECT_SOURCE_DIR}
        ${CMAKE_CURRENT_BINARY_DIR}/check-documents-test)
add_test(NAME sources.HtmlIsBuiltOnlyWithoutMistakes
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/build-html-test ${PROJECT_SOURCE_DIR}
        ${CMAKE_CURRENT_BINARY_DIR}/build-html-test)
add_test(NAME sources.MessageCheckFindsEachDifference
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/check-messages-test ${PROJECT_SOURCE_DIR}
        ${CMAKE_CURRENT_BINARY_DIR}/check-messages-test)

add_test(NAME scripts.SetupRequiresOnlyWhatItsArgumentsNeed
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/setup-test ${PROJECT_SOURCE_DIR}/tools/setup ${CMAKE_CURRENT_BINARY_DIR}/setup-test)
add_test(NAME scripts.PackagesAreNotBuiltWithoutTheirDocuments
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/packaging-test ${PROJECT_SOURCE_DIR}/packaging
        ${CMAKE_CURRENT_BINARY_DIR}/packaging-test)
if(TARGET tls_client AND TARGET marvo_tool AND NOT MARVO_SANITIZE)
    add_test(NAME scripts.DemoLogsInOnLinuxBeforeItPreparesWindows
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/demo-test ${PROJECT_SOURCE_DIR} $<TARGET_FILE:tls_client>
            $<TARGET_FILE:marvo_tool> ${CMAKE_CURRENT_BINARY_DIR}/demo-test)
    set_tests_properties(scripts.DemoLogsInOnLinuxBeforeItPreparesWindows PROPERTIES TIMEOUT 300)
endif()

# add_build_test(<name> <project> [<argument of build_project.cmake>...])
function(add_build_test name project)
    add_test(NAME build.${name}
        COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${project} -DBUILD_DIR=${CMAKE_CURRENT_BINARY_DIR}/${name} ${ARGN}
            -P ${CMAKE_CURRENT_SOURCE_DIR}/build_project.cmake)
    set_tests_properties(build.${name} PROPERTIES TIMEOUT 900)
endfunction()

# add_configure_test(<name> <version> <expected sentence> [<definition>...])
function(add_configure_test name version expected)
    add_test(NAME configure.${name}
        COMMAND ${CMAKE_COMMAND} -DVERSION=${version} -DEXPECTED=${expected} ${ARGN}
            -DSOURCE_DIR=${PROJECT_SOURCE_DIR} -DWORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/${name}
            -DC_COMPILER=${CMAKE_C_COMPILER} -DCXX_COMPILER=${CMAKE_CXX_COMPILER}
            -P ${CMAKE_CURRENT_SOURCE_DIR}/configure_with.cmake)
    set_tests_properties(configure.${name} PROPERTIES TIMEOUT 120)
endfunction()

include(${PROJECT_SOURCE_DIR}/tests/support/old_libp11.cmake)
add_executable(old_libp11_test old_libp11_test.cpp)
target_compile_definitions(old_libp11_test PRIVATE MARVO_OLD_LIBP11="${old_libp11_dir}/libp11.so.3")
target_link_libraries(old_libp11_test PRIVATE marvo kes_test_support GTest::gtest_main kes_flags)
add_dependencies(old_libp11_test old_libp11)
gtest_discover_tests(old_libp11_test PROPERTIES ENVIRONMENT LD_LIBRARY_PATH=${old_libp11_dir} TIMEOUT 120)

# These tests run no code of the library, so they are not repeated with sanitizers.
if(NOT MARVO_SANITIZE)
    set(no_engines "This OpenSSL was built without engines (OPENSSL_NO_ENGINE): libmarvo loads keys through them.")
    add_configure_test(Openssl30IsAccepted 3.0.0 "")
    add_configure_test(LaterOpenssl3IsAccepted 3.9.0 "")
    add_configure_test(Openssl40IsRefused 4.0.0
        "OpenSSL 4.0.0 has no engines any more: libmarvo needs OpenSSL 3.0 to 3.x.")
    add_configure_test(Openssl11IsRefused 1.1.1
        "OpenSSL 1.1.1w is too old: libmarvo needs OpenSSL 3.0 or a later 3.x.")
    add_configure_test(OpensslWithoutEnginesIsRefused 3.0.0 ${no_engines} -DNO_ENGINES=OPENSSL_NO_ENGINE)
    add_configure_test(OpensslWithoutDynamicEnginesIsRefused 3.0.0 ${no_engines}
        -DNO_ENGINES=OPENSSL_NO_DYNAMIC_ENGINE)

    add_configure_test(Libp11Before0412IsRefused 3.0.0
        "libp11 0.4.11 is too old: libmarvo needs libp11 0.4.12 or later." -DLIBP11_VERSION=0.4.11)
    add_configure_test(Libp11From0412IsAccepted 3.0.0 "" -DLIBP11_VERSION=0.4.12)

    set(for_windows -DTOOLCHAIN=${PROJECT_SOURCE_DIR}/cmake/windows-x64.toolchain.cmake)
    add_configure_test(Openssl35ForWindowsIsAccepted 3.5.0 "" ${for_windows})
    add_configure_test(Openssl40ForWindowsIsRefused 4.0.0
        "OpenSSL 4.0.0 has no engines any more: libmarvo needs OpenSSL 3.0 to 3.x." ${for_windows})
    set(nowhere ${CMAKE_CURRENT_BINARY_DIR}/nowhere)
    add_configure_test(MissingOpensslForWindowsIsReportedWithRemedy 3.5.0
        "There is no OpenSSL for Windows x64 in ${nowhere}: run tools/setup, which builds it."
        ${for_windows} -DSETTINGS=-DOPENSSL_ROOT_DIR=${nowhere})
    add_configure_test(MissingLibp11HeadersAreReported 3.5.0
        "There is no libp11.h: install libp11-dev, or set MARVO_LIBP11_INCLUDE_DIR to its folder."
        ${for_windows} -DSETTINGS=-DCMAKE_IGNORE_PATH=/usr/include)
    set(old_headers ${CMAKE_CURRENT_BINARY_DIR}/old_headers)
    file(WRITE ${old_headers}/libp11.h "int PKCS11_enumerate_slots(void);\n")
    add_configure_test(HeadersOfLibp11Before0412AreRefused 3.5.0
        "The libp11.h in ${old_headers} is too old: libmarvo needs libp11 0.4.12 or later."
        ${for_windows} -DSETTINGS=-DMARVO_LIBP11_INCLUDE_DIR=${old_headers})

    # Builds without a preset: the library and the examples. The program marvo takes minutes to compile, so only Clang builds
    # it here: the presets build it with GCC, optimised and not.
    set(without_tests "-DMARVO_BUILD_TESTS=OFF|-DMARVO_BUILD_BENCH=OFF")
    set(without_tool "${without_tests}|-DMARVO_BUILD_TOOL=OFF")
    add_build_test(ReleaseHasNoWarnings ${PROJECT_SOURCE_DIR} "-DSETTINGS=${without_tool}|-DCMAKE_BUILD_TYPE=Release")
    add_build_test(DebugHasNoWarnings ${PROJECT_SOURCE_DIR} "-DSETTINGS=${without_tool}|-DCMAKE_BUILD_TYPE=Debug")
    add_build_test(ClangHasNoWarnings ${PROJECT_SOURCE_DIR}
        "-DSETTINGS=${without_tests}|-DCMAKE_C_COMPILER=${MARVO_CLANG}|-DCMAKE_CXX_COMPILER=${MARVO_CLANGXX}")
    # A project that adds this one does not need the packages of tests, benchmarks and examples.
    foreach(package GTest CURL benchmark)
        string(APPEND without_packages "|-DCMAKE_DISABLE_FIND_PACKAGE_${package}=ON")
    endforeach()
    add_build_test(LibraryBuildsAsSubdirectory ${CMAKE_CURRENT_SOURCE_DIR}/consumer
        "-DSETTINGS=-DMARVO_SOURCE_DIR=${PROJECT_SOURCE_DIR}${without_packages}"
        "-DPROGRAMS=consumer|c_consumer|wrapper_consumer"
        "-DEXPECTED=${PROJECT_VERSION}|${PROJECT_VERSION}|no key is loaded")

    # The software bill of materials of the packages.
    foreach(test IN ITEMS
            lists_files_and_bundled_software files_are_sorted_by_path
            same_content_gives_same_file other_content_gives_other_serial_number
            file_in_the_folder_does_not_list_itself missing_date_is_refused unknown_software_is_refused
            software_without_version_is_refused missing_folder_is_refused empty_folder_is_refused)
        add_test(NAME SbomTest.${test}
            COMMAND /usr/bin/python3 ${CMAKE_CURRENT_SOURCE_DIR}/sbom/sbom_test.py SbomTest.test_${test})
        set_tests_properties(SbomTest.${test} PROPERTIES ENVIRONMENT SBOM=${PROJECT_SOURCE_DIR}/packaging/sbom TIMEOUT 60)
    endforeach()

    find_path(MARVO_JSON_HEADERS nlohmann/json.hpp REQUIRED)
    add_test(NAME NoticeTest.AllHoldersOfTheJsonLibraryAreNamed
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/check-notice ${MARVO_JSON_HEADERS}/nlohmann packaging/notices/nlohmann-json.txt
            packaging/debian/copyright.tools .reuse/dep5
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
    set_tests_properties(NoticeTest.AllHoldersOfTheJsonLibraryAreNamed PROPERTIES TIMEOUT 60)

    set(installed_library lib/libmarvo-${PROJECT_VERSION_MAJOR}.so)
    set(notices cli11.txt nlohmann-json.txt Apache-2.0.txt BSD-3-Clause.txt MIT.txt)
    set(install_test_environment CC=${CMAKE_C_COMPILER} CXX=${CMAKE_CXX_COMPILER})
    include(install.cmake)
endif()
