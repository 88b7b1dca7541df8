# Clients built by g++ and clang++, whatever compiler builds the library, and a test of the library's file.
find_program(MARVO_GXX NAMES g++ g++-12 g++-13 g++-14)
if(NOT MARVO_GXX)
    message(FATAL_ERROR "The binary contract is tested with both compilers: g++ must be installed.")
endif()

add_executable(abi_test abi_test.cpp)
target_link_libraries(abi_test PRIVATE kes_test_support GTest::gtest_main kes_flags)
target_compile_definitions(abi_test PRIVATE
    MARVO_CLANGXX="${MARVO_CLANGXX}"
    MARVO_NM="${CMAKE_NM}"
    MARVO_READELF="${CMAKE_READELF}"
    MARVO_INCLUDE_DIR="${PROJECT_SOURCE_DIR}/include"
    MARVO_LAYOUT_PROBE="${CMAKE_CURRENT_SOURCE_DIR}/layout_probe.cpp"
    MARVO_LIBRARY="$<TARGET_FILE:marvo>")
add_dependencies(abi_test marvo)
gtest_discover_tests(abi_test PROPERTIES TIMEOUT 120)

# The same client built by both compilers. Only objects of the library's compiler can be instrumented; the others still use
# the sanitizer's memory functions, which find leaks and double frees.
if(NOT MARVO_SANITIZE)
    find_program(MARVO_VALGRIND valgrind)
    if(NOT MARVO_VALGRIND)
        message(FATAL_ERROR "Clients are run under valgrind, which must be installed.")
    endif()
    set(memory_checker ${MARVO_VALGRIND} -q --leak-check=full --error-exitcode=9)
endif()
foreach(compiler IN ITEMS GXX CLANGXX)
    # Both compilers warn about "delete clone", although the class's own operator delete makes it correct.
    set(flags -Wall -Wextra -Werror)
    if(compiler STREQUAL "GXX")
        list(APPEND flags -Wno-delete-non-virtual-dtor)
        if(MARVO_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            list(APPEND flags -fsanitize=${MARVO_SANITIZE} -fno-sanitize-recover=all)
        endif()
    else()
        list(APPEND flags -Wno-delete-abstract-non-virtual-dtor)
    endif()
    foreach(optimisation IN ITEMS O0 O3)
        foreach(standard IN ITEMS c++11 c++20)
            string(TOLOWER abi_client_${compiler}_${optimisation}_${standard} client)
            string(REPLACE "+" "x" client ${client})
            set(object ${CMAKE_CURRENT_BINARY_DIR}/${client}.o)
            add_custom_command(OUTPUT ${object}
                COMMAND ${MARVO_${compiler}} -std=${standard} -${optimisation} -gdwarf-4 ${flags}
                    -I ${PROJECT_SOURCE_DIR}/include -r -nostdlib -o ${object}
                    ${client_sources} ${CMAKE_CURRENT_SOURCE_DIR}/own_cfg_other.cpp
                DEPENDS ${client_sources} ${client_headers} own_cfg_other.cpp
                COMMENT "Building the client ${client}"
                VERBATIM)
            add_executable(${client} ${object})
            set_target_properties(${client} PROPERTIES LINKER_LANGUAGE CXX)
            target_link_libraries(${client} PRIVATE marvo kes_abi_kit)
            add_test(NAME ${client}
                COMMAND ${type_keys} ${client_keys} ${memory_checker} $<TARGET_FILE:${client}> slots
                    ${CMAKE_CURRENT_BINARY_DIR}/${client}.log
                WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
            set_tests_properties(${client} PROPERTIES TIMEOUT 120)
        endforeach()
    endforeach()
endforeach()
