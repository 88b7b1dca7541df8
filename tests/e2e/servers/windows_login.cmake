# The example programs and the program marvo for Windows under Wine: the pkcs11 back-end with its test doubles, and the
# CryptoAPI back-ends with the test card of the CSP test double.
add_executable(kes_windows_login_tests
    windows_capi.cpp
    windows_capi_login_test.cpp
    windows_capi_settings_test.cpp
    windows_first_clients_test.cpp
    windows_list_test.cpp
    windows_login_test.cpp
    windows_program.cpp
    ${PROJECT_SOURCE_DIR}/tests/support/test_card.cpp)
add_dependencies(kes_windows_login_tests loopback_only)
target_compile_definitions(kes_windows_login_tests PRIVATE
    MARVO_WINE="${PROJECT_SOURCE_DIR}/tools/wine"
    MARVO_PREPARE_CARD="${PROJECT_SOURCE_DIR}/tests/data/prepare-card"
    MARVO_PROGRAMS="${MARVO_WINDOWS_BUILD}/bin"
    MARVO_DOUBLES="${MARVO_WINDOWS_BUILD}/tests/doubles/dll"
    MARVO_CARD_FILES="${MARVO_WINDOWS_BUILD}/tests/data/cards")
target_link_libraries(kes_windows_login_tests PRIVATE kes_servers kes_flags OpenSSL::Crypto GTest::gtest_main)
gtest_discover_tests(kes_windows_login_tests TEST_FILTER -*WindowsCapi*:*MyStore* TEST_LIST windows_login_tests
    TEST_PREFIX servers. NO_PRETTY_VALUES PROPERTIES TIMEOUT 120)
# A test in the Windows build registers the card's provider. Tests that use the store "MY" must not run in parallel.
gtest_discover_tests(kes_windows_login_tests TEST_FILTER *WindowsCapi* TEST_LIST windows_capi_tests
    TEST_PREFIX servers. NO_PRETTY_VALUES PROPERTIES FIXTURES_REQUIRED test_card TIMEOUT 120)
gtest_discover_tests(kes_windows_login_tests TEST_FILTER *MyStore* TEST_LIST windows_store_tests
    TEST_PREFIX servers. NO_PRETTY_VALUES PROPERTIES FIXTURES_REQUIRED test_card TIMEOUT 120 RESOURCE_LOCK windows_my_store)
