#ifndef KES_TESTS_SUPPORT_FILE_TOKENS_H_
#define KES_TESTS_SUPPORT_FILE_TOKENS_H_

#include <map>
#include <string>

#include "support.h"

/// Readers and tokens of the PKCS#11 module that serves tokens from files.
namespace Kes::test {

constexpr const char* file_token_pin = "24681357";

/// The folder of one reader. It has a token with the label "Card 1", the PIN file_token_pin and no objects.
class FileToken {
public:
    explicit FileToken(std::filesystem::path folder_in);

    const std::filesystem::path& folder() const { return folder_; }

    /// Changes or adds a setting of the file "token", such as "label".
    void set(const std::string& name, const std::string& value);

    /// Removes the card for as long as it is not inserted again.
    void remove() const;
    void insert() const;

    /// Adds objects to the card.
    /// @param kinds  letters: c certificate, k private key, p public key, and others of the module
    /// @param file   "rsa", "ec" or "encipher": the name of files that the build creates
    void add(const std::string& id, const std::string& kinds, const std::string& file,
             const std::string& label);

private:
    void write(const std::string& name, const Lines& lines) const;

    std::filesystem::path folder_;
    std::map<std::string, std::string> settings_;
    Lines objects_;
};

/// A folder with readers, which this process and its child processes use during the object's lifetime.
class FileTokens {
public:
    FileTokens();

    /// The path of the module.
    static std::string module();

    /// Adds a reader with a token. The module orders readers by their names.
    FileToken add_token(const std::string& reader) const;
    void add_empty_reader(const std::string& reader) const;

    const std::filesystem::path& folder() const { return dir_.path(); }

    /// Plans failures: a line is "C_Login=0xa0", "C_Login#2=0xa0" for the second call of the function in the
    /// process, or "17=0x30" for the 17th call of all.
    void fail(const Lines& lines) const;
    void clear_failures() const;

    /// The calls of all processes since the tokens were created, such as "1 C_GetFunctionList#1 0x0".
    Lines calls() const;

private:
    TempDir dir_;
    EnvVar variable_{"MARVO_TEST_TOKENS", dir_.path().string()};
};

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_FILE_TOKENS_H_
