#ifndef KES_TESTS_SUPPORT_TEST_CARD_H_
#define KES_TESTS_SUPPORT_TEST_CARD_H_

#include <string>
#include <vector>

#include "support.h"

/// The card that the test doubles of the pkcs11 road serve, as a test prepares it.
namespace Kes::test {

constexpr const char* card_pin = "24681357";

/// A card in a folder of its own, with the label "Card 1", the PIN above and nothing else on it. While it
/// lives it is the card of this process and of those that it starts.
class TestCard {
public:
    TestCard();

    /// Changes a line of the file "token", such as "label".
    void set(const std::string& name, const std::string& value);

    void pull_out() const;
    void insert() const;

    /// Puts objects on the card: kinds as letters (c certificate, k private key, p public key), and the files
    /// "rsa", "ec" or "encipher" of the build.
    void add(const std::string& id, const std::string& kinds, const std::string& file,
             const std::string& label);

    /// Plans a failure, by the number of the step or by the function; clear_failures() takes the plan back.
    void fail_step(std::size_t number) const;
    void fail_function(const std::string& function, unsigned long code) const;
    void clear_failures() const;

    /// Everything that the test doubles recorded, and parts of it without their marks, such as "step: ".
    Lines record() const;
    Lines steps() const { return marked("step: "); }
    Lines violations() const { return marked("violation: "); }

    /// What stands in the record after the step with that number, acquisitions and releases aside.
    Lines calls_after_step(std::size_t number) const;

    /// What was acquired more often than released, or the other way round.
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
