#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "tool/binary_file.h"
#include "utils/load_diagnostics_win.h"
#include "utils/windows_api.h"
#include <imagehlp.h>

namespace Kes::tool {
namespace {

/// The content of a file for Windows, mapped as data.
class ImageFile {
public:
    explicit ImageFile(const std::string& path) : is_mapped(map(path)) {}
    ~ImageFile() {
        if (is_mapped) ::UnMapAndLoad(&image);
    }
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;

    /// Null if the file is not of Windows' format.
    const IMAGE_NT_HEADERS* header() const { return is_mapped ? image.FileHeader : nullptr; }

    /// The object at an address of the loaded library; null if the file does not contain it whole.
    template <typename T>
    const T* at(std::size_t address) const {
        void* place =
            ::ImageRvaToVa(image.FileHeader, image.MappedAddress, static_cast<ULONG>(address), nullptr);
        return room(place) < sizeof(T) ? nullptr : static_cast<const T*>(place);
    }

    /// The text at an address; "" if the file does not contain it.
    std::string text(std::size_t address) const {
        const char* characters = at<char>(address);
        return characters == nullptr ? "" : std::string(characters, ::strnlen(characters, room(characters)));
    }

    /// The address of one of the tables that the header lists; 0 if there is none.
    std::size_t table(unsigned number) const {
        const IMAGE_OPTIONAL_HEADER& optional = image.FileHeader->OptionalHeader;
        return number < optional.NumberOfRvaAndSizes ? optional.DataDirectory[number].VirtualAddress : 0;
    }

private:
    bool map(const std::string& path) {
        return ::MapAndLoad(path.c_str(), nullptr, &image, TRUE, TRUE) != FALSE;
    }

    /// The number of bytes from this place to the end of the file; 0 outside it.
    std::size_t room(const void* place) const {
        const auto begin = reinterpret_cast<std::uintptr_t>(image.MappedAddress);
        const auto here = reinterpret_cast<std::uintptr_t>(place);
        return here < begin || here - begin > image.SizeOfImage ? 0 : begin + image.SizeOfImage - here;
    }

    LOADED_IMAGE image{};
    bool is_mapped;
};

BinaryFormat format_of(const ImageFile& file) {
    const IMAGE_NT_HEADERS* header = file.header();
    if (header == nullptr || (header->FileHeader.Characteristics & IMAGE_FILE_DLL) == 0)
        return BinaryFormat::no_library;
    if (header->OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC) return BinaryFormat::bits_32;
    return header->FileHeader.Machine == IMAGE_FILE_MACHINE_AMD64 ? BinaryFormat::library
                                                                  : BinaryFormat::other_processor;
}

std::set<std::string> exported_names(const ImageFile& file) {
    std::set<std::string> names;
    const auto* exports = file.at<IMAGE_EXPORT_DIRECTORY>(file.table(IMAGE_DIRECTORY_ENTRY_EXPORT));
    if (exports == nullptr) return names;
    for (DWORD i = 0; i < exports->NumberOfNames; ++i) {
        const DWORD* name = file.at<DWORD>(exports->AddressOfNames + i * sizeof(DWORD));
        if (name == nullptr) break; // damaged
        names.insert(file.text(*name));
    }
    return names;
}

std::vector<std::string> needed_names(const ImageFile& file) {
    std::vector<std::string> names;
    std::size_t address = file.table(IMAGE_DIRECTORY_ENTRY_IMPORT);
    if (address == 0) return names;
    for (;; address += sizeof(IMAGE_IMPORT_DESCRIPTOR)) {
        const auto* import = file.at<IMAGE_IMPORT_DESCRIPTOR>(address);
        if (import == nullptr || import->Name == 0) return names;
        names.push_back(file.text(import->Name));
    }
}

/// "1.2.3.4" of the file's version resource; "" without one.
std::string version_of(const std::string& path) {
    const DWORD size = ::GetFileVersionInfoSizeA(path.c_str(), nullptr);
    std::string resource(size, '\0');
    void* block = nullptr;
    UINT length = 0;
    if (size == 0 || ::GetFileVersionInfoA(path.c_str(), 0, size, resource.data()) == FALSE ||
        ::VerQueryValueA(resource.data(), "\\", &block, &length) == FALSE ||
        length < sizeof(VS_FIXEDFILEINFO))
        return "";
    const auto* info = static_cast<const VS_FIXEDFILEINFO*>(block);
    std::string text;
    for (const DWORD part : {HIWORD(info->dwFileVersionMS), LOWORD(info->dwFileVersionMS),
                             HIWORD(info->dwFileVersionLS), LOWORD(info->dwFileVersionLS)})
        text += (text.empty() ? "" : ".") + std::to_string(part);
    return text;
}

bool is_folder(const std::string& path) {
    const DWORD attributes = ::GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

void require_readable(const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!file && !is_folder(path))
        throw std::runtime_error("cannot read '" + path + "': " + std::strerror(errno));
}

/// Whether the name stands for a set of functions that Windows itself provides, without a file of that name.
bool is_api_set(const std::string& name) {
    return name.starts_with("api-ms-") || name.starts_with("ext-ms-");
}

std::string absolute(const std::string& path) {
    std::string full(32768, '\0'); // the longest path in Windows
    full.resize(::GetFullPathNameA(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
    return full;
}

} // namespace

std::string find_library(const std::string& name) {
    if (name.empty()) return "";
    // For the loader, a loaded library of the same name comes first, from whichever folder.
    if (HMODULE loaded = ::GetModuleHandleA(name.c_str())) return library_path(loaded);
    const std::string path = find_library_path(name);
    return path.empty() ? "" : absolute(path);
}

BinaryFile read_binary_file(const std::string& path) {
    require_readable(path);
    const ImageFile image(path);
    BinaryFile file{path, format_of(image), {}, {}, {}, ""};
    if (file.format != BinaryFormat::library) return file;
    file.functions = exported_names(image);
    for (const std::string& name : needed_names(image))
        if (!is_api_set(name)) file.needed.push_back(name);
    file.version = version_of(path);
    return file;
}

FindDependency dependencies_of(const BinaryFile&) { return find_library; }

} // namespace Kes::tool
