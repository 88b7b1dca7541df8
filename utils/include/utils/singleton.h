#ifndef KES_UTILS_SINGLETON_H_
#define KES_UTILS_SINGLETON_H_

namespace Kes {

/// A process-wide object that is made on first use and ended on request, not at process exit: a client that
/// leaves without cleaning up must not run our destructors after the libraries they need are gone.
///
/// T derives from Singleton<T> and befriends it. Creation is not synchronised: the library is used from one
/// thread at a time.
template <typename T>
class Singleton {
public:
    Singleton(const Singleton&) = delete;
    Singleton& operator=(const Singleton&) = delete;

    /// The object, created when there is none. If its construction throws, nothing is stored.
    static T& instance() {
        if (instance_ == nullptr) instance_ = new T;
        return *instance_;
    }

    static bool exists() noexcept { return instance_ != nullptr; }

    /// Ends the object, if there is one; the next instance() makes a new one. The pointer is forgotten only
    /// after the destructor is through, so that a destructor which asks for instance() meets itself.
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
