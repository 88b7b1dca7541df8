#ifndef KES_BASE_TOKEN_INFO_H_
#define KES_BASE_TOKEN_INFO_H_

#include <string>

namespace Kes {

/// A token and its reader, as the PKCS#11 module describes them.
struct TokenInfo {
    std::string reader;
    std::string label;
    std::string manufacturer;
    std::string model;
    std::string serial;
    bool is_used = false; ///< whether it is the one that the library uses
    bool is_initialized = false;
    bool is_login_required = false;
    bool has_pin_pad = false; ///< the reader asks for the PIN itself
    bool is_pin_set = false;
    bool is_pin_count_low = false; ///< a wrong PIN was entered since the last login
    bool is_final_try = false;     ///< one more wrong PIN locks the token
    bool is_locked = false;
    bool must_pin_be_changed = false;
};

} // namespace Kes

#endif // KES_BASE_TOKEN_INFO_H_
