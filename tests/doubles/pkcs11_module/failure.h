#ifndef KES_TESTS_DOUBLES_PKCS11_MODULE_FAILURE_H_
#define KES_TESTS_DOUBLES_PKCS11_MODULE_FAILURE_H_

#include <p11-kit/pkcs11.h>

namespace Kes::test {

/// Ends a call of the module with this result.
struct Failure {
    CK_RV code;
};

inline void require(bool condition, CK_RV code) {
    if (!condition) throw Failure{code};
}

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_PKCS11_MODULE_FAILURE_H_
