#ifndef KES_TESTS_TOOL_TOKEN_FOLDER_H_
#define KES_TESTS_TOOL_TOKEN_FOLDER_H_

#include <string>
#include <vector>

#include "support/support.h"

namespace Kes::test {

/// SoftHSM tokens in a temporary folder. SoftHSM and the library use them during the object's lifetime.
class TokenFolder {
public:
    static constexpr const char* pin = "271828";

    /// Creates a CA and one token.
    explicit TokenFolder(const std::string& label);

    /// Creates a token, which SoftHSM may list before or after the others.
    void add_token(const std::string& label) const;

    /// Adds a key with the options of "tools/soft-token add".
    void add_key(const std::string& label, const std::vector<std::string>& options) const;

    /// The name of a file that contains the PIN.
    std::string pin_file() const { return dir_.file("pin"); }

    std::string file(const std::string& name) const { return dir_.file(name); }

    /// Replaces the numbers that SoftHSM generates: "SLOT" for a slot, "SERIAL" for a serial number.
    static std::string masked(const std::string& text);

private:
    TempDir dir_;
    EnvVar softhsm_conf_;
    EnvVar backend_;
    EnvVar module_;
};

} // namespace Kes::test

#endif // KES_TESTS_TOOL_TOKEN_FOLDER_H_
