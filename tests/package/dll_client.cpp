// A client that loads the DLL at run time and is not linked with it. Usage:
//     dll_client <output file> <path of the DLL> [occupy_preferred_base] <command>...
// A command name=value changes a setting; other commands call an operation and write its result.
// occupy_preferred_base forces Windows to load the DLL at another address.
#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"
#include "utils/windows_api.h"

namespace {

using Kes::OsslScardCfg;
using Kes::OsslScardIf;

/// @param files  source and target, separated by "|"
void copy_file(const std::string& files) {
    const std::size_t bar = files.find('|');
    ::CopyFileA(files.substr(0, bar).c_str(), files.substr(bar + 1).c_str(), FALSE);
}

/// The preferred base address of a DLL, read from its file; null if the file cannot be read.
void* preferred_base(const char* library_path) {
    std::FILE* file = std::fopen(library_path, "rb");
    if (file == nullptr) return nullptr;
    IMAGE_DOS_HEADER start{};
    IMAGE_NT_HEADERS64 header{};
    const bool is_read = std::fread(&start, sizeof start, 1, file) == 1 &&
                         std::fseek(file, start.e_lfanew, SEEK_SET) == 0 &&
                         std::fread(&header, sizeof header, 1, file) == 1;
    std::fclose(file);
    return is_read ? reinterpret_cast<void*>(header.OptionalHeader.ImageBase) : nullptr;
}

OsslScardCfg::CryptoIf backend_of(const std::string& name) {
    if (name == "capi_store") return OsslScardCfg::capi_store;
    return name == "capi" ? OsslScardCfg::capi : OsslScardCfg::pkcs11;
}

class Client {
public:
    Client(const char* output_file, const char* library_path)
        : output_(std::fopen(output_file, "wb")),
          // With this flag, Windows searches the DLL's own folder for the DLLs that it imports.
          library_(::LoadLibraryExA(library_path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH)) {
        if (library_ == nullptr) return;
        get_if_ = reinterpret_cast<decltype(get_if_)>(
            reinterpret_cast<void*>(::GetProcAddress(library_, "get_ossl_scard_if")));
        cfg_ = scard().get_config_default();
    }
    ~Client() { std::fclose(output_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool is_loaded() const { return get_if_ != nullptr; }
    bool is_loaded_at(const void* address) const { return static_cast<const void*>(library_) == address; }

    bool run(const std::string& command) {
        const std::size_t equals = command.find('=');
        const std::string name = command.substr(0, equals);
        if (equals != std::string::npos) return set(name, command.substr(equals + 1));
        const auto found = operations_.find(name);
        if (found == operations_.end()) return false;
        std::string text = name + ": " + std::to_string(found->second());
        const std::string error = is_destroyed_ ? "" : scard().get_last_error_msg();
        write(text + (error.empty() ? "" : " " + error));
        return true;
    }

private:
    OsslScardIf& scard() const { return *get_if_(); }

    void write(const std::string& line) { std::fprintf(output_, "%s\n", line.c_str()); }

    bool set(const std::string& name, const std::string& value) {
        const auto found = settings_.find(name);
        if (found == settings_.end()) return false;
        found->second(value.c_str());
        return true;
    }

    int init() {
        const int status = scard().init(cfg_);
        if (status == 0) cfg_ = scard().get_config_used();
        return status;
    }

    int discover() {
        size_t count = 0;
        const int status = scard().discover_keys(&count);
        if (status == 0) write(std::to_string(count) + " key(s)");
        return status;
    }

    int dump() {
        char text[4096];
        write(scard().get_config_used()->dump_settings(text, sizeof text));
        return 0;
    }

    int destroy() {
        scard().destroy();
        is_destroyed_ = true; // get_last_error_msg() would create a new object
        return 0;
    }

    int restart() {
        scard().destroy();
        cfg_ = scard().get_config_default();
        return 0;
    }

    int free_dll() {
        std::string path(MAX_PATH, '\0');
        path.resize(::GetModuleFileNameA(library_, path.data(), MAX_PATH));
        if (::FreeLibrary(library_) == FALSE) return -1;
        write(::GetModuleHandleA(path.c_str()) == nullptr ? "the DLL is gone" : "the DLL stays");
        return 0;
    }

    std::FILE* output_;
    HMODULE library_;
    OsslScardIf* (*get_if_)() = nullptr;
    OsslScardCfg* cfg_ = nullptr;
    bool is_destroyed_ = false;
    const std::map<std::string, std::function<void(const char*)>> settings_{
        {"backend", [this](const char* name) { cfg_->set_crypto_if(backend_of(name)); }},
        {"log", [this](const char* file) { cfg_->set_logfile(file); }},
        {"append", [this](const char*) { cfg_->enable_logfile_append(); }},
        {"module", [this](const char* file) { cfg_->set_pkcs11_module_dll(file); }},
        {"engine", [this](const char* file) { cfg_->set_pkcs11_openssl_engine_dll(file); }},
        {"capi_engine", [this](const char* file) { cfg_->set_capi_openssl_engine_dll(file); }},
        {"csp", [this](const char* name) { cfg_->set_capi_csp_name(name); }},
        {"store_engine", [this](const char* file) { cfg_->set_capi_store_openssl_engine_dll(file); }},
        {"key_name", [this](const char* name) { cfg_->set_priv_key_name(name); }},
        {"cert_name", [this](const char* name) { cfg_->set_cert_name(name); }},
        {"pin", [this](const char* pin) { scard().set_pin(pin); }},
        {"copy_file", [](const char* files) { copy_file(files); }},
        {"load_dll", [](const char* file) { ::LoadLibraryA(file); }},
    };
    const std::map<std::string, std::function<int()>> operations_{
        {"version_check", [this] { return scard().version_check(4); }},
        {"init", [this] { return init(); }},
        {"settings", [this] { return dump(); }},
        {"read_scard", [this] { return scard().read_scard(); }},
        {"discover_keys", [this] { return discover(); }},
        {"set_key", [this] { return scard().set_key(size_t{0}); }},
        {"notify_config_done", [this] { return scard().notify_config_done(); }},
        {"ossl_load", [this] { return scard().ossl_load(); }},
        {"destroy", [this] { return destroy(); }},
        {"restart", [this] { return restart(); }},
        {"free_dll", [this] { return free_dll(); }},
    };
};

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    int first = 3;
    if (argc > first && argv[first] == std::string("occupy_preferred_base")) {
        ++first;
        ::VirtualAlloc(preferred_base(argv[2]), 1, MEM_RESERVE, PAGE_NOACCESS);
    }
    Client client(argv[1], argv[2]);
    if (!client.is_loaded()) return 3;
    if (first > 3 && client.is_loaded_at(preferred_base(argv[2]))) return 5;
    for (int i = first; i < argc; ++i)
        if (!client.run(argv[i])) return 4;
    return 0;
}
