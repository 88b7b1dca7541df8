#ifndef KES_TESTS_DOUBLES_PKCS11_MODULE_TOKEN_FILES_H_
#define KES_TESTS_DOUBLES_PKCS11_MODULE_TOKEN_FILES_H_

#include <filesystem>
#include <map>
#include <p11-kit/pkcs11.h>
#include <string>
#include <utility>
#include <vector>

namespace Kes::test {

using Settings = std::vector<std::pair<std::string, std::string>>;

/// The "name=value" lines of a file, in order; empty if the file does not exist.
Settings read_settings(const std::filesystem::path& file);

/// A number, also in hexadecimal after 0x. @throws Failure CKR_GENERAL_ERROR for another text
CK_ULONG number_of(const std::string& text);

/// The folder of one reader. README.md describes its files. They are read again for each question.
class TokenFiles {
public:
    explicit TokenFiles(std::filesystem::path folder_in);

    const std::filesystem::path& folder() const { return folder_; }
    bool has_token() const;

    /// Fills in everything but the numbers of sessions.
    CK_TOKEN_INFO info() const;

    CK_ULONG session_limit() const { return number("max_sessions", 0); }
    bool is_login_required() const { return is_set("login_required", true); }
    bool supports(CK_MECHANISM_TYPE mechanism) const;
    std::vector<CK_MECHANISM_TYPE> mechanisms() const;

    /// Checks the PIN and counts a wrong one. A null PIN is entered on the reader's PIN pad.
    /// @throws Failure if the token refuses the login
    void check_pin(const unsigned char* pin, CK_ULONG length) const;

private:
    std::map<std::string, std::string> settings() const;
    std::string text(const std::string& name) const;
    CK_ULONG number(const std::string& name, CK_ULONG otherwise) const;
    bool is_set(const std::string& name, bool otherwise) const {
        return number(name, otherwise ? 1 : 0) != 0;
    }
    CK_FLAGS flags() const;
    CK_FLAGS pin_flags() const;
    CK_ULONG tries_left() const;
    void store_tries_left(CK_ULONG tries) const;
    void check_pin_pad() const;

    std::filesystem::path folder_;
};

/// Copies a text into a field that PKCS#11 fills up with blanks.
template <std::size_t size>
void fill_field(unsigned char (&field)[size], const std::string& text) {
    for (std::size_t i = 0; i < size; ++i)
        field[i] = i < text.size() ? static_cast<unsigned char>(text[i]) : ' ';
}

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_PKCS11_MODULE_TOKEN_FILES_H_
