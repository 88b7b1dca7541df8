#ifndef KES_UTILS_SINGLETON_H_
#define KES_UTILS_SINGLETON_H_

namespace Kes {

/// A process-wide object that is created on first use and destroyed on request. It is not destroyed at
/// process exit, because the libraries that its destructor needs may be unloaded by then.
///
/// T derives from Singleton<T> and declares it a friend. Creation is not synchronised: the library is used
/// from one thread at a time.
template <typename T>
class Singleton {
public:
    Singleton(const Singleton&) = delete;
    Singleton& operator=(const Singleton&) = delete;

    /// Returns the object, and creates it first if it does not exist. If its constructor throws, the next
    /// call tries again.
    static T& instance() {
        if (instance_ == nullptr) instance_ = new T;
        return *instance_;
    }

    /// Whether the object exists. For tests, which check that destroy() leaves no object behind; instance()
    /// would create one.
    static bool exists() noexcept { return instance_ != nullptr; }

    /// Destroys the object if it exists; the next instance() creates a new one. The pointer is reset only
    /// after the destructor, so that a destructor that calls instance() gets its own object and not a new
    /// one.
    static void destroy_instance() noexcept {
        delete instance_;
        instance_ = nullptr;
    }

protected:
    Singleton() = default;
    ~Singleton() = default;

private:
    static inline T* instance_ = nullptr;
};

} // namespace Kes

#endif // KES_UTILS_SINGLETON_H_
