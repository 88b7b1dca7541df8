# The compiler and linker flags of all targets.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON) # programs do not contain the path of the build folder

add_library(kes_flags INTERFACE)
target_compile_options(kes_flags INTERFACE
    -Wall -Wextra -Wconversion -Wshadow
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
    -fstack-protector-strong)
# Binaries and their debug information must not contain paths of the build machine. If several prefixes match, GCC uses the
# last one, so the build folder follows the source folder that may contain it.
set(path_prefixes ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
if(WIN32 AND OPENSSL_ROOT_DIR)
    file(REAL_PATH ${OPENSSL_ROOT_DIR} openssl_folder)
    list(APPEND path_prefixes ${OPENSSL_ROOT_DIR} ${openssl_folder})
endif()
foreach(prefix IN LISTS path_prefixes)
    target_compile_options(kes_flags INTERFACE -ffile-prefix-map=${prefix}=.)
endforeach()
target_link_options(kes_flags INTERFACE -fstack-protector-strong)

if(MARVO_SANITIZE)
    # For all targets, because all objects of a program must be built with the same sanitizers.
    add_compile_options(-fsanitize=${MARVO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${MARVO_SANITIZE})
endif()
