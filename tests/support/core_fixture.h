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

/// The certificates and the key that the build made for the scripted test doubles, read once.
struct TestData {
    static const TestData& instance();

    X509Ptr client;   ///< "Test Client": digital signature and key encipherment; two extended usages
    X509Ptr encipher; ///< "Encipher Only": key encipherment alone
    X509Ptr bare;     ///< "No Usage": neither usage
    EvpPkeyPtr key;   ///< the key of all of them
};

/// libp11 and the engine as test doubles, with one token that wants the PIN "1234" and holds one certificate,
/// its private key and its public key. At the end no test double may have been used wrongly, and all that was
/// acquired must have been released.
class CoreTest : public ::testing::Test {
protected:
    CoreTest();
    ~CoreTest() override;
    void TearDown() override;

    /// The test doubles as they are at the beginning of each test. None of them may be in use.
    static void set_up_doubles();

    static CallScript& script() { return CallScript::instance(); }
    static ScriptedLibp11& libp11() { return ScriptedLibp11::instance(); }
    static ScriptedEngine& engine() { return ScriptedEngine::instance(); }
    static ScriptedToken& token() { return *libp11().slots.at(0).token; }
    static const TestData& data() { return TestData::instance(); }

    /// A token's object with the id 01 ab.
    static ScriptedObject object(X509* x509 = nullptr) { return {"Auth key", {0x01, 0xab}, x509}; }

    /// Slot arrays that a test leaves on purpose; without a token they are left to the context.
    std::size_t expected_slot_arrays = 0;
};

/// As above, driven through the exported object, which is gone at the end.
class ScardTest : public CoreTest {
protected:
    void TearDown() override;

    static OsslScardIf& scard();

    /// A configuration of the client's for the test doubles that writes no log.
    static OsslScardCfg& make_config();

    /// From a fresh object into a state, through the operations that a client would use.
    static void go_to(CfgState state);
    static void read_and_discover();

    /// The state that the library is in; asking changes nothing.
    static std::string state();

    static std::string last_error() { return scard().get_last_error_msg(); }
};

constexpr const char* private_uri = "pkcs11:token=Token 1;id=%01%ab;type=private";
constexpr const char* cert_uri = "pkcs11:token=Token 1;id=%01%ab;type=cert";

/// What an engine's end consists of.
Lines engine_unload_calls();

/// A console that nobody sits at: its input has ended, and what is written to it is collected.
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

/// What an error text ends with when a library was to be loaded that is not there: the words of the system,
/// where OpenSSL and libp11 keep them back. core_fixture_posix.cpp or core_fixture_win.cpp.
std::string missing_file_detail(const std::string& file);

Lines operator+(Lines first, const Lines& second);

/// What EXPECT_EQ says of an operation: its status, and the error's text if there is one.
std::string outcome(int status, const std::string& error);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_CORE_FIXTURE_H_
