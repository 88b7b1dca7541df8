#ifndef KES_UTILS_CERT_H_
#define KES_UTILS_CERT_H_

#include <ostream>
#include <string>
#include <vector>

namespace Kes {

/// A certificate, whatever library holds it.
class Cert {
public:
    virtual ~Cert() = default;
    Cert(const Cert&) = delete;
    Cert& operator=(const Cert&) = delete;

    /// The DER encoding. @throws OsslError when it cannot be made
    virtual std::vector<unsigned char> get_der_data() const = 0;

    /// Writes the DER encoding to a file, replacing it. @throws Error open_failed, and as get_der_data()
    virtual void write_der_file(const std::string& file_name) const = 0;

    /// The distinguished names in full.
    virtual std::string get_subject_name() const = 0;
    virtual std::string get_issuer_name() const = 0;

    /// The names in the short form of the library that holds the certificate.
    virtual std::string get_subject_name_simple() const = 0;
    virtual std::string get_issuer_name_simple() const = 0;

    /// "subject='...'; issuer='...'", the names in full and unescaped.
    virtual std::string to_string() const;

    /// Writes to_string() and a newline, then flushes.
    virtual std::ostream& print(std::ostream& out) const;

protected:
    Cert() = default;
};

/// As print().
inline std::ostream& operator<<(std::ostream& out, const Cert& cert) { return cert.print(out); }

/// A pointer as log lines show it: "0x" and 16 upper-case hexadecimal digits.
struct PointerText {
    const void* pointer;
};
std::ostream& operator<<(std::ostream& out, PointerText text);

} // namespace Kes

#endif // KES_UTILS_CERT_H_
