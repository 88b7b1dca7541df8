# Finds OpenSSL 3 with engines, and libp11. Rejects unsuitable versions, with the reason.
if(WIN32 AND OPENSSL_ROOT_DIR AND NOT EXISTS ${OPENSSL_ROOT_DIR})
    message(FATAL_ERROR "There is no OpenSSL for Windows x64 in ${OPENSSL_ROOT_DIR}: run tools/setup, which builds it.")
endif()
find_package(OpenSSL REQUIRED COMPONENTS Crypto SSL GLOBAL) # also for a project that adds this one
if(OPENSSL_VERSION VERSION_LESS 3.0)
    message(FATAL_ERROR "OpenSSL ${OPENSSL_VERSION} is too old: libmarvo needs OpenSSL 3.0 or a later 3.x.")
endif()
if(OPENSSL_VERSION VERSION_GREATER_EQUAL 4.0)
    message(FATAL_ERROR "OpenSSL ${OPENSSL_VERSION} has no engines any more: libmarvo needs OpenSSL 3.0 to 3.x.")
endif()
include(CheckCSourceCompiles)
set(CMAKE_REQUIRED_INCLUDES ${OPENSSL_INCLUDE_DIR})
unset(MARVO_OPENSSL_HAS_ENGINES CACHE) # a cached result may be that of another OpenSSL
check_c_source_compiles("
    #include <openssl/opensslconf.h>
    #if defined(OPENSSL_NO_ENGINE) || defined(OPENSSL_NO_DYNAMIC_ENGINE)
    #error no engines
    #endif
    int main(void) { return 0; }" MARVO_OPENSSL_HAS_ENGINES)
unset(CMAKE_REQUIRED_INCLUDES)
if(NOT MARVO_OPENSSL_HAS_ENGINES)
    message(FATAL_ERROR "This OpenSSL was built without engines (OPENSSL_NO_ENGINE): libmarvo loads keys through them.")
endif()

include(libp11_${platform})
