#ifndef KES_MARVO_MARVO_HPP_
#define KES_MARVO_MARVO_HPP_

/// @file
/// A wrapper of the library for clients in C++17 with OpenSSL 3. It needs nothing but the headers in
/// this folder and OpenSSL.
///
///     marvo::Session card([](Kes::OsslScardCfg& cfg) { cfg.set_crypto_if(Kes::OsslScardCfg::pkcs11); });
///     card.read_card();
///     if (card.is_pin_required()) card.set_pin(pin); // char pin[64], which this call wipes
///     card.load(card.find_keys().at(0));
///     card.prepare(ssl_ctx);
///
/// Functions that fail throw marvo::Error. The binary contract remains that of the two headers: everything
/// here is compiled into the client.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "marvo/one_libcrypto.hpp"
#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"

/// The wrapper for C++17.
namespace marvo {

/// A failure. what() is the library's message, unless the wrapper itself detected the failure.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A key that Session::find_keys() found.
struct Key {
    std::string name;      ///< for display; two keys can have the same name
    std::string id;        ///< stays the same from run to run; as in OsslScardIf::set_key()
    unsigned int type = 0; ///< 1 (key exchange) or 2 (signature) with capi; otherwise 0
};

/// What the certificate of a loaded key says.
struct Certificate {
    std::string subject;               ///< as in RFC 2253, in UTF-8
    std::string issuer;                ///< the same
    std::time_t not_before = 0;        ///< in seconds since 1970, UTC
    std::time_t not_after = 0;         ///< the same
    std::uint32_t key_usage = 0;       ///< a sum of OpenSSL's KU_* values; UINT32_MAX: not limited
    std::uint32_t ext_key_usage = 0;   ///< a sum of OpenSSL's XKU_* values; UINT32_MAX: not limited
    bool is_meant_for_clients = false; ///< whether its usages allow TLS client authentication

    /// @param time  in seconds since 1970, UTC
    bool is_valid_at(std::time_t time) const { return not_before <= time && time <= not_after; }
};

/// Memory of the caller that contains a PIN. The PIN ends at the first zero, or with the memory. Text
/// constants and std::string cannot be passed: the first cannot be wiped, the second may leave copies.
class PinSpan {
public:
    /// An array, or the part of the memory that may contain the PIN.
    template <std::size_t array_size>
    PinSpan(char (&array)[array_size]) : PinSpan(array, array_size) {}
    PinSpan(char* data, std::size_t size) : data_(data), size_(size) {}

    /// The memory, and its size in bytes.
    char* data() const { return data_; }
    std::size_t size() const { return size_; }

private:
    char* data_;
    std::size_t size_;
};

/// Which code serves the other keys of the process after a load: those that are not on the card.
enum class DefaultMethods {
    engine, ///< the engine, as the library leaves it
    openssl ///< OpenSSL itself, as before the load
};

/// Details of the wrapper; not for clients.
namespace detail {

inline void require_one_libcrypto(Kes::OsslScardIf& card) {
    const void* table = nullptr; // the first word of the object; a part of the library
    std::memcpy(&table, static_cast<const void*>(&card), sizeof table);
    const std::string problem = libcrypto_problem(table);
    if (!problem.empty()) throw Error(problem);
}

inline void require_openssl(bool is_good, const char* function) {
    if (is_good) return;
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    throw Error(std::string(function) + " failed: " + (reason == nullptr ? "no reason" : reason));
}

inline std::string name_text(const X509_NAME* name) {
    const std::unique_ptr<BIO, decltype(&BIO_free)> text(BIO_new(BIO_s_mem()), &BIO_free);
    require_openssl(text &&
                        X509_NAME_print_ex(text.get(), name, 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB) >= 0,
                    "X509_NAME_print_ex");
    const char* data = nullptr;
    const long size = BIO_get_mem_data(text.get(), &data);
    return std::string(data, static_cast<std::size_t>(size));
}

inline std::time_t seconds_since_1970(const ASN1_TIME* time) {
    const std::unique_ptr<ASN1_TIME, decltype(&ASN1_TIME_free)> start(ASN1_TIME_set(nullptr, 0),
                                                                      &ASN1_TIME_free);
    require_openssl(start != nullptr, "ASN1_TIME_set"); // a null start means now
    int days = 0;
    int seconds = 0;
    if (ASN1_TIME_diff(&days, &seconds, start.get(), time) != 1)
        throw Error("the certificate has a date that cannot be read");
    return std::time_t{days} * 86400 + seconds;
}

inline Certificate describe(X509* cert) {
    Certificate certificate;
    certificate.subject = name_text(X509_get_subject_name(cert));
    certificate.issuer = name_text(X509_get_issuer_name(cert));
    certificate.not_before = seconds_since_1970(X509_get0_notBefore(cert));
    certificate.not_after = seconds_since_1970(X509_get0_notAfter(cert));
    certificate.key_usage = X509_get_key_usage(cert);
    certificate.ext_key_usage = X509_get_extended_key_usage(cert);
    certificate.is_meant_for_clients = X509_check_purpose(cert, X509_PURPOSE_SSL_CLIENT, 0) == 1;
    return certificate;
}

/// Wipes the caller's memory and the copy at the end of the block, even if the copy cannot be made.
class WipedPin {
public:
    explicit WipedPin(PinSpan pin) : pin_(pin) {}
    ~WipedPin() {
        if (copy_) OPENSSL_cleanse(copy_.get(), pin_.size() + 1);
        OPENSSL_cleanse(pin_.data(), pin_.size());
    }

