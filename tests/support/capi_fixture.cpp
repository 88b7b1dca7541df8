#include "capi_fixture.h"

#include <cstdio>
#include <regex>

#include "base/capi_key_type.h"
#include "certificates.h"

namespace Kes::test {
namespace {

const std::filesystem::path certificates(KES_TEST_CERTS);

Lines triple(const std::string& display_name, const std::string& rest) {
    Lines lines;
    for (const char* type : {"private_key", "public_key", "certificate"})
        lines.push_back(display_name + " [type=" + type + rest);
    return lines;
}

} // namespace

Bytes cert_der(const std::string& name) { return read_bytes(certificates / (name + ".der")); }

Bytes numbered_cert_der(int number) {
    static const Bytes original = cert_der("numbered");
    return with_number(original, number);
}

const CapiKeys& CapiKeys::instance() {
    static const CapiKeys keys{read_pem_key(certificates / "rsa.pem"), read_pem_key(certificates / "ec.pem")};
    return keys;
}

std::string win_code(DWORD code) {
    char hex[16];
    std::snprintf(hex, sizeof hex, "%x", code);
    return "val=" + std::to_string(code) + " [0x" + hex + "] (unknown winerror)";
}

Failure win_failure(DWORD code) { return {.rc = static_cast<int>(code)}; }

void set_up_capi() {
    EVP_PKEY* rsa = CapiKeys::instance().rsa.get();
    ScriptedCapi::instance().reset();
    ScriptedProvider provider;
    provider.containers = {
        {"c1", {{AT_KEYEXCHANGE, {cert_der("exchange"), rsa}}, {AT_SIGNATURE, {cert_der("sign"), rsa}}}},
        {"c2", {{AT_SIGNATURE, {cert_der("sign"), rsa}}}}};
    ScriptedCapi::instance().providers = {provider};
    ScriptedCapi::instance().stores = {{"MY", {cert_der("sign"), cert_der("exchange"), cert_der("bare")}}};
}

void end_capi() {
    EXPECT_EQ(ScriptedCapi::instance().unreleased_handles(), 0U);
    EXPECT_EQ(CallScript::instance().violations(), Lines());
    ScriptedCapi::instance().reset();
}

void CapiTest::restart_script() {
    EXPECT_EQ(script().violations(), Lines());
    script().reset();
}

OsslScardCfg& CapiScardTest::make_capi_config(OsslScardCfg::CryptoIf crypto_if) {
    OsslScardCfg& cfg = *scard().get_config_default();
    cfg.set_crypto_if(crypto_if);
    cfg.set_capi_openssl_engine_dll("./capi.so");
    cfg.set_capi_store_openssl_engine_dll("./capi.so");
    cfg.set_capi_csp_name(csp);
    cfg.set_logfile("");
    return cfg;
}

Lines records(const PkoIdList& list) { return split_lines(text_of(list)); }

Lines capi_records(const std::string& container, DWORD key_spec) {
    return triple(container + " (" + capi_key_type_name(key_spec) + ")",
                  ", key_type=" + std::to_string(key_spec) + ", name=" + container +
                      ", cluster_name=" + container + "]");
}

Lines store_records(const std::string& name) {
    return triple(name, ", key_type=0, name=" + name + ", cluster_name=" + name + "]");
}

Lines without_addresses(Lines lines) {
    static const std::regex address("0x[0-9A-F]{16}");
    for (std::string& line : lines)
        line = std::regex_replace(line, address, "ADDRESS");
    return lines;
}

} // namespace Kes::test
