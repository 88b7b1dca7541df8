# Clients in C and C++, built by the library's compiler and by a compiler for the Microsoft ABI.

# add_client_tests(<name> <program's file>): adds tests of the client without and with a card.
function(add_client_tests name program)
    add_test(NAME ${name}
        COMMAND ${type_keys} ${client_keys} ${CMAKE_CROSSCOMPILING_EMULATOR} ${program} slots
            ${CMAKE_CURRENT_BINARY_DIR}/${name}.log
        WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
    set_tests_properties(${name} PROPERTIES TIMEOUT 120)
    add_card_test(${name}.LoadsAKey ${program} sequence)
endfunction()

# add_card_test(<name> <program's file> <argument>): adds a test with a card, which needs the keys "x1". It runs in the
# folder of the test doubles, where the default names of engine, libp11 and module exist.
function(add_card_test name program argument)
    add_test(NAME ${name}
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/with-card ${CMAKE_CURRENT_BINARY_DIR}/${name}
            ${MARVO_CERTIFICATES_DIR}/cards
            ${type_keys} x1 ${CMAKE_CROSSCOMPILING_EMULATOR} ${program} ${argument}
            ${CMAKE_CURRENT_BINARY_DIR}/${name}.log
        WORKING_DIRECTORY $<TARGET_FILE_DIR:itp11_double>)
    set_tests_properties(${name} PROPERTIES TIMEOUT 120)
endfunction()

add_executable(abi_sequence sequence_test.c)
target_link_libraries(abi_sequence PRIVATE marvo kes_abi_kit kes_flags)
add_dependencies(abi_sequence kes_dll_doubles)
add_card_test(abi_sequence $<TARGET_FILE:abi_sequence> BothOverloadsLoadTheFirstKey)

foreach(optimisation IN ITEMS O0 O3)
    foreach(standard IN ITEMS 11 20)
        string(TOLOWER abi_client_gxx_${optimisation}_cxx${standard} client)
        add_executable(${client} ${client_sources} own_cfg_other.cpp)
        set_target_properties(${client} PROPERTIES CXX_STANDARD ${standard})
        # The compiler warns about "delete clone", although the class's own operator delete makes it correct.
        target_compile_options(${client} PRIVATE -Wall -Wextra -Werror -Wno-delete-non-virtual-dtor -${optimisation})
        target_link_libraries(${client} PRIVATE marvo kes_abi_kit)
        add_client_tests(${client} $<TARGET_FILE:${client}>)
    endforeach()
endforeach()

# Clients for the Microsoft ABI use neither a C nor a C++ library. They link the import library in Microsoft's format.
string(REPLACE "++" "" clang ${MARVO_CLANGXX})
find_program(MARVO_CLANG NAMES ${clang} clang REQUIRED)
find_program(MARVO_LLD_LINK NAMES lld-link lld-link-14 lld-link-15 lld-link-16 lld-link-17 lld-link-18 lld-link-19)
if(NOT MARVO_LLD_LINK)
    message(FATAL_ERROR "Clients for the Microsoft ABI need lld-link: install the package lld.")
endif()
execute_process(COMMAND ${CMAKE_C_COMPILER} -print-file-name=libkernel32.a
    OUTPUT_VARIABLE kernel32_import OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(microsoft_import ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/libmarvo-${PROJECT_VERSION_MAJOR}.lib)
set(for_microsoft --target=x86_64-pc-windows-msvc -nostdlibinc -Wall -Wextra -Werror)
set(objects_dir ${CMAKE_CURRENT_BINARY_DIR}/microsoft)
file(MAKE_DIRECTORY ${objects_dir})

# add_microsoft_object(<variable> <object's name> <source> <compiler> <argument>...): appends the object to the variable.
function(add_microsoft_object variable name source compiler)
    set(object ${objects_dir}/${name}.obj)
    cmake_path(ABSOLUTE_PATH source)
    add_custom_command(OUTPUT ${object}
        COMMAND ${compiler} ${for_microsoft} ${ARGN} -I ${PROJECT_SOURCE_DIR}/include
            -MD -MF ${object}.d -c -o ${object} ${source}
        DEPENDS ${source}
        DEPFILE ${object}.d
        COMMENT "Building ${name} for the Microsoft ABI"
        VERBATIM)
    set(${variable} ${${variable}} ${object} PARENT_SCOPE)
endfunction()

# add_microsoft_program(<name> <object>...): links a program in the folder of all programs.
function(add_microsoft_program name)
    set(program ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name}.exe)
    add_custom_command(OUTPUT ${program}
        COMMAND ${MARVO_LLD_LINK} /nologo /nodefaultlib /entry:start /subsystem:console /out:${program}
            ${ARGN} ${microsoft_import} ${kernel32_import}
        DEPENDS ${ARGN} ${microsoft_import} marvo_microsoft_import
        COMMENT "Linking the client ${name} for the Microsoft ABI"
        VERBATIM)
    add_custom_target(${name} ALL DEPENDS ${program})
    add_dependencies(${name} marvo)
endfunction()

set(as_kit -std=c11 -O2 -ffreestanding -fno-builtin)
foreach(source IN ITEMS kit kit_win scenario start_microsoft)
    add_microsoft_object(kit_objects ${source} ${source}.c ${MARVO_CLANG} ${as_kit})
endforeach()
foreach(optimisation IN ITEMS O0 O2)
    string(TOLOWER ${optimisation} suffix)
    foreach(client IN ITEMS cfg_slots if_slots sequence)
        set(program abi_microsoft_${client}_${suffix})
        set(objects ${kit_objects})
        add_microsoft_object(objects ${program} ${client}_test.c ${MARVO_CLANG} -std=c11 -${optimisation})
        add_microsoft_program(${program} ${objects})
        set(file ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${program}.exe)
        if(client STREQUAL "cfg_slots")
            add_scenarios(${program} ${file} ${cfg_scenarios})
        elseif(client STREQUAL "if_slots")
            add_scenarios(${program} ${file} ${if_scenarios})
        else()
            add_card_test(${program} ${file} BothOverloadsLoadTheFirstKey)
        endif()
    endforeach()
    foreach(standard IN ITEMS 11 20)
        set(program abi_microsoft_client_${suffix}_cxx${standard})
        set(objects ${kit_objects})
        foreach(source IN LISTS client_sources ITEMS own_cfg_microsoft.cpp heap_microsoft.cpp)
            cmake_path(GET source STEM name)
            add_microsoft_object(objects ${program}.${name}_cxx ${source} ${MARVO_CLANGXX}
                -std=c++${standard} -${optimisation} -fno-exceptions -fno-rtti)
        endforeach()
        add_microsoft_program(${program} ${objects})
        add_client_tests(${program} ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${program}.exe)
    endforeach()
endforeach()