    /// Copies the PIN, with a zero at its end.
    const char* copy() {
        copy_.reset(new char[pin_.size() + 1]());
        for (std::size_t i = 0; i < pin_.size() && pin_.data()[i] != '\0'; ++i)
            copy_[i] = pin_.data()[i];
        return copy_.get();
    }

private:
    PinSpan pin_;
    std::unique_ptr<char[]> copy_;
};

/// Restores the selected key of the configuration.
class SelectionKeeper {
public:
    explicit SelectionKeeper(Kes::OsslScardCfg& cfg)
        : cfg_(cfg),
          type_(cfg.get_capi_key_type()),
          key_(cfg.get_priv_key_name()),
          cert_(cfg.get_cert_name()) {}
    ~SelectionKeeper() {
        cfg_.set_capi_key_type(type_);
        cfg_.set_priv_key_name(key_.c_str());
        cfg_.set_cert_name(cert_.c_str());
    }
    SelectionKeeper(const SelectionKeeper&) = delete;
    SelectionKeeper& operator=(const SelectionKeeper&) = delete;

private:
    Kes::OsslScardCfg& cfg_;
    unsigned int type_;
    std::string key_;
    std::string cert_;
};

/// The identifier of the selected key. With pkcs11, the name is "pkcs11:token=...;id=...;type=private". The
/// label of the token may contain anything, so the search begins at the end.
inline std::string selected_id(const Kes::OsslScardCfg& cfg) {
    const std::string name = cfg.get_priv_key_name();
    if (cfg.get_crypto_if() != Kes::OsslScardCfg::pkcs11) return name;
    const std::size_t id = name.rfind(";id=");
    const std::size_t end = name.rfind(";type=");
    if (id == std::string::npos || end == std::string::npos || end < id)
        throw Error("the name of a key has no id: " + name);
    return name.substr(id + 4, end - id - 4);
}

// OpenSSL 3 has deprecated engines, but the library needs them.
#if defined(_MSC_VER) && !defined(__clang__)
#pragma warning(push)
#pragma warning(disable : 4996)
#else
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif
/// Removes the engine from OpenSSL's defaults. The loaded key refers to the engine itself.
/// @param id  of an engine in OpenSSL's list; otherwise OpenSSL would load another copy of it
inline void remove_default_methods(const char* id) {
    const std::unique_ptr<ENGINE, decltype(&ENGINE_free)> engine(ENGINE_by_id(id), &ENGINE_free);
    require_openssl(engine != nullptr, "ENGINE_by_id");
    ENGINE_unregister_pkey_meths(engine.get());
    ENGINE_unregister_RSA(engine.get());
    ENGINE_unregister_EC(engine.get());
}
#if defined(_MSC_VER) && !defined(__clang__)
#pragma warning(pop)
#else
#pragma GCC diagnostic pop
#endif

/// Whether the process has a Session.
inline bool& session_exists() {
    static bool exists = false;
    return exists;
}

struct SessionEnd {
    void operator()(Kes::OsslScardIf* card) const {
        card->destroy();
        session_exists() = false;
    }
};

} // namespace detail

/// The use of a card, from the first call of the library to the last. The destructor logs out and destroys
/// everything that the library has returned: free all TLS objects that use the key before.
///
/// A process has one session at a time, in one thread at a time, and must not call get_ossl_scard_if() beside
/// it. Sessions can be moved; a session that was moved from can only be destroyed.
class Session {
public:
    /// Starts the library with the default settings and the changes that a function makes. The environment
    /// overrides both.
    /// @param configure  the object is valid only during the call; may be empty
    explicit Session(const std::function<void(Kes::OsslScardCfg&)>& configure = {}) {
        if (detail::session_exists()) throw Error("the process already has a session");
        card_.reset(get_ossl_scard_if());
        detail::session_exists() = true;
        detail::require_one_libcrypto(*card_);
        check(card_->version_check(4));
        Kes::OsslScardCfg* cfg = card_->get_config_default();
        if (configure) configure(*cfg);
        if (card_->init(cfg) != 0) warning_ = card_->get_last_error_msg();
    }

