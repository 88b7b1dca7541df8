#ifndef KES_TESTS_UNIT_CAPI_CAPI_ENGINE_CALLS_H_
#define KES_TESTS_UNIT_CAPI_CAPI_ENGINE_CALLS_H_

#include "support/types.h"

/// What both classes that load the capi engine ask of OpenSSL.
namespace Kes::test {

/// From the start of a load to the debug level.
inline const Lines load_calls{"ENGINE_by_id(dynamic)",
                              "ENGINE_ctrl_cmd_string(engine1, SO_PATH, ./capi.so)",
                              "ENGINE_ctrl_cmd_string(engine1, LIST_ADD, 1)",
                              "ENGINE_ctrl_cmd_string(engine1, LOAD, null)",
                              "ENGINE_init(engine1)",
                              "ENGINE_ctrl_cmd_string(engine1, debug_level, 2)"};

/// How a failed load is undone: before LOAD; after it, which puts the engine into OpenSSL's list, where it
/// would bar the next load; and after ENGINE_init().
inline const Lines freed{"ENGINE_free(engine1)"};
inline const Lines removed{"ENGINE_remove(engine1)", "ENGINE_free(engine1)"};
inline const Lines finished{"ENGINE_finish(engine1)", "ENGINE_remove(engine1)", "ENGINE_free(engine1)"};

} // namespace Kes::test

#endif // KES_TESTS_UNIT_CAPI_CAPI_ENGINE_CALLS_H_
