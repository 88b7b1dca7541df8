# The wrapper must refuse a client that has a libcrypto of its own.
find_library(MARVO_STATIC_LIBCRYPTO NAMES libcrypto.a HINTS ${OPENSSL_ROOT_DIR} PATH_SUFFIXES lib64 lib REQUIRED)

add_executable(libcrypto_client libcrypto_client.cpp)
target_link_libraries(libcrypto_client PRIVATE marvo OpenSSL::Crypto kes_flags)
add_executable(static_libcrypto_client libcrypto_client.cpp)
target_include_directories(static_libcrypto_client SYSTEM PRIVATE ${OPENSSL_INCLUDE_DIR})
target_link_libraries(static_libcrypto_client PRIVATE marvo ${MARVO_STATIC_LIBCRYPTO} kes_flags ${CMAKE_DL_LIBS})
if(WIN32)
    target_link_options(static_libcrypto_client PRIVATE -static)
    target_link_libraries(static_libcrypto_client PRIVATE ws2_32 crypt32)
    set(file_of_library "[A-Z]:.*.libcrypto-3-x64\\.dll")
else()
    set(file_of_library "/.*/libcrypto\\.so\\.3")
endif()
add_test(NAME libcrypto.ClientWithTheLibrarysLibcryptoIsAccepted COMMAND libcrypto_client)
set_tests_properties(libcrypto.ClientWithTheLibrarysLibcryptoIsAccepted PROPERTIES
    TIMEOUT 60 PASS_REGULAR_EXPRESSION "^the session has started\r?\n$")
add_test(NAME libcrypto.ClientWithAStaticLibcryptoIsRefused COMMAND static_libcrypto_client)
string(CONCAT refusal "^the program uses the libcrypto in .*.static_libcrypto_client${CMAKE_EXECUTABLE_SUFFIX}, "
    "but libmarvo uses ${file_of_library}: link libcrypto dynamically\r?\n$")
set_tests_properties(libcrypto.ClientWithAStaticLibcryptoIsRefused PROPERTIES
    TIMEOUT 60 PASS_REGULAR_EXPRESSION "${refusal}")
