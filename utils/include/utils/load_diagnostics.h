#ifndef KES_UTILS_LOAD_DIAGNOSTICS_H_
#define KES_UTILS_LOAD_DIAGNOSTICS_H_

namespace Kes {

/// Add to OpenSSL's error queue which file the system's loader did not take, and why, when that is the reason
/// for which an engine or a PKCS#11 module could not be loaded. Only Windows needs them: OpenSSL and libp11
/// keep back there what elsewhere they tell. Call after the failure.
/// @param path  as it was given to OpenSSL's "SO_PATH", or to libp11
void append_engine_load_error(const char* path);
void append_module_load_error(const char* path);

/// While the object lives, a library that cannot be loaded is an error and no dialog for this thread. Windows
/// would show one, where perhaps nobody can answer it.
class ScopedNoLoaderDialogs {
public:
    ScopedNoLoaderDialogs();
    ~ScopedNoLoaderDialogs(); // NOLINT(performance-trivially-destructible): elsewhere it has nothing to do
    ScopedNoLoaderDialogs(const ScopedNoLoaderDialogs&) = delete;
    ScopedNoLoaderDialogs& operator=(const ScopedNoLoaderDialogs&) = delete;

private:
    [[maybe_unused]] unsigned long saved_mode_ = 0;
};

} // namespace Kes

#endif // KES_UTILS_LOAD_DIAGNOSTICS_H_
