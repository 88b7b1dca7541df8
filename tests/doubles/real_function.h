#ifndef KES_TESTS_DOUBLES_REAL_FUNCTION_H_
#define KES_TESTS_DOUBLES_REAL_FUNCTION_H_

/// Access to functions of libcrypto that a test double replaces by definitions of the same name.
namespace Kes::test {

using AnyFunction = void (*)();

/// Never null. Implemented in real_function_posix.cpp and real_function_win.cpp.
AnyFunction find_in_libcrypto(const char* name);

template <typename Function>
Function real_function(const char* name) {
    return reinterpret_cast<Function>(find_in_libcrypto(name));
}

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_REAL_FUNCTION_H_
