#include <fstream>
#include <openssl/err.h>

#include "pkcs11_engine_registry_fixture.h"
#include "support/failing_allocation.h"

namespace Kes::test {
namespace {

class Pkcs11OsslEngineMemoryTest : public Pkcs11EngineRegistryTest {
protected:
    Pkcs11OsslEngineMemoryTest() { create_library(); }

    /// The file must exist: without memory for its canonical path, the library is recognised by the file.
    void create_library() const { std::ofstream(current_library) << "an engine"; }

    void load_and_read_key() {
        Pkcs11OsslEngine loaded(current_library.c_str(), "module.so", &pin, false);
        key = loaded.read_private_key("key");
    }

    /// Continues with a library that was never loaded, so that the next load does not reuse an engine.
    void change_library() {
        current_library = library + std::to_string(++number);
        create_library();
        set_up_doubles();
        engine().keys_hold_engine = true;
        engine().refuses_loaded_library = true;
    }

    std::string current_library = library;
    int number = 0;
};

TEST_F(Pkcs11OsslEngineMemoryTest, LoadSucceedsAfterAnyAllocationOfAnEarlierLoadFailed) {
    const std::size_t failures = for_each_failing_allocation(
        [&] {
            try {
                load_and_read_key();
            } catch (const std::exception&) { // not always bad_alloc: the file system library hides it
            }
        },
        [&](bool) {
            key.reset();
            Pkcs11EngineRegistry::instance().clean_up_pending();
            EXPECT_EQ(engine().initialised_engines(), 0U);
            EXPECT_EQ(engine().unreleased_engines(), 0U);
            EXPECT_EQ(::ERR_peek_error(), 0UL);
            EXPECT_EQ(error_text([&] { load_and_read_key(); }), "no exception");
            key.reset();
            change_library();
        });
    EXPECT_GE(failures, 10U);
}

} // namespace
} // namespace Kes::test
