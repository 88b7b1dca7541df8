# The three doubles, in a folder of their own: no program finds them unless that folder is its current one.
set(MARVO_DOUBLES_DIR ${CMAKE_CURRENT_BINARY_DIR}/doubles)

add_library(kes_double_parts STATIC
    doubles/call_log.cpp
    doubles/card_module.cpp
    doubles/error_texts.cpp)
target_include_directories(kes_double_parts PUBLIC doubles)
target_link_libraries(kes_double_parts PUBLIC kes_utils PRIVATE kes_flags)

# Engines and their methods are what these sources are about; OpenSSL 3 calls them deprecated.
set(of_engines doubles/engine.cpp doubles/engine_keys.cpp doubles/itp11.cpp)
set_source_files_properties(${of_engines} PROPERTIES COMPILE_DEFINITIONS OPENSSL_SUPPRESS_DEPRECATED)

add_library(itp11_double MODULE doubles/itp11.cpp doubles/card_objects.cpp)
add_library(libp11_double MODULE doubles/libp11.cpp doubles/libp11_state.cpp ${PROJECT_SOURCE_DIR}/cmake/libp11.def)
target_link_libraries(libp11_double PRIVATE libp11_headers)
add_library(pkcs11_double MODULE doubles/engine.cpp doubles/engine_keys.cpp doubles/pkcs11_uri.cpp)
# Makes OpenSSL's macros export the two functions that OpenSSL looks for.
target_compile_definitions(pkcs11_double PRIVATE OPENSSL_OPT_WINDLL)
foreach(name itp11 libp11 pkcs11)
    set_target_properties(${name}_double PROPERTIES PREFIX "" OUTPUT_NAME ${name}
        LIBRARY_OUTPUT_DIRECTORY ${MARVO_DOUBLES_DIR})
    target_link_libraries(${name}_double PRIVATE kes_double_parts kes_flags)
    target_link_options(${name}_double PRIVATE -static)
endforeach()

# What is on their cards.
find_program(OPENSSL_PROGRAM openssl REQUIRED)
set(MARVO_CARD_FILES ${CMAKE_CURRENT_BINARY_DIR}/cards)
add_custom_command(
    OUTPUT ${MARVO_CARD_FILES}/made
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${MARVO_CARD_FILES}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${MARVO_CARD_FILES}
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/make-cards ${OPENSSL_PROGRAM} ${MARVO_CARD_FILES}
    COMMAND ${CMAKE_COMMAND} -E touch ${MARVO_CARD_FILES}/made
    DEPENDS make-cards
    COMMENT "Making keys and certificates of the test cards"
    VERBATIM)
add_custom_target(kes_card_files DEPENDS ${MARVO_CARD_FILES}/made)
add_custom_target(kes_doubles DEPENDS kes_card_files itp11_double libp11_double pkcs11_double)
