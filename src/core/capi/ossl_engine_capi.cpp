#include "capi/ossl_engine_capi.h"

#include <vector>

#include "base/capi_key_type.h"
#include "capi/capi_helper.h"
#include "utils/error.h"
#include "utils/logger.h"

namespace Kes {
namespace {

constexpr const char* by_container_name = "3"; // the engine's number for this lookup method

} // namespace

CapiOsslEngine::CapiOsslEngine(const char* engine_path, const char* csp_name_in, std::uint32_t key_type_in,
                               const std::string& debug_file)
    : OsslEngine(true, true), csp_name(csp_name_in) {
    std::vector<EngineCommand> after_init{
        {"debug_level", "2", "ossl_engine_capi:134 Kes::CapiOsslEngine::CapiOsslEngine()"}};
    if (!debug_file.empty())
        after_init.push_back(
            {"debug_file", debug_file.c_str(), "ossl_engine_capi:145 Kes::CapiOsslEngine::CapiOsslEngine()"});
    after_init.push_back(
        {"csp_name", csp_name.c_str(), "ossl_engine_capi:155 Kes::CapiOsslEngine::CapiOsslEngine()"});
    after_init.push_back(
        {"lookup_method", by_container_name, "ossl_engine_capi:164 Kes::CapiOsslEngine::CapiOsslEngine()"});
    set_up({.id = "capi",
            .so_path = {"SO_PATH", engine_path, "ossl_engine_capi:109 Kes::CapiOsslEngine::CapiOsslEngine()"},
            .list_add = {"LIST_ADD", "1", "ossl_engine_capi:116 Kes::CapiOsslEngine::CapiOsslEngine()"},
            .load = {"LOAD", nullptr, "ossl_engine_capi:122 Kes::CapiOsslEngine::CapiOsslEngine()"},
            .before_init = {},
            .init_location = "ossl_engine_capi:128 Kes::CapiOsslEngine::CapiOsslEngine()",
            .after_init = after_init,
            .configure = [&] { CapiOsslEngine::set_key_type(key_type_in); },
            .set_default_location = "ossl_engine_capi:183 Kes::CapiOsslEngine::CapiOsslEngine()"});
    log_info("loaded engine: id=", id(), ", csp='", csp_name, "'");
}

CapiOsslEngine::~CapiOsslEngine() { unload(); }

EvpPkeyPtr CapiOsslEngine::read_public_key(const char* name) {
    CapiInit capi(csp_name.c_str(), name, 0);
    capi.fetch_key(key_type);
    const CapiPubKey public_key(capi.provider(), key_type);
    const unsigned char* next = public_key.der().data();
    EvpPkeyPtr key(::d2i_PUBKEY(nullptr, &next, static_cast<long>(public_key.der().size())));
    if (!key)
        throw OsslError(OsslErrorCode(0), "error converting public key from DER to EVP_PKEY format",
                        "ossl_engine_capi:249 Kes::CapiOsslEngine::read_public_key()");
    log_info("read public key: ", name);
    return key;
}

X509Ptr CapiOsslEngine::read_certificate(const char* name) {
    CapiInit capi(csp_name.c_str(), name, 0);
    capi.fetch_key(key_type);
    const std::vector<unsigned char> der = read_capi_key_certificate(capi.key());
    const unsigned char* next = der.data();
    X509Ptr cert(::d2i_X509(nullptr, &next, static_cast<long>(der.size())));
    if (!cert)
        throw OsslError(OsslErrorCode(0), "error converting certificate from DER to X509 format",
                        "ossl_engine_capi:285 Kes::CapiOsslEngine::read_certificate()");
    log_info("read certificate: ", name);
    return cert;
}

void CapiOsslEngine::set_key_type(std::uint32_t key_type_in) {
    control({"key_type", std::to_string(key_type_in).c_str(),
             "ossl_engine_capi:297 Kes::CapiOsslEngine::set_key_type()"});
    key_type = key_type_in;
    log_debug("capi engine is using key_type=", capi_key_type_name(key_type));
}

} // namespace Kes
