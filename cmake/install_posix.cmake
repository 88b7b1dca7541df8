set(library_file ${CMAKE_INSTALL_LIBDIR}/libmarvo-${PROJECT_VERSION_MAJOR}.so)
set(microsoft_import_file ${library_file}) # not used
# What the tool contains. The library contains no software of others.
set(notices cli11.txt nlohmann-json.txt)
set(licences Apache-2.0.txt BSD-3-Clause.txt MIT.txt)
