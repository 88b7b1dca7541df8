#include "utils/cert.h"

#include <array>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <sstream>

namespace Kes {

std::string Cert::to_string() const {
    // The issuer is asked first, the text shows the subject first.
    const std::string issuer = get_issuer_name();
    const std::string subject = get_subject_name();
    std::ostringstream text;
    text << "subject='" << subject << "'; issuer='" << issuer << "'";
    return text.str();
}

std::ostream& Cert::print(std::ostream& out) const { return out << to_string() << std::endl; }

std::ostream& operator<<(std::ostream& out, PointerText text) {
    std::array<char, 24> digits{};
    std::snprintf(digits.data(), digits.size(), "0x%016" PRIXPTR,
                  reinterpret_cast<std::uintptr_t>(text.pointer));
    return out << digits.data();
}

} // namespace Kes
