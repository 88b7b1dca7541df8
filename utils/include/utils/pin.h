#ifndef KES_UTILS_PIN_H_
#define KES_UTILS_PIN_H_

#include <cstddef>
#include <memory>

namespace Kes {

/// Overwrites the characters with 'x'. The compiler cannot optimise this away.
void overwrite(char* characters, std::size_t count) noexcept;

/// A PIN. The class cannot be copied or streamed, so that no copy is made by accident. It overwrites the
/// characters with 'x' before it frees their memory. It stores them only on the heap, so that moving the
/// object leaves no characters behind. A std::string may store short text inside the object.
class Pin {
public:
    Pin() = default;

    /// @param characters  zero-terminated and copied; null means an empty PIN
    explicit Pin(const char* characters);

    Pin(Pin&& other) noexcept;
    Pin& operator=(Pin&& other) noexcept;
    ~Pin();

    /// Overwrites the PIN and makes it empty.
    void clear() noexcept;

    bool is_empty() const noexcept { return length == 0; }

    /// The characters, zero-terminated. Never null; valid until the PIN changes. Do not store or copy them.
    const char* c_str() const noexcept { return memory ? memory.get() : ""; }

private:
    std::unique_ptr<char[]> memory;
    std::size_t length = 0;
};

} // namespace Kes

#endif // KES_UTILS_PIN_H_
