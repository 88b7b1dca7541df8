#include "if/ossl_scard_if_imp.h"

#include "manager/ossl_scard_mgr.h"
#include "marvo/ossl_scard_cfg.h"
#include "utils/cons_select_menu.h"
#include "utils/error.h"
#include "utils/exception_guard.h"
#include "utils/logger.h"

namespace Kes {
namespace {

constexpr std::uint32_t severities_before_init = 60; // info, warn, error and fatal

OsslScardMgr& manager() { return OsslScardMgr::instance(); }

void trace(const char* operation) { log_info("called: Kes::OsslScardIfImp::", operation); }

template <typename T>
void require_argument(const T* argument, const char* message, const char* location) {
    if (argument == nullptr) throw Error(ErrorCodeType::bad_argument, message, location);
}

void select_key(const PkoId* key) {
    manager().set_key_type(key);
    manager().set_priv_key_name(key);
    manager().set_cert_name_from_priv_key(key);
}

} // namespace

OsslScardIfImp::OsslScardIfImp() {
    Logger& logger = Logger::instance();
    logger.buffer_output();
    logger.set_severity_mask(severities_before_init);
    log_info("using OpenSSL smart card interface version ", if_version);
    manager();
}

OsslScardIfImp::~OsslScardIfImp() {
    OsslScardMgr::destroy_instance();
    Logger::destroy_instance();
}

void* OsslScardIfImp::destructor_entry(unsigned int) {
    destroy_instance(); // whatever the flags: the only object is always allocated with new
    return this;
}

template <typename Body>
int OsslScardIfImp::run(const char* operation, Body body) {
    return guarded(
        [&] {
            trace(operation);
            status = status_success;
            body();
            last_error_msg.clear();
        },
        [&](int failure_status, const char* message) {
            keep_failure(failure_status, message);
            log_error(message);
        });
}

void OsslScardIfImp::begin_unguarded(const char* operation) {
    trace(operation);
    status = status_success;
    last_error_msg.clear();
}

void OsslScardIfImp::keep_failure(int failure_status, const char* message) noexcept {
    status = failure_status;
    guarded([&] { last_error_msg = message; },
            [](int, const char*) {}); // out of memory: the status alone reports the failure
}

int OsslScardIfImp::version_check(unsigned int if_version_in) {
    run("version_check()", [&] {
        if (if_version_in == if_version) return;
        throw ErrorString("interface version incompatibility detected: specified=" +
                          std::to_string(if_version_in) + ", expected=" + std::to_string(if_version));
    });
    // Logged even after a failure. The misleading line is kept, because readers of the log rely on it to see
    // both versions.
    log_info("interface version check successful: specified=", if_version_in, ", expected=", if_version);
    return status;
}

OsslScardCfg* OsslScardIfImp::get_config_default() {
    begin_unguarded("get_config_default()");
    return manager().get_config_default();
}

OsslScardCfg* OsslScardIfImp::get_config_used() {
    begin_unguarded("get_config_used()");
    return manager().get_config_used();
}

int OsslScardIfImp::init(OsslScardCfg* cfg) {
    run("init()", [&] { manager().init(cfg); });
    // Open the log file even after a failure, so that it contains the reason. Consequently, a repeated init()
    // opens the file again, and empties it unless append mode is on.
    Logger& logger = Logger::instance();
    logger.discard_output();
    try {
        const CfgReader settings = manager().settings();
        const std::string logfile = settings.get_logfile();
        if (logfile.empty() || logfile == " ") return status;
        logger.set_severity_mask(settings.get_logfile_severity());
        logger.register_sink(logfile, settings.get_logfile_append());
    } catch (const std::exception& error) {
        keep_failure(status_failure, error.what()); // not logged, because the log has failed
    }
    return status;
}

int OsslScardIfImp::read_scard() {
    return run("read_scard()", [] { manager().read_scard(); });
}

bool OsslScardIfImp::is_pin_required() {
    begin_unguarded("is_pin_required()");
    return manager().is_pin_required();
}

int OsslScardIfImp::set_pin(const char* pin) {
    return run("set_pin()", [&] {
        require_argument(pin, "pin is a null pointer",
                         "ossl_scard_if_imp:183 Kes::OsslScardIfImp::set_pin()");
        manager().set_pin(pin);
    });
}

int OsslScardIfImp::discover_keys(size_t* num_keys) {
    return run("discover_keys()", [&] {
        require_argument(num_keys, "num_keys is a null pointer",
                         "ossl_scard_if_imp:197 Kes::OsslScardIfImp::discover_keys()");
        keys.clear();
        manager().discover_keys();
        const PkoId* key = manager().find_first(PkoType::private_key);
        for (; key != nullptr; key = manager().find_next(PkoType::private_key, key))
            keys.push_back(key);
        keys_generation = manager().generation();
        *num_keys = keys.size();
    });
}

bool OsslScardIfImp::are_keys_valid() const { return keys_generation == manager().generation(); }

const PkoId* OsslScardIfImp::require_key(std::size_t key_num, const char* location) const {
    if (key_num >= keys.size() || !are_keys_valid())
        throw Error(ErrorCodeType::bad_argument, "invalid key_num (" + std::to_string(key_num) + ")",
                    location);
    return keys[key_num];
}

const char* OsslScardIfImp::get_key_name(size_t key_num) {
    const char* name = nullptr;
    run("get_key_name()", [&] {
        name = require_key(key_num, "ossl_scard_if_imp:221 Kes::OsslScardIfImp::get_key_name()")
                   ->display_name.c_str();
    });
    return name;
}

int OsslScardIfImp::set_key(size_t key_num) {
    return run("set_key(key_num)", [&] {
        select_key(require_key(key_num, "ossl_scard_if_imp:241 Kes::OsslScardIfImp::set_key()"));
    });
}

int OsslScardIfImp::set_key(unsigned int key_type, const char* key_id) {
    return run("set_key(key_type, key_id)", [&] {
        require_argument(key_id, "key_id is a null pointer",
                         "ossl_scard_if_imp:258 Kes::OsslScardIfImp::set_key()");
        const PkoId* key = manager().find(PkoType::private_key, key_type, key_id);
        if (key == nullptr)
            throw Error(ErrorCodeType::not_found, "specified key not found",
                        "ossl_scard_if_imp:263 Kes::OsslScardIfImp::set_key()");
        select_key(key);
    });
}

int OsslScardIfImp::notify_config_done() {
    return run("notify_config_done()", [] { manager().notify_config_done(); });
}

int OsslScardIfImp::ossl_load() {
    return run("ossl_load()", [] { manager().ossl_load(); });
}

int OsslScardIfImp::ossl_unload() {
    return run("ossl_unload()", [] { manager().ossl_unload(); });
}

int OsslScardIfImp::ossl_get_private_key(evp_pkey_st** pkey) {
    return run("ossl_get_private_key()", [&] {
        require_argument(pkey, "pkey is a null pointer",
                         "ossl_scard_if_imp:312 Kes::OsslScardIfImp::ossl_get_private_key()");
        *pkey = manager().get_private_key();
    });
}

int OsslScardIfImp::ossl_get_certificate(x509_st** cert) {
    return run("ossl_get_certificate()", [&] {
        require_argument(cert, "cert is a null pointer",
                         "ossl_scard_if_imp:326 Kes::OsslScardIfImp::ossl_get_certificate()");
        *cert = manager().get_certificate();
    });
}

const char* OsslScardIfImp::get_version() {
    begin_unguarded("get_version()");
    return manager().get_version();
}

void OsslScardIfImp::destroy() {
    trace("destroy()");
    destroy_instance();
}

const char* OsslScardIfImp::get_last_error_msg() {
    trace("get_last_error_msg()");
    return last_error_msg.c_str();
}

int OsslScardIfImp::select_key_from_console(size_t* key_num) {
    return run("select_key_from_console()", [&] {
        require_argument(key_num, "key_num is a null pointer",
                         "ossl_scard_if_imp:362 Kes::OsslScardIfImp::select_key_from_console()");
        *key_num = ask_for_key();
    });
}

std::size_t OsslScardIfImp::ask_for_key() const {
    constexpr std::uint64_t no_key = 255;
    std::vector<ConsSelectMenu<std::uint64_t>::Item> items;
    unsigned char next = '0';
    const std::size_t count = are_keys_valid() ? keys.size() : 0;
    for (std::size_t i = 0; i < count; ++i) {
        items.push_back({static_cast<char>(next), i, keys[i]->display_name});
        ++next; // continues after 'z', because the number of keys is not limited
        if (next == '9' + 1) next = 'A';
        if (next == 'Z' + 1) next = 'a';
    }
    items.push_back({'.', no_key, "exit"});
    const auto item =
        ConsSelectMenu<std::uint64_t>("Please select from available keys:", std::move(items)).select();
    if (item.key == '.')
        throw Error(ErrorCodeType::user_abort, "user abort",
                    "ossl_scard_if_imp:390 Kes::OsslScardIfImp::select_key_from_console()");
    return item.object;
}

} // namespace Kes
