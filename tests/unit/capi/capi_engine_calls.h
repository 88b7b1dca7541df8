#ifndef KES_TESTS_UNIT_CAPI_CAPI_ENGINE_CALLS_H_
#define KES_TESTS_UNIT_CAPI_CAPI_ENGINE_CALLS_H_

#include "support/types.h"

/// The OpenSSL calls and errors that are common to both classes that load the capi engine.
namespace Kes::test {

/// The calls of a load up to setting the debug level.
inline const Lines load_calls{"ENGINE_by_id(dynamic)",
                              "ENGINE_ctrl_cmd_string(engine1, SO_PATH, ./capi.so)",
                              "ENGINE_ctrl_cmd_string(engine1, LIST_ADD, 1)",
                              "ENGINE_ctrl_cmd_string(engine1, LOAD, null)",
                              "ENGINE_init(engine1)",
                              "ENGINE_ctrl_cmd_string(engine1, debug_level, 2)"};

/// The calls that undo a failed load: before LOAD, after LOAD, and after ENGINE_init(). LOAD adds the engine
/// to OpenSSL's list, where it would prevent the next load.
inline const Lines freed{"ENGINE_free(engine1)"};
inline const Lines removed{"ENGINE_remove(engine1)", "ENGINE_free(engine1)"};
inline const Lines finished{"ENGINE_finish(engine1)", "ENGINE_remove(engine1)", "ENGINE_free(engine1)"};

/// The error queue after a load that OpenSSL refuses because an engine of the library exists.
constexpr const char* refused_lines = "error:engine routines:init failed:\n"
                                      "error:engine routines:operation fail:the engine cannot be loaded "
                                      "again: the client still uses a key that "
                                      "was created during an earlier load";

/// The error queue after "./capi.so" was loaded and turned out to be libp11's engine.
constexpr const char* wrong_engine_lines =
    "error:engine routines:invalid cmd name:\n"
    "error:engine routines:operation fail:'./capi.so' is libp11's engine, not OpenSSL's CryptoAPI engine";

} // namespace Kes::test

#endif // KES_TESTS_UNIT_CAPI_CAPI_ENGINE_CALLS_H_
