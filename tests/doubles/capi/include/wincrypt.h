#ifndef KES_TESTS_DOUBLES_CAPI_INCLUDE_WINCRYPT_H_
#define KES_TESTS_DOUBLES_CAPI_INCLUDE_WINCRYPT_H_

/// The part of Windows' header that the CryptoAPI sources need. Include windows.h first, as with the real
/// header.

#define PROV_RSA_FULL 1
#define CRYPT_VERIFYCONTEXT 0xF0000000
#define AT_KEYEXCHANGE 1
#define AT_SIGNATURE 2
#define PP_ENUMCONTAINERS 2
#define PP_NAME 4
#define PP_CONTAINER 6
#define PP_KEYSPEC 39
#define CRYPT_FIRST 1
#define CRYPT_NEXT 2
#define KP_CERTIFICATE 26

#define X509_ASN_ENCODING 0x00000001
#define PKCS_7_ASN_ENCODING 0x00010000
#define CERT_SIMPLE_NAME_STR 1
#define CERT_X500_NAME_STR 3
#define CERT_SYSTEM_STORE_CURRENT_USER 0x00010000
#define CERT_STORE_OPEN_EXISTING_FLAG 0x00004000
#define CERT_FIND_SUBJECT_STR_A 0x00070007
#define CERT_STORE_PROV_SYSTEM_A reinterpret_cast<LPCSTR>(ULONG_PTR{9})
#define X509_PUBLIC_KEY_INFO reinterpret_cast<LPCSTR>(ULONG_PTR{8})

// Unused. Like the real ones, they collide with names of OpenSSL, so windows_api.h must undefine them.
#define X509_EXTENSIONS reinterpret_cast<LPCSTR>(ULONG_PTR{5})
#define X509_NAME reinterpret_cast<LPCSTR>(ULONG_PTR{7})

using HCRYPTPROV = ULONG_PTR;
using HCRYPTKEY = ULONG_PTR;
using HCERTSTORE = void*;

struct CRYPT_DATA_BLOB {
    DWORD cbData;
    BYTE* pbData;
};
using CERT_NAME_BLOB = CRYPT_DATA_BLOB;

struct CRYPT_BIT_BLOB {
    DWORD cbData;
    BYTE* pbData;
    DWORD cUnusedBits;
};

struct CRYPT_ALGORITHM_IDENTIFIER {
    LPSTR pszObjId;
    CRYPT_DATA_BLOB Parameters;
};

struct CERT_PUBLIC_KEY_INFO {
    CRYPT_ALGORITHM_IDENTIFIER Algorithm;
    CRYPT_BIT_BLOB PublicKey;
};

struct CERT_INFO { // the real structure has more members
    CERT_NAME_BLOB Issuer;
    CERT_NAME_BLOB Subject;
};

struct CERT_CONTEXT {
    DWORD dwCertEncodingType;
    BYTE* pbCertEncoded;
    DWORD cbCertEncoded;
    CERT_INFO* pCertInfo;
    HCERTSTORE hCertStore;
};

extern "C" {

BOOL CryptAcquireContextA(HCRYPTPROV* phProv, LPCSTR szContainer, LPCSTR szProvider, DWORD dwProvType,
                          DWORD dwFlags);
BOOL CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags);
BOOL CryptGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags);
BOOL CryptGetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey);
BOOL CryptGetKeyParam(HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags);
BOOL CryptDestroyKey(HCRYPTKEY hKey);
BOOL CryptExportPublicKeyInfoEx(HCRYPTPROV hCryptProv, DWORD dwKeySpec, DWORD dwCertEncodingType,
                                LPSTR pszPublicKeyObjId, DWORD dwFlags, void* pvAuxInfo,
                                CERT_PUBLIC_KEY_INFO* pInfo, DWORD* pcbInfo);
BOOL CryptEncodeObjectEx(DWORD dwCertEncodingType, LPCSTR lpszStructType, const void* pvStructInfo,
                         DWORD dwFlags, void* pEncodePara, void* pvEncoded, DWORD* pcbEncoded);

HCERTSTORE CertOpenStore(LPCSTR lpszStoreProvider, DWORD dwEncodingType, HCRYPTPROV hCryptProv, DWORD dwFlags,
                         const void* pvPara);
BOOL CertCloseStore(HCERTSTORE hCertStore, DWORD dwFlags);
const CERT_CONTEXT* CertEnumCertificatesInStore(HCERTSTORE hCertStore, const CERT_CONTEXT* pPrevCertContext);
const CERT_CONTEXT* CertFindCertificateInStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType,
                                               DWORD dwFindFlags, DWORD dwFindType, const void* pvFindPara,
                                               const CERT_CONTEXT* pPrevCertContext);
const CERT_CONTEXT* CertDuplicateCertificateContext(const CERT_CONTEXT* pCertContext);
BOOL CertFreeCertificateContext(const CERT_CONTEXT* pCertContext);
DWORD CertNameToStrA(DWORD dwCertEncodingType, CERT_NAME_BLOB* pName, DWORD dwStrType, LPSTR psz, DWORD csz);

} // extern "C"

#endif // KES_TESTS_DOUBLES_CAPI_INCLUDE_WINCRYPT_H_
