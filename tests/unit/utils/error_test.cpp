#include "utils/error.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <openssl/err.h>
#include <regex>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "hooks.h"
#include "support/support.h"

namespace Kes {
namespace {

using test::error_text;

// Error codes are values with one virtual function. They are never deleted through their base class.
static_assert(std::is_abstract_v<ErrorCodeTempl<int>>);
static_assert(!std::has_virtual_destructor_v<ErrorCode>);
static_assert(std::is_copy_constructible_v<ErrorCode> && std::is_copy_constructible_v<WinErrorCode> &&
              std::is_copy_constructible_v<OsslErrorCode>);
static_assert(std::is_base_of_v<std::exception, ErrorBase> && std::has_virtual_destructor_v<ErrorBase>);
static_assert(std::is_base_of_v<ErrorTempl<ErrorCode>, Error> &&
              std::is_base_of_v<ErrorTempl<WinErrorCode>, WinError> &&
              std::is_base_of_v<ErrorTempl<OsslErrorCode>, OsslError> &&
              std::is_base_of_v<ErrorBase, ErrorString>);
static_assert(std::is_same_v<std::underlying_type_t<ErrorCodeType>, std::uint32_t>);

struct NoCode {
    std::string to_string() const { return ""; }
};

/// An error code of a system without error texts.
WinErrorCode textless(unsigned long code) {
    return WinErrorCode(code, [](unsigned long, unsigned long) { return std::nullopt; });
}

std::string code_text(std::uint32_t value) {
    return ErrorCode(static_cast<ErrorCodeType>(value)).to_string();
}

TEST(ErrorCodeTest, EveryErrorCodeHasAName) {
    const std::vector<std::string> names{
        "no_error",          "unspecified",   "null_pointer", "bad_argument", "unsupported",
        "internal_error",    "invalid_state", "timeout",      "not_found",    "not_registered",
        "not_initialized",   "empty",         "open_failed",  "load_failed",  "resolve_host_failed",
        "connection_failed", "user_abort",    "os_err",       "lib_err"};
    ASSERT_EQ(names.size(), 19U);
    for (std::uint32_t value = 0; value < names.size(); ++value)
        EXPECT_EQ(code_text(value), "val=" + std::to_string(value) + " (" + names[value] + ")");
}

TEST(ErrorCodeTest, EnumeratorsMatchTheirNames) {
    EXPECT_EQ(ErrorCode(ErrorCodeType::null_pointer).to_string(), "val=2 (null_pointer)");
    EXPECT_EQ(ErrorCode(ErrorCodeType::bad_argument).to_string(), "val=3 (bad_argument)");
    EXPECT_EQ(ErrorCode(ErrorCodeType::not_registered).to_string(), "val=9 (not_registered)");
    EXPECT_EQ(ErrorCode(ErrorCodeType::open_failed).to_string(), "val=12 (open_failed)");
    EXPECT_EQ(ErrorCode(ErrorCodeType::user_abort).to_string(), "val=16 (user_abort)");
    EXPECT_EQ(ErrorCode(ErrorCodeType::lib_err).to_string(), "val=18 (lib_err)");
}

TEST(ErrorCodeTest, ValuesFrom19UpwardAreUnknown) {
    EXPECT_EQ(code_text(19), "val=19 (unknown)");
    EXPECT_EQ(code_text(20), "val=20 (unknown)");
    EXPECT_EQ(code_text(0x80000000U), "val=2147483648 (unknown)");
    EXPECT_EQ(code_text(0xffffffffU), "val=4294967295 (unknown)");
}

TEST(ErrorCodeTest, ContainsValueAndName) {
    const ErrorCode code(ErrorCodeType::timeout);
    EXPECT_EQ(code.value, ErrorCodeType::timeout);
    EXPECT_EQ(code.text, "timeout");
}

TEST(ErrorTest, JoinsLocationMessageAndCode) {
    const Error error(ErrorCodeType::open_failed, "error opening file: 'out.bin'",
                      "helper:329 Kes::Helper::write_file()");
    EXPECT_STREQ(error.what(),
                 "helper:329 Kes::Helper::write_file(): error opening file: 'out.bin': val=12 (open_failed)");
}

TEST(ErrorTest, EmptyMessageIsOmitted) {
    EXPECT_STREQ(Error(ErrorCodeType::empty, "", "a:1 b()").what(), "a:1 b(): val=11 (empty)");
}

TEST(ErrorTest, NullLocationIsTreatedAsEmpty) {
    EXPECT_STREQ(Error(ErrorCodeType::empty, "message", nullptr).what(), "message: val=11 (empty)");
    EXPECT_STREQ(Error(ErrorCodeType::empty, "message", "").what(), "message: val=11 (empty)");
    EXPECT_STREQ(Error(ErrorCodeType::empty, "", nullptr).what(), "val=11 (empty)");
}

TEST(ErrorTest, EmptyCodeTextIsOmitted) {
    EXPECT_STREQ(ErrorTempl<NoCode>(NoCode(), "message", "a:1 b()").what(), "a:1 b(): message");
    EXPECT_STREQ(ErrorTempl<NoCode>(NoCode(), "message", nullptr).what(), "message");
    EXPECT_STREQ(ErrorTempl<NoCode>(NoCode(), "", "a:1 b()").what(), "a:1 b()");
    EXPECT_STREQ(ErrorTempl<NoCode>(NoCode(), "", nullptr).what(), "");
    EXPECT_STREQ(ErrorTempl<NoCode>(NoCode(), "", "").what(), "");
}

TEST(ErrorTest, WhatIsNeverANullPointer) { EXPECT_NE(ErrorBase(nullptr, "", "").what(), nullptr); }

TEST(ErrorTest, PartsAreJoinedUnchanged) {
    EXPECT_STREQ(ErrorBase(": ", "\n: \xff", " :").what(), ": : \n: \xff:  :");
    EXPECT_EQ(std::strlen(ErrorBase(std::string(5000, 'l').c_str(), std::string(5000, 'm'), "").what()),
              10002U);
}

TEST(ErrorTest, CopyOutlivesTheOriginal) {
    auto original =
        std::make_unique<Error>(ErrorCodeType::timeout, "too late, and long enough for the heap", "a:1 b()");
    const Error copy(*original);
    original.reset();
    EXPECT_STREQ(copy.what(), "a:1 b(): too late, and long enough for the heap: val=7 (timeout)");
    EXPECT_EQ(copy.code().value, ErrorCodeType::timeout);
    EXPECT_EQ(copy.code().text, "timeout");
}

TEST(ErrorTest, ThrownErrorIsCaughtByItsOwnType) {
    try {
        throw Error(ErrorCodeType::not_found, "nothing", "a:1 b()");
    } catch (const WinError&) {
        FAIL() << "an Error is no WinError";
    } catch (const Error& error) {
        EXPECT_EQ(error.code().value, ErrorCodeType::not_found);
        EXPECT_STREQ(error.what(), "a:1 b(): nothing: val=8 (not_found)");
    }
}

TEST(ErrorTest, EveryErrorIsCaughtAsErrorBase) {
    const auto caught = [](const auto& error) {
        try {
            throw error;
        } catch (const ErrorBase& base) {
            return std::string(base.what());
        }
    };
    EXPECT_EQ(caught(Error(ErrorCodeType::os_err, "m", "l")), "l: m: val=17 (os_err)");
    EXPECT_EQ(caught(WinError(textless(5), "m", "l")), "l: m: val=5 [0x5] (unknown winerror)");
    EXPECT_EQ(caught(OsslError(OsslErrorCode(-1), "m", "l")), "l: m: rc=-1");
    EXPECT_EQ(caught(ErrorString("m")), "m");
}

TEST(ErrorTest, EveryErrorIsCaughtAsStdException) {
    EXPECT_EQ(error_text([] { throw Error(ErrorCodeType::os_err, "m", "l"); }), "l: m: val=17 (os_err)");
    EXPECT_EQ(error_text([] { throw WinError(textless(5), "m", "l"); }),
              "l: m: val=5 [0x5] (unknown winerror)");
    EXPECT_EQ(error_text([] { throw OsslError(OsslErrorCode(0), "m", "l"); }), "l: m: rc=0");
    EXPECT_EQ(error_text([] { throw ErrorString("m"); }), "m");
}

TEST(ErrorStringTest, TextIsOnlyTheMessage) {
    EXPECT_STREQ(ErrorString("operation not possible: ").what(), "operation not possible: ");
    EXPECT_STREQ(ErrorString("").what(), "");
}

/// Returns prepared texts instead of those of the system and records the queries.
struct Lookup {
    std::vector<std::optional<std::string>> answers;
    std::vector<std::pair<unsigned long, unsigned long>> queries;

