#ifndef KES_TOOL_STANDARD_OUTPUT_H_
#define KES_TOOL_STANDARD_OUTPUT_H_

#include <streambuf>

namespace Kes::tool {

/// Notices, during its lifetime, when std::cout cannot write, for example because the disk is full.
class StandardOutput final : std::streambuf {
public:
    StandardOutput();
    ~StandardOutput() override;
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;

    /// Writes what is still in memory.
    /// @throws std::runtime_error if this or an earlier write has failed
    void finish() const;

private:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* characters, std::streamsize count) override;
    int sync() override;

    void note(bool is_written);

    std::streambuf* const original;
    int error = 0; // errno of the first write that failed
};

} // namespace Kes::tool

#endif // KES_TOOL_STANDARD_OUTPUT_H_
