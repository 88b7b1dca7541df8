#ifndef KES_UTILS_PIN_H_
#define KES_UTILS_PIN_H_

#include <cstddef>
#include <memory>

namespace Kes {

/// Overwrites the characters in a way that the optimiser must keep.
void overwrite(char* characters, std::size_t count) noexcept;

/// A PIN. Cannot be copied, streamed or turned into a string by accident, and never leaves a copy behind: the
/// characters are overwritten with 'x' before their memory is given back. They live on the heap only, so that
/// moving the object moves no character.
class Pin {
public:
    Pin() = default;

    /// @param characters  zero-terminated; null is an empty PIN
    explicit Pin(const char* characters);

    Pin(Pin&& other) noexcept;
    Pin& operator=(Pin&& other) noexcept;
    ~Pin();

    /// Overwrites and forgets the PIN.
    void clear() noexcept;

    bool is_empty() const noexcept { return size_ == 0; }

    /// Zero-terminated, never null; valid until the PIN changes. Only for the call that needs it.
    const char* c_str() const noexcept { return characters_ ? characters_.get() : ""; }

private:
    std::unique_ptr<char[]> characters_;
    std::size_t size_ = 0;
};

} // namespace Kes

#endif // KES_UTILS_PIN_H_
