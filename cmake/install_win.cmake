set(library_file ${CMAKE_INSTALL_BINDIR}/libmarvo-${PROJECT_VERSION_MAJOR}.dll)
set(microsoft_import_file ${CMAKE_INSTALL_LIBDIR}/libmarvo-${PROJECT_VERSION_MAJOR}.lib)
install(FILES ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/libmarvo-${PROJECT_VERSION_MAJOR}.lib
    DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
set(notices cli11.txt gcc-runtime.txt mingw-w64.txt nlohmann-json.txt openssl.txt)
set(licences
    Apache-2.0.txt BSD-3-Clause.txt GCC-exception-3.1.txt GPL-3.0-or-later.txt LicenseRef-mingw-w64.txt MIT.txt)
