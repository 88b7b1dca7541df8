// How long the DLL stays in a process, and where in its memory.
#include "wrong_file_fixture.h"

namespace Kes::test {
namespace {

using testing::EndsWith;
using testing::StartsWith;

class LifetimeTest : public DllFolder {
protected:
    std::string run_and_let_go(const std::string& backend) const {
        return run({"backend=" + backend, "init", "destroy", "free_dll"});
    }

    static constexpr const char* gone = "\ndestroy: 0\nthe DLL is gone\nfree_dll: 0\n";
};

TEST_F(LifetimeTest, WithoutLibp11TheDllGoesWithItsLastUser) {
    const std::string text = run_and_let_go("pkcs11");
    EXPECT_THAT(text, StartsWith("init: 1 libp11_library:78 Kes::require_libp11(): libp11.dll not found: "));
    EXPECT_THAT(text, EndsWith(gone));
}

TEST_F(LifetimeTest, AWrongLibp11DoesNotKeepTheDll) {
    put(wrong / "lacking" / "libp11.dll", folder);
    const std::string text = run_and_let_go("pkcs11");
    EXPECT_THAT(text, StartsWith("init: 1 libp11_library:117 Kes::require_libp11(): "));
    EXPECT_THAT(text, EndsWith(gone));
}

TEST_F(LifetimeTest, AClientThatNeedsNoLibp11CanLetGoOfTheDll) {
    EXPECT_EQ(run_and_let_go("capi"), std::string("init: 0") + gone);
}

TEST_F(LifetimeTest, WithLibp11TheDllStays) {
    put(wrong / "whole" / "libp11.dll", folder);
    EXPECT_EQ(run_and_let_go("pkcs11"), "init: 0\ndestroy: 0\nthe DLL stays\nfree_dll: 0\n");
}

/// The place that the DLL would like to have in memory is taken.
class PlaceInMemoryTest : public WrongFileTest {};

TEST_F(PlaceInMemoryTest, ElsewhereAMissingLibp11IsToldToo) {
    std::filesystem::remove(folder / "libp11.dll");
    EXPECT_THAT(run({"take_base", "backend=pkcs11", "init", "destroy"}),
                testing::AllOf(StartsWith("init: 1 libp11_library:78 Kes::require_libp11(): libp11.dll not "
                                          "found: looked for it in '" +
                                          folder.string() + "\\', "),
                               EndsWith(": " + windows_error(126) + "\ndestroy: 0\n")));
}

TEST_F(PlaceInMemoryTest, ElsewhereTheDllReadsACardToo) {
    EXPECT_EQ(run({"take_base", "backend=pkcs11", "engine=" + path("pkcs11.dll"), "init", "read_scard",
                   "pin=" + std::string(card_pin), "discover_keys", "set_key", "notify_config_done",
                   "ossl_load", "destroy"}),
              "init: 0\nread_scard: 0\n1 key(s)\ndiscover_keys: 0\nset_key: 0\nnotify_config_done: 0\n"
              "ossl_load: 0\ndestroy: 0\n");
}

} // namespace
} // namespace Kes::test
