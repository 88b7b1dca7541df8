#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gelf.h>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>

#include "tool/binary_file.h"
#include "tool/file_descriptor_posix.h"
#include "tool/loader_posix.h"

namespace Kes::tool {
namespace {

namespace fs = std::filesystem;

struct EndElf {
    void operator()(Elf* elf) const noexcept { ::elf_end(elf); }
};

/// A file that libelf reads. Null if it has no format that libelf knows.
class ElfFile {
public:
    explicit ElfFile(const std::string& path) : file(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (file.get() == -1) throw std::runtime_error("cannot read '" + path + "': " + std::strerror(errno));
        ::elf_version(EV_CURRENT);
        elf.reset(::elf_begin(file.get(), ELF_C_READ, nullptr));
    }

    std::optional<GElf_Ehdr> header() const {
        GElf_Ehdr values;
        if (::elf_kind(elf.get()) != ELF_K_ELF || ::gelf_getehdr(elf.get(), &values) == nullptr)
            return std::nullopt;
        return values;
    }

    /// Calls the function for each section of a type, with its header and its content.
    template <typename Function>
    void each_section(GElf_Word type, Function function) const {
        for (Elf_Scn* section = nullptr; (section = ::elf_nextscn(elf.get(), section)) != nullptr;) {
            GElf_Shdr values;
            if (::gelf_getshdr(section, &values) == nullptr || values.sh_type != type) continue;
            if (Elf_Data* data = ::elf_getdata(section, nullptr)) function(values, data);
        }
    }

    /// A text of a section that contains texts; "" if the file is damaged.
    std::string text(GElf_Word section, std::size_t offset) const {
        const char* characters = ::elf_strptr(elf.get(), section, offset);
        return characters == nullptr ? "" : characters;
    }

private:
    FileDescriptor file;
    std::unique_ptr<Elf, EndElf> elf;
};

BinaryFormat format_of(const ElfFile& file) {
    // The loader has the class and the processor of this program, and its path is known without /proc.
    static const GElf_Ehdr own = ElfFile(loader_path()).header().value();
    const std::optional<GElf_Ehdr> header = file.header();
    if (!header || header->e_type != ET_DYN) return BinaryFormat::no_library;
    if (header->e_ident[EI_CLASS] != own.e_ident[EI_CLASS]) return BinaryFormat::bits_32;
    return header->e_machine == own.e_machine ? BinaryFormat::library : BinaryFormat::other_processor;
}

bool is_exported(const GElf_Sym& symbol) {
    return symbol.st_shndx != SHN_UNDEF && GELF_ST_BIND(symbol.st_info) != STB_LOCAL;
}

std::set<std::string> exported_names(const ElfFile& file) {
    std::set<std::string> names;
    file.each_section(SHT_DYNSYM, [&](const GElf_Shdr& header, Elf_Data* data) {
        GElf_Sym symbol;
        for (int i = 0; ::gelf_getsym(data, i, &symbol) != nullptr; ++i)
            if (is_exported(symbol)) names.insert(file.text(header.sh_link, symbol.st_name));
    });
    return names;
}

std::vector<std::string> needed_names(const ElfFile& file) {
    std::vector<std::string> names;
    file.each_section(SHT_DYNAMIC, [&](const GElf_Shdr& header, Elf_Data* data) {
        GElf_Dyn entry;
        for (int i = 0; ::gelf_getdyn(data, i, &entry) != nullptr && entry.d_tag != DT_NULL; ++i)
            if (entry.d_tag == DT_NEEDED) names.push_back(file.text(header.sh_link, entry.d_un.d_val));
    });
    return names;
}

} // namespace

std::string find_library(const std::string& name) {
    if (name.empty()) return "";
    if (name.find('/') == std::string::npos) return ask_loader_for_path(name);
    return fs::exists(name) ? fs::absolute(name).lexically_normal().string() : "";
}

BinaryFile read_binary_file(const std::string& path) {
    const ElfFile elf(path);
    BinaryFile file{path, format_of(elf), {}, {}, {}, ""};
    if (file.format != BinaryFormat::library) return file;
    file.functions = exported_names(elf);
    file.needed = needed_names(elf);
    return file;
}

FindDependency dependencies_of(const BinaryFile& file) {
    const std::map<std::string, std::string> paths = ask_loader_for_dependencies(file.path);
    if (paths.empty()) return nullptr; // it prints at least one line for a file that it accepts
    return [paths](const std::string& name) {
        const auto found = paths.find(name);
        return found == paths.end() ? "" : found->second;
    };
}

} // namespace Kes::tool
