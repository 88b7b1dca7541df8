#ifndef KES_TESTS_E2E_SERVERS_TPM_H_
#define KES_TESTS_E2E_SERVERS_TPM_H_

#include <memory>
#include <string>
#include <vector>

#include "card.h"
#include "support/process.h"

namespace Kes::test {

/// Hides allocations from the leak detector during its lifetime.
class NoLeakDetection {
public:
    NoLeakDetection();
    ~NoLeakDetection();
    NoLeakDetection(const NoLeakDetection&) = delete;
    NoLeakDetection& operator=(const NoLeakDetection&) = delete;
};

/// A TPM in software, reached through its PKCS#11 module. It has a key with a certificate, and so has a CA
/// with a server certificate, as in Card. The TPM runs in a process of its own during the object's lifetime
/// and writes to a temporary folder.
class Tpm {
public:
    /// @param key_type  as an argument of pkcs11-tool: "rsa:2048" or "EC:prime256v1"
    Tpm(const std::string& key_type, const std::string& subject);

    CardAccess access() const;
    std::string ca_file() const { return file("ca.crt"); }
    ServerSetup server_setup() const { return ServerSetup(dir_.path()); }

private:
    std::string file(const std::string& name) const { return dir_.file(name); }
    void start();
    void create_token(const std::string& key_type, const std::string& subject);
    void run_pkcs11_tool(std::vector<std::string> args) const;

    // The module leaks memory in each signature with an EC key, and is no longer loaded when leaks are
    // reported, so they cannot be suppressed by its name.
    NoLeakDetection no_leak_detection_;
    TempDir dir_;
    EnvVar store_;
    EnvVar connection_;
    EnvVar backend_;
    std::unique_ptr<Process> process_;
};

} // namespace Kes::test

#endif // KES_TESTS_E2E_SERVERS_TPM_H_
