#ifndef KES_UTILS_CERT_H_
#define KES_UTILS_CERT_H_

#include <ostream>
#include <string>
#include <vector>

namespace Kes {

/// An X.509 certificate, independent of the library that stores it: OpenSSL (OsslCert) or Windows (WinCert).
///
/// The library uses only a part of these operations. The class is complete, so that a certificate can also be
/// logged or saved for diagnostics.
class Cert {
public:
    virtual ~Cert() = default;
    Cert(const Cert&) = delete;
    Cert& operator=(const Cert&) = delete;

    /// Returns the DER encoding.
    /// @throws OsslError if OpenSSL cannot encode the certificate
    virtual std::vector<unsigned char> get_der_data() const = 0;

    /// Writes the DER encoding to a file and replaces its old content.
    /// @throws Error open_failed if the file cannot be opened for writing, and the errors of get_der_data()
    virtual void write_der_file(const std::string& file_name) const = 0;

    /// The full distinguished names. Their format depends on the library that stores the certificate.
    virtual std::string get_subject_name() const = 0;
    virtual std::string get_issuer_name() const = 0;

    /// The distinguished names in the short format of that library, if it has one.
    virtual std::string get_subject_name_simple() const = 0;
    virtual std::string get_issuer_name_simple() const = 0;

    /// Returns "subject='...'; issuer='...'" with the full names, unescaped.
    virtual std::string to_string() const;

    /// Writes to_string() and a newline, then flushes the stream.
    virtual std::ostream& print(std::ostream& out) const;

protected:
    Cert() = default;
};

/// Same as print().
inline std::ostream& operator<<(std::ostream& out, const Cert& cert) { return cert.print(out); }

/// A pointer that is streamed in the format of log lines: "0x" and 16 upper-case hexadecimal digits.
struct PointerText {
    const void* pointer;
};
std::ostream& operator<<(std::ostream& out, PointerText text);

} // namespace Kes

#endif // KES_UTILS_CERT_H_
