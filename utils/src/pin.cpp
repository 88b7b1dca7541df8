#include "utils/pin.h"

#include <cstring>
#include <utility>

namespace Kes {

void overwrite(char* characters, std::size_t count) noexcept {
    // The compiler must keep writes through a volatile pointer, even though nothing reads the memory
    // afterwards.
    volatile char* out = characters;
    for (std::size_t i = 0; i < count; ++i)
        out[i] = 'x';
}

Pin::Pin(const char* characters) {
    if (characters == nullptr || *characters == '\0') return; // no memory to overwrite
    const std::size_t size = std::strlen(characters);
    characters_ = std::make_unique<char[]>(size + 1);
    std::memcpy(characters_.get(), characters, size);
    size_ = size;
}

Pin::Pin(Pin&& other) noexcept
    : characters_(std::move(other.characters_)), size_(std::exchange(other.size_, 0)) {}

Pin& Pin::operator=(Pin&& other) noexcept {
    if (this == &other) return *this;
    clear(); // before the move, which frees the memory
    characters_ = std::move(other.characters_);
    size_ = std::exchange(other.size_, 0);
    return *this;
}

Pin::~Pin() { clear(); }

void Pin::clear() noexcept {
    overwrite(characters_.get(), size_);
    characters_.reset();
    size_ = 0;
}

} // namespace Kes
