#ifndef KES_UTILS_UNIQUE_HANDLE_H_
#define KES_UTILS_UNIQUE_HANDLE_H_

#include <utility>

namespace Kes {

/// Owns a handle that is a plain value, or whose release can fail. The traits name it:
/// - using Raw: the handle's type; a value-initialised one is no handle
/// - static void close(Raw handle) noexcept: releases it, and logs when that fails
template <typename Traits>
class UniqueHandle {
public:
    using Raw = typename Traits::Raw;

    UniqueHandle() = default;
    explicit UniqueHandle(Raw handle) noexcept : handle_(handle) {}
    ~UniqueHandle() { reset(); }
    UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }

    Raw get() const noexcept { return handle_; }
    explicit operator bool() const noexcept { return handle_ != Raw{}; }

    /// Gives the handle away unreleased.
    Raw release() noexcept { return std::exchange(handle_, Raw{}); }

    /// Releases the handle and takes over the other.
    void reset(Raw handle = Raw{}) noexcept {
        const Raw before = std::exchange(handle_, handle);
        if (before != Raw{}) Traits::close(before);
    }

    /// For a function that gives a handle by an argument: releases what is held, and lends the place for it.
    Raw* put() noexcept {
        reset();
        return &handle_;
    }

private:
    Raw handle_{};
};

} // namespace Kes

#endif // KES_UTILS_UNIQUE_HANDLE_H_
