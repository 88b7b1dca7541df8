#ifndef KES_UTILS_PLATFORM_H_
#define KES_UTILS_PLATFORM_H_

#include <memory>
#include <optional>
#include <string>

/// All that the utilities ask of the operating system. One source file per system answers: platform_posix.cpp
/// or platform_win.cpp.
namespace Kes::platform {

/// A moment in local time, each field as people write it (month and day from 1).
struct LocalTime {
    int year, month, day, hour, minute, second, millisecond;
};

LocalTime local_time();

/// The value of an environment variable; "" when it is unset or cannot be read.
std::string env_value(const char* name);

/// The number by which the system's own tools name the calling thread.
unsigned long thread_id() noexcept;

/// The Windows text for a Windows error number in the given language (0: the system's choice), as the system
/// gives it, line ends included. Empty optional when there is none; always so on other systems.
std::optional<std::string> system_message(unsigned long error, unsigned long language);

/// The console keyboard while single keys are being read: no echo, no Enter needed, CTRL-C is a key like any
/// other. The console works as before when the object ends.
class Keyboard {
public:
    /// What read_key() returns when no more keys can come: the input is closed.
    static constexpr int end_of_input = -1;

    Keyboard();
    ~Keyboard();
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    /// Waits for a key.
    /// @return its character code, 0 to 255 (0 starts or stands for a function key), or end_of_input
    int read_key();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Kes::platform

#endif // KES_UTILS_PLATFORM_H_