    /// The message of the initialisation. It is empty, or says after a successful read_card() that the log
    /// file could not be opened. The library then works without a log.
    const std::string& warning() const { return warning_; }

    /// Finds the card. May be called again at any time; the keys found and loaded so far are then invalid. If
    /// the initialisation has failed, the message of the error has its reason.
    void read_card() {
        unload();
        is_card_read_ = false;
        if (card_->read_scard() != 0) {
            const std::string message = card_->get_last_error_msg();
            throw Error(is_open_ || warning_.empty() ? message : warning_ + "\n" + message);
        }
        is_open_ = is_card_read_ = true;
        if (!card_->is_pin_required()) pin_ = PinState::none; // the library has cleared its copy
    }

    /// Whether the card that read_card() found needs a PIN from set_pin().
    bool is_pin_required() const { return card_->is_pin_required(); }

    /// Reads the card again, because it may have been removed while the user typed, then stores the PIN. In
    /// every case, it wipes the memory before it returns. The card checks the PIN in find_keys() and load().
    /// After a failure of these, the PIN counts as wrong: it is not used again, so set another one.
    void set_pin(PinSpan pin) {
        detail::WipedPin wiped(pin);
        const char* text = wiped.copy();
        if (*text == '\0') throw Error("the PIN is empty");
        read_card();
        if (!card_->is_pin_required()) return; // it is another card
        pin_ = PinState::none;
        check(card_->set_pin(text));
        pin_ = PinState::set;
    }

    /// Logs in if the card needs a PIN, and lists the keys whose certificates pass the filter. The order may
    /// differ from run to run. Call read_card() before.
    ///
    /// The library has no operation that returns an id. Therefore this function selects each key in turn,
    /// reads the id from the name in the configuration, and restores the selection. The log shows this.
    std::vector<Key> find_keys() {
        require_pin();
        std::size_t count = 0;
        check_login(card_->discover_keys(&count));
        Kes::OsslScardCfg& cfg = *card_->get_config_used();
        const detail::SelectionKeeper keeper(cfg);
        std::vector<Key> keys;
        for (std::size_t i = 0; i < count; ++i) {
            const char* name = card_->get_key_name(i);
            if (name == nullptr) throw Error(card_->get_last_error_msg());
            Key key{name, "", 0};
            check(card_->set_key(i));
            key.id = detail::selected_id(cfg);
            if (cfg.get_crypto_if() == Kes::OsslScardCfg::capi) key.type = cfg.get_capi_key_type();
            keys.push_back(std::move(key));
        }
        return keys;
    }

