#include "utils/cert.h"

#include <cstdint>
#include <sstream>

#include "utils/text_helper.h"

namespace Kes {

std::string Cert::to_string() const {
    // Read the issuer first: if both names are unreadable, the error is the issuer's.
    const std::string issuer = get_issuer_name();
    const std::string subject = get_subject_name();
    std::ostringstream text;
    text << "subject='" << subject << "'; issuer='" << issuer << "'";
    return text.str();
}

std::ostream& Cert::print(std::ostream& out) const { return out << to_string() << std::endl; }

std::ostream& operator<<(std::ostream& out, PointerText text) {
    // Must not allocate: destructors log pointers.
    const auto address = reinterpret_cast<std::uintptr_t>(text.pointer);
    return out << "0x" << TextHelper::to_hex(address, 16, HexCase::upper).data();
}

} // namespace Kes
