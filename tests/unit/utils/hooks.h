#ifndef KES_TESTS_UNIT_UTILS_HOOKS_H_
#define KES_TESTS_UNIT_UTILS_HOOKS_H_

#include <cstddef>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

/// What this test program sees and changes of the calls that the library makes: memory (hooks_memory.cpp),
/// the system (hooks_system.cpp, with what differs between systems in hooks_system_posix.cpp and
/// hooks_system_win.cpp) and OpenSSL (hooks_ossl.cpp).
namespace Kes::test {

/// How often this thread has asked operator new for memory.
std::size_t allocation_count() noexcept;

/// Looks at a block of memory in the moment in which operator delete is given it.
class FreedMemory {
public:
    /// @param address  what operator new returned
    FreedMemory(const void* address, std::size_t count);
    ~FreedMemory();
    FreedMemory(const FreedMemory&) = delete;
    FreedMemory& operator=(const FreedMemory&) = delete;

    /// The bytes that stood there; empty optional while the block is in use.
    std::optional<std::string> content() const;
};

/// Records every write to a file descriptor, also those that the C++ library makes, while it lives. On
/// Windows that is what the C runtime is given, before it makes the line ends of a text file.
class WriteRecord {
public:
    WriteRecord();
    ~WriteRecord();
    WriteRecord(const WriteRecord&) = delete;
    WriteRecord& operator=(const WriteRecord&) = delete;

    /// What each write was given, in order.
    std::vector<std::string> writes() const;
};

/// A disk with little room left: while it lives, writes of more bytes than that fail.
class FullDisk {
public:
    explicit FullDisk(std::size_t room = 0);
    ~FullDisk();
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
};

/// Stops the clock that the library reads, in a time zone without offset.
class FixedClock {
public:
    FixedClock(std::time_t seconds, long microseconds);
    ~FixedClock();
    FixedClock(const FixedClock&) = delete;
    FixedClock& operator=(const FixedClock&) = delete;
};

/// How often the library has asked for the time.
std::size_t clock_read_count() noexcept;

/// The calling thread's number, asked of the system by another way than the library's where there is one.
unsigned long system_thread_id() noexcept;

/// Whether the process holds the file open.
bool is_open(const std::string& file);

/// Counts the library's calls of OpenSSL functions and makes some fail, while it lives.
struct OsslCalls {
    OsslCalls();
    ~OsslCalls();
    OsslCalls(const OsslCalls&) = delete;
    OsslCalls& operator=(const OsslCalls&) = delete;

    int decoded_x509s = 0; ///< by d2i_X509(), without failures
    int freed_x509s = 0;
    int made_bios = 0;
    int freed_bios = 0;
    int read_extensions = 0; ///< by X509_get_ext_d2i(), without null pointers
    int freed_stacks = 0;

    std::vector<bool> encode_has_buffer; ///< of each i2d_X509() call
    int encode_failing_call = 0;         ///< this call of i2d_X509(), counted from 1, fails
    int encode_failure = -1;             ///< what it returns then

    std::optional<int> name_print_result; ///< what X509_NAME_print_ex() returns instead of printing
    int name_print_indent = -1;           ///< what it was given last
    unsigned long name_print_flags = ~0UL;

    bool is_bio_refused = false; ///< whether BIO_new() returns null
};

} // namespace Kes::test

#endif // KES_TESTS_UNIT_UTILS_HOOKS_H_
