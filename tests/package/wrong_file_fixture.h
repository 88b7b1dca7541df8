#ifndef KES_TESTS_PACKAGE_WRONG_FILE_FIXTURE_H_
#define KES_TESTS_PACKAGE_WRONG_FILE_FIXTURE_H_

#include "dll_folder.h"
#include "support/test_card.h"

namespace Kes::test {

constexpr const char* not_64_bits = ": it, or a DLL that it needs, is no DLL for 64 bits";
constexpr const char* needs_a_dll = ": a DLL that it needs is missing";

/// A client with a card. Its folder contains all DLLs that it needs, and wrong files.
class WrongFileTest : public DllFolder {
protected:
    WrongFileTest() {
        for (const char* name : {"libp11.dll", "itp11.dll", "pkcs11.dll"})
            put(doubles / name, folder);
        for (const char* name : {"32bit.dll", "needing.dll"})
            put(wrong / name, folder);
        put_text_file(folder / "text.dll");
        card.add("01", "ckp", "rsa", "Login");
    }

    std::string path(const std::string& name) const { return (folder / name).string(); }

    /// The last line of OpenSSL's error queue, which the library adds.
    static std::string our_line(const std::string& text) {
        return "error:DSO support routines:system lib:" + text + "\n";
    }

    static std::string not_loaded(const std::string& file, unsigned long code, const std::string& hint = "") {
        return our_line("error loading '" + file + "'" + hint + ": " + windows_error(code));
    }

    static std::string no_function(const std::string& file, const std::string& function) {
        return our_line("'" + file + "' has no function " + function + ": " + windows_error(127));
    }

    static std::string wrong_kind(const std::string& file, const std::string& kinds) {
        return our_line("'" + file + "' is " + kinds);
    }

    /// OpenSSL's own errors when it cannot load a file.
    static std::string openssl_lines(const std::string& file) {
        return "error:DSO support routines:could not load the shared library:filename(" + file +
               ")\nerror:DSO support routines:could not load the shared library:\n"
               "error:engine routines:dso not found:\n";
    }

    /// OpenSSL's own errors when the loaded file is not an engine.
    static constexpr const char* no_symbol_lines =
        "error:DSO support routines:could not bind to the requested symbol name:symname(bind_engine)\n"
        "error:DSO support routines:could not bind to the requested symbol name:\n"
        "error:engine routines:DSO failure:\n";

    TestCard card;
};

} // namespace Kes::test

#endif // KES_TESTS_PACKAGE_WRONG_FILE_FIXTURE_H_
