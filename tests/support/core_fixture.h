#ifndef KES_TESTS_SUPPORT_CORE_FIXTURE_H_
#define KES_TESTS_SUPPORT_CORE_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "doubles/call_script.h"
#include "doubles/scripted_engine.h"
#include "doubles/scripted_libp11.h"
#include "error_lines.h"
#include "manager/ossl_scard_mgr.h"
#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"
#include "support.h"
#include "typed_keys.h"
#include "utils/ossl_ptr.h"

namespace Kes::test {

/// The certificates and the key that the build creates for the scripted test doubles, read once.
struct TestData {
    static const TestData& instance();

    X509Ptr client;   ///< "Test Client": digital signature and key encipherment; two extended usages
    X509Ptr encipher; ///< "Encipher Only": only key encipherment
    X509Ptr bare;     ///< "No Usage": no key usage and no extended usage
    EvpPkeyPtr key;   ///< the key of all three certificates
};

/// Tests with test doubles of libp11 and the engine. One token requires the PIN "1234" and has a certificate
/// with its private key and public key. After each test, the fixture checks that no violation occurred and
/// that everything acquired was released.
class CoreTest : public ::testing::Test {
protected:
    CoreTest();
    ~CoreTest() override;
    void TearDown() override;

    /// Puts the test doubles into their initial state. None of them may be in use.
    static void set_up_doubles();

    static CallScript& script() { return CallScript::instance(); }
    static ScriptedLibp11& libp11() { return ScriptedLibp11::instance(); }
    static ScriptedEngine& engine() { return ScriptedEngine::instance(); }
    static ScriptedToken& token() { return *libp11().slots.at(0).token; }
    static const TestData& data() { return TestData::instance(); }

    /// An object on the token, with the id 01 ab.
    static ScriptedObject object(X509* x509 = nullptr) { return {"Auth key", {0x01, 0xab}, x509}; }

    /// Slot arrays that the test does not expect to be released: without a token, they are left to the
    /// context.
    std::size_t expected_slot_arrays = 0;
};

/// The same, for tests that use the exported object. The fixture destroys it after each test.
class ScardTest : public CoreTest {
protected:
    void TearDown() override;

    static OsslScardIf& scard();

    /// A client configuration for the test doubles, without a log.
    static OsslScardCfg& make_config();

    /// Takes a new object to a state with the operations that a client would use.
    static void go_to(CfgState state);
    static void read_and_discover();

    /// The current state of the library. Does not change it.
    static std::string state();

    static std::string last_error() { return scard().get_last_error_msg(); }
};

constexpr const char* private_uri = "pkcs11:token=Token 1;id=%01%ab;type=private";
constexpr const char* cert_uri = "pkcs11:token=Token 1;id=%01%ab;type=cert";

/// The calls that unload an engine.
Lines engine_unload_calls();

/// A console whose input is at its end. Collects the output.
class ConsoleWithoutInput {
public:
    ConsoleWithoutInput();
    ~ConsoleWithoutInput();
    ConsoleWithoutInput(const ConsoleWithoutInput&) = delete;
    ConsoleWithoutInput& operator=(const ConsoleWithoutInput&) = delete;

    std::string output() const { return output_.str(); }

private:
    std::ostringstream output_;
    std::streambuf* console_;
    TypedKeys keyboard_;
};

/// The lines of an error text that report what a failing function raised, each after a line end. The error
/// queue must be empty, and is empty afterwards.
std::string raised_by(const std::string& function);

/// The end of the error text when the PKCS#11 module or the engine's library does not exist: the system's
/// error, where libp11 or OpenSSL hides it. See core_fixture_posix.cpp and core_fixture_win.cpp.
std::string missing_module_detail(const std::string& file);
std::string missing_engine_detail(const std::string& file);

Lines operator+(Lines first, const Lines& second);

/// Status and error text of an operation in one string, to compare both with one EXPECT_EQ.
std::string outcome(int status, const std::string& error);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_CORE_FIXTURE_H_
