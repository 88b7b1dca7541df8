#include "scripted_capi.h"

#include <algorithm>
#include <cstring>
#include <openssl/x509.h>

#include "support/certificates.h"
#include "utils/error_queue_mark.h"
#include "utils/ossl_ptr.h"

namespace Kes::test {
namespace {

/// The last error after a successful call. Code that reads it has no failure to report, or reads it too late.
constexpr DWORD meaningless = 0x0bad0bad;

constexpr ULONG_PTR handle_base = 0x7a000000;

CallScript& script() { return CallScript::instance(); }

/// The entry of a valid handle; the end and a violation for an invalid one.
template <typename Map, typename Handle>
auto find_in(Map& map, Handle handle, const std::string& caller) {
    const auto found = map.find(handle);
    if (found == map.end()) script().violation(caller + ": no such handle");
    return found;
}

Bytes name_der(const X509_NAME* name) { return der_by(::i2d_X509_NAME, name); }

} // namespace

ScriptedCapi::ScriptedCapi() = default;
ScriptedCapi::~ScriptedCapi() = default;

ScriptedCapi& ScriptedCapi::instance() {
    static ScriptedCapi capi;
    return capi;
}

void ScriptedCapi::reset() {
    providers.clear();
    stores.clear();
    odd_answers.clear();
    errors.clear();
    junk_handle.reset();
    odd_name.reset();
    open_providers_.clear();
    open_keys_.clear();
    open_stores_.clear();
    open_certs_.clear();
    last_error_ = meaningless;
}

std::size_t ScriptedCapi::unreleased_handles() const {
    return open_providers_.size() + open_keys_.size() + open_stores_.size() + open_certs_.size();
}

bool ScriptedCapi::enter(const std::string& function, const std::string& arguments, const std::string& what) {
    last_error_ = meaningless;
    if (const Failure* failure = script().step(function, arguments))
        return fail(static_cast<DWORD>(failure->rc));
    if (const auto planned = errors.find(function + " " + what); planned != errors.end())
        return fail(planned->second);
    return true;
}

void ScriptedCapi::note(const std::string& call) {
    last_error_ = meaningless;
    script().note(call);
}

bool ScriptedCapi::fail(DWORD error) {
    last_error_ = error;
    return false;
}

DWORD ScriptedCapi::last_error() {
    if (last_error_ == meaningless) script().violation("GetLastError: the last call has set none");
    return last_error_;
}

bool ScriptedCapi::give(const std::string& what, const Bytes& usual, void* buffer, DWORD* size) {
    const auto odd = odd_answers.find(what);
    const OddAnswer answer = odd == odd_answers.end() ? OddAnswer() : odd->second;
    const Bytes& data = answer.data ? *answer.data : usual;
    const auto length = static_cast<DWORD>(data.size());
    if (buffer == nullptr) {
        *size = answer.size.value_or(length);
        return true;
    }
    if (*size < length) {
        *size = length;
        return fail(DWORD{ERROR_MORE_DATA});
    }
    if (length != 0) std::memcpy(buffer, data.data(), length);
    *size = answer.reported.value_or(length);
    return true;
}

std::string ScriptedCapi::name_label(const CERT_NAME_BLOB* name) const {
    for (const auto& [context, cert] : open_certs_) {
        if (name == &cert->info.Subject) return cert->label + " subject";
        if (name == &cert->info.Issuer) return cert->label + " issuer";
    }
    return "?";
}

ScriptedCapi::Provider* ScriptedCapi::find_provider(HCRYPTPROV handle, const char* caller) {
    const auto found = find_in(open_providers_, handle, caller);
    return found == open_providers_.end() ? nullptr : &found->second;
}

ScriptedCapi::Key* ScriptedCapi::find_key(HCRYPTKEY handle, const char* caller) {
    const auto found = find_in(open_keys_, handle, caller);
    return found == open_keys_.end() ? nullptr : &found->second;
}

ScriptedCapi::Store* ScriptedCapi::find_store(HCERTSTORE handle, const char* caller) {
    const auto found = find_in(open_stores_, handle, caller);
    return found == open_stores_.end() ? nullptr : found->second.get();
}

ScriptedCapi::Certificate* ScriptedCapi::find_certificate(const CERT_CONTEXT* context, const char* caller) {
    const auto found = find_in(open_certs_, context, caller);
    return found == open_certs_.end() ? nullptr : found->second.get();
}

HCRYPTPROV ScriptedCapi::add(Provider provider) {
    const HCRYPTPROV handle = handle_base + ++handles_made_;
    open_providers_.emplace(handle, std::move(provider));
    return handle;
}

HCRYPTKEY ScriptedCapi::add(Key key) {
    const HCRYPTKEY handle = handle_base + ++handles_made_;
    open_keys_.emplace(handle, std::move(key));
    return handle;
}

HCERTSTORE ScriptedCapi::add(Store store) {
    auto owned = std::make_unique<Store>(std::move(store));
    HCERTSTORE handle = owned.get();
    open_stores_.emplace(handle, std::move(owned));
    return handle;
}

const CERT_CONTEXT* ScriptedCapi::add_certificate(HCERTSTORE store, std::size_t position) {
    const ScriptedStore& source = *open_stores_.at(store)->script;
    auto cert = std::make_unique<Certificate>();
    cert->label = "cert:" + source.name + "/" + std::to_string(position);
    cert->store = store;
    cert->position = position;
    cert->der = source.certs.at(position);
    const ErrorQueueMark mark; // the real function leaves nothing on OpenSSL's queue
    const unsigned char* next = cert->der.data();
    const X509Ptr x509(::d2i_X509(nullptr, &next, static_cast<long>(cert->der.size())));
    if (x509) { // other bytes represent a certificate that Windows can read but OpenSSL cannot
        cert->issuer = name_der(::X509_get_issuer_name(x509.get()));
        cert->subject = name_der(::X509_get_subject_name(x509.get()));
    }
    cert->info = {{static_cast<DWORD>(cert->issuer.size()), cert->issuer.data()},
                  {static_cast<DWORD>(cert->subject.size()), cert->subject.data()}};
    cert->context = {X509_ASN_ENCODING, cert->der.data(), static_cast<DWORD>(cert->der.size()), &cert->info,
                     store};
    const CERT_CONTEXT* context = &cert->context;
    open_certs_.emplace(context, std::move(cert));
    return context;
}

void ScriptedCapi::end_provider(HCRYPTPROV handle) {
    if (std::any_of(open_keys_.begin(), open_keys_.end(),
                    [&](const auto& key) { return key.second.provider == handle; }))
        script().violation("CryptReleaseContext: before its key");
    open_providers_.erase(handle);
}

void ScriptedCapi::end_key(HCRYPTKEY handle) { open_keys_.erase(handle); }

void ScriptedCapi::end_store(HCERTSTORE handle) {
    if (std::any_of(open_certs_.begin(), open_certs_.end(),
                    [&](const auto& cert) { return cert.second->store == handle; }))
        script().violation("CertCloseStore: before its certificates");
    open_stores_.erase(handle);
}

void ScriptedCapi::end_certificate(const CERT_CONTEXT* context) {
    if (--open_certs_.at(context)->references == 0) open_certs_.erase(context);
}

} // namespace Kes::test

extern "C" DWORD GetLastError() { return Kes::test::ScriptedCapi::instance().last_error(); }
