#include "capi/capi_backend.h"
#include "utils/error.h"

namespace Kes {
namespace {

constexpr const char* capi_message = "crypto interface capi is available on Windows only";
constexpr const char* capi_store_message = "crypto interface capi_store is available on Windows only";

/// A back-end that exists on Windows only. Its settings and names work on every system; the first operation
/// that needs Windows fails. Users search for the messages, so their locations keep the names that the
/// functions had in an earlier version.
class UnavailableBackend : public KeyBackend {
public:
    UnavailableBackend(const char* message_in, const char* scanner_location_in,
                       const char* engine_location_in)
        : message(message_in), scanner_location(scanner_location_in), engine_location(engine_location_in) {}

    void open(const CfgReader&) override {}

    bool read_card(const CfgReader&, bool) override { return false; }

    std::unique_ptr<PkoIdScanner> create_scanner(const CfgReader&,
                                                 std::unique_ptr<CertKeyUsageFilter>) override {
        fail(scanner_location);
    }

    std::unique_ptr<OsslEngine> create_engine(const CfgReader&, const Pin&) override {
        fail(engine_location);
    }

protected:
    [[noreturn]] void fail(const char* location) const {
        throw Error(ErrorCodeType::unsupported, message, location);
    }

private:
    const char* const message;
    const char* const scanner_location;
    const char* const engine_location;
};

class UnavailableCapiBackend final : public UnavailableBackend {
public:
    UnavailableCapiBackend()
        : UnavailableBackend(capi_message, "capi_backend:19 Kes::capi_backend::create_scanner()",
                             "capi_backend:28 Kes::capi_backend::create_engine()") {}

    bool read_card(const CfgReader&, bool) override { fail("capi_backend:15 Kes::capi_backend::probe()"); }
};

class UnavailableCapiStoreBackend final : public UnavailableBackend {
public:
    UnavailableCapiStoreBackend()
        : UnavailableBackend(capi_store_message, "capi_backend:23 Kes::capi_backend::create_store_scanner()",
                             "capi_backend:32 Kes::capi_backend::create_store_engine()") {}
};

} // namespace

std::unique_ptr<KeyBackend> create_capi_backend() { return std::make_unique<UnavailableCapiBackend>(); }

std::unique_ptr<KeyBackend> create_capi_store_backend() {
    return std::make_unique<UnavailableCapiStoreBackend>();
}

} // namespace Kes
