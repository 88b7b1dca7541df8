#include "capi/ossl_engine_capi_store.h"

#include <string>
#include <vector>

#include "utils/cert_ossl.h"
#include "utils/certstore_win.h"
#include "utils/error.h"
#include "utils/logger.h"

namespace Kes {
namespace {

constexpr const char* by_subject_substring = "1"; // the engine's number for this lookup method

} // namespace

CapiStoreOsslEngine::CapiStoreOsslEngine(const char* engine_path, const char* store_name_in,
                                         const std::string& debug_file)
    : OsslEngine(true, true), store_name(store_name_in) {
    std::vector<EngineCommand> after_init{
        {"debug_level", "2", "ossl_engine_capi_store:139 Kes::CapiStoreOsslEngine::CapiStoreOsslEngine()"}};
    if (!debug_file.empty())
        after_init.push_back({"debug_file", debug_file.c_str(),
                              "ossl_engine_capi_store:150 Kes::CapiStoreOsslEngine::CapiStoreOsslEngine()"});
    after_init.push_back({"store_name", store_name.c_str(),
                          "ossl_engine_capi_store:160 Kes::CapiStoreOsslEngine::CapiStoreOsslEngine()"});
    after_init.push_back({"lookup_method", by_subject_substring,
                          "ossl_engine_capi_store:169 Kes::CapiStoreOsslEngine::CapiStoreOsslEngine()"});
    set_up({.id = "capi",
            .so_path = {"SO_PATH", engine_path,
                        "ossl_engine_capi_store:114 Kes::CapiStoreOsslEngine::CapiStoreOsslEngine()"},
            .list_add = {"LIST_ADD", "1",
                         "ossl_engine_capi_store:121 Kes::CapiStoreOsslEngine::CapiStoreOsslEngine()"},
            .load = {"LOAD", nullptr,
                     "ossl_engine_capi_store:127 Kes::CapiStoreOsslEngine::CapiStoreOsslEngine()"},
            .before_init = {},
            .init_location = "ossl_engine_capi_store:133 Kes::CapiStoreOsslEngine::CapiStoreOsslEngine()",
            .after_init = after_init,
            .configure = [] {},
            .set_default_location =
                "ossl_engine_capi_store:178 Kes::CapiStoreOsslEngine::CapiStoreOsslEngine()"});
    log_info("loaded engine: id=", id());
}

CapiStoreOsslEngine::~CapiStoreOsslEngine() { unload(); }

EvpPkeyPtr CapiStoreOsslEngine::read_public_key(const char* name) {
    return read_public_key_by_certificate(name);
}

X509Ptr CapiStoreOsslEngine::read_certificate(const char* name) {
    const auto store = WinCertStore::open(store_name);
    const auto found = store->find_by_subject(name);
    if (!found)
        throw OsslError(OsslErrorCode(0),
                        std::string("error finding certificate with subject name='") + name + "'",
                        "ossl_engine_capi_store:236 Kes::CapiStoreOsslEngine::read_certificate()");
    log_info("read certificate: ", name);
    const OsslCert decoded(found->get_der_data());
    X509Ptr cert(::X509_dup(decoded.x509()));
    if (!cert)
        throw OsslError(OsslErrorCode(0), "error duplicating x509 certificate",
                        "ossl_engine_capi_store:245 Kes::CapiStoreOsslEngine::read_certificate()");
    return cert;
}

} // namespace Kes
