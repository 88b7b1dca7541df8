#ifndef KES_TESTS_UNIT_UTILS_UNIT_CERTS_H_
#define KES_TESTS_UNIT_UTILS_UNIT_CERTS_H_

#include <regex>
#include <string>

#include "support/certificates.h"

namespace Kes::test {

/// A certificate created by tests/data/make-certificates.
inline Bytes unit_cert(const std::string& name) { return read_bytes(KES_TEST_CERTS "/" + name + ".der"); }

/// The error text with "<queue>" instead of the lines of OpenSSL, whose wording depends on its version.
inline std::string mask_queue(const std::string& text) {
    static const std::regex lines(R"((\n[0-9A-F]+:error:[0-9A-F]+:[^\n]*)+)");
    return std::regex_replace(text, lines, "\n<queue>");
}

} // namespace Kes::test

#endif // KES_TESTS_UNIT_UTILS_UNIT_CERTS_H_
