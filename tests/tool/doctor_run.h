#ifndef KES_TESTS_TOOL_DOCTOR_RUN_H_
#define KES_TESTS_TOOL_DOCTOR_RUN_H_

#include <gtest/gtest.h>
#include <list>

#include "support/file_tokens.h"
#include "support/support.h"
#include "tool_run.h"

/// Runs of the command doctor.
namespace Kes::test {

constexpr const char* system_engine = MARVO_TOOL_ENGINE;

/// An installation without mistakes: the back-end pkcs11 with full paths, a card whose key is offered, and a
/// log in a folder of its own, which is also the current folder.
class DoctorTest : public testing::Test {
protected:
    DoctorTest() {
        // A copy, because the build folder may belong to another user than the tests.
        std::filesystem::copy_file(FileTokens::module(), module_);
        token_.add("01", "ckp", "rsa", "Login");
        set("crypto_if", "pkcs11");
        set("pkcs11_module_dll", module_);
        set("pkcs11_openssl_engine_dll", system_engine);
        set("logfile", dir_.file("log"));
    }

    /// A test may set a variable of the constructor again, so the last value must be taken back first.
    ~DoctorTest() override {
        while (!variables_.empty())
            variables_.pop_back();
    }

    /// Sets the variable of a setting until the test ends.
    void set(const std::string& key, const std::string& value) {
        set_variable("ossl_scard_cfg_" + key, value);
    }
    void set_variable(const std::string& name, const std::string& value) {
        variables_.emplace_back(name, value);
    }

    /// Runs doctor with more arguments.
    static ToolRun run(const std::vector<std::string>& arguments = {}, const std::string& input = "");

    /// The lines of a run that begin with one of the states that name a mistake.
    static Lines mistakes(const ToolRun& run);

    /// The lines of a check.
    static Lines lines(const ToolRun& run, const std::string& check);

    const TempDir dir_;
    const std::string module_ = dir_.file("tokens.so");
    const FileTokens tokens_;
    FileToken token_ = tokens_.add_token("Reader A");

private:
    CurrentFolder folder_{dir_.path()};
    std::list<EnvVar> variables_;
};

} // namespace Kes::test

#endif // KES_TESTS_TOOL_DOCTOR_RUN_H_
