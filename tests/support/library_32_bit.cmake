# add_32_bit_library(<target> <file>): creates a library for 32 bits with the functions of an engine and of a PKCS#11 module.
# It needs no C library for 32 bits.
if(WIN32)
    find_program(MARVO_CLANG NAMES clang clang-14 REQUIRED)
    find_program(MARVO_LLD_LINK NAMES lld-link lld-link-14 REQUIRED)
endif()
set(source_of_32_bit_library ${CMAKE_CURRENT_LIST_DIR}/library_32_bit.c)
function(add_32_bit_library target file)
    if(WIN32)
        set(commands
            COMMAND ${MARVO_CLANG} --target=i686-pc-windows-msvc -c -o ${file}.obj ${source_of_32_bit_library}
            COMMAND ${MARVO_LLD_LINK} /dll /noentry /machine:x86 /safeseh:no /nodefaultlib
                /export:bind_engine /export:C_GetFunctionList /out:${file} ${file}.obj)
    else()
        set(commands
            COMMAND ${CMAKE_C_COMPILER} -m32 -shared -nostdlib -fPIC -o ${file} ${source_of_32_bit_library})
    endif()
    add_custom_command(OUTPUT ${file} ${commands} DEPENDS ${source_of_32_bit_library} COMMENT "Creating a 32-bit library"
        VERBATIM)
    add_custom_target(${target} DEPENDS ${file})
endfunction()
