# The export list, the import libraries for clients, and the version resource that Explorer shows.
set(export_list ${CMAKE_CURRENT_BINARY_DIR}/libmarvo.def)
set(version_resource ${CMAKE_CURRENT_BINARY_DIR}/version.rc)
configure_file(${PROJECT_SOURCE_DIR}/cmake/libmarvo.def.in ${export_list} @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${version_resource} @ONLY)
target_sources(marvo PRIVATE ${export_list} ${version_resource})
# A client may use another C++ runtime. The DLL therefore contains its own, and exports none of its symbols.
target_link_options(marvo PRIVATE
    -static
    -Wl,--exclude-all-symbols
    -Wl,--dynamicbase,--high-entropy-va,--nxcompat)

# The linker creates an import library in GNU's format. This one is in Microsoft's format.
find_program(MARVO_LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 REQUIRED)
set(microsoft_import ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/libmarvo-${PROJECT_VERSION_MAJOR}.lib)
add_custom_command(OUTPUT ${microsoft_import}
    COMMAND ${MARVO_LLVM_DLLTOOL} -m i386:x86-64 -d ${export_list} -l ${microsoft_import}
    DEPENDS ${export_list}
    COMMENT "Creating the import library for Microsoft's linker"
    VERBATIM)
add_custom_target(marvo_microsoft_import DEPENDS ${microsoft_import})
add_dependencies(marvo marvo_microsoft_import)