    /// Loads a key and its certificate: of those that find_keys() found, the first one with the type and id.
    /// The environment may override the choice. To load another key, start at read_card().
    /// @param key      a key of find_keys(), or one with a stored type and id
    /// @param methods  DefaultMethods::openssl gives OpenSSL its default methods for RSA and EC keys back.
    ///                 The library gives them to the engine at every load; see docs/security.md. The loaded
    ///                 key still signs. The cost: other code that relies on the engine as the default must
    ///                 name the engine, and every load needs the option again.
    Certificate load(const Key& key, DefaultMethods methods = DefaultMethods::engine) {
        require_pin();
        check(card_->set_key(key.type, key.id.c_str()));
        return load(methods);
    }

    /// Loads the key and the certificate that the configuration names. Needs read_card(), not find_keys().
    Certificate load(DefaultMethods methods = DefaultMethods::engine) {
        require_pin();
        check(card_->notify_config_done());
        check_login(card_->ossl_load());
        check(card_->ossl_get_private_key(&key_));
        check(card_->ossl_get_certificate(&cert_));
        if (methods == DefaultMethods::openssl)
            detail::remove_default_methods(is_pkcs11() ? "pkcs11" : "capi");
        return detail::describe(cert_);
    }

    /// Frees key and certificate. Free all TLS objects that use them first.
    void unload() {
        if (key_ != nullptr) check(card_->ossl_unload());
        key_ = nullptr;
        cert_ = nullptr;
    }

    /// The loaded key and certificate; null if none is loaded. The session owns them.
    EVP_PKEY* private_key() const { return key_; }
    X509* certificate() const { return cert_; }

    /// Makes all connections of the context log in with the loaded key and certificate. Keys of CryptoAPI
    /// sign only with RSA and PKCS#1 v1.5: the context is then limited to TLS 1.2 and to these signatures.
    /// Set protocols before this call. Intermediate certificates, the CA and the check of the server are left
    /// to the client. Free the context before the session ends or reads the card again.
    void prepare(SSL_CTX* tls) const {
        if (key_ == nullptr) throw Error("no key is loaded");
        detail::require_openssl(SSL_CTX_use_certificate(tls, cert_) == 1, "SSL_CTX_use_certificate");
        detail::require_openssl(SSL_CTX_use_PrivateKey(tls, key_) == 1, "SSL_CTX_use_PrivateKey");
        if (is_pkcs11()) return;
        if (SSL_CTX_get_min_proto_version(tls) > TLS1_2_VERSION)
            throw Error("a key of CryptoAPI logs in over TLS 1.2 only");
        detail::require_openssl(SSL_CTX_set_max_proto_version(tls, TLS1_2_VERSION) == 1,
                                "SSL_CTX_set_max_proto_version");
        const char* pkcs1 = "RSA+SHA256:RSA+SHA384:RSA+SHA512";
        detail::require_openssl(SSL_CTX_set1_client_sigalgs_list(tls, pkcs1) == 1,
                                "SSL_CTX_set1_client_sigalgs_list");
    }

private:
    bool is_pkcs11() const { return card_->get_config_used()->get_crypto_if() == Kes::OsslScardCfg::pkcs11; }

    void check(int status) const {
        if (status != 0) throw Error(card_->get_last_error_msg());
    }

    /// Without a PIN, the load may cost a try. Only a card that was read says whether it needs one.
    void require_pin() const {
        if (!is_card_read_) throw Error("no card was read");
        if (pin_ == PinState::set || !card_->is_pin_required()) return;
        if (pin_ == PinState::none) throw Error("the card needs a PIN, and none was set");
        throw Error("the card needs a PIN, and the one that was set is not used again after a failure");
    }

    /// Every try with a wrong PIN costs one of the card's tries, so a PIN is not used again after a failure.
    void check_login(int status) {
        if (status != 0 && pin_ == PinState::set) pin_ = PinState::failed;
        check(status);
    }

    std::unique_ptr<Kes::OsslScardIf, detail::SessionEnd> card_;
    std::string warning_;
    bool is_open_ = false; // a read of the card has succeeded, so the initialisation has, too
    bool is_card_read_ = false;
    EVP_PKEY* key_ = nullptr;
    X509* cert_ = nullptr;
    enum class PinState { none, set, failed } pin_ = PinState::none; // failed: so has a login with it
};

} // namespace marvo

#endif // KES_MARVO_MARVO_HPP_
