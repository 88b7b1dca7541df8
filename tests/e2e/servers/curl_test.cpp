#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <curl/curl.h>

#include "card.h"
#include "login.h"
#include "server.h"

namespace Kes::test {
namespace {

/// Curl's option value that allows a single version of TLS: the lowest version, and the highest one shifted
/// by 16 bits. Curl's constants for the highest version belong to a different enumeration.
long only(int protocol) {
    const long version = protocol == TLS1_2_VERSION ? CURL_SSLVERSION_TLSv1_2 : CURL_SSLVERSION_TLSv1_3;
    return version | version << 16;
}

/// One transfer with libcurl, which passes its SSL_CTX to a callback before it connects.
class CurlLogin {
public:
    CurlLogin(const Card& card, int port, int protocol) : handle_(::curl_easy_init(), ::curl_easy_cleanup) {
        set(CURLOPT_URL, ("https://127.0.0.1:" + std::to_string(port) + "/").c_str());
        set(CURLOPT_PROXY, "");
        set(CURLOPT_CAINFO, card.ca_file().c_str());
        set(CURLOPT_SSLVERSION, only(protocol));
        set(CURLOPT_FAILONERROR, 1L);
        set(CURLOPT_ERRORBUFFER, error_);
        set(CURLOPT_WRITEFUNCTION, &CurlLogin::take_body);
        set(CURLOPT_WRITEDATA, this);
    }

    /// Makes the connection log in with the card.
    /// @param signatures  offered to the server, in OpenSSL's notation; the servers' preferences differ
    void use(const LoadedKey& loaded, const std::string& signatures) {
        loaded_ = &loaded;
        signatures_ = signatures;
        set(CURLOPT_SSL_CTX_FUNCTION, &CurlLogin::prepare_context);
        set(CURLOPT_SSL_CTX_DATA, this);
    }

    CURLcode run() { return ::curl_easy_perform(handle_.get()); }

    const std::string& body() const { return body_; }
    const std::string& session() const { return session_; }
    std::string error() const { return error_; }

private:
    template <typename Value>
    void set(CURLoption option, Value value) {
        ASSERT_EQ(::curl_easy_setopt(handle_.get(), option, value), CURLE_OK);
    }

    static CURLcode prepare_context(CURL*, void* ctx, void* self) {
        const auto* login = static_cast<const CurlLogin*>(self);
        auto* ssl_ctx = static_cast<SSL_CTX*>(ctx);
        const bool is_taken = SSL_CTX_set1_client_sigalgs_list(ssl_ctx, login->signatures_.c_str()) == 1 &&
                              ::SSL_CTX_use_certificate(ssl_ctx, login->loaded_->cert()) == 1 &&
                              ::SSL_CTX_use_PrivateKey(ssl_ctx, login->loaded_->key()) == 1;
        return is_taken ? CURLE_OK : CURLE_SSL_CERTPROBLEM;
    }

    static std::size_t take_body(const char* data, std::size_t size, std::size_t count, void* self) {
        auto* login = static_cast<CurlLogin*>(self);
        login->body_.append(data, size * count);
        const curl_tlssessioninfo* info = nullptr; // available only while the connection is in use
        ::curl_easy_getinfo(login->handle_.get(), CURLINFO_TLS_SSL_PTR, &info);
        login->session_ = session_text(static_cast<SSL*>(info->internals));
        return size * count;
    }

    std::unique_ptr<CURL, void (*)(CURL*)> handle_;
    const LoadedKey* loaded_ = nullptr;
    std::string signatures_;
    char error_[CURL_ERROR_SIZE] = "";
    std::string body_;
    std::string session_;
};

const std::string tls12 = "TLSv1.2, ECDHE-ECDSA-AES256-GCM-SHA384, ";
const std::string tls13 = "TLSv1.3, TLS_AES_256_GCM_SHA384, ";
const std::string nginx_end = "-, CN=Grace Hopper, SUCCESS";
const std::string gnutls_end = ", CN=Grace Hopper, The certificate is trusted. ";

const std::vector<Scenario> scenarios = {
    {"RsaPkcs1OverTls12", "rsa:2048", TLS1_2_VERSION, "RSA+SHA256", tls12 + "rsaEncryption with SHA256",
     tls12 + nginx_end, "TLS1.2, AES-256-GCM, RSA-SHA256" + gnutls_end},
    {"RsaPssOverTls12", "rsa:2048", TLS1_2_VERSION, "RSA-PSS+SHA256", tls12 + "RSASSA-PSS with SHA256",
     tls12 + nginx_end, "TLS1.2, AES-256-GCM, RSA-PSS-RSAE-SHA256" + gnutls_end},
    {"RsaPssOverTls13", "rsa:2048", TLS1_3_VERSION, "RSA-PSS+SHA256", tls13 + "RSASSA-PSS with SHA256",
     tls13 + nginx_end, "TLS1.3, AES-256-GCM, RSA-PSS-RSAE-SHA256" + gnutls_end},
    {"EcdsaOverTls12", "ec:P-256", TLS1_2_VERSION, "ECDSA+SHA256", tls12 + "id-ecPublicKey with SHA256",
     tls12 + nginx_end, "TLS1.2, AES-256-GCM, ECDSA-SHA256" + gnutls_end},
    {"EcdsaOverTls13", "ec:P-256", TLS1_3_VERSION, "ECDSA+SHA256", tls13 + "id-ecPublicKey with SHA256",
     tls13 + nginx_end, "TLS1.3, AES-256-GCM, ECDSA-SECP256R1-SHA256" + gnutls_end},
};

class CurlLoginTest : public testing::TestWithParam<Scenario> {
protected:
    void check(const std::string& maker, const std::string& expected_report) {
        const Card card(GetParam().key_type, "/CN=Grace Hopper");
        const auto server = create_server(maker, card.server_setup());
        const LoadedKey loaded(card);
        CurlLogin login(card, server->port(), GetParam().protocol);
        login.use(loaded, GetParam().signatures);
        ASSERT_EQ(login.run(), CURLE_OK) << login.error();
        EXPECT_EQ(login.session(), GetParam().session);
        EXPECT_EQ(server->report(login.body()), expected_report);
    }
};

TEST_P(CurlLoginTest, NginxAcceptsTheCardAndReportsItsSubject) { check("nginx", GetParam().nginx_report); }

TEST_P(CurlLoginTest, GnutlsAcceptsTheCardAndReportsItsSubject) { check("gnutls", GetParam().gnutls_report); }

INSTANTIATE_TEST_SUITE_P(Scenarios, CurlLoginTest, testing::ValuesIn(scenarios),
                         [](const auto& scenario) { return scenario.param.name; });

TEST(CurlLoginRefusedTest, NginxRejectsCurlWithoutTheCard) {
    const Card card("ec:P-256", "/CN=Grace Hopper");
    const auto server = create_server("nginx", card.server_setup());
    CurlLogin login(card, server->port(), TLS1_3_VERSION);
    EXPECT_EQ(login.run(), CURLE_HTTP_RETURNED_ERROR);
    EXPECT_EQ(login.error(), "The requested URL returned error: 400");
}

} // namespace
} // namespace Kes::test
