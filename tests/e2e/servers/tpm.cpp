#include "tpm.h"

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <thread>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace Kes::test {
namespace {

constexpr const char* pin = "271828";

} // namespace

#ifdef __SANITIZE_ADDRESS__
NoLeakDetection::NoLeakDetection() { ::__lsan_disable(); }
NoLeakDetection::~NoLeakDetection() { ::__lsan_enable(); }
#else
NoLeakDetection::NoLeakDetection() = default;
NoLeakDetection::~NoLeakDetection() = default;
#endif

Tpm::Tpm(const std::string& key_type, const std::string& subject)
    : store_("TPM2_PKCS11_STORE", file("store")),
      connection_("TPM2_PKCS11_TCTI", "swtpm:path=" + file("socket")),
      backend_("TPM2_PKCS11_BACKEND", "esysdb") {
    soft_token({"server", dir_.path().string()});
    std::filesystem::create_directory(file("store"));
    std::filesystem::create_directory(file("state"));
    start();
    create_token(key_type, subject);
}

void Tpm::start() {
    // The module expects the second socket under this name.
    process_ = std::make_unique<Process>(
        std::vector<std::string>{SWTPM_PROGRAM, "socket", "--tpm2", "--tpmstate", "dir=" + file("state"),
                                 "--server", "type=unixio,path=" + file("socket"), "--ctrl",
                                 "type=unixio,path=" + file("socket.ctrl"), "--flags",
                                 "not-need-init,startup-clear", "--pid", "file=" + file("pid")},
        file("swtpm.log"));
    // The program writes its process id when it accepts connections.
    while (read_file(file("pid")).empty()) {
        if (!process_->is_running())
            throw std::runtime_error("cannot start the TPM: " + read_file(file("swtpm.log")));
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void Tpm::run_pkcs11_tool(std::vector<std::string> args) const {
    args.insert(args.begin(), {PKCS11_TOOL_PROGRAM, "--module", TPM2_PKCS11_MODULE});
    run_program(args);
}

void Tpm::create_token(const std::string& key_type, const std::string& subject) {
    const std::vector<std::string> log_in = {"--token-label", "tpm", "--login", "--pin", pin};
    const auto run = [&](std::vector<std::string> args) {
        args.insert(args.begin(), log_in.begin(), log_in.end());
        run_pkcs11_tool(args);
    };
    run_pkcs11_tool({"--init-token", "--label", "tpm", "--so-pin", pin});
    run({"--init-pin", "--login-type", "so", "--so-pin", pin});
    run({"--keypairgen", "--key-type", key_type, "--id", "01", "--label", "login"});
    run({"--read-object", "--type", "pubkey", "--id", "01", "--output-file", file("public.der")});
    run_program({OPENSSL_PROGRAM, "pkey", "-pubin", "-inform", "DER", "-in", file("public.der"), "-out",
                 file("public.pem")});
    run_program({OPENSSL_PROGRAM, "x509", "-new", "-force_pubkey", file("public.pem"), "-subj", subject,
                 "-CA", file("ca.crt"), "-CAkey", file("ca.key"), "-set_serial", "2", "-days", "30",
                 "-outform", "DER", "-out", file("login.der")});
    run({"--write-object", file("login.der"), "--type", "cert", "--id", "01", "--label", "login"});
}

CardAccess Tpm::access() const { return {TPM2_PKCS11_MODULE, pin, file("client.log")}; }

} // namespace Kes::test
