#include <array>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include "hooks.h"
#include "logger_fixture.h"
#include "support/support.h"
#include "utils/helper.h"
#include "utils/logger.h"
#include "utils/windows_api.h"

/// Windows specifics of files: line ends, sharing of open files, and names.
namespace Kes {
namespace {

using test::error_text;
using test::Lines;
using test::read_file;

class FileWinTest : public test::LoggerFixture {
protected:
    /// A file that another program has open.
    class Handle {
    public:
        Handle(const std::string& name, DWORD access, DWORD share, DWORD creation = OPEN_EXISTING)
            : handle_(::CreateFileA(name.c_str(), access, share, nullptr, creation, FILE_ATTRIBUTE_NORMAL,
                                    nullptr)) {}
        ~Handle() {
            if (is_open()) ::CloseHandle(handle_);
        }
        Handle(const Handle&) = delete;
        Handle& operator=(const Handle&) = delete;

        bool is_open() const { return handle_ != INVALID_HANDLE_VALUE; }

        std::string read() const {
            std::array<char, 4096> bytes{};
            DWORD count = 0;
            ::ReadFile(handle_, bytes.data(), bytes.size(), &count, nullptr);
            return {bytes.data(), count};
        }

        bool write_at_end(const std::string& text) const {
            DWORD count = 0;
            ::SetFilePointer(handle_, 0, nullptr, FILE_END);
            return ::WriteFile(handle_, text.data(), static_cast<DWORD>(text.size()), &count, nullptr) != 0 &&
                   count == text.size();
        }

    private:
        HANDLE handle_;
    };

    static constexpr DWORD share_read_and_write = FILE_SHARE_READ | FILE_SHARE_WRITE;

    static std::string register_error(const std::string& name, bool append) {
        return error_text([&] { logger().register_sink(name, append); });
    }

    static std::string refused(const std::string& name) {
        return "logger:90 Kes::Logger::register_sink(): error opening logfile '" + name +
               "': val=12 (open_failed)";
    }

