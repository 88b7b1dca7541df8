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

/// A certificate that the build made for these tests.
Bytes cert_der(const std::string& name);

/// One of many that differ in their number.
Bytes numbered_cert_der(int number);

/// The keys of the containers, read once. The certificates all have the RSA key.
struct CapiKeys {
    static const CapiKeys& instance();
    EvpPkeyPtr rsa;
    EvpPkeyPtr ec;
};

/// "val=5 [0x5] (unknown winerror)": this system has no texts for the errors of Windows.
std::string win_code(DWORD code);

/// The ways in which any call may fail: one without a meaning of its own, and two that some callers know.
constexpr DWORD ordinary = 5;
constexpr DWORD bad_type = static_cast<DWORD>(NTE_BAD_TYPE);
constexpr DWORD no_more_items = ERROR_NO_MORE_ITEMS;
constexpr DWORD all_codes[] = {ordinary, bad_type, no_more_items};

/// A failure with that last error, for the script.
Failure win_failure(DWORD code);

constexpr const char* csp = "Test CSP";

/// The provider "Test CSP" and the store "MY". The container c1 has a key for the exchange of keys and one
/// for signatures, c2 has one for signatures. The store has a certificate of each kind, and one without
/// usages.
void set_up_capi();

/// At the end of a test, when the objects of its fixture are gone too: nothing is held, and nothing was used
/// wrongly. Then forgets the provider and the store.
void end_capi();

class CapiTest : public CoreTest {
protected:
    CapiTest() { set_up_capi(); }
    ~CapiTest() override { end_capi(); }

    static ScriptedCapi& capi() { return ScriptedCapi::instance(); }
    static ScriptedProvider& provider() { return capi().providers.at(0); }
    static ScriptedContainer& container(std::size_t i) { return provider().containers.at(i); }
    static ScriptedStore& store() { return capi().stores.at(0); }

    /// Forgets record and plan, once nothing was used wrongly so far.
    static void restart_script();
};

/// As above, driven through the exported object.
class CapiScardTest : public ScardTest {
protected:
    CapiScardTest() { set_up_capi(); }
    ~CapiScardTest() override { end_capi(); }

    static ScriptedCapi& capi() { return ScriptedCapi::instance(); }

    /// A configuration of the client's for the test doubles that writes no log.
    static OsslScardCfg& make_capi_config(OsslScardCfg::CryptoIf crypto_if);
};

/// The text form of every record, without line ends.
Lines records(const PkoIdList& list);

/// The three records of a key.
Lines capi_records(const std::string& container, DWORD key_spec);
Lines store_records(const std::string& name);

/// The lines with ADDRESS for every address.
Lines without_addresses(Lines lines);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_CAPI_FIXTURE_H_
