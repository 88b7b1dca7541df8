#ifndef KES_TOOL_FILE_DESCRIPTOR_POSIX_H_
#define KES_TOOL_FILE_DESCRIPTOR_POSIX_H_

#include <unistd.h>

namespace Kes::tool {

/// Owns an open file; -1 if there is none.
class FileDescriptor {
public:
    explicit FileDescriptor(int number_in) noexcept : number(number_in) {}
    ~FileDescriptor() { close(); }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const noexcept { return number; }

    void close() noexcept {
        if (number != -1) ::close(number);
        number = -1;
    }

private:
    int number;
};

} // namespace Kes::tool

#endif // KES_TOOL_FILE_DESCRIPTOR_POSIX_H_
