#ifndef KES_TESTS_DOUBLES_CSP_CSP_FILES_H_
#define KES_TESTS_DOUBLES_CSP_CSP_FILES_H_

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "utils/windows_api.h"

/// The test card: a folder, whose path is in the environment variable MARVO_CSP_CARD. Each folder in it is a
/// container with "1.blob" (a private key for key exchange) and "1.der" (its certificate), "2.blob" and
/// "2.der" (the same for signatures). Each file may be missing. Everything is read again in each call.
///
/// The file "calls" is the card's log, and the file "faults" contains planned failures; see csp_call.h.
namespace Kes::test_card {

using Bytes = std::vector<unsigned char>;

class Card {
public:
    /// @return whether the card is inserted, which means that its folder exists
    bool is_there() const;

    /// In alphabetical order.
    std::vector<std::string> containers() const;
    bool has(const std::string& container) const;

    /// Without a value if the card has no such file. The key is a PRIVATEKEYBLOB for the key type.
    std::optional<Bytes> key(const std::string& container, DWORD key_spec) const;
    std::optional<Bytes> certificate(const std::string& container, DWORD key_spec) const;

    std::filesystem::path file(const std::string& name) const { return folder_ / name; }

private:
    std::optional<Bytes> read(const std::string& container, DWORD key_spec, const char* ending) const;

    const std::filesystem::path folder_ = named_folder();
    static std::filesystem::path named_folder();
};

} // namespace Kes::test_card

#endif // KES_TESTS_DOUBLES_CSP_CSP_FILES_H_
