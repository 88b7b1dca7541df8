// Runs the library's console menus as a client does, and writes the results to a file.
//
//     console_client <results> <log> <menu>...
//
// A menu is "crypto_if", "key", or "keys", which repeats the key menu until the user aborts it. "crypto_if"
// shows the names in MARVO_TEST_CSP_NAME and MARVO_TEST_MODULE if they are set.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "line_input.h"
#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"

namespace {

constexpr unsigned int every_severity = 63;

class Client {
public:
    Client(const char* results, const char* log) : results_(results, std::ios::binary), log_(log) {}
    ~Client() {
        if (!is_initialized_) init(Kes::OsslScardCfg::capi); // writes the buffered log to its file
        library_->destroy();
    }

    void show(const std::string& menu) {
        if (menu == "crypto_if") {
            show_crypto_if();
        } else if (menu == "key") {
            show_keys();
        } else {
            while (show_keys() == 0) {
            }
        }
    }

private:
    void show_crypto_if() {
        auto selected = static_cast<Kes::OsslScardCfg::CryptoIf>(77);
        Kes::OsslScardCfg* const cfg = library_->get_config_used();
        if (const char* const name = std::getenv("MARVO_TEST_CSP_NAME")) cfg->set_capi_csp_name(name);
        if (const char* const path = std::getenv("MARVO_TEST_MODULE")) cfg->set_pkcs11_module_dll(path);
        const int status = cfg->select_crypto_if_from_console(&selected);
        results_ << "crypto_if status=" << status << " selected=" << selected << terminal() << std::endl;
    }

    int show_keys() {
        if (!is_initialized_) discover();
        std::size_t selected = 77;
        const int status = library_->select_key_from_console(&selected);
        results_ << "key status=" << status << " selected=" << selected << terminal() << " error='"
                 << library_->get_last_error_msg() << "'" << std::endl;
        return status;
    }

    static const char* terminal() {
        return Kes::test::has_line_input() ? "" : " but the terminal was left without lines";
    }

    void init(Kes::OsslScardCfg::CryptoIf crypto_if) {
        Kes::OsslScardCfg* const cfg = library_->get_config_default();
        cfg->set_crypto_if(crypto_if);
        cfg->set_logfile(log_.c_str());
        cfg->set_logfile_severity(every_severity);
        require(library_->init(cfg));
        is_initialized_ = true;
    }

    void discover() {
        init(Kes::OsslScardCfg::pkcs11);
        std::size_t count = 0;
        require(library_->read_scard());
        require(library_->discover_keys(&count));
    }

    void require(int status) {
        if (status == 0) return;
        std::fprintf(stderr, "%s\n", library_->get_last_error_msg());
        std::exit(2);
    }

    std::ofstream results_;
    std::string log_;
    Kes::OsslScardIf* library_ = get_ossl_scard_if();
    bool is_initialized_ = false;
};

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    Client client(argv[1], argv[2]);
    for (int i = 3; i < argc; ++i)
        client.show(argv[i]);
    return 0;
}
