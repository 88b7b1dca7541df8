#include "token_files.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <sstream>

#include "crypto.h"
#include "failure.h"

namespace Kes::test {
namespace {

namespace fs = std::filesystem;

struct NamedMechanism {
    const char* name;
    CK_MECHANISM_TYPE type;
};

constexpr std::array<NamedMechanism, 4> known_mechanisms{{{"rsa_pkcs", CKM_RSA_PKCS},
                                                          {"rsa_pss", CKM_RSA_PKCS_PSS},
                                                          {"rsa_raw", CKM_RSA_X_509},
                                                          {"ecdsa", CKM_ECDSA}}};

CK_FLAGS flag_if(bool condition, CK_FLAGS flag) { return condition ? flag : 0; }

} // namespace

Settings read_settings(const fs::path& file) {
    Settings settings;
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        const auto equals = line.find('=');
        if (equals != std::string::npos)
            settings.emplace_back(line.substr(0, equals), line.substr(equals + 1));
    }
    return settings;
}

CK_ULONG number_of(const std::string& text) {
    try {
        std::size_t length = 0;
        const CK_ULONG number = std::stoul(text, &length, 0);
        require(length == text.size(), CKR_GENERAL_ERROR);
        return number;
    } catch (const std::logic_error&) {
        throw Failure{CKR_GENERAL_ERROR};
    }
}

TokenFiles::TokenFiles(fs::path folder_in) : folder_(std::move(folder_in)) {}

bool TokenFiles::has_token() const {
    return fs::exists(folder_ / "token") && !fs::exists(folder_ / "removed");
}

std::map<std::string, std::string> TokenFiles::settings() const {
    std::map<std::string, std::string> settings;
    for (const auto& [name, value] : read_settings(folder_ / "token"))
        settings[name] = value;
    return settings;
}

std::string TokenFiles::text(const std::string& name) const {
    const auto all = settings();
    const auto found = all.find(name);
    return found == all.end() ? "" : found->second;
}

CK_ULONG TokenFiles::number(const std::string& name, CK_ULONG otherwise) const {
    const std::string value = text(name);
    return value.empty() ? otherwise : number_of(value);
}

CK_TOKEN_INFO TokenFiles::info() const {
    CK_TOKEN_INFO info{};
    fill_field(info.label, text("label"));
    fill_field(info.manufacturerID, text("manufacturer"));
    fill_field(info.model, text("model"));
    fill_field(info.serialNumber, text("serial"));
    fill_field(info.utcTime, "");
    info.flags = flags();
    info.ulMaxSessionCount = session_limit();
    info.ulMaxRwSessionCount = session_limit();
    info.ulMinPinLen = 4;
    info.ulMaxPinLen = 32;
    info.ulTotalPublicMemory = CK_UNAVAILABLE_INFORMATION;
    info.ulFreePublicMemory = CK_UNAVAILABLE_INFORMATION;
    info.ulTotalPrivateMemory = CK_UNAVAILABLE_INFORMATION;
    info.ulFreePrivateMemory = CK_UNAVAILABLE_INFORMATION;
    return info;
}

CK_FLAGS TokenFiles::flags() const {
    return flag_if(is_set("initialized", true), CKF_TOKEN_INITIALIZED) |
           flag_if(is_login_required(), CKF_LOGIN_REQUIRED) |
           flag_if(is_set("user_pin_initialized", true), CKF_USER_PIN_INITIALIZED) |
           flag_if(is_set("pin_pad", false), CKF_PROTECTED_AUTHENTICATION_PATH) | pin_flags();
}

CK_FLAGS TokenFiles::pin_flags() const {
    const CK_ULONG all = number("tries", 0);
    const CK_ULONG left = tries_left();
    return flag_if(is_set("pin_count_low", all != 0 && left < all), CKF_USER_PIN_COUNT_LOW) |
           flag_if(is_set("pin_final_try", all != 0 && left == 1), CKF_USER_PIN_FINAL_TRY) |
           flag_if(is_set("pin_locked", all != 0 && left == 0), CKF_USER_PIN_LOCKED);
}

CK_ULONG TokenFiles::tries_left() const {
    std::string left;
    std::ifstream(folder_ / "tries_left") >> left;
    return left.empty() ? number("tries", 0) : number_of(left);
}

void TokenFiles::store_tries_left(CK_ULONG tries) const {
    if (number("tries", 0) == 0) return;
    std::ofstream file(folder_ / "tries_left");
    file << tries << '\n';
    require(static_cast<bool>(file.flush()), CKR_DEVICE_ERROR);
}

bool TokenFiles::supports(CK_MECHANISM_TYPE mechanism) const {
    const auto all = mechanisms();
    return std::find(all.begin(), all.end(), mechanism) != all.end();
}

std::vector<CK_MECHANISM_TYPE> TokenFiles::mechanisms() const {
    std::istringstream names(text("mechanisms"));
    const std::vector<std::string> chosen{std::istream_iterator<std::string>(names), {}};
    std::vector<CK_MECHANISM_TYPE> types;
    for (const auto& [name, type] : known_mechanisms)
        if (chosen.empty() || std::find(chosen.begin(), chosen.end(), name) != chosen.end())
            types.push_back(type);
    return types;
}

void TokenFiles::check_pin(const unsigned char* pin, CK_ULONG length) const {
    require(is_set("user_pin_initialized", true), CKR_USER_PIN_NOT_INITIALIZED);
    require((pin_flags() & CKF_USER_PIN_LOCKED) == 0, CKR_PIN_LOCKED);
    if (pin == nullptr) return check_pin_pad();
    const bool is_right = hash_as_text(pin, length) == text("pin_sha256");
    const CK_ULONG left = tries_left();
    store_tries_left(is_right ? number("tries", 0) : left - 1);
    require(is_right, CKR_PIN_INCORRECT);
}

void TokenFiles::check_pin_pad() const {
    require(is_set("pin_pad", false), CKR_ARGUMENTS_BAD);
    const CK_RV result = number("pad_result", CKR_OK);
    require(result == CKR_OK, result);
}

} // namespace Kes::test
