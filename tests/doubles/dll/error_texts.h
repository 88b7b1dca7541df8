#ifndef KES_TESTS_DOUBLES_DLL_ERROR_TEXTS_H_
#define KES_TESTS_DOUBLES_DLL_ERROR_TEXTS_H_

/// Entries on OpenSSL's error queue as libp11 and its engine make them: the same names of libraries, the same
/// numbers and texts of reasons. Each DLL that uses this has its own library numbers, as the real ones have.
namespace Kes::test {

constexpr int unable_to_load_module = 1025; ///< of libp11
constexpr int engine_invalid_parameter = 1; ///< of the engine
constexpr int engine_object_not_found = 2;

void load_error_texts();
void unload_error_texts(); ///< before the DLL that holds them goes

/// Puts what the module answered on the queue, with the function behind the reason.
void raise_module_error(unsigned long code, const char* function);
void raise_libp11_error(int reason, const char* function);
void raise_engine_error(int reason, const char* function);

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_DLL_ERROR_TEXTS_H_