    std::string text_of(unsigned long code) {
        return WinErrorCode(code,
                            [this](unsigned long error, unsigned long language) {
                                queries.emplace_back(error, language);
                                return answers.at(queries.size() - 1);
                            })
            .to_string();
    }
};

using Queries = std::vector<std::pair<unsigned long, unsigned long>>;

TEST(WinErrorCodeTest, EnglishTextIsRequestedFirstAndUsedIfItExists) {
    Lookup lookup{{"The system cannot find the file specified.\r\n"}, {}};
    EXPECT_EQ(lookup.text_of(2), "val=2 [0x2] (The system cannot find the file specified.)");
    EXPECT_EQ(lookup.queries, (Queries{{2, 1033}}));
}

TEST(WinErrorCodeTest, TextInTheDefaultLanguageIsRequestedWhenEnglishIsMissing) {
    Lookup lookup{{std::nullopt, "Datei nicht gefunden.\r\n"}, {}};
    EXPECT_EQ(lookup.text_of(2), "val=2 [0x2] (Datei nicht gefunden.)");
    EXPECT_EQ(lookup.queries, (Queries{{2, 1033}, {2, 0}}));
}

TEST(WinErrorCodeTest, NumberWithoutATextIsUnknownAfterTwoQueries) {
    Lookup lookup{{std::nullopt, std::nullopt}, {}};
    EXPECT_EQ(lookup.text_of(259), "val=259 [0x103] (unknown winerror)");
    EXPECT_EQ(lookup.queries, (Queries{{259, 1033}, {259, 0}}));
}

TEST(WinErrorCodeTest, EmptyTextIsUsed) {
    Lookup lookup{{""}, {}};
    EXPECT_EQ(lookup.text_of(1), "val=1 [0x1] ()");
    EXPECT_EQ(lookup.queries.size(), 1U);
}

TEST(WinErrorCodeTest, LineEndsAreRemovedEverywhere) {
    Lookup lookup{{"\r\nFirst sentence.\r\nSecond\rsentence.\n\n\r"}, {}};
    EXPECT_EQ(lookup.text_of(1), "val=1 [0x1] (First sentence.Secondsentence.)");
}

TEST(WinErrorCodeTest, TrailingBlankIsKept) {
    Lookup lookup{{" Access is denied. \r\n"}, {}};
    EXPECT_EQ(lookup.text_of(5), "val=5 [0x5] ( Access is denied. )");
}

TEST(WinErrorCodeTest, NumbersAreUnsigned) {
    Lookup lookup{{"Keyset does not exist."}, {}};
    EXPECT_EQ(lookup.text_of(0x80090016UL), "val=2148073494 [0x80090016] (Keyset does not exist.)");
    EXPECT_EQ(lookup.queries, (Queries{{0x80090016UL, 1033}}));
}

TEST(WinErrorCodeTest, ErrorTextEndsWithTheCode) {
    const WinErrorCode code(0xab, [](unsigned long, unsigned long) { return std::string("No."); });
    const WinError error(code, "CryptDestroyKey() failed", "capi_helper:1 f()");
    EXPECT_STREQ(error.what(), "capi_helper:1 f(): CryptDestroyKey() failed: val=171 [0xab] (No.)");
    EXPECT_EQ(error.code().value, 0xabUL);
    EXPECT_EQ(error.code().text, "No.");
}

/// Clears the OpenSSL error queue before and after each test.
class OsslErrorCodeTest : public testing::Test {
protected:
    OsslErrorCodeTest() { ::ERR_clear_error(); }
    ~OsslErrorCodeTest() override { ::ERR_clear_error(); }

