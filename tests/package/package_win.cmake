# Checks of the DLL's file, and of the DLL in a folder that contains only libcrypto and a client, or also wrong files.
find_program(MARVO_LLVM_READOBJ NAMES llvm-readobj llvm-readobj-14 REQUIRED)
foreach(tool nm objdump strings strip)
    string(TOUPPER MARVO_${tool} variable)
    find_program(${variable} x86_64-w64-mingw32-${tool} REQUIRED)
endforeach()
set(tools
    DLL=$<TARGET_FILE:marvo> READOBJ=${MARVO_LLVM_READOBJ} NM=${MARVO_NM} OBJDUMP=${MARVO_OBJDUMP}
    STRINGS=${MARVO_STRINGS} STRIP=${MARVO_STRIP})
# add_file_test(<name> <function of check-dll> [<argument>...])
function(add_file_test name)
    add_test(NAME DllFileTest.${name} COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/check-dll ${ARGN})
    set_tests_properties(DllFileTest.${name} PROPERTIES ENVIRONMENT "${tools}" TIMEOUT 60)
endfunction()
set(lib_dir ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY})
set(dll_name libmarvo-${PROJECT_VERSION_MAJOR})
add_file_test(ExportsOnlyOneFunction exports get_ossl_scard_if)
add_file_test(ImportsOnlySystemAndLibcrypto imports
    ADVAPI32.dll CRYPT32.dll KERNEL32.dll libcrypto-3-x64.dll msvcrt.dll)
add_file_test(DelayLoadsOnlyLibp11 delayed_imports ${PROJECT_SOURCE_DIR}/cmake/libp11.def)
add_file_test(Is64BitAndRelocatable hardening)
add_file_test(HasNoWritableExecutableSection sections)
add_file_test(FunctionsWithBuffersHaveStackProtector stack_protector
    # One function of each static library.
    Kes::WinErrorCode::to_string Kes::OsslScardMgr::init Kes::require_libp11 Kes::OsslScardIfImp::init)
add_file_test(ContainsNoPathOfBuildMachine paths ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR} $ENV{HOME})
add_file_test(HasImportLibraryForGnuLinkers gnu_import ${lib_dir}/${dll_name}.dll.a ${dll_name}.dll)
add_file_test(HasImportLibraryForMicrosoftLinkers microsoft_import ${lib_dir}/${dll_name}.lib ${dll_name}.dll)

add_test(NAME DocumentedCommandsTest.BuildFirstClients
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/documented-commands ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}
        ${OPENSSL_ROOT_DIR} ${CMAKE_CURRENT_BINARY_DIR}/documented)
set_tests_properties(DocumentedCommandsTest.BuildFirstClients PROPERTIES TIMEOUT 240)

# Wrong files, which the tests put in place of right ones.
set(wrong_dir ${CMAKE_CURRENT_BINARY_DIR}/wrong)
file(MAKE_DIRECTORY ${wrong_dir})
include(${PROJECT_SOURCE_DIR}/tests/support/library_32_bit.cmake)
add_32_bit_library(wrong_32_bit_library ${wrong_dir}/32bit.dll)
add_custom_command(OUTPUT ${wrong_dir}/absent.a
    COMMAND ${MARVO_DLLTOOL} -m i386:x86-64 -d ${CMAKE_CURRENT_SOURCE_DIR}/absent.def -l absent.a
    WORKING_DIRECTORY ${wrong_dir}
    DEPENDS absent.def
    COMMENT "Creating the import library of a DLL that does not exist"
    VERBATIM)
add_custom_target(absent_import DEPENDS ${wrong_dir}/absent.a)
add_custom_target(kes_wrong_files DEPENDS wrong_32_bit_library)

# Test doubles of libp11.dll that can be loaded and do nothing else: a complete one, one without PKCS11_is_logged_in, one that
# lacks PKCS11_update_slots like versions before 0.4.12, and one that imports from a DLL that does not exist.
file(READ ${PROJECT_SOURCE_DIR}/cmake/libp11.def exports)
string(REGEX REPLACE " *PKCS11_is_logged_in\n" "" lacking_exports "${exports}")
string(REGEX REPLACE " *PKCS11_update_slots\n" "" old_exports "${exports}")
file(CONFIGURE OUTPUT ${wrong_dir}/lacking.def CONTENT "${lacking_exports}")
file(CONFIGURE OUTPUT ${wrong_dir}/old.def CONTENT "${old_exports}")
# add_loadable_libp11(<name> <exports>): builds <name>/libp11.dll
function(add_loadable_libp11 name exports)
    add_library(libp11_${name} MODULE ../doubles/dll/loadable_libp11.c ${exports})
    set_target_properties(libp11_${name} PROPERTIES PREFIX "" OUTPUT_NAME libp11
        LIBRARY_OUTPUT_DIRECTORY ${wrong_dir}/${name})
    target_include_directories(libp11_${name} SYSTEM PRIVATE ${OPENSSL_INCLUDE_DIR}) # included by libp11's headers
    target_link_libraries(libp11_${name} PRIVATE libp11_headers kes_flags)
    target_link_options(libp11_${name} PRIVATE -static)
    add_dependencies(kes_wrong_files libp11_${name})
