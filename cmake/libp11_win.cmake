# libp11 is loaded when it is first needed, from a libp11.dll that users have from elsewhere. To build, its headers do, which
# are the same for all systems: copied, because they stand in a folder with much that is not for Windows.
find_path(MARVO_LIBP11_INCLUDE_DIR libp11.h PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH
    DOC "The folder of libp11.h and p11_err.h")
if(NOT MARVO_LIBP11_INCLUDE_DIR)
    message(FATAL_ERROR "There is no libp11.h: install libp11-dev, or set MARVO_LIBP11_INCLUDE_DIR to its folder.")
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
    WORKING_DIRECTORY ${libp11_dir} # the file's name as it is given becomes part of symbols that the source names
    DEPENDS ${libp11_def}
    COMMENT "Making the delayed import of libp11.dll"
    VERBATIM)
add_custom_target(libp11_import DEPENDS ${libp11_import})
add_library(libp11_binary INTERFACE)
add_dependencies(libp11_binary libp11_import)
target_link_libraries(libp11_binary INTERFACE libp11_headers ${libp11_import})
