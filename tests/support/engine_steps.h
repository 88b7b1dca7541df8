#ifndef KES_TESTS_SUPPORT_ENGINE_STEPS_H_
#define KES_TESTS_SUPPORT_ENGINE_STEPS_H_

#include <string>
#include <vector>

#include "core_fixture.h"

/// Checks for each class that loads an engine. The parameter "load" constructs and destroys an object of the
/// class.
namespace Kes::test {

/// A step of the load that can fail.
struct EngineStep {
    std::size_t number; ///< counted from 1, which is ENGINE_by_id()
    std::string error;  ///< the error text up to the return code
    Lines undone;       ///< the calls after the failure
    std::string detail = {};
};

template <typename Load>
void expect_each_failing_step_undone(const std::vector<EngineStep>& steps, Load load) {
    CallScript& script = CallScript::instance();
    for (const EngineStep& step : steps) {
        for (const int rc : {0, -1, 2}) {
            SCOPED_TRACE(step.error + std::to_string(rc));
            EXPECT_EQ(script.violations(), Lines());
            script.reset();
            ScriptedEngine::instance().reset();
            script.fail_step(step.number, {.rc = rc});
            EXPECT_EQ(error_text(load), step.error + ": rc=" + std::to_string(rc) + step.detail);
            EXPECT_EQ(script.calls_after_step(step.number), step.undone);
        }
    }
}

/// Fails the seventh step, which is the first after ENGINE_init().
template <typename Load>
void expect_other_exceptions_to_leave_without_finish(Load load) {
    CallScript& script = CallScript::instance();
    script.fail_step(7, {.throws_int = true});
    EXPECT_THROW(load(), int);
    EXPECT_EQ(script.calls().back(), "ENGINE_free(engine1)");
    EXPECT_EQ(script.violations(), Lines{"ENGINE_free: still initialised"});
    script.reset();
}

template <typename Load>
void expect_error_queue_taken_before_clean_up(Load load) {
    CallScript& script = CallScript::instance();
    script.fail_function("ENGINE_set_default", {.rc = 0, .queue_text = "first cause"});
    script.fail_function("ENGINE_finish", {.rc = 0, .queue_text = "later noise"});
    const std::string text = error_text(load);
    EXPECT_THAT(text, testing::HasSubstr("double.c:1:first cause"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("later noise")));
}

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_ENGINE_STEPS_H_
