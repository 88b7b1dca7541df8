#include <map>
#include <openssl/x509.h>

#include "scripted_capi.h"
#include "utils/error_queue_mark.h"

namespace Kes::test {
namespace {

/// Windows' keywords for the attributes of a name.
const std::map<int, std::string> windows_keywords{{NID_countryName, "C"},
                                                  {NID_organizationName, "O"},
                                                  {NID_organizationalUnitName, "OU"},
                                                  {NID_commonName, "CN"},
                                                  {NID_localityName, "L"},
                                                  {NID_stateOrProvinceName, "S"},
                                                  {NID_serialNumber, "SERIALNUMBER"},
                                                  {NID_pkcs9_emailAddress, "E"},
                                                  {NID_domainComponent, "DC"}};

std::string keyword_of(const ASN1_OBJECT* object) {
    const auto keyword = windows_keywords.find(::OBJ_obj2nid(object));
    if (keyword != windows_keywords.end()) return keyword->second;
    char text[128];
    ::OBJ_obj2txt(text, sizeof text, object, 1);
    return std::string("OID.") + text;
}

/// The value in Latin-1, which is close enough to code page 1252; "?" for characters outside Latin-1.
std::string value_of(const ASN1_STRING* value) {
    unsigned char* data = nullptr;
    const int length = ::ASN1_STRING_to_UTF8(&data, value);
    std::string text;
    for (int i = 0; i < length; ++i) {
        if (data[i] < 0x80)
            text += static_cast<char>(data[i]);
        else if ((data[i] & 0xfcU) == 0xc0) // two bytes, for a character below 0x100
            text += static_cast<char>(((data[i] & 3U) << 6U) | (data[i + 1] & 0x3fU));
        else if ((data[i] & 0xc0U) == 0xc0)
            text += '?';
    }
    ::OPENSSL_free(data);
    return text;
}

std::string quoted(const std::string& value) {
    const bool has_blank_end = !value.empty() && (value.front() == ' ' || value.back() == ' ');
    if (!value.empty() && !has_blank_end && value.find_first_of(",+=\"\n<>#;") == std::string::npos)
        return value;
    std::string text = "\"";
    for (const char character : value)
        text += character == '"' ? std::string(2, '"') : std::string(1, character);
    return text + '"';
}

} // namespace

std::string windows_name_text(const Bytes& name, DWORD string_type) {
    const ErrorQueueMark mark;
    const unsigned char* next = name.data();
    X509_NAME* decoded = ::d2i_X509_NAME(nullptr, &next, static_cast<long>(name.size()));
    std::string text;
    int set = 0;
    for (int i = 0; i < ::X509_NAME_entry_count(decoded); ++i) {
        const X509_NAME_ENTRY* entry = ::X509_NAME_get_entry(decoded, i);
        if (i != 0) text += ::X509_NAME_ENTRY_set(entry) == set ? " + " : ", ";
        set = ::X509_NAME_ENTRY_set(entry);
        if (string_type == CERT_X500_NAME_STR) text += keyword_of(::X509_NAME_ENTRY_get_object(entry)) + "=";
        text += quoted(value_of(::X509_NAME_ENTRY_get_data(entry)));
    }
    ::X509_NAME_free(decoded);
    return text;
}

} // namespace Kes::test
