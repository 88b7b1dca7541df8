#ifndef KES_TESTS_SUPPORT_TIMELINE_H_
#define KES_TESTS_SUPPORT_TIMELINE_H_

#include <cstddef>
#include <string>

#include "support.h"

namespace Kes::test {

/// Records the calls of test doubles and the lines of the log in one sequence during the object's lifetime,
/// so that a test can check their order. Only one object may exist at a time.
class Timeline {
public:
    explicit Timeline(const LogCapture& log);
    ~Timeline();
    Timeline(const Timeline&) = delete;
    Timeline& operator=(const Timeline&) = delete;

    /// Returns and removes the recorded calls and lines. A line starts with its severity: "<info> ...".
    Lines take();

private:
    void add_new_lines();

    const LogCapture& log_;
    std::size_t lines_seen_;
    Lines entries_;
};

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_TIMELINE_H_
