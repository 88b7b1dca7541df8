#include "hooks.h"

#include <openssl/bio.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace {

Kes::test::OsslCalls* calls = nullptr;

} // namespace

namespace Kes::test {

OsslCalls::OsslCalls() { calls = this; }

OsslCalls::~OsslCalls() { calls = nullptr; }

} // namespace Kes::test

// The linker redirects the library's calls to these functions (--wrap, see CMakeLists.txt). Calls inside
// OpenSSL are not redirected.
extern "C" {

X509* __real_d2i_X509(X509** x509, const unsigned char** bytes, long length);
X509* __wrap_d2i_X509(X509** x509, const unsigned char** bytes, long length) {
    X509* decoded = __real_d2i_X509(x509, bytes, length);
    if (calls != nullptr && decoded != nullptr) ++calls->decoded_x509s;
    return decoded;
}

void __real_X509_free(X509* x509);
void __wrap_X509_free(X509* x509) {
    if (calls != nullptr) ++calls->freed_x509s;
    if (calls != nullptr && calls->before_x509_free) calls->before_x509_free();
    __real_X509_free(x509);
}

BIO* __real_BIO_new(const BIO_METHOD* method);
BIO* __wrap_BIO_new(const BIO_METHOD* method) {
    if (calls == nullptr) return __real_BIO_new(method);
    if (calls->is_bio_refused) return nullptr;
    ++calls->created_bios;
    return __real_BIO_new(method);
}

int __real_BIO_free(BIO* bio);
int __wrap_BIO_free(BIO* bio) {
    if (calls != nullptr) ++calls->freed_bios;
    return __real_BIO_free(bio);
}

int __real_i2d_X509(const X509* x509, unsigned char** out);
int __wrap_i2d_X509(const X509* x509, unsigned char** out) {
    if (calls == nullptr) return __real_i2d_X509(x509, out);
    calls->encode_has_buffer.push_back(out != nullptr);
    if (static_cast<int>(calls->encode_has_buffer.size()) == calls->encode_failing_call)
        return calls->encode_failure;
    return __real_i2d_X509(x509, out);
}

int __real_X509_NAME_print_ex(BIO* bio, const X509_NAME* name, int indent, unsigned long flags);
int __wrap_X509_NAME_print_ex(BIO* bio, const X509_NAME* name, int indent, unsigned long flags) {
    if (calls == nullptr) return __real_X509_NAME_print_ex(bio, name, indent, flags);
    calls->name_print_indent = indent;
    calls->name_print_flags = flags;
    if (calls->name_print_result) return *calls->name_print_result;
    return __real_X509_NAME_print_ex(bio, name, indent, flags);
}

void* __real_X509_get_ext_d2i(const X509* x509, int nid, int* critical, int* index);
void* __wrap_X509_get_ext_d2i(const X509* x509, int nid, int* critical, int* index) {
    void* extension = __real_X509_get_ext_d2i(x509, nid, critical, index);
    if (calls != nullptr && extension != nullptr) ++calls->read_extensions;
    return extension;
}

void __real_OPENSSL_sk_pop_free(OPENSSL_STACK* stack, OPENSSL_sk_freefunc free_entry);
void __wrap_OPENSSL_sk_pop_free(OPENSSL_STACK* stack, OPENSSL_sk_freefunc free_entry) {
    if (calls != nullptr) ++calls->freed_stacks;
    __real_OPENSSL_sk_pop_free(stack, free_entry);
}
}
