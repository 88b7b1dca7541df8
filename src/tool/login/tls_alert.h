#ifndef KES_TOOL_LOGIN_TLS_ALERT_H_
#define KES_TOOL_LOGIN_TLS_ALERT_H_

#include <string>

namespace Kes::tool {

/// An alert of TLS in words.
struct AlertExplanation {
    std::string name;    ///< in RFC 8446, such as "unknown_ca"
    std::string meaning; ///< what it usually means for a login with a client certificate
    std::string remedy;  ///< what to do
};

/// An alert from the server.
/// @param number  of the alert in the protocol, 0 to 255
AlertExplanation explain_alert(int number);

/// An alert that this program sent to the server.
/// @param server_check  the result of the check of the server's certificate, as OpenSSL numbers it
AlertExplanation explain_sent_alert(int number, int server_check);

} // namespace Kes::tool

#endif // KES_TOOL_LOGIN_TLS_ALERT_H_
