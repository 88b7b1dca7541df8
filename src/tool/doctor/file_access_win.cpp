#include "tool/doctor/file_access.h"

#include <array>
#include <filesystem>
#include <memory>

#include "utils/windows_api.h"
#include <aclapi.h>

namespace Kes::tool {
namespace {

struct CloseFile {
    void operator()(void* file) const noexcept { ::CloseHandle(file); }
};

/// Whether Windows opens the file or folder with these rights. Opening changes nothing.
bool can_open(const std::string& path, DWORD rights) {
    HANDLE file = ::CreateFileA(path.c_str(), rights, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    const std::unique_ptr<void, CloseFile> owner(file);
    return true;
}

using Sid = std::array<unsigned char, SECURITY_MAX_SID_SIZE>;

Sid well_known_sid(WELL_KNOWN_SID_TYPE type) {
    Sid sid{};
    DWORD size = sid.size();
    ::CreateWellKnownSid(type, nullptr, sid.data(), &size);
    return sid;
}

/// Whether the identity is a group to which every user belongs.
bool is_everybody(PSID identity) {
    for (const WELL_KNOWN_SID_TYPE type : {WinWorldSid, WinAuthenticatedUserSid, WinBuiltinUsersSid}) {
        Sid group = well_known_sid(type);
        if (::EqualSid(identity, group.data()) != 0) return true;
    }
    return false;
}

/// The rights with which a user can change or replace a file, or a file in a folder.
constexpr DWORD change_rights =
    FILE_WRITE_DATA | FILE_DELETE_CHILD | DELETE | WRITE_DAC | WRITE_OWNER | GENERIC_WRITE | GENERIC_ALL;

bool lets_everybody_change(const ACL& acl) {
    for (DWORD i = 0; i < acl.AceCount; ++i) {
        void* entry = nullptr;
        if (::GetAce(const_cast<ACL*>(&acl), i, &entry) == 0) continue;
        auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        if (allowed->Header.AceType != ACCESS_ALLOWED_ACE_TYPE) continue;
        if ((allowed->Header.AceFlags & INHERIT_ONLY_ACE) != 0) continue; // only for files below
        if ((allowed->Mask & change_rights) != 0 && is_everybody(&allowed->SidStart)) return true;
    }
    return false;
}

struct FreeDescriptor {
    void operator()(void* descriptor) const noexcept { ::LocalFree(descriptor); }
};

bool is_writable_by_others(const std::string& path) {
    ACL* acl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (::GetNamedSecurityInfoA(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                &acl, nullptr, &descriptor) != ERROR_SUCCESS)
        return false;
    const std::unique_ptr<void, FreeDescriptor> owner(descriptor);
    return acl == nullptr || lets_everybody_change(*acl); // without a list, everybody has all rights
}

} // namespace

bool can_write_file(const std::string& file) { return can_open(file, FILE_APPEND_DATA); }

bool can_create_files(const std::string& folder) { return can_open(folder, FILE_ADD_FILE); }

std::string writable_by_others(const std::string& path) {
    std::filesystem::path current = path;
    for (;;) {
        if (is_writable_by_others(current.string())) return current.string();
        const std::filesystem::path folder = current.parent_path();
        if (folder == current) return "";
        current = folder;
    }
}

} // namespace Kes::tool
