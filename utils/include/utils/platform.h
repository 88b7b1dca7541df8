#ifndef KES_UTILS_PLATFORM_H_
#define KES_UTILS_PLATFORM_H_

#include <memory>
#include <optional>
#include <string>

/// The functions of utils that depend on the operating system. platform_posix.cpp and platform_win.cpp
/// implement them.
namespace Kes::platform {

/// A point in local time. The year is complete, such as 2024; month and day start at 1.
struct LocalTime {
    int year, month, day, hour, minute, second, millisecond;
};

/// The current time.
LocalTime local_time();

/// The value of an environment variable; "" if it is not set.
std::string env_value(const char* name);

/// The number of the calling thread that the system's own tools show.
unsigned long thread_id() noexcept;

/// The text of Windows for a Windows error number, including line ends.
/// @param language  a Windows language identifier; 0 is the system's default language
/// @return nullopt if Windows has no text for the number in that language; always nullopt on other systems
std::optional<std::string> system_message(unsigned long error, unsigned long language);

/// Keeps the library that contains this function loaded until the process ends. Call it before OpenSSL
/// receives a pointer to a function of this library and may keep it. On Linux, it does nothing, because the
/// library is linked with -z nodelete.
void keep_library_loaded() noexcept;

/// Reads single keys from the console, without echo and without Enter. CTRL-C is an ordinary key and raises
/// no signal. The destructor restores the previous mode of the console. On Linux, the bytes of standard input
/// are the keys if it is not a terminal.
class Keyboard {
public:
    /// The result of read_key() at the end of the input.
    static constexpr int end_of_input = -1;

    Keyboard();
    ~Keyboard();
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    /// Waits for a key.
    /// @return its character code from 0 to 255, or end_of_input. A function key gives one 0 on Linux, and 0
    ///         or 224 followed by a second code on Windows.
    int read_key();

private:
    struct State;
    std::unique_ptr<State> state;
};

} // namespace Kes::platform

#endif // KES_UTILS_PLATFORM_H_
