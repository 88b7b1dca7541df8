#ifndef KES_UTILS_UNIQUE_HANDLE_H_
#define KES_UTILS_UNIQUE_HANDLE_H_

#include <utility>

namespace Kes {

/// Owns a handle, which need not be a pointer, and closes it in the destructor. Cannot be copied or moved.
/// Traits has these members:
/// - using Raw: the type of the handle; its value-initialised value means "no handle"
/// - static void close(Raw handle) noexcept: closes the handle and logs a failure
template <typename Traits>
class UniqueHandle {
public:
    using Raw = typename Traits::Raw;

    UniqueHandle() = default;
    explicit UniqueHandle(Raw handle_in) noexcept : handle(handle_in) {}
    ~UniqueHandle() { reset(); }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;

    Raw get() const noexcept { return handle; }
    explicit operator bool() const noexcept { return handle != Raw{}; }

    /// Transfers the handle to the caller without closing it.
    Raw release() noexcept { return std::exchange(handle, Raw{}); }

    /// Closes the handle and takes ownership of another one.
    void reset(Raw handle_in = Raw{}) noexcept {
        const Raw before = std::exchange(handle, handle_in);
        if (before != Raw{}) Traits::close(before);
    }

    /// Closes the handle and returns the address of the member, for functions that return a handle through
    /// an argument.
    Raw* put() noexcept {
        reset();
        return &handle;
    }

private:
    Raw handle{};
};

} // namespace Kes

#endif // KES_UTILS_UNIQUE_HANDLE_H_
