#ifndef KES_TESTS_UNIT_UTILS_HOOKS_H_
#define KES_TESTS_UNIT_UTILS_HOOKS_H_

#include <cstddef>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Hooks that observe and change the library's calls of the memory functions (hooks_memory.cpp), the system
/// (hooks_system.cpp, hooks_system_posix.cpp, hooks_system_win.cpp) and OpenSSL (hooks_ossl.cpp).
namespace Kes::test {

/// The number of calls of operator new in this thread.
std::size_t allocation_count() noexcept;

/// Records the content of a block of memory when it is passed to operator delete.
class FreedMemory {
public:
    /// @param address  the result of operator new
    FreedMemory(const void* address, std::size_t count);
    ~FreedMemory();
    FreedMemory(const FreedMemory&) = delete;
    FreedMemory& operator=(const FreedMemory&) = delete;

    /// The recorded bytes; std::nullopt until the block is freed.
    std::optional<std::string> content() const;
};

/// Records every write to a file descriptor during its lifetime, including those of the C++ library. On
/// Windows it records what the C runtime receives, before the runtime converts the line ends of a text file.
class WriteRecord {
public:
    WriteRecord();
    ~WriteRecord();
    WriteRecord(const WriteRecord&) = delete;
    WriteRecord& operator=(const WriteRecord&) = delete;

    /// The bytes of each write, in order.
    std::vector<std::string> writes() const;
};

/// Simulates a full disk: during its lifetime, each write of more than "room" bytes fails.
class FullDisk {
public:
    explicit FullDisk(std::size_t room = 0);
    ~FullDisk();
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
};

/// Stops the clock that the library reads and sets the time zone to UTC.
class FixedClock {
public:
    FixedClock(std::time_t seconds, long microseconds);
    ~FixedClock();
    FixedClock(const FixedClock&) = delete;
    FixedClock& operator=(const FixedClock&) = delete;
};

/// The number of times that the library has read the clock.
std::size_t clock_read_count() noexcept;

/// The number of the calling thread, read with another system function than the library's where one exists.
unsigned long system_thread_id() noexcept;

/// Whether this process has the file open.
bool is_open(const std::string& file);

/// During its lifetime, counts the library's calls of OpenSSL functions and makes some of them fail.
struct OsslCalls {
    OsslCalls();
    ~OsslCalls();
    OsslCalls(const OsslCalls&) = delete;
    OsslCalls& operator=(const OsslCalls&) = delete;

    int decoded_x509s = 0; ///< successful calls of d2i_X509()
    int freed_x509s = 0;
    std::function<void()> before_x509_free; ///< called by each X509_free(), if set
    int created_bios = 0;
    int freed_bios = 0;
    int read_extensions = 0; ///< calls of X509_get_ext_d2i() that returned an extension
    int freed_stacks = 0;

    std::vector<bool> encode_has_buffer; ///< for each call of i2d_X509()
    int encode_failing_call = 0;         ///< number of the i2d_X509() call that fails, from 1
    int encode_failure = -1;             ///< the result of that call

    std::optional<int> name_print_result; ///< result of X509_NAME_print_ex(), which then prints nothing
    int name_print_indent = -1;           ///< the last argument
    unsigned long name_print_flags = ~0UL;

    bool is_bio_refused = false; ///< makes BIO_new() return null
};

} // namespace Kes::test

#endif // KES_TESTS_UNIT_UTILS_HOOKS_H_
