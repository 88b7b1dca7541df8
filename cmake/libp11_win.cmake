# The library loads libp11.dll when it is first needed; users install that DLL themselves. The build needs only libp11's
# headers, which are the same on all systems. They are copied, because their folder also contains headers that are not for
# Windows.
find_path(MARVO_LIBP11_INCLUDE_DIR libp11.h PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH
    DOC "The folder of libp11.h and p11_err.h")
if(NOT MARVO_LIBP11_INCLUDE_DIR)
    message(FATAL_ERROR "There is no libp11.h: install libp11-dev, or set MARVO_LIBP11_INCLUDE_DIR to its folder.")
endif()
file(STRINGS ${MARVO_LIBP11_INCLUDE_DIR}/libp11.h function_since_0_4_12 REGEX PKCS11_update_slots)
if(NOT function_since_0_4_12)
    message(FATAL_ERROR "The libp11.h in ${MARVO_LIBP11_INCLUDE_DIR} is too old: libmarvo needs libp11 0.4.12 or later.")
endif()
set(libp11_dir ${PROJECT_BINARY_DIR}/libp11)
foreach(header libp11.h p11_err.h)
    configure_file(${MARVO_LIBP11_INCLUDE_DIR}/${header} ${libp11_dir}/include/${header} COPYONLY)
endforeach()
add_library(libp11_headers INTERFACE)
target_include_directories(libp11_headers SYSTEM INTERFACE ${libp11_dir}/include)

find_program(MARVO_DLLTOOL x86_64-w64-mingw32-dlltool REQUIRED)
set(libp11_def ${PROJECT_SOURCE_DIR}/cmake/libp11.def)
set(libp11_import ${libp11_dir}/libp11_delayed.a)
add_custom_command(OUTPUT ${libp11_import}
    COMMAND ${MARVO_DLLTOOL} -m i386:x86-64 -d ${libp11_def} -y libp11_delayed.a
    WORKING_DIRECTORY ${libp11_dir} # the file name becomes part of a symbol in libp11_library_win.cpp
    DEPENDS ${libp11_def}
    COMMENT "Creating the delay-load import library of libp11.dll"
    VERBATIM)
add_custom_target(libp11_import DEPENDS ${libp11_import})
add_library(libp11_binary INTERFACE)
add_dependencies(libp11_binary libp11_import)
target_link_libraries(libp11_binary INTERFACE libp11_headers ${libp11_import})
