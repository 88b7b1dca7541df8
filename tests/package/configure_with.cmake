# Configures the project with an OpenSSL whose headers report VERSION, and a build without engines if NO_ENGINES is set.
# Configuring must fail with the message EXPECTED, or succeed if EXPECTED is empty. TOOLCHAIN configures for Windows.
# LIBP11_VERSION is the version of libp11 that pkg-config reports, if it is set. SETTINGS are further definitions.
file(REMOVE_RECURSE ${WORK_DIR})
set(include_dir ${WORK_DIR}/openssl/include)
string(REPLACE "." ";" numbers ${VERSION})
list(GET numbers 0 major)
list(GET numbers 1 minor)
if(major LESS 3)
    file(WRITE ${include_dir}/openssl/opensslv.h "# define OPENSSL_VERSION_NUMBER  0x${major}010${minor}17fL\n")
else()
    file(WRITE ${include_dir}/openssl/opensslv.h
        "# define OPENSSL_VERSION_MAJOR  ${major}\n# define OPENSSL_VERSION_MINOR  ${minor}\n"
        "# define OPENSSL_VERSION_PATCH  0\n# define OPENSSL_VERSION_STR \"${VERSION}\"\n")
endif()
file(WRITE ${include_dir}/openssl/opensslconf.h "")
if(DEFINED NO_ENGINES)
    file(WRITE ${include_dir}/openssl/opensslconf.h "#define ${NO_ENGINES}\n")
endif()
set(target -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER})
set(library_end .so)
if(DEFINED TOOLCHAIN)
    set(target --toolchain ${TOOLCHAIN} -DOPENSSL_ROOT_DIR=${WORK_DIR}/openssl)
    set(library_end .dll.a)
    file(WRITE ${WORK_DIR}/openssl/lib64/engines-3/capi.dll "")
endif()
foreach(library crypto ssl)
    file(WRITE ${WORK_DIR}/openssl/lib/lib${library}${library_end} "")
    file(WRITE ${WORK_DIR}/openssl/bin/lib${library}-3-x64.dll "")
endforeach()
if(DEFINED LIBP11_VERSION)
    file(WRITE ${WORK_DIR}/pkgconfig/libp11.pc
        "Name: libp11\nDescription: libp11\nVersion: ${LIBP11_VERSION}\nLibs: -lp11\n")
    set(ENV{PKG_CONFIG_PATH} ${WORK_DIR}/pkgconfig)
endif()

execute_process(
    COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -G Ninja
        ${target}
        -DOPENSSL_INCLUDE_DIR=${include_dir}
        -DOPENSSL_CRYPTO_LIBRARY=${WORK_DIR}/openssl/lib/libcrypto${library_end}
        -DOPENSSL_SSL_LIBRARY=${WORK_DIR}/openssl/lib/libssl${library_end}
        -DMARVO_BUILD_TESTS=OFF -DMARVO_BUILD_BENCH=OFF -DMARVO_BUILD_EXAMPLES=OFF
        ${SETTINGS}
    RESULT_VARIABLE result
    OUTPUT_VARIABLE output
    ERROR_VARIABLE output)
# CMake wraps the lines of its messages.
string(REGEX REPLACE "[ \t\r\n]+" " " words "${output}")
if(EXPECTED STREQUAL "")
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "The project was refused:\n${output}")
    endif()
    return()
endif()
if(result EQUAL 0)
    message(FATAL_ERROR "The project was accepted:\n${output}")
endif()
string(FIND "${words}" "${EXPECTED}" position)
if(position EQUAL -1)
    message(FATAL_ERROR "The project was refused, but not with '${EXPECTED}':\n${output}")
endif()
