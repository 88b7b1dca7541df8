#ifndef KES_TESTS_DOUBLES_DLL_ERROR_TEXTS_H_
#define KES_TESTS_DOUBLES_DLL_ERROR_TEXTS_H_

/// Entries on OpenSSL's error queue as libp11 and its engine create them, with the same library names, reason
/// numbers and reason texts. Like the real DLLs, each DLL has its own library numbers.
namespace Kes::test {

constexpr int unable_to_load_module = 1025; ///< of libp11
constexpr int engine_invalid_parameter = 1; ///< of the engine
constexpr int engine_object_not_found = 2;

void load_error_texts();
void unload_error_texts(); ///< call it before the DLL that contains them is unloaded

/// These functions put an error on the queue, with the function's name as additional data.
void raise_module_error(unsigned long code, const char* function);
void raise_libp11_error(int reason, const char* function);
void raise_engine_error(int reason, const char* function);

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_DLL_ERROR_TEXTS_H_
