#include "csp_files.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>

namespace Kes::test_card {
namespace {

constexpr std::size_t algorithm_offset = 4; // of aiKeyAlg in BLOBHEADER
constexpr std::array<unsigned char, 4> rsa_sign{0x00, 0x24, 0x00, 0x00};

} // namespace

// Read from the system, not from the C runtime, because the program may use another C runtime.
std::filesystem::path Card::named_folder() {
    std::array<char, 1024> text{};
    const DWORD length =
        ::GetEnvironmentVariableA("MARVO_CSP_CARD", text.data(), static_cast<DWORD>(text.size()));
    return length < text.size() ? std::string(text.data(), length) : std::string();
}

bool Card::is_there() const {
    std::error_code ignored;
    return std::filesystem::is_directory(folder_, ignored);
}

std::vector<std::string> Card::containers() const {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder_, ignored))
        if (entry.is_directory()) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

bool Card::has(const std::string& container) const {
    const auto names = containers();
    return std::find(names.begin(), names.end(), container) != names.end();
}

std::optional<Bytes> Card::key(const std::string& container, DWORD key_spec) const {
    auto blob = read(container, key_spec, ".blob");
    // The openssl program writes all blobs as key exchange keys.
    if (blob && key_spec == AT_SIGNATURE && blob->size() > algorithm_offset + rsa_sign.size())
        std::copy(rsa_sign.begin(), rsa_sign.end(),
                  blob->begin() + static_cast<std::ptrdiff_t>(algorithm_offset));
    return blob;
}

std::optional<Bytes> Card::certificate(const std::string& container, DWORD key_spec) const {
    return read(container, key_spec, ".der");
}

std::optional<Bytes> Card::read(const std::string& container, DWORD key_spec, const char* ending) const {
    std::ifstream stream(folder_ / container / (std::to_string(key_spec) + ending), std::ios::binary);
    if (!stream) return std::nullopt;
    return Bytes(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

} // namespace Kes::test_card
