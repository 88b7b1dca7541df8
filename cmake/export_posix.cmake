# The one exported name, and nothing else: not even what templates and inline functions would leave visible.
set(export_list ${PROJECT_SOURCE_DIR}/cmake/export.map)
target_link_options(marvo PRIVATE
    -Wl,--version-script=${export_list}
    -Wl,-z,relro,-z,now
    # libp11 leaves pointers to its error texts in libcrypto, so neither may be unmapped: a dlclose() of this library
    # must not take libp11 along.
    -Wl,-z,nodelete)
if(NOT MARVO_SANITIZE)
    target_link_options(marvo PRIVATE -Wl,-z,defs)
endif()
set_target_properties(marvo PROPERTIES LINK_DEPENDS ${export_list})
set_source_files_properties(export.cpp PROPERTIES COMPILE_OPTIONS -fvisibility=default)
