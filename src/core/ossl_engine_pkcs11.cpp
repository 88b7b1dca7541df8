#include "ossl_engine_pkcs11.h"

#include <openssl/engine.h>

#include "error.h"
#include "logger.h"

namespace Kes {
namespace {

/// What the engine's LOAD_CERT_CTRL command reads and fills. The layout is the engine's.
struct LoadCertParameters {
    const char* cert_id;
    X509* cert;
};

} // namespace

Pkcs11OsslEngine::Pkcs11OsslEngine(const char* engine_path, const char* module_path, const Pin* pin,
                                   bool verbose)
    : OsslEngine(true, true) {
    control("SO_PATH", engine_path, "ossl_engine_pkcs11:91 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine()");
    control("LIST_ADD", "1", "ossl_engine_pkcs11:98 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine()");
    control("LOAD", nullptr, "ossl_engine_pkcs11:104 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine()");
    control("MODULE_PATH", module_path, "ossl_engine_pkcs11:110 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine()");
    init("ossl_engine_pkcs11:116 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine()");
    try {
        configure(pin, verbose);
    } catch (const OsslError&) {
        ::ENGINE_finish(get_engine());
        throw;
    }
    log_info("loaded engine: id=", ::ENGINE_get_id(get_engine()));
}

void Pkcs11OsslEngine::configure(const Pin* pin, bool verbose) {
    if (verbose)
        control("VERBOSE", nullptr, "ossl_engine_pkcs11:127 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine()");
    if (pin != nullptr) Pkcs11OsslEngine::set_pin(*pin);
    set_default("ossl_engine_pkcs11:150 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine()");
}

Pkcs11OsslEngine::~Pkcs11OsslEngine() { unload(); }

X509Ptr Pkcs11OsslEngine::read_certificate(const char* name) {
    if (name == nullptr)
        throw Error(ErrorCodeType::bad_argument, "name is a null pointer",
                    "ossl_engine_pkcs11:193 Kes::Pkcs11OsslEngine::read_certificate()");
    LoadCertParameters parameters{name, nullptr};
    const int result = ::ENGINE_ctrl_cmd(get_engine(), "LOAD_CERT_CTRL", 0, &parameters, nullptr, 0);
    X509Ptr cert(parameters.cert);
    if (result != 1)
        throw OsslError(OsslErrorCode(result), "ENGINE_ctrl_cmd() failed",
                        "ossl_engine_pkcs11:213 Kes::Pkcs11OsslEngine::read_certificate()");
    if (!cert)
        throw Error(ErrorCodeType::not_found, "error reading certificate",
                    "ossl_engine_pkcs11:216 Kes::Pkcs11OsslEngine::read_certificate()");
    log_info("read certificate: ", name);
    return cert;
}

void Pkcs11OsslEngine::set_pin(const Pin& pin) {
    control("PIN", pin.c_str(), "ossl_engine_pkcs11:234 Kes::Pkcs11OsslEngine::set_pin()");
}

} // namespace Kes
