#include "tool/doctor/loaded_files.h"

#include <algorithm>

#include "utils/load_diagnostics_win.h"
#include <psapi.h>

namespace Kes::tool {

std::vector<std::string> loaded_files() {
    std::vector<HMODULE> modules(4096);
    DWORD size = 0;
    ::K32EnumProcessModules(::GetCurrentProcess(), modules.data(),
                            static_cast<DWORD>(modules.size() * sizeof(HMODULE)), &size);
    modules.resize(std::min(modules.size(), size / sizeof(HMODULE)));
    std::vector<std::string> files(modules.size());
    std::transform(modules.begin(), modules.end(), files.begin(), library_path);
    return files;
}

std::string libcrypto_in_use() {
    // The address of a function would be that of the jump to it in this program.
    HMODULE library = ::GetModuleHandleW(L"libcrypto-3-x64.dll");
    return library == nullptr ? "this program" : library_path(library);
}

std::string libp11_in_use() {
    for (const wchar_t* name : {L"libp11.dll", L"libp11-3.dll"})
        if (HMODULE library = ::GetModuleHandleW(name)) return library_path(library);
    return "";
}

} // namespace Kes::tool
