#include "utils/cert_key_usage.h"

#include <benchmark/benchmark.h>
#include <openssl/x509v3.h>
#include <stdexcept>

#include "utils/logger.h"
#include "utils/ossl_ptr.h"

namespace Kes {
namespace {

void add_extension(X509* x509, int nid, const char* value) {
    X509_EXTENSION* extension = ::X509V3_EXT_conf_nid(nullptr, nullptr, nid, value);
    ::X509_add_ext(x509, extension, -1);
    ::X509_EXTENSION_free(extension);
}

/// A certificate with the extensions of a client certificate. Names and dates do not matter here.
X509Ptr make_cert() {
    X509Ptr x509(::X509_new());
    const EvpPkeyPtr key(EVP_EC_gen("P-256"));
    if (!x509 || !key) throw std::runtime_error("no certificate can be made");
    ::X509_set_version(x509.get(), X509_VERSION_3);
    ::X509_gmtime_adj(X509_getm_notBefore(x509.get()), 0);
    ::X509_gmtime_adj(X509_getm_notAfter(x509.get()), 3600);
    ::X509_set_pubkey(x509.get(), key.get());
    add_extension(x509.get(), NID_key_usage, "critical,digitalSignature,keyEncipherment");
    add_extension(x509.get(), NID_ext_key_usage, "emailProtection,clientAuth");
    if (::X509_sign(x509.get(), key.get(), ::EVP_sha256()) == 0)
        throw std::runtime_error("no certificate can be signed");
    return x509;
}

void read_key_usage(benchmark::State& state) {
    const X509Ptr x509 = make_cert();
    for (auto _ : state)
        benchmark::DoNotOptimize(CertKeyUsage(x509.get()));
}
BENCHMARK(read_key_usage);

void check_filter(benchmark::State& state) {
    constexpr std::uint32_t warn_and_above = 56; // check() logs its results with severity info
    Logger::instance().set_severity_mask(warn_and_above);
    const CertKeyUsage key_usage(make_cert().get());
    const CertKeyUsageFilter filter(FilterType::exact, KU_DIGITAL_SIGNATURE, FilterType::exact_none,
                                    "1.3.6.1.5.5.7.3.2");
    if (!filter.check(key_usage)) state.SkipWithError("the certificate does not pass");
    for (auto _ : state)
        benchmark::DoNotOptimize(filter.check(key_usage));
    Logger::destroy_instance();
}
BENCHMARK(check_filter);

} // namespace
} // namespace Kes
