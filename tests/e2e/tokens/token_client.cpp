#include "token_client.h"

#include <algorithm>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace Kes::test {

Client::Client() : scard(get_ossl_scard_if()), cfg(scard->get_config_default()), logfile(dir_.file("log")) {
    cfg->set_crypto_if(OsslScardCfg::pkcs11);
    cfg->set_pkcs11_module_dll(softhsm_module().c_str());
    cfg->set_pkcs11_openssl_engine_dll(pkcs11_engine().c_str());
    cfg->set_logfile(logfile.c_str());
    cfg->set_logfile_severity(63);
}

Client::~Client() { end(); }

void Client::end() {
    if (scard != nullptr) scard->destroy();
    scard = nullptr;
}

bool Client::discover(const char* pin) {
    if (!read()) return false;
    if (scard->is_pin_required() && pin != nullptr && scard->set_pin(pin) != 0) return false;
    return scard->discover_keys(&num_keys) == 0;
}

bool Client::load(const std::string& key_id) const {
    return scard->set_key(0, key_id.c_str()) == 0 && scard->notify_config_done() == 0 &&
           scard->ossl_load() == 0;
}

Lines Client::key_names() const {
    Lines names = found_key_names(*scard, num_keys);
    std::sort(names.begin(), names.end());
    return names;
}

Lines Client::log_lines() const { return test::log_lines(logfile); }

bool Client::has_logged(const std::string& line) const {
    const auto lines = log_lines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

#ifdef __SANITIZE_ADDRESS__
KnownLeak::KnownLeak() { ::__lsan_disable(); }
KnownLeak::~KnownLeak() { ::__lsan_enable(); }
#else
KnownLeak::KnownLeak() = default;
KnownLeak::~KnownLeak() = default;
#endif

int status_of_child(const std::function<int()>& function) {
    const TempDir dir; // for files of a child that exits before it removes them
    const pid_t child = ::fork();
    if (child == 0) {
        ::setenv("TMPDIR", dir.path().c_str(), 1);
        std::exit(function());
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

} // namespace Kes::test
