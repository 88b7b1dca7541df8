# Exports a single name. The export list also hides instances of templates and inline functions.
set(export_list ${PROJECT_SOURCE_DIR}/cmake/export.map)
target_link_options(marvo PRIVATE
    -Wl,--version-script=${export_list}
    -Wl,-z,relro,-z,now
    # libcrypto keeps pointers to libp11's error texts and to functions of this library, so both must stay loaded. With
    # nodelete, a dlclose() unloads neither of them.
    -Wl,-z,nodelete)
if(NOT MARVO_SANITIZE)
    target_link_options(marvo PRIVATE -Wl,-z,defs)
endif()
set_target_properties(marvo PROPERTIES LINK_DEPENDS ${export_list})
set_source_files_properties(export.cpp PROPERTIES COMPILE_OPTIONS -fvisibility=default)
