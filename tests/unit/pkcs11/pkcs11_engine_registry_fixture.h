#ifndef KES_TESTS_UNIT_PKCS11_PKCS11_ENGINE_REGISTRY_FIXTURE_H_
#define KES_TESTS_UNIT_PKCS11_PKCS11_ENGINE_REGISTRY_FIXTURE_H_

#include <algorithm>
#include <string>

#include "pkcs11/ossl_engine_pkcs11.h"
#include "pkcs11/pkcs11_engine_registry.h"
#include "support/core_fixture.h"

namespace Kes::test {

/// Simulates the engine of libp11 0.4.12, whose keys keep references to the engine, and an OpenSSL that does
/// not load a library twice.
class Pkcs11EngineRegistryTest : public CoreTest {
protected:
    Pkcs11EngineRegistryTest() {
        engine().keys_hold_engine = true;
        engine().refuses_loaded_library = true;
    }

    void TearDown() override {
        key.reset();
        Pkcs11EngineRegistry::instance().clean_up_pending();
        EXPECT_EQ(engine().initialised_engines(), 0U);
        CoreTest::TearDown();
    }

    /// Loads the engine, reads a key and unloads the engine. The key stays in use until it is reset.
    void load_and_keep_key(const std::string& engine_path) {
        key.reset();
        Pkcs11OsslEngine loaded(engine_path.c_str(), "module.so", &pin, false);
        key = loaded.read_private_key("key");
        script().take_calls();
    }

    /// Loads the engine, reads a key, frees it and unloads the engine.
    void load_and_free_key(const std::string& engine_path) {
        key.reset();
        Pkcs11OsslEngine loaded(engine_path.c_str(), "module.so", &pin, false);
        key = loaded.read_private_key("key");
        key.reset();
        script().take_calls();
    }

    std::string load_error(const std::string& engine_path) {
        return error_text([&] { Pkcs11OsslEngine(engine_path.c_str(), "module.so", &pin, false); });
    }

    Lines last_calls(std::size_t count) {
        const Lines& all = script().calls();
        return {all.end() - static_cast<std::ptrdiff_t>(std::min(count, all.size())), all.end()};
    }

private:
    TempDir dir;

protected:
    /// A path unique to the test, because the registry keeps engines until the process ends.
    const std::string library = dir.file("engine.so");
    const Pin pin{"1234"};
    EvpPkeyPtr key;
    LogCapture log;
};

} // namespace Kes::test

#endif // KES_TESTS_UNIT_PKCS11_PKCS11_ENGINE_REGISTRY_FIXTURE_H_
