// When the DLL is unloaded from a process, and how it works at another than its preferred base address.
#include "wrong_file_fixture.h"

namespace Kes::test {
namespace {

using testing::EndsWith;
using testing::StartsWith;

class DllLifetimeTest : public DllFolder {
protected:
    std::string run_and_free_dll(const std::string& backend) const {
        return run({"backend=" + backend, "init", "destroy", "free_dll"});
    }

    static constexpr const char* gone = "\ndestroy: 0\nthe DLL is gone\nfree_dll: 0\n";
};

TEST_F(DllLifetimeTest, DllIsUnloadedIfLibp11IsMissing) {
    const std::string text = run_and_free_dll("pkcs11");
    EXPECT_THAT(
        text,
        StartsWith(
            "init: 1 libp11_library:78 Kes::require_libp11(): libp11.dll and libp11-3.dll not found: "));
    EXPECT_THAT(text, EndsWith(gone));
}

TEST_F(DllLifetimeTest, DllIsUnloadedIfLibp11IsWrong) {
    put(wrong / "lacking" / "libp11.dll", folder);
    const std::string text = run_and_free_dll("pkcs11");
    EXPECT_THAT(text, StartsWith("init: 1 libp11_library:117 Kes::require_libp11(): "));
    EXPECT_THAT(text, EndsWith(gone));
}

TEST_F(DllLifetimeTest, DllIsUnloadedIfLibp11IsNotNeeded) {
    EXPECT_EQ(run_and_free_dll("capi"), std::string("init: 0") + gone);
}

TEST_F(DllLifetimeTest, DllStaysLoadedAfterLibp11IsLoaded) {
    put(wrong / "whole" / "libp11.dll", folder);
    EXPECT_EQ(run_and_free_dll("pkcs11"), "init: 0\ndestroy: 0\nthe DLL stays\nfree_dll: 0\n");
}

/// Only the engine uses the card: init() was called with another back-end, so libp11 is not loaded.
class EngineAloneTest : public WrongFileTest {
protected:
    EngineAloneTest() { std::filesystem::remove(folder / "libp11.dll"); }

    std::string run_with_key(const std::string& id) const {
        const std::string object = "pkcs11:token=Card 1;id=%" + id + ";type=";
        return masked_errors(
            run({"backend=capi_store", "init", "read_scard", "backend=pkcs11", "engine=" + path("pkcs11.dll"),
                 "pin=" + std::string(card_pin), "key_name=" + object + "private",
                 "cert_name=" + object + "cert", "notify_config_done", "ossl_load", "destroy", "free_dll"}));
    }
};

TEST_F(EngineAloneTest, DllStaysLoadedAfterKeyIsLoaded) {
    EXPECT_EQ(run_with_key("01"), "init: 0\nread_scard: 0\nnotify_config_done: 0\nossl_load: 0\ndestroy: 0\n"
                                  "the DLL stays\nfree_dll: 0\n");
}

TEST_F(EngineAloneTest, DllStaysLoadedAfterKeyIsMissing) {
    const std::string text = run_with_key("02");
    EXPECT_THAT(text, StartsWith("init: 0\nread_scard: 0\nnotify_config_done: 0\nossl_load: 1 "));
    EXPECT_THAT(text, EndsWith("\ndestroy: 0\nthe DLL stays\nfree_dll: 0\n"));
}

/// The DLL's preferred base address is occupied.
class RelocatedDllTest : public WrongFileTest {};

TEST_F(RelocatedDllTest, ReportsMissingLibp11) {
    std::filesystem::remove(folder / "libp11.dll");
    EXPECT_THAT(run({"occupy_preferred_base", "backend=pkcs11", "init", "destroy"}),
                testing::AllOf(StartsWith("init: 1 libp11_library:78 Kes::require_libp11(): libp11.dll and "
                                          "libp11-3.dll not found: looked for them in '" +
                                          folder.string() + "\\', "),
                               EndsWith(": " + windows_error(126) + "\ndestroy: 0\n")));
}

TEST_F(RelocatedDllTest, LoadsKeyFromCard) {
    EXPECT_EQ(run({"occupy_preferred_base", "backend=pkcs11", "engine=" + path("pkcs11.dll"), "init",
                   "read_scard", "pin=" + std::string(card_pin), "discover_keys", "set_key",
                   "notify_config_done", "ossl_load", "destroy"}),
              "init: 0\nread_scard: 0\n1 key(s)\ndiscover_keys: 0\nset_key: 0\nnotify_config_done: 0\n"
              "ossl_load: 0\ndestroy: 0\n");
}

} // namespace
} // namespace Kes::test