    const std::string tid = std::to_string(test::system_thread_id());
};

TEST_F(FileWinTest, LinesOfATruncatedLogEndWithCrLf) {
    const test::FixedClock clock(1709629622, 45000);
    logger().buffer_output();
    log_info("buffered");
    logger().register_sink(file(), false);
    log_info("one");
    log_lines(Severity::debug, "two\n", "  three\n");
    EXPECT_EQ(read_file(file()), "2024-03-05 09:07:02.045 <info> tid=" + tid + ": buffered\r\n" +
                                     "2024-03-05 09:07:02.045 <info> tid=" + tid + ": one\r\n" +
                                     "2024-03-05 09:07:02.045 <debug> tid=" + tid + ": two\r\n  three\r\n");
}

TEST_F(FileWinTest, BannerAndLinesOfAnAppendedLogEndWithCrLf) {
    const test::FixedClock clock(1709629622, 45000);
    std::ofstream(file(), std::ios::binary) << "before\r\n";
    logger().register_sink(file(), true);
    log_info("one");
    EXPECT_EQ(read_file(file()),
              "before\r\n[[[ ------ restart logger at 2024-03-05 09:07:02.045 ------]]]\r\n"
              "2024-03-05 09:07:02.045 <info> tid=" +
                  tid + ": one\r\n");
}

TEST_F(FileWinTest, LongLinesAreCompleteWhereverTheRuntimeSplitsThem) {
    logger().register_sink(file(), false);
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += std::to_string(i) + "\n";
    log_info(text);
    std::string expected;
    for (int i = 0; i < 20000; ++i)
        expected += std::to_string(i) + "\r\n";
    const std::string written = read_file(file());
    EXPECT_EQ(written.substr(written.find(": ") + 2), expected + "\r\n");
}

TEST_F(FileWinTest, BinaryFileIsWrittenUnchanged) {
    const std::string bytes("\n\r\n\x1a\0\n\n\xff", 8);
    Helper::write_file(file("out.bin"), {bytes.begin(), bytes.end()});
    EXPECT_EQ(read_file(file("out.bin")), bytes);
}

TEST_F(FileWinTest, OtherProgramsCanReadAndWriteTheOpenLog) {
    for (const bool append : {false, true}) {
        logger().register_sink(file(), append);
        log_info("one");
        const Handle other(file(), GENERIC_READ | GENERIC_WRITE, share_read_and_write);
        ASSERT_TRUE(other.is_open());
        EXPECT_TRUE(other.read().ends_with(": one\r\n"));
        EXPECT_TRUE(other.write_at_end("from elsewhere\r\n"));
    }
    log_info("two");
    EXPECT_EQ(lines(), (Lines{"<info> one", "from elsewhere", "[banner]", "<info> one", "from elsewhere",
                              "<info> two"}));
}

TEST_F(FileWinTest, LogOpenInAnotherProgramCanBeOpened) {
    const Handle other(file(), GENERIC_READ | GENERIC_WRITE, share_read_and_write, CREATE_NEW);
    ASSERT_TRUE(other.is_open());
    for (const bool append : {false, true})
        EXPECT_EQ(register_error(file(), append), "no exception");
}

TEST_F(FileWinTest, OpenLogCannotBeOpenedExclusivelyOrDeleted) {
    logger().register_sink(file(), false);
    EXPECT_FALSE(Handle(file(), GENERIC_READ, 0).is_open());
    EXPECT_EQ(::GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    EXPECT_FALSE(::DeleteFileA(file().c_str()));
    EXPECT_EQ(::GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
}

TEST_F(FileWinTest, ExclusivelyOpenedLogThrowsAndIsNotChanged) {
    std::ofstream(file()) << "old";
    for (const bool append : {false, true}) {
        const Handle other(file(), GENERIC_READ | GENERIC_WRITE, 0);
        ASSERT_TRUE(other.is_open());
        EXPECT_EQ(register_error(file(), append), refused(file()));
    }
    EXPECT_EQ(read_file(file()), "old");
}

TEST_F(FileWinTest, LogWithAnUnusableNameThrows) {
    std::filesystem::create_directory(file("folder"));
    for (const std::string& name : {file("missing\\log"), file("folder"), file("what?"), file("a|b")})
        for (const bool append : {false, true})
            EXPECT_EQ(register_error(name, append), refused(name));
}

TEST_F(FileWinTest, ExclusivelyOpenedBinaryFileThrowsAndIsNotChanged) {
    const std::string name = file("out.bin");
    std::ofstream(name) << "old";
    {
        const Handle other(name, GENERIC_READ, 0);
        EXPECT_EQ(error_text([&] { Helper::write_file(name, {1}); }),
                  "helper:329 Kes::Helper::write_file(): error opening file: '" + name +
                      "': val=12 (open_failed)");
    }
    EXPECT_EQ(read_file(name), "old");
}

TEST_F(FileWinTest, FileNamesAreInTheCodePageOfTheSystem) {
    std::array<char, 8> name{};
    BOOL is_replaced = FALSE;
    // Letters outside ASCII that are common in code pages.
    const int length = ::WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, L"cl\u00e9\u00a7", 4, name.data(),
                                             static_cast<int>(name.size()), nullptr,
                                             ::GetACP() == CP_UTF8 ? nullptr : &is_replaced);
    ASSERT_GT(length, 0);
    ASSERT_FALSE(is_replaced) << "the code page " << ::GetACP() << " lacks the letters";
    // The name is appended as bytes because std::filesystem::path does not convert from the code page.
    const std::string log = file() + std::string(name.data(), static_cast<std::size_t>(length));
    logger().register_sink(log, false);
    log_info("text");
    Helper::write_file(log + ".bin", {'b'});
    const std::wstring begin = std::filesystem::path(file()).wstring();
    EXPECT_NE(::GetFileAttributesW((begin + L"cl\u00e9\u00a7").c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_NE(::GetFileAttributesW((begin + L"cl\u00e9\u00a7.bin").c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(test::without_header(test::split_lines(test::read_text(log)).front()), "<info> text");
    EXPECT_TRUE(read_file(log).ends_with(": wrote data to: '" + log + ".bin'\r\n"));
}

} // namespace
} // namespace Kes
