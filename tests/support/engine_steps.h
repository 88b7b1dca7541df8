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
            const std::string error = error_text(load);
            EXPECT_EQ(error, step.error + ": rc=" + std::to_string(rc) +
                                 raised_by(script.function_of_step(step.number)) + step.detail);
            EXPECT_EQ(script.calls_after_step(step.number), step.undone);
        }
    }
}

/// Makes each of the first steps after ENGINE_by_id() throw an exception that is not an OsslError.
/// @param last_step  the number of the last step to fail
/// @param load       called with the number of the step
template <typename Load>
void expect_load_to_succeed_after_other_exceptions(std::size_t last_step, Load load) {
    CallScript& script = CallScript::instance();
    ScriptedEngine& engine = ScriptedEngine::instance();
    for (std::size_t step = 2; step <= last_step; ++step) {
        SCOPED_TRACE(step);
        engine.refuses_loaded_library = true;
        script.fail_step(step, {.throws_int = true});
        EXPECT_THROW(load(step), int);
        EXPECT_EQ(engine.initialised_engines(), 0U);
        EXPECT_EQ(engine.unreleased_engines(), 0U);
        script.clear_failures();
        EXPECT_NO_THROW(load(step));
        EXPECT_EQ(script.violations(), Lines());
        script.reset();
        engine.reset();
    }
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
