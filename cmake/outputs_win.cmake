# Windows looks for DLLs in the folder of the program first: all programs and DLLs share one, with OpenSSL's beside them.
enable_language(RC)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
file(MAKE_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY} ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY})
foreach(library crypto ssl)
    file(COPY_FILE ${OPENSSL_ROOT_DIR}/bin/lib${library}-3-x64.dll ${PROJECT_BINARY_DIR}/bin/lib${library}-3-x64.dll
        ONLY_IF_DIFFERENT)
endforeach()
# The engine stands where the settings look for it by default, for a program that runs in that folder.
file(COPY_FILE ${OPENSSL_ROOT_DIR}/lib64/engines-3/capi.dll ${PROJECT_BINARY_DIR}/bin/capi.dll ONLY_IF_DIFFERENT)
# Programs need no DLL of the compiler's.
add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-static>)
