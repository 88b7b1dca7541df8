#include <algorithm>
#include <cstring>

#include "scripted_capi.h"

/// Stores, certificates and names.
namespace Kes::test {
namespace {

constexpr std::size_t before_first = static_cast<std::size_t>(-1);

ScriptedCapi& the_double() { return ScriptedCapi::instance(); }

void require(bool is_right, const char* remark) {
    if (!is_right) CallScript::instance().violation(remark);
}

/// Converts only ASCII letters to lower case, as Windows does to compare names.
std::string folded(std::string text) {
    for (char& character : text)
        if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
    return text;
}

bool is_deleted(const ScriptedStore& store, std::size_t position) {
    return std::find(store.deleted.begin(), store.deleted.end(), position) != store.deleted.end();
}

/// The next certificate of the store that meets the condition; null after the last one.
template <typename Condition>
const CERT_CONTEXT* next_certificate(HCERTSTORE handle, const ScriptedStore& store, std::size_t previous,
                                     const Condition& condition) {
    for (std::size_t position = previous + 1; position < store.certs.size(); ++position) {
        if (is_deleted(store, position)) continue;
        const CERT_CONTEXT* context = the_double().add_certificate(handle, position);
        if (condition(*the_double().find_certificate(context, "next_certificate"))) return context;
        the_double().end_certificate(context);
    }
    the_double().fail(CRYPT_E_NOT_FOUND);
    return nullptr;
}

/// Releases the reference of a context that a function takes over. @return its position in the store
std::size_t consume(const CERT_CONTEXT* context, const char* caller) {
    const auto* cert = the_double().find_certificate(context, caller);
    if (cert == nullptr) return before_first;
    const std::size_t position = cert->position;
    the_double().end_certificate(context);
    return position;
}

std::string label_of(const CERT_CONTEXT* context, const char* caller) {
    if (context == nullptr) return "null";
    const auto* cert = the_double().find_certificate(context, caller);
    return cert == nullptr ? "?" : cert->label;
}

} // namespace
} // namespace Kes::test

using Kes::test::Bytes;
using Kes::test::require;
using Kes::test::ScriptedCapi;
using Kes::test::the_double;

extern "C" {

HCERTSTORE CertOpenStore(LPCSTR lpszStoreProvider, DWORD dwEncodingType, HCRYPTPROV hCryptProv, DWORD dwFlags,
                         const void* pvPara) {
    const std::string name = static_cast<const char*>(pvPara);
    require(lpszStoreProvider == CERT_STORE_PROV_SYSTEM_A && dwEncodingType == 0 && hCryptProv == 0 &&
                dwFlags == 0x14000,
            "CertOpenStore: wrong arguments");
    if (!the_double().enter("CertOpenStore", name, name)) return nullptr;
    auto& stores = the_double().stores;
    const auto store =
        std::find_if(stores.begin(), stores.end(), [&](const auto& item) { return item.name == name; });
    if (store == stores.end()) {
        the_double().fail(DWORD{ERROR_FILE_NOT_FOUND});
        return nullptr;
    }
    return the_double().add(ScriptedCapi::Store{"store:" + name, &*store});
}

BOOL CertCloseStore(HCERTSTORE hCertStore, DWORD dwFlags) {
    require(dwFlags == 0, "CertCloseStore: flags");
    const auto* store = the_double().find_store(hCertStore, "CertCloseStore");
    const bool is_good = the_double().enter("CertCloseStore", store == nullptr ? "?" : store->label);
    if (store == nullptr) return FALSE;
    the_double().end_store(hCertStore);
    return is_good ? TRUE : FALSE;
}

const CERT_CONTEXT* CertEnumCertificatesInStore(HCERTSTORE hCertStore, const CERT_CONTEXT* pPrevCertContext) {
    constexpr const char* function = "CertEnumCertificatesInStore";
    const auto* store = the_double().find_store(hCertStore, function);
    const bool is_good = the_double().enter(function, (store == nullptr ? "?" : store->label) + ", " +
                                                          Kes::test::label_of(pPrevCertContext, function));
    const std::size_t previous = pPrevCertContext == nullptr ? Kes::test::before_first
                                                             : Kes::test::consume(pPrevCertContext, function);
    if (!is_good || store == nullptr) return nullptr;
    return Kes::test::next_certificate(hCertStore, *store->script, previous,
                                       [](const auto&) { return true; });
}

const CERT_CONTEXT* CertFindCertificateInStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType,
                                               DWORD dwFindFlags, DWORD dwFindType, const void* pvFindPara,
                                               const CERT_CONTEXT* pPrevCertContext) {
    constexpr const char* function = "CertFindCertificateInStore";
    const auto* store = the_double().find_store(hCertStore, function);
    const std::string wanted = static_cast<const char*>(pvFindPara);
    require(dwCertEncodingType == X509_ASN_ENCODING && dwFindFlags == 0 && dwFindType == 0x70007 &&
                pPrevCertContext == nullptr,
            "CertFindCertificateInStore: wrong arguments");
    if (!the_double().enter(function, (store == nullptr ? "?" : store->label) + ", " + wanted))
        return nullptr;
    if (store == nullptr) return nullptr;
    return Kes::test::next_certificate(
        hCertStore, *store->script, Kes::test::before_first, [&](const ScriptedCapi::Certificate& cert) {
            const std::string subject = Kes::test::windows_name_text(cert.subject, CERT_SIMPLE_NAME_STR);
            return Kes::test::folded(subject).find(Kes::test::folded(wanted)) != std::string::npos;
        });
}

const CERT_CONTEXT* CertDuplicateCertificateContext(const CERT_CONTEXT* pCertContext) {
    constexpr const char* function = "CertDuplicateCertificateContext";
    the_double().note(std::string(function) + "(" + Kes::test::label_of(pCertContext, function) + ")");
    auto* cert = the_double().find_certificate(pCertContext, function);
    if (cert != nullptr) ++cert->references;
    return pCertContext; // a duplicate is the same context with one more reference
}

BOOL CertFreeCertificateContext(const CERT_CONTEXT* pCertContext) {
    constexpr const char* function = "CertFreeCertificateContext";
    the_double().note(std::string(function) + "(" + Kes::test::label_of(pCertContext, function) + ")");
    Kes::test::consume(pCertContext, function);
    return TRUE;
}

DWORD CertNameToStrA(DWORD dwCertEncodingType, CERT_NAME_BLOB* pName, DWORD dwStrType, LPSTR psz, DWORD csz) {
    require(dwCertEncodingType == X509_ASN_ENCODING && (psz == nullptr) == (csz == 0),
            "CertNameToStrA: wrong arguments");
    const bool is_good = the_double().enter("CertNameToStrA", the_double().name_label(pName) + ", " +
                                                                  std::to_string(dwStrType) +
                                                                  (psz == nullptr ? ", size" : ", read"));
    if (!is_good) return 0;
    std::string text =
        Kes::test::windows_name_text(Bytes(pName->pbData, pName->pbData + pName->cbData), dwStrType);
    text += '\0';
    const auto odd = the_double().odd_answers.find("CertNameToStrA");
    if (psz == nullptr)
        return odd == the_double().odd_answers.end() ? static_cast<DWORD>(text.size())
                                                     : odd->second.size.value_or(0);
    if (the_double().odd_name) text = *the_double().odd_name; // may lack the terminating NUL
    const std::size_t length = std::min<std::size_t>(text.size(), csz);
    std::memcpy(psz, text.data(), length);
    if (!the_double().odd_name && length != 0) psz[length - 1] = '\0'; // terminate a truncated text
    return static_cast<DWORD>(length);
}

} // extern "C"
