#include "tool/login/tls_login.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <memory>
#include <stdexcept>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include "tool/certificate_facts.h"
#include "tool/login/broken_pipe.h"
#include "tool/login/tcp_connection.h"
#include "tool/openssl_reason.h"
#include "utils/ossl_ptr.h"

namespace Kes::tool {
namespace {

using SslCtxPtr = std::unique_ptr<SSL_CTX, FreeWith<&::SSL_CTX_free>>;
using SslPtr = std::unique_ptr<SSL, FreeWith<&::SSL_free>>;
using StorePtr = std::unique_ptr<X509_STORE, FreeWith<&::X509_STORE_free>>;
using AddressPtr = std::unique_ptr<ASN1_OCTET_STRING, FreeWith<&::ASN1_OCTET_STRING_free>>;

constexpr int nap = 100;                     // milliseconds
constexpr std::time_t time_to_refuse = 1;    // seconds
constexpr std::time_t pause_in_answer = 2;   // seconds, for a server that keeps the connection
constexpr std::size_t longest_answer = 8192; // bytes

void require_setup(bool is_done, const std::string& step) {
    if (!is_done) throw std::runtime_error(step + ": " + take_openssl_reason("unknown reason"));
}

void load_authorities(X509_STORE* store, const std::string& ca_file) {
    require_setup(::X509_STORE_load_file(store, ca_file.c_str()) == 1,
                  "cannot read the authorities in " + ca_file);
}

/// The connection and the facts that OpenSSL's callbacks collect.
class Connection {
public:
    Connection(const LoginKey& key_in, const LoginTarget& target_in);

    LoginReport run();

private:
    void set_up_protocols();
    void set_up_server_check();
    bool connect();
    bool shake_hands();
    long set_name_for_server();
    bool is_certificate_refused();
    void request_page();
    bool send(const std::string& text, std::time_t deadline);
    void read_answer(std::time_t deadline);
    bool wait(int result, std::time_t deadline);
    std::time_t deadline() const { return std::time(nullptr) + target.timeout; }
    void describe_session();
    std::string describe_failure();
    void record_request();
    bool is_issuer(const X509_NAME* name) const;

    static int on_certificate_request(SSL* ssl, void* self);
    static void on_event(const SSL* ssl, int where, int value);

