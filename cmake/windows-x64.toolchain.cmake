# Builds for Windows x64 on Linux, with mingw-w64. The programs run under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
# The variant of the compiler whose C++ runtime supports threads.
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../tools/wine)

# The default is the OpenSSL that tools/setup builds.
if(NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
    set(marvo_cache $ENV{XDG_CACHE_HOME}/marvo)
else()
    set(marvo_cache $ENV{HOME}/.cache/marvo)
endif()
set(OPENSSL_ROOT_DIR ${marvo_cache}/openssl-windows CACHE PATH "OpenSSL for Windows x64")

# Build tools come from the build machine; libraries, headers and packages must not.
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 ${OPENSSL_ROOT_DIR})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
