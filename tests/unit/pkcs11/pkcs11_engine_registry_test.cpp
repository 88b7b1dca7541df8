#include <filesystem>
#include <fstream>
#include <openssl/err.h>

#include "pkcs11_engine_registry_fixture.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

constexpr const char* refused = "ossl_engine_pkcs11:104 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): "
                                "ENGINE_ctrl_cmd_string(LOAD) failed: rc=0\n"
                                "error:engine routines:init failed:";
constexpr const char* reason = "\nerror:engine routines:operation fail:the engine cannot be loaded again";

TEST_F(Pkcs11EngineRegistryTest, EngineThatKeepsReferencesIsCleanedUpAfterItsFinish) {
    load_and_free_key(library);
    EXPECT_EQ(last_calls(5), (Lines{"ENGINE_finish(engine1)", "ENGINE_init(engine1)", "clean_up(engine1)",
                                    "ENGINE_finish(engine1)", "ENGINE_free(engine1)"}));
}

TEST_F(Pkcs11EngineRegistryTest, EngineThatReleasesItselfIsNotCleanedUpAgain) {
    engine().keys_hold_engine = false;
    load_and_free_key(library);
    EXPECT_EQ(last_calls(2), (Lines{"ENGINE_finish(engine1)", "ENGINE_free(engine1)"}));
}

TEST_F(Pkcs11EngineRegistryTest, EngineIsNotCleanedUpWhileTheClientHoldsAKey) {
    load_and_keep_key(library);
    EXPECT_EQ(last_calls(2), (Lines{"ENGINE_finish(engine1)", "ENGINE_free(engine1)"}));
    script().take_calls();
    Pkcs11EngineRegistry::instance().clean_up_pending();
    EXPECT_EQ(script().take_calls(), Lines());
    key.reset();
    script().take_calls();
    Pkcs11EngineRegistry::instance().clean_up_pending();
    EXPECT_EQ(script().calls(),
              (Lines{"ENGINE_init(engine1)", "clean_up(engine1)", "ENGINE_finish(engine1)"}));
}

TEST_F(Pkcs11EngineRegistryTest, DuplicateOfAKeyPostponesTheCleanUpToo) {
    load_and_keep_key(library);
    EvpPkeyPtr duplicate(::EVP_PKEY_dup(key.get()));
    ASSERT_NE(duplicate, nullptr);
    key.reset();
    script().take_calls();
    Pkcs11EngineRegistry::instance().clean_up_pending();
    EXPECT_EQ(script().take_calls(), Lines());
    duplicate.reset();
    Pkcs11EngineRegistry::instance().clean_up_pending();
    EXPECT_EQ(engine().initialised_engines(), 0U);
}

TEST_F(Pkcs11EngineRegistryTest, EngineIsSetUpAgainWhenOpensslRefusesToReloadItsLibrary) {
    load_and_free_key(library);
    script().take_calls();
    const Pkcs11OsslEngine again(library.c_str(), "other.so", &pin, false);
    EXPECT_EQ(script().calls(),
              (Lines{"ENGINE_by_id(dynamic)", "ENGINE_ctrl_cmd_string(engine2, SO_PATH, " + library + ")",
                     "ENGINE_ctrl_cmd_string(engine2, LIST_ADD, 1)",
                     "ENGINE_ctrl_cmd_string(engine2, LOAD, null)", "ENGINE_add(engine1)",
                     "ENGINE_free(engine2)", "ENGINE_ctrl_cmd_string(engine1, MODULE_PATH, other.so)",
                     "ENGINE_init(engine1)", "ENGINE_ctrl_cmd_string(engine1, PIN, right pin)",
                     "ENGINE_set_default(engine1, 65535)", "ENGINE_get_id(engine1)"}));
    EXPECT_EQ(::ERR_peek_error(), 0UL);
}

TEST_F(Pkcs11EngineRegistryTest, FailedStepOfARepeatedSetUpIsUndoneAndTheNextLoadSucceeds) {
    load_and_free_key(library);
    script().fail_function("ENGINE_set_default");
    EXPECT_EQ(load_error(library), "ossl_engine_pkcs11:150 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): "
                                   "ENGINE_set_default() failed: rc=7" +
                                       raised_by("ENGINE_set_default"));
    EXPECT_EQ(last_calls(3), (Lines{"ENGINE_ctrl_cmd_string(engine1, PIN, empty pin)",
                                    "ENGINE_remove(engine1)", "ENGINE_free(engine1)"}));
    script().clear_failures();
    EXPECT_EQ(load_error(library), "no exception");
}

TEST_F(Pkcs11EngineRegistryTest, NextLoadSucceedsAfterTheModuleFailedToInitialise) {
    script().fail_function("ENGINE_init");
    EXPECT_EQ(load_error(library), "ossl_engine_pkcs11:116 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): "
                                   "ENGINE_init() failed: rc=7" +
                                       raised_by("ENGINE_init") + missing_module_detail("module.so"));
    script().clear_failures();
    EXPECT_EQ(load_error(library), "no exception");
}

TEST_F(Pkcs11EngineRegistryTest, LoadFailsWithTheReasonWhileTheClientHoldsAKey) {
    load_and_keep_key(library);
    EXPECT_EQ(masked_errors(load_error(library)),
              std::string(refused) + reason + ": the client still uses a private key of an earlier load");
}

