#ifndef KES_TESTS_SUPPORT_CAPI_FIXTURE_H_
#define KES_TESTS_SUPPORT_CAPI_FIXTURE_H_

#include <string>
#include <utility>
#include <vector>

#include "base/pko_id_list.h"
#include "certificates.h"
#include "core_fixture.h"
#include "doubles/capi/scripted_capi.h"

namespace Kes::test {

/// A certificate that the build creates for these tests.
Bytes cert_der(const std::string& name);

/// One of a series of certificates that differ only in a number.
Bytes numbered_cert_der(int number);

/// The keys in the containers, read once. All certificates belong to the RSA key.
struct CapiKeys {
    static const CapiKeys& instance();
    EvpPkeyPtr rsa;
    EvpPkeyPtr ec;
};

/// "val=5 [0x5] (unknown winerror)": this system has no texts for Windows error codes.
std::string win_code(DWORD code);

/// Last errors for failing calls: an ordinary one, and two that some callers treat specially.
constexpr DWORD ordinary = 5;
constexpr DWORD bad_type = static_cast<DWORD>(NTE_BAD_TYPE);
constexpr DWORD no_more_items = ERROR_NO_MORE_ITEMS;
constexpr DWORD all_codes[] = {ordinary, bad_type, no_more_items};

/// A scripted failure that sets this last error.
Failure win_failure(DWORD code);

constexpr const char* csp = "Test CSP";

/// Sets up the provider "Test CSP" and the store "MY". Container c1 has a key exchange key and a signature
/// key, c2 has a signature key. The store has a certificate for each key type, and one without key usages.
void set_up_capi();

/// Checks that every handle was released and that no violation occurred, then removes provider and store.
/// Call it after the fixture's own objects are destroyed.
void end_capi();

class CapiTest : public CoreTest {
protected:
    CapiTest() { set_up_capi(); }
    ~CapiTest() override { end_capi(); }

    static ScriptedCapi& capi() { return ScriptedCapi::instance(); }
    static ScriptedProvider& provider() { return capi().providers.at(0); }
    static ScriptedContainer& container(std::size_t i) { return provider().containers.at(i); }
    static ScriptedStore& store() { return capi().stores.at(0); }

    /// Checks that no violation occurred, then clears the recorded calls and the planned failures.
    static void restart_script();
};

/// The same, for tests that use the exported object.
class CapiScardTest : public ScardTest {
protected:
    CapiScardTest() { set_up_capi(); }
    ~CapiScardTest() override { end_capi(); }

    static ScriptedCapi& capi() { return ScriptedCapi::instance(); }

    /// A client configuration for the test doubles, without a log.
    static OsslScardCfg& make_capi_config(OsslScardCfg::CryptoIf crypto_if);
};

/// The text of each record, without line ends.
Lines records(const PkoIdList& list);

/// The records of a key: private key, public key and certificate.
Lines capi_records(const std::string& container, DWORD key_spec);
Lines store_records(const std::string& name);

/// Replaces each address with ADDRESS.
Lines without_addresses(Lines lines);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_CAPI_FIXTURE_H_
