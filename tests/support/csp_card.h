#ifndef KES_TESTS_SUPPORT_CSP_CARD_H_
#define KES_TESTS_SUPPORT_CSP_CARD_H_

#include <string>
#include <vector>

#include "support.h"

namespace Kes::test {

constexpr unsigned int key_exchange = 1; ///< AT_KEYEXCHANGE
constexpr unsigned int signature = 2;    ///< AT_SIGNATURE

constexpr unsigned long bad_type = 0x8009000a; ///< NTE_BAD_TYPE

/// The content of files that the build creates: a certificate in "certs", or a certificate or key in
/// "containers".
Bytes prepared_certificate(const std::string& name);
Bytes prepared_certificate(const std::string& container, unsigned int key_spec);
Bytes prepared_key(const std::string& container, unsigned int key_spec);

/// The certificate "number" with this number in its name.
Bytes numbered_certificate(int number);

/// The test card of this process during the object's lifetime. It is empty at first. csp_call.h documents
/// planned failures and the log of calls.
class CspCard {
public:
    CspCard();

    /// Copies a container that the build creates to the card, under the same name or another.
    void add(const std::string& prepared) const { add(prepared, prepared); }
    void add(const std::string& prepared, const std::string& container) const;

    void remove_certificate(const std::string& container, unsigned int key_spec) const;
    void replace_certificate(const std::string& container, unsigned int key_spec, const Bytes& content) const;

    void pull_out() const;
    void insert() const;

    /// Makes calls fail until clear_failures().
    /// @param which  the call by its point ("sign"), by point@container, or by its number
    void fail(const std::string& which, unsigned long code) const;
    void clear_failures() const;

    /// The calls so far, such as "sign@Login", without handles and errors.
    Lines calls() const;

    /// The handles that were not released exactly once, by their names in the log, such as "p1".
    Lines unreleased() const;

private:
    Lines log() const;

    TempDir dir_;
    EnvVar variable_{"MARVO_CSP_CARD", dir_.file("card")};
};

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_CSP_CARD_H_
