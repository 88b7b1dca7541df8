#ifndef KES_TESTS_UNIT_UTILS_FLUSH_RECORDER_H_
#define KES_TESTS_UNIT_UTILS_FLUSH_RECORDER_H_

#include <sstream>
#include <string>

namespace Kes::test {

/// Records its content at each flush.
class FlushRecorder final : public std::stringbuf {
public:
    std::string text_at_flush;

protected:
    int sync() override {
        text_at_flush = str();
        return 0;
    }
};

} // namespace Kes::test

#endif // KES_TESTS_UNIT_UTILS_FLUSH_RECORDER_H_