    static void raise(int line, const char* data) {
        ::ERR_new();
        ::ERR_set_debug("file.c", line, "function");
        ::ERR_set_error(ERR_LIB_USER, 100, "%s", data);
    }

    /// The text with "T" instead of the thread and "C" instead of the packed error code.
    static std::string masked(const OsslErrorCode& code) {
        static const std::regex numbers("[0-9A-F]+:error:[0-9A-F]+:");
        return std::regex_replace(code.to_string(), numbers, "T:error:C:");
    }
};

TEST_F(OsslErrorCodeTest, EmptyQueueYieldsOnlyTheValue) {
    EXPECT_EQ(OsslErrorCode(0).to_string(), "rc=0");
    EXPECT_EQ(OsslErrorCode(-7).to_string(), "rc=-7");
    EXPECT_EQ(OsslErrorCode(160).to_string(), "rc=160");
}

TEST_F(OsslErrorCodeTest, QueueFollowsOnSeparateLines) {
    raise(12, "some data");
    const OsslErrorCode code(1);
    EXPECT_EQ(code.value, 1);
    EXPECT_EQ(masked(code), "rc=1\nT:error:C:lib(128):function:reason(100):file.c:12:some data");
}

TEST_F(OsslErrorCodeTest, ConstructionDrainsTheQueue) {
    raise(1, "one");
    raise(2, "two");
    const OsslErrorCode first(0);
    EXPECT_EQ(::ERR_peek_error(), 0UL);
    EXPECT_NE(first.text, "");
    EXPECT_EQ(OsslErrorCode(0).to_string(), "rc=0");
}

TEST_F(OsslErrorCodeTest, EntriesAreListedInTheOrderInWhichTheyWereRaised) {
    raise(1, "one");
    raise(2, "two");
    raise(3, "three");
    EXPECT_EQ(masked(OsslErrorCode(0)), "rc=0\n"
                                        "T:error:C:lib(128):function:reason(100):file.c:1:one\n"
                                        "T:error:C:lib(128):function:reason(100):file.c:2:two\n"
                                        "T:error:C:lib(128):function:reason(100):file.c:3:three");
}

TEST_F(OsslErrorCodeTest, LineEndsAreRemovedOnlyAtTheEnd) {
    raise(1, "\r\nin\r\nside\r\n");
    raise(2, "\n\r end\r\n\n\r");
    EXPECT_EQ(masked(OsslErrorCode(0)),
              "rc=0\n"
              "T:error:C:lib(128):function:reason(100):file.c:1:\r\nin\r\nside\r\n\n"
              "T:error:C:lib(128):function:reason(100):file.c:2:\n\r end");
}

TEST_F(OsslErrorCodeTest, TextIsTheQueueWithoutTheValue) {
    raise(1, "one");
    const OsslErrorCode code(3);
    EXPECT_EQ(code.to_string(), "rc=3\n" + code.text);
}

TEST_F(OsslErrorCodeTest, QueueOfAnotherThreadIsNotRead) {
    raise(1, "mine");
    std::string other;
    std::thread([&] { other = OsslErrorCode(0).to_string(); }).join();
    EXPECT_EQ(other, "rc=0");
    EXPECT_NE(::ERR_peek_error(), 0UL);
}

TEST_F(OsslErrorCodeTest, ReleasesItsMemoryBio) {
    const test::OsslCalls calls;
    raise(1, "one");
    OsslErrorCode(0);
    EXPECT_EQ(calls.created_bios, 1);
    EXPECT_EQ(calls.freed_bios, 1);
}

TEST_F(OsslErrorCodeTest, QueueIsEmptiedEvenWithoutMemoryForItsText) {
    test::OsslCalls calls;
    calls.is_bio_refused = true;
    raise(1, "one");
    raise(2, "two");
    EXPECT_EQ(OsslErrorCode(5).to_string(), "rc=5");
    EXPECT_EQ(::ERR_peek_error(), 0UL);
}

TEST_F(OsslErrorCodeTest, MovedErrorKeepsTextAndCode) {
    raise(9, "data");
    OsslError original(OsslErrorCode(-1), "ENGINE_init() failed", "ossl_engine:1 f()");
    const std::string text = original.what();
    const OsslError moved(std::move(original));
    EXPECT_EQ(moved.what(), text);
    EXPECT_EQ(text, "ossl_engine:1 f(): ENGINE_init() failed: " + moved.code().to_string());
    EXPECT_EQ(moved.code().value, -1);
}

TEST_F(OsslErrorCodeTest, CopiedErrorKeepsTheTextOfTheQueue) {
    raise(9, "data");
    auto original = std::make_unique<OsslError>(OsslErrorCode(-1), "m", "l");
    const std::string text = original->what();
    const OsslError copy(*original);
    original.reset();
    EXPECT_EQ(copy.what(), text);
    EXPECT_EQ(text, "l: m: " + copy.code().to_string());
}

} // namespace
} // namespace Kes
