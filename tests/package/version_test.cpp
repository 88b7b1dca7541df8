// The DLL's version resource, read with the functions of Windows.
#include <algorithm>

#include "dll_folder.h"
#include "utils/windows_api.h"

namespace Kes::test {
namespace {

class VersionResourceTest : public ::testing::Test {
protected:
    VersionResourceTest() {
        DWORD ignored = 0;
        const char* const file = MARVO_BIN_DIR "/" MARVO_DLL_NAME;
        info_.resize(::GetFileVersionInfoSizeA(file, &ignored));
        ::GetFileVersionInfoA(file, 0, static_cast<DWORD>(info_.size()), info_.data());
    }

    template <typename T>
    const T* query(const std::string& name) {
        void* value = nullptr;
        UINT size = 0;
        if (info_.empty() || ::VerQueryValueA(info_.data(), name.c_str(), &value, &size) == 0 || size == 0)
            return nullptr;
        return static_cast<const T*>(value);
    }

    /// A string of the table for English and Unicode; "no such string" if it does not exist.
    std::string text(const std::string& name) {
        const char* value = query<char>("\\StringFileInfo\\040904B0\\" + name);
        return value == nullptr ? "no such string" : value;
    }

private:
    std::vector<char> info_;
};

TEST_F(VersionResourceTest, NumbersMatchProjectVersion) {
    const auto* info = query<VS_FIXEDFILEINFO>("\\");
    ASSERT_NE(info, nullptr);
    const DWORD project[] = {MARVO_VERSION_NUMBERS};
    for (const auto& [high, low] : {std::pair{info->dwFileVersionMS, info->dwFileVersionLS},
                                    std::pair{info->dwProductVersionMS, info->dwProductVersionLS}}) {
        EXPECT_EQ(high, (project[0] << 16) + project[1]);
        EXPECT_EQ(low, project[2] << 16);
    }
}

TEST_F(VersionResourceTest, FileIsReleaseDllForWindows) {
    const auto* info = query<VS_FIXEDFILEINFO>("\\");
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->dwFileType, DWORD{VFT_DLL});
    EXPECT_EQ(info->dwFileOS, DWORD{VOS_NT_WINDOWS32});
    EXPECT_EQ(info->dwFileFlagsMask, DWORD{VS_FFI_FILEFLAGSMASK});
    EXPECT_EQ(info->dwFileFlags, 0U);
}

TEST_F(VersionResourceTest, TextsAreInUsEnglishAndUnicode) {
    const auto* translation = query<WORD>("\\VarFileInfo\\Translation");
    ASSERT_NE(translation, nullptr);
    EXPECT_EQ(translation[0], 0x0409); // English, United States
    EXPECT_EQ(translation[1], 1200);   // Unicode
}

TEST_F(VersionResourceTest, TextsNameProjectAndVersion) {
    const std::string dll_name = MARVO_DLL_NAME;
    EXPECT_EQ(text("CompanyName"), "the maintainers of libmarvo");
    EXPECT_EQ(text("FileDescription"), MARVO_PROJECT_DESCRIPTION);
    EXPECT_EQ(text("FileVersion"), MARVO_VERSION);
    EXPECT_EQ(text("InternalName"), dll_name.substr(0, dll_name.find(".dll")));
    EXPECT_EQ(text("LegalCopyright"), "Copyright (c) 2026 the maintainers of libmarvo");
    EXPECT_EQ(text("OriginalFilename"), dll_name);
    EXPECT_EQ(text("ProductName"), "libmarvo");
    EXPECT_EQ(text("ProductVersion"), MARVO_VERSION);
}

} // namespace
} // namespace Kes::test
