# The example programs for Windows, under Wine, and the doubles of the pkcs11 road with their card.
set(windows_tests ../windows)
add_executable(kes_windows_login_tests windows_login_test.cpp ${windows_tests}/test_card.cpp)
add_dependencies(kes_windows_login_tests loopback_only)
target_include_directories(kes_windows_login_tests PRIVATE ${windows_tests})
target_compile_definitions(kes_windows_login_tests PRIVATE
    MARVO_WINE="${PROJECT_SOURCE_DIR}/tools/wine"
    MARVO_PROGRAMS="${MARVO_WINDOWS_BUILD}/bin"
    MARVO_DOUBLES="${MARVO_WINDOWS_BUILD}/tests/windows/doubles"
    MARVO_CARD_FILES="${MARVO_WINDOWS_BUILD}/tests/windows/cards")
target_link_libraries(kes_windows_login_tests PRIVATE kes_servers kes_flags OpenSSL::Crypto GTest::gtest_main)
gtest_discover_tests(kes_windows_login_tests TEST_PREFIX servers. NO_PRETTY_VALUES PROPERTIES TIMEOUT 120)