TEST_F(Pkcs11EngineRegistryTest, KeyFreedAfterTheUnloadMakesLoadsFailUntilTheNextInit) {
    load_and_keep_key(library);
    key.reset();
    EXPECT_EQ(masked_errors(load_error(library)),
              std::string(refused) + reason +
                  " before the next init: a private key of an earlier load was freed after this one");
    Pkcs11EngineRegistry::instance().clean_up_pending();
    EXPECT_EQ(load_error(library), "no exception");
}

TEST_F(Pkcs11EngineRegistryTest, OtherLoadErrorsAreReportedUnchanged) {
    load_and_free_key(library);
    script().fail_function("ENGINE_ctrl_cmd_string", {0, "cannot bind"});
    const std::size_t lines_before = log.lines().size();
    EXPECT_EQ(load_error(library).find("ENGINE_add"), std::string::npos);
    EXPECT_EQ(log.lines().size(), lines_before);
    EXPECT_THAT(script().calls(), testing::Not(testing::Contains("ENGINE_add(engine1)")));
}

TEST_F(Pkcs11EngineRegistryTest, EnginesOfTwoLibrariesAreBothRemembered) {
    engine().refuses_loaded_library = false;
    load_and_free_key(library);
    load_and_free_key(library + ".other");
    engine().refuses_loaded_library = true;
    script().take_calls();
    EXPECT_EQ(load_error(library), "no exception");
    EXPECT_THAT(script().take_calls(), testing::Contains("ENGINE_add(engine1)"));
    EXPECT_EQ(load_error(library + ".other"), "no exception");
    EXPECT_THAT(script().take_calls(), testing::Contains("ENGINE_add(engine2)"));
}

TEST_F(Pkcs11EngineRegistryTest, LibraryIsRecognisedByItsHardLink) {
    std::ofstream(library) << "an engine";
    std::filesystem::create_hard_link(library, library + ".link");
    load_and_free_key(library);
    EXPECT_EQ(load_error(library + ".link"), "no exception");
}

TEST_F(Pkcs11EngineRegistryTest, LibraryOfTheSameNameInAnotherFolderIsADifferentLibrary) {
    const std::filesystem::path folder = std::filesystem::path(library).parent_path() / "other";
    std::filesystem::create_directory(folder);
    std::ofstream(library) << "an engine";
    std::ofstream(folder / "engine.so") << "an engine";
    load_and_free_key(library);
    EXPECT_EQ(masked_errors(load_error((folder / "engine.so").string())), refused);
}

TEST_F(Pkcs11EngineRegistryTest, RelativePathIsRecognisedAfterTheCurrentFolderChanges) {
    {
        const CurrentFolder folder(std::filesystem::path(library).parent_path());
        load_and_free_key("./engine.so");
    }
    EXPECT_EQ(load_error(library), "no exception");
}

TEST_F(Pkcs11EngineRegistryTest, EngineWithoutAFinishFunctionIsSetUpAgainWithItsPinCleared) {
    engine().keys_hold_engine = false;
    engine().has_finish_function = false;
    load_and_free_key(library);
    EXPECT_EQ(script().take_calls().front(), "ENGINE_ctrl_cmd_string(engine1, PIN, empty pin)");
    EXPECT_EQ(load_error(library), "no exception");
    EXPECT_THAT(script().calls(), testing::Contains("ENGINE_add(engine1)"));
}

TEST_F(Pkcs11EngineRegistryTest, EngineIsCleanedUpAfterAKeyCouldNotBeLent) {
    engine().refuses_key_engine = true;
    EXPECT_EQ(masked_errors(error_text([&] { load_and_free_key(library); })),
              "key_lender:24 Kes::KeyLender::lend(): error creating the client's private key: rc=0\n"
              "error:lib:reason(160):no such method");
    EXPECT_EQ(engine().initialised_engines(), 0U);
    engine().refuses_key_engine = false;
    EXPECT_EQ(load_error(library), "no exception");
}

TEST_F(Pkcs11EngineRegistryTest, KeyOfAnotherTypeIsReturnedAsItIsAndTheErrorQueueIsEmpty) {
    const EvpPkeyPtr other(::EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
    engine().private_key = other.get();
    load_and_free_key(library);
    EXPECT_EQ(::ERR_peek_error(), 0UL);
    EXPECT_EQ(engine().initialised_engines(), 1U);
    EXPECT_EQ(masked_errors(load_error(library)), std::string(refused) + reason +
                                                      ": a private key of an earlier load is neither RSA nor "
                                                      "EC, so it is not known whether it was freed");
    engine().break_cycles();
}

TEST_F(Pkcs11EngineRegistryTest, PinIsClearedBeforeTheEngineIsReleased) {
    load_and_free_key(library);
    EXPECT_THAT(script().calls(), testing::Contains("ENGINE_ctrl_cmd_string(engine1, PIN, empty pin)"));
    EXPECT_EQ(script().calls().front(), "ENGINE_ctrl_cmd_string(engine1, PIN, empty pin)");
}

TEST_F(Pkcs11EngineRegistryTest, EngineReceivesNoPinCommandWhenNoPinIsGiven) {
    { const Pkcs11OsslEngine loaded(library.c_str(), "module.so", nullptr, false); }
    EXPECT_THAT(script().calls(), testing::Not(testing::Contains(testing::HasSubstr("PIN"))));
}

TEST_F(Pkcs11EngineRegistryTest, FinishOfACopyOfAnEngineSucceedsWithoutACleanUp) {
    load_and_keep_key(library);
    script().take_calls();
    EXPECT_EQ(engine().finish_copy(), 1);
    EXPECT_EQ(script().calls(), Lines());
    EXPECT_EQ(engine().initialised_engines(), 1U);
}

} // namespace
} // namespace Kes::test
