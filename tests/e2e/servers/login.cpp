#include "login.h"

#include <array>
#include <csignal>
#include <memory>
#include <stdexcept>

#include <openssl/err.h>

namespace Kes::test {
namespace {

using SslCtxPtr = std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)>;
using BioPtr = std::unique_ptr<BIO, void (*)(BIO*)>;

std::string ossl_reason() {
    const unsigned long code = ::ERR_peek_error();
    const char* reason = ::ERR_reason_error_string(code);
    return reason == nullptr ? "no reason" : reason;
}

void require(bool good, const char* what) {
    if (!good) throw std::runtime_error(std::string(what) + ": " + ossl_reason());
}

SslCtxPtr create_context(const LoginOptions& options) {
    SslCtxPtr ctx(::SSL_CTX_new(::TLS_client_method()), ::SSL_CTX_free);
    SSL_CTX_set_min_proto_version(ctx.get(), options.protocol);
    SSL_CTX_set_max_proto_version(ctx.get(), options.protocol);
    ::SSL_CTX_set_verify(ctx.get(), SSL_VERIFY_PEER, nullptr);
    require(::SSL_CTX_load_verify_locations(ctx.get(), options.ca_file.c_str(), nullptr) == 1, "CA");
    require(::SSL_CTX_set_cipher_list(ctx.get(), "ECDHE-ECDSA-AES256-GCM-SHA384") == 1, "cipher");
    require(::SSL_CTX_set_ciphersuites(ctx.get(), "TLS_AES_256_GCM_SHA384") == 1, "cipher suite");
    require(SSL_CTX_set1_client_sigalgs_list(ctx.get(), options.signatures.c_str()) == 1, "signatures");
    if (options.key == nullptr) return ctx;
    require(::SSL_CTX_use_certificate(ctx.get(), options.cert) == 1, "certificate");
    require(::SSL_CTX_use_PrivateKey(ctx.get(), options.key) == 1, "private key");
    return ctx;
}

std::string read_all(BIO* bio) {
    std::string text;
    std::array<char, 4096> buffer{};
    int n = 0;
    while ((n = ::BIO_read(bio, buffer.data(), static_cast<int>(buffer.size()))) > 0)
        text.append(buffer.data(), static_cast<std::size_t>(n));
    return text;
}

} // namespace

std::string session_text(SSL* ssl) {
    int type = NID_undef;
    int digest = NID_undef;
    ::SSL_get_signature_type_nid(ssl, &type);
    ::SSL_get_signature_nid(ssl, &digest);
    return std::string(::SSL_get_version(ssl)) + ", " + ::SSL_get_cipher_name(ssl) + ", " +
           ::OBJ_nid2sn(type) + " with " + ::OBJ_nid2sn(digest);
}

Login log_in(const LoginOptions& options) {
    // A server that rejects the client may close the connection before the client writes.
    std::signal(SIGPIPE, SIG_IGN);
    ::ERR_clear_error();
    const SslCtxPtr ctx = create_context(options);
    const BioPtr bio(::BIO_new_ssl_connect(ctx.get()), ::BIO_free_all);
    SSL* ssl = nullptr;
    BIO_get_ssl(bio.get(), &ssl);
    require(::SSL_set1_host(ssl, "127.0.0.1") == 1, "host");
    BIO_set_conn_hostname(bio.get(), ("127.0.0.1:" + std::to_string(options.port)).c_str());
    Login login;
    if (BIO_do_connect(bio.get()) == 1) {
        login.session = session_text(ssl);
        ::BIO_puts(bio.get(), "GET / HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n");
        const std::string answer = read_all(bio.get());
        const std::size_t end_of_header = answer.find("\r\n\r\n");
        if (end_of_header != std::string::npos) login.body = answer.substr(end_of_header + 4);
    }
    if (login.body.empty()) login.error = ossl_reason();
    return login;
}

} // namespace Kes::test