    const LoginKey& key;
    const LoginTarget& target;
    const SslCtxPtr ctx;
    SslPtr ssl;
    BIO* socket = nullptr; // owned by ssl
    LoginReport report;
};

Connection::Connection(const LoginKey& key_in, const LoginTarget& target_in)
    : key(key_in), target(target_in), ctx(::SSL_CTX_new(::TLS_client_method())) {
    require_setup(ctx != nullptr, "cannot set up TLS");
    set_up_protocols();
    set_up_server_check();
    require_setup(::SSL_CTX_use_certificate(ctx.get(), key.certificate) == 1 &&
                      ::SSL_CTX_use_PrivateKey(ctx.get(), key.key) == 1,
                  "cannot use the key with its certificate");
    ::SSL_CTX_set_cert_cb(ctx.get(), &on_certificate_request, this);
    ::SSL_CTX_set_info_callback(ctx.get(), &on_event);
    // Many servers close the connection without the message that TLS has for it.
    ::SSL_CTX_set_options(ctx.get(), SSL_OP_IGNORE_UNEXPECTED_EOF);
    ssl.reset(::SSL_new(ctx.get()));
    require_setup(ssl != nullptr, "cannot set up TLS");
    SSL_set_app_data(ssl.get(), this);
}

void Connection::set_up_protocols() {
    // CryptoAPI signs with PKCS#1 v1.5 only, which TLS 1.3 does not allow, and TLS 1.2 does not prefer.
    const int protocol = key.uses_cryptoapi ? TLS1_2_VERSION : target.protocol;
    bool is_done = ::SSL_CTX_set_min_proto_version(ctx.get(), protocol) == 1 &&
                   ::SSL_CTX_set_max_proto_version(ctx.get(), protocol) == 1;
    if (key.uses_cryptoapi)
        is_done =
            is_done && ::SSL_CTX_set1_client_sigalgs_list(ctx.get(), "RSA+SHA256:RSA+SHA384:RSA+SHA512") == 1;
    require_setup(is_done, "cannot set up the protocol version");
}

void Connection::set_up_server_check() {
    ::SSL_CTX_set_verify(ctx.get(), target.is_insecure ? SSL_VERIFY_NONE : SSL_VERIFY_PEER, nullptr);
    if (target.is_insecure) return;
    if (target.ca_file.empty())
        require_setup(::SSL_CTX_set_default_verify_paths(ctx.get()) == 1,
                      "cannot find OpenSSL's authorities");
    else
        load_authorities(::SSL_CTX_get_cert_store(ctx.get()), target.ca_file);
}

LoginReport Connection::run() {
    if (connect() && shake_hands() && !is_certificate_refused()) request_page();
    // With TLS 1.3, the refusal of the certificate arrives after the handshake.
    if (report.error.empty() && report.alert && report.alert->is_received && report.answer.empty())
        report.error = describe_failure();
    return std::move(report);
}

bool Connection::connect() {
    try {
        socket = connect_to(target.host, target.port, target.timeout).release();
    } catch (const std::runtime_error& error) {
        report.error = "cannot connect to " + target.address() + ": " + error.what();
        return false;
    }
    require_setup(socket != nullptr, "cannot set up the connection");
    ::SSL_set_bio(ssl.get(), socket, socket);
    return true;
}

/// Waits until the connection is ready for the operation that returned the result.
/// @return false if the operation must not be repeated
bool Connection::wait(int result, std::time_t deadline) {
    const int error = ::SSL_get_error(ssl.get(), result);
    const bool is_waiting = error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE;
    return is_waiting && std::time(nullptr) < deadline && ::BIO_wait(socket, deadline, nap) == 1;
}

/// SNI. OpenSSL's macro for this contains a cast that this project's warnings do not allow.
long Connection::set_name_for_server() {
    std::string name = target.server_name;
    return ::SSL_ctrl(ssl.get(), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, name.data());
}

bool Connection::shake_hands() {
    const AddressPtr address(::a2i_IPADDRESS(target.server_name.c_str()));
    X509_VERIFY_PARAM* check = ::SSL_get0_param(ssl.get());
    if (address)
        require_setup(::X509_VERIFY_PARAM_set1_ip_asc(check, target.server_name.c_str()) == 1,
                      "cannot check the server's address");
    else
        require_setup(::SSL_set1_host(ssl.get(), target.server_name.c_str()) == 1 &&
                          set_name_for_server() == 1,
                      "cannot check the server's name");
    const std::time_t end = deadline();
    int result = -1;
    do {
        ::ERR_clear_error();
        result = ::SSL_connect(ssl.get());
    } while (result != 1 && wait(result, end));
    report.protocol = ::SSL_version(ssl.get());
    if (result == 1)
        describe_session();
    else
        report.error = std::time(nullptr) >= end && !report.alert
                           ? "the handshake did not end within " + std::to_string(target.timeout) + " s"
                           : describe_failure();
    return result == 1;
}

void Connection::describe_session() {
    report.protocol_name = ::SSL_get_version(ssl.get());
    report.cipher = ::SSL_get_cipher_name(ssl.get());
    int type = NID_undef;
    int digest = NID_undef;
    if (::SSL_get_signature_type_nid(ssl.get(), &type) != 1 || type == NID_undef) return;
    ::SSL_get_signature_nid(ssl.get(), &digest);
    const std::string name = type == EVP_PKEY_RSA_PSS ? "RSA-PSS"
                             : type == EVP_PKEY_EC    ? "ECDSA"
                                                      : "RSA PKCS#1";
    report.signature = name + " with " + ::OBJ_nid2sn(digest);
}

std::string Connection::describe_failure() {
    if (!target.is_insecure) report.server_check = static_cast<int>(::SSL_get_verify_result(ssl.get()));
    if (report.server_check != X509_V_OK) {
        ::ERR_clear_error();
        return std::string("the server's certificate is not trusted: ") +
               ::X509_verify_cert_error_string(report.server_check);
    }
    return take_openssl_reason("the server closed the connection");
}

/// With TLS 1.3, the handshake ends here before the server has checked the certificate. A server that refuses it
/// sends an alert and closes the connection. If it had not read a request by then, the connection would be
/// reset, and the alert could be lost. Therefore, this waits until the server sends something: the alert, or
/// the session tickets that most servers send after they accept the certificate.
bool Connection::is_certificate_refused() {
    if (report.protocol < TLS1_3_VERSION || !report.request) return false;
    char first = 0;
    const std::uint64_t received = ::BIO_number_read(socket);
    ::ERR_clear_error();
    const int result = ::SSL_peek(ssl.get(), &first, 1);
    const bool is_silent = result <= 0 && ::BIO_number_read(socket) == received;
    if (is_silent &&
        wait(result, std::time(nullptr) + std::min<std::time_t>(time_to_refuse, target.timeout))) {
        ::ERR_clear_error();
        ::SSL_peek(ssl.get(), &first, 1);
    }
    return report.alert && report.alert->is_received;
}

void Connection::request_page() {
    const std::time_t end = deadline();
    if (send("GET / HTTP/1.0\r\nHost: " + target.server_name + "\r\nConnection: close\r\n\r\n", end))
        read_answer(end);
}

bool Connection::send(const std::string& text, std::time_t deadline) {
    int result = -1;
    do {
        ::ERR_clear_error();
        result = ::SSL_write(ssl.get(), text.data(), static_cast<int>(text.size()));
    } while (result <= 0 && wait(result, deadline));
    return result > 0;
}

void Connection::read_answer(std::time_t deadline) {
    std::array<char, 1024> part{};
    std::time_t end = deadline;
    int result = 1;
    while (report.answer.size() < longest_answer && (result > 0 || wait(result, end))) {
        ::ERR_clear_error();
        result = ::SSL_read(ssl.get(), part.data(), static_cast<int>(part.size()));
        if (result <= 0) continue;
        report.answer.append(part.data(), static_cast<std::size_t>(result));
        end = std::min(deadline, std::time(nullptr) + pause_in_answer);
    }
}

/// Called when the server asks for a certificate.
int Connection::on_certificate_request(SSL*, void* self) {
    static_cast<Connection*>(self)->record_request();
    return 1;
}

void Connection::record_request() {
    CertificateRequest& request = report.request.emplace();
    const STACK_OF(X509_NAME)* names = ::SSL_get0_peer_CA_list(ssl.get());
    for (int i = 0; i < sk_X509_NAME_num(names); ++i) {
        const X509_NAME* name = sk_X509_NAME_value(names, i);
        request.authorities.push_back(name_text(name));
        request.names_issuer = request.names_issuer || is_issuer(name);
    }
    const int count = ::SSL_get_sigalgs(ssl.get(), -1, nullptr, nullptr, nullptr, nullptr, nullptr);
    for (int i = 0; i < count; ++i) {
        unsigned char low = 0;
        unsigned char high = 0;
        ::SSL_get_sigalgs(ssl.get(), i, nullptr, nullptr, nullptr, &low, &high);
        request.algorithms.push_back(static_cast<std::uint16_t>(high << 8U | low));
    }
}

bool Connection::is_issuer(const X509_NAME* name) const {
    return ::X509_NAME_cmp(name, ::X509_get_issuer_name(key.certificate)) == 0;
}

void Connection::on_event(const SSL* ssl, int where, int value) {
    auto* self = static_cast<Connection*>(SSL_get_app_data(ssl));
    if ((where & SSL_CB_ALERT) == 0 || (value & 0xff) == SSL_AD_CLOSE_NOTIFY) return;
    // The first alert is the reason for those that follow.
    if (!self->report.alert) self->report.alert = TlsAlert{value & 0xff, (where & SSL_CB_READ) != 0};
}

} // namespace

std::string LoginTarget::address() const {
    const bool is_ipv6 = host.find(':') != std::string::npos;
    return (is_ipv6 ? "[" + host + "]" : host) + ":" + port;
}

void check_authorities(const std::string& ca_file) {
    const StorePtr store(::X509_STORE_new());
    require_setup(store != nullptr, "cannot set up TLS");
    load_authorities(store.get(), ca_file);
}

LoginReport log_in(const LoginKey& key, const LoginTarget& target) {
    ignore_broken_pipes();
    return Connection(key, target).run();
}

} // namespace Kes::tool