endfunction()
add_loadable_libp11(whole ${PROJECT_SOURCE_DIR}/cmake/libp11.def)
add_loadable_libp11(lacking ${wrong_dir}/lacking.def)
add_loadable_libp11(old ${wrong_dir}/old.def)
add_loadable_libp11(needing ${PROJECT_SOURCE_DIR}/cmake/libp11.def)
target_compile_definitions(libp11_needing PRIVATE NEEDS_ABSENT_DLL)
target_link_libraries(libp11_needing PRIVATE ${wrong_dir}/absent.a)
add_dependencies(libp11_needing absent_import)
add_library(needing_dll MODULE needing.c)
set_target_properties(needing_dll PROPERTIES PREFIX "" OUTPUT_NAME needing LIBRARY_OUTPUT_DIRECTORY ${wrong_dir})
target_link_libraries(needing_dll PRIVATE ${wrong_dir}/absent.a kes_flags)
target_link_options(needing_dll PRIVATE -static)
add_dependencies(needing_dll absent_import)
add_dependencies(kes_wrong_files needing_dll)

# Programs that the tests copy to a folder and start there.
add_executable(dll_client dll_client.cpp)
target_include_directories(dll_client PRIVATE ${PROJECT_SOURCE_DIR}/utils/include)
target_link_libraries(dll_client PRIVATE marvo_headers kes_flags)
add_executable(libp11_direct_calls libp11_direct_calls.cpp)
target_link_libraries(libp11_direct_calls PRIVATE libp11 kes_manager kes_flags)

add_executable(dll_test
    dll_folder.cpp
    empty_folder_test.cpp
    libp11_search_test.cpp
    lifetime_test.cpp
    version_test.cpp
    wrong_capi_engine_test.cpp
    wrong_file_test.cpp
    wrong_libp11_test.cpp)
target_compile_definitions(dll_test PRIVATE
    MARVO_BIN_DIR="${MARVO_TEST_DRIVE}${CMAKE_RUNTIME_OUTPUT_DIRECTORY}"
    MARVO_DLL_NAME="${dll_name}.dll"
    MARVO_DOUBLES_DIR="${MARVO_TEST_DRIVE}$<TARGET_FILE_DIR:libp11_double>"
    MARVO_PROJECT_DESCRIPTION="${PROJECT_DESCRIPTION}"
    MARVO_VERSION="${PROJECT_VERSION}"
    MARVO_VERSION_NUMBERS=${PROJECT_VERSION_MAJOR},${PROJECT_VERSION_MINOR},${PROJECT_VERSION_PATCH}
    MARVO_WRONG_DIR="${MARVO_TEST_DRIVE}${wrong_dir}")
target_link_libraries(dll_test PRIVATE kes_test_card version GTest::gmock_main kes_flags)
add_dependencies(dll_test marvo dll_client libp11_direct_calls kes_wrong_files kes_dll_doubles)
gtest_discover_tests(dll_test PROPERTIES TIMEOUT 120)

# Building the library alone also creates the import library for Microsoft's linker.
add_test(NAME build.LibraryComesWithBothImportLibraries
    COMMAND ${CMAKE_MAKE_PROGRAM} -C ${PROJECT_BINARY_DIR} -t commands marvo)
set_tests_properties(build.LibraryComesWithBothImportLibraries PROPERTIES
    PASS_REGULAR_EXPRESSION "dlltool.* -l [^ ]*/libmarvo-${PROJECT_VERSION_MAJOR}[.]lib" TIMEOUT 60)

set(installed_library bin/${dll_name}.dll)
set(installed_imports lib/${dll_name}.dll.a lib/${dll_name}.lib)
set(notices
    cli11.txt gcc-runtime.txt mingw-w64.txt nlohmann-json.txt openssl.txt
    Apache-2.0.txt BSD-3-Clause.txt GCC-exception-3.1.txt GPL-3.0-or-later.txt LicenseRef-mingw-w64.txt MIT.txt)
set(install_test_environment
    CC=${CMAKE_C_COMPILER} CXX=${CMAKE_CXX_COMPILER} SYSTEM=Windows OPENSSL=${OPENSSL_ROOT_DIR})
set(run_program ${CMAKE_CROSSCOMPILING_EMULATOR})
include(install.cmake)
add_install_test(MicrosoftLinkersGetTheirImportLibrary microsoft_import lib/${dll_name}.lib)
