#ifndef KES_TESTS_SUPPORT_TEST_CARD_H_
#define KES_TESTS_SUPPORT_TEST_CARD_H_

#include <string>
#include <vector>

#include "support.h"

/// The card of the test doubles for the pkcs11 back-end.
namespace Kes::test {

constexpr const char* card_pin = "24681357";

/// A card in a temporary folder, with the label "Card 1", the PIN card_pin and no objects. During the
/// object's lifetime it is the card of this process and its child processes.
class TestCard {
public:
    TestCard();

    const std::filesystem::path& folder() const { return dir_.path(); }

    /// Changes a setting in the file "token", such as "label".
    void set(const std::string& name, const std::string& value);

    void pull_out() const;
    void insert() const;

    /// Adds objects to the card.
    /// @param kinds  letters: c certificate, k private key, p public key
    /// @param file   "rsa", "ec" or "encipher": the name of files that the build creates
    void add(const std::string& id, const std::string& kinds, const std::string& file,
             const std::string& label);

    /// Make a step or a function fail until clear_failures().
    void fail_step(std::size_t number) const;
    void fail_function(const std::string& function, unsigned long code) const;
    void clear_failures() const;

    /// Everything that the test doubles recorded.
    Lines record() const;

    /// Parts of the record, without prefixes such as "step: ".
    Lines steps() const { return marked("step: "); }
    Lines violations() const { return marked("violation: "); }

    /// The recorded calls after the step with that number.
    Lines calls_after_step(std::size_t number) const;

    /// Names that were not acquired and released equally often.
    Lines unbalanced() const;

private:
    Lines marked(const std::string& mark) const;
    void write(const std::string& name, const Lines& lines) const;

    TempDir dir_;
    EnvVar variable_{"MARVO_TEST_CARD", dir_.path().string()};
    std::vector<std::pair<std::string, std::string>> token_;
    Lines objects_;
};

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_TEST_CARD_H_
