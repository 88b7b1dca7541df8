#ifndef KES_TESTS_SUPPORT_CSP_CARD_H_
#define KES_TESTS_SUPPORT_CSP_CARD_H_

#include <string>
#include <vector>

#include "support.h"

namespace Kes::test {

constexpr unsigned int key_exchange = 1; ///< AT_KEYEXCHANGE
constexpr unsigned int signature = 2;    ///< AT_SIGNATURE

constexpr unsigned long bad_type = 0x8009000a; ///< NTE_BAD_TYPE

/// What the build prepared: the bytes of a certificate of "certs", or of a key or certificate of
/// "containers".
Bytes prepared_certificate(const std::string& name);
Bytes prepared_certificate(const std::string& container, unsigned int key_spec);
Bytes prepared_key(const std::string& container, unsigned int key_spec);

/// The certificate "number" with another number.
Bytes numbered_certificate(int number);

/// The test card of this process while the object lives; empty at first. csp_call.h tells of failures and
/// calls.
class CspCard {
public:
    CspCard();

    /// Puts a container that the build prepared on the card, under that name or another.
    void add(const std::string& prepared) const { add(prepared, prepared); }
    void add(const std::string& prepared, const std::string& container) const;

    void remove_certificate(const std::string& container, unsigned int key_spec) const;
    void replace_certificate(const std::string& container, unsigned int key_spec, const Bytes& content) const;

    void pull_out() const;
    void insert() const;

    /// Lets calls fail: by the point, by point@container, or by the number of the call. clear_failures() takes it back.
    void fail(const std::string& which, unsigned long code) const;
    void clear_failures() const;

    /// The calls so far, "sign@Login" for instance: without handles and failures.
    Lines calls() const;

    /// The handles that were not released exactly once after they were made, as the log names them: "p1".
    Lines unreleased() const;

private:
    Lines log() const;

    TempDir dir_;
    EnvVar variable_{"MARVO_CSP_CARD", dir_.file("card")};
};

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_CSP_CARD_H_
