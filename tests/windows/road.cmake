# The pkcs11 road from end to end, driven through the DLL as a client does it.
add_executable(windows_road_client road_client.cpp)
target_link_libraries(windows_road_client PRIVATE marvo kes_test_card kes_flags)

add_executable(windows_road_test
    ../doubles/dll/dll_doubles_test.cpp
    road_fixture.cpp
    road_folder_test.cpp
    road_pin_test.cpp
    road_sweep_test.cpp
    road_test.cpp)
set_source_files_properties(../doubles/dll/dll_doubles_test.cpp PROPERTIES COMPILE_DEFINITIONS OPENSSL_SUPPRESS_DEPRECATED)
target_compile_definitions(windows_road_test PRIVATE
    MARVO_DOUBLES_DIR="${MARVO_TEST_DRIVE}${MARVO_DOUBLES_DIR}"
    MARVO_PROGRAMS_DIR="${MARVO_TEST_DRIVE}${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
target_link_libraries(windows_road_test PRIVATE marvo kes_test_card libp11_headers OpenSSL::Crypto GTest::gmock_main kes_flags)
add_dependencies(windows_road_test kes_doubles windows_road_client)
gtest_discover_tests(windows_road_test PROPERTIES TIMEOUT 120)
