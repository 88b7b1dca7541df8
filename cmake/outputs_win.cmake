# Windows searches the program's folder for DLLs first, so one folder contains all programs and DLLs, including OpenSSL's.
enable_language(RC)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
file(MAKE_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY} ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY})
foreach(library crypto ssl)
    file(COPY_FILE ${OPENSSL_ROOT_DIR}/bin/lib${library}-3-x64.dll ${PROJECT_BINARY_DIR}/bin/lib${library}-3-x64.dll
        ONLY_IF_DIFFERENT)
endforeach()
# The engine's default path is .\capi.dll, which a program finds if it runs in that folder.
file(COPY_FILE ${OPENSSL_ROOT_DIR}/lib64/engines-3/capi.dll ${PROJECT_BINARY_DIR}/bin/capi.dll ONLY_IF_DIFFERENT)
# Programs contain the compiler's runtime, so that they do not need its DLLs.
add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-static>)
