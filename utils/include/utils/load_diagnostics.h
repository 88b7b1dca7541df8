#ifndef KES_UTILS_LOAD_DIAGNOSTICS_H_
#define KES_UTILS_LOAD_DIAGNOSTICS_H_

namespace Kes {

/// Call these functions after OpenSSL or libp11 has failed to load an engine or a PKCS#11 module. If the
/// system's loader rejects the file, or the file is a library of another kind, they append an entry that
/// gives the reason to the thread's OpenSSL error queue. They do not repeat what OpenSSL has reported itself,
/// and they keep no library loaded.
/// @param path  the path or name that was passed to OpenSSL's "SO_PATH" command, or to libp11
void append_engine_load_error(const char* path);
void append_module_load_error(const char* path);

/// Prevents Windows from showing a dialog when the thread cannot load a library, as long as the object
/// exists. In a service, nobody could close the dialog. Loading then fails with an error code. Does nothing
/// on other systems.
class ScopedNoLoaderDialogs {
public:
    ScopedNoLoaderDialogs();
    ~ScopedNoLoaderDialogs(); // NOLINT(performance-trivially-destructible): not trivial on Windows
    ScopedNoLoaderDialogs(const ScopedNoLoaderDialogs&) = delete;
    ScopedNoLoaderDialogs& operator=(const ScopedNoLoaderDialogs&) = delete;

private:
    [[maybe_unused]] unsigned long saved_mode = 0; // the thread's error mode, which the destructor restores
};

} // namespace Kes

#endif // KES_UTILS_LOAD_DIAGNOSTICS_H_
