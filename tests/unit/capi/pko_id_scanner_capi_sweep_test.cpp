#include <utility>

#include "capi/pko_id_scanner_capi.h"
#include "support/capi_fixture.h"

namespace Kes::test {
namespace {

/// The calls of a scan without failures, numbered from 1.
const Lines calls{"CryptAcquireContextA(null, Test CSP, 1, 0xf0000000)", // 1
                  "CryptGetProvParam(prov, 6, 0, size)",
                  "CryptGetProvParam(prov, 6, 0, read)",
                  "CryptGetProvParam(prov, 39, 0, size)",
                  "CryptGetProvParam(prov, 39, 0, read)", // 5
                  "CryptGetProvParam(prov, 2, 1, size)",
                  "CryptGetProvParam(prov, 2, 1, read)",
                  "CryptGetProvParam(prov, 2, 2, size)",
                  "CryptGetProvParam(prov, 2, 2, read)",
                  "CryptGetProvParam(prov, 2, 2, size)", // 10, end of the containers
                  "CryptAcquireContextA(c1, Test CSP, 1, 0x0)",
                  "CryptGetUserKey(prov:c1, 1)",
                  "CryptGetKeyParam(key:c1/1, 26, 0, size)",
                  "CryptGetKeyParam(key:c1/1, 26, 0, read)",
                  "CryptDestroyKey(key:c1/1)", // 15
                  "CryptGetUserKey(prov:c1, 2)",
                  "CryptGetKeyParam(key:c1/2, 26, 0, size)",
                  "CryptGetKeyParam(key:c1/2, 26, 0, read)",
                  "CryptDestroyKey(key:c1/2)",
                  "CryptReleaseContext(prov:c1)", // 20
                  "CryptAcquireContextA(c2, Test CSP, 1, 0x0)",
                  "CryptGetUserKey(prov:c2, 1)", // the key does not exist
                  "CryptGetUserKey(prov:c2, 2)",
                  "CryptGetKeyParam(key:c2/2, 26, 0, size)",
                  "CryptGetKeyParam(key:c2/2, 26, 0, read)", // 25
                  "CryptDestroyKey(key:c2/2)",
                  "CryptReleaseContext(prov:c2)",
                  "CryptReleaseContext(prov)"};

/// Each pair contains the first and the last number.
using Ranges = std::vector<std::pair<std::size_t, std::size_t>>;

const Lines first = capi_records("c1", AT_KEYEXCHANGE);
const Lines second = capi_records("c1", AT_SIGNATURE);
const Lines third = capi_records("c2", AT_SIGNATURE);

/// The effects when the call with the given number fails with one of the codes. CODE is a placeholder for the
/// text of the code.
struct Row {
    std::size_t call;
    std::vector<DWORD> codes;
    std::string error; // of the scan
    Lines logged;      // without trace and info lines
    Ranges rest;       // the calls that follow
    Lines kept;        // the records in the list
};

const std::vector<DWORD> every{ordinary, bad_type, no_more_items};
const std::vector<DWORD> not_end{ordinary, bad_type};
const std::vector<DWORD> not_type{ordinary, no_more_items};

std::string prov_param(const char* where, const char* param_and_flags) {
    return std::string("capi_helper:") + where + ": CryptGetProvParam(" + param_and_flags + ") failed: CODE";
}

std::string unsupported(const char* where, const char* function, const char* param_and_flags) {
    return std::string("capi_helper:") + where + ": " + function + "() with " + param_and_flags +
           " is not supported: val=4 (unsupported)";
}

std::string acquire(const char* container, const char* flags) {
    return std::string("capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() with prov_name=Test "
                       "CSP, key_container_name=") +
           container + ", flags=" + flags + " failed: CODE";
}

std::string user_key(const char* name) {
    return std::string(
               "<warn> capi_helper:113 Kes::CapiInit::fetch_key(): CryptGetUserKey() with key_type=") +
           name + " failed: CODE";
}

constexpr const char* prov_len = "252 Kes::CapiProvParamReader::read_len()";
constexpr const char* prov_read = "289 Kes::CapiProvParamReader::read()";
constexpr const char* prov_no = "244 Kes::CapiProvParamReader::read_len()";

std::string skipping(const char* container) {
    return std::string("<warn> skipping container '") + container + "': " +
           unsupported("423 Kes::CapiKeyParamReader::read_len()", "CryptGetKeyParam", "param=26, flags=0");
}

const std::string key_len = "<debug> capi_helper:426 Kes::CapiKeyParamReader::read_len(): "
                            "CryptGetKeyParam(param=26, flags=0) failed: CODE";
const std::string key_read = "<debug> capi_helper:459 Kes::CapiKeyParamReader::read(): "
                             "CryptGetKeyParam(param=26, flags=0) failed: CODE";
const std::string mask = "<warn> keyspec mask is 0 -> updating it to 3";
const std::string destroy = "<error> CryptDestroyKey() failed: CODE";
const std::string release = "<error> CryptReleaseContext() failed: CODE";
const Lines all = first + second + third;
const std::vector<DWORD> O{ordinary};
const std::vector<DWORD> T{bad_type};
const std::vector<DWORD> E{no_more_items};

const Row rows[] = {
    {1, every, acquire("nullptr", "0xf0000000"), {}, {}, {}},
    {2, O, "", {"<warn> " + prov_param(prov_len, "param=6, flags=0")}, {{4, 28}}, all},
    {2, T, unsupported(prov_no, "CryptGetProvParam", "param=6, flags=0"), {}, {{28, 28}}, {}},
    {2, E, "", {}, {{4, 28}}, all},
    {3, not_end, "", {"<warn> " + prov_param(prov_read, "param=6, flags=0")}, {{4, 28}}, all},
    {3, E, "", {}, {{4, 28}}, all},
    {4, O, "", {"<debug> " + prov_param(prov_len, "param=39, flags=0"), mask}, {{6, 28}}, all},
    {4,
     T,
     "",
     {"<debug> " + unsupported(prov_no, "CryptGetProvParam", "param=39, flags=0"), mask},
     {{6, 28}},
     all},
    {4, E, "", {mask}, {{6, 28}}, all},
    {5, not_end, "", {"<debug> " + prov_param(prov_read, "param=39, flags=0"), mask}, {{6, 28}}, all},
    {5, E, "", {mask}, {{6, 28}}, all},
    {6, O, prov_param(prov_len, "param=2, flags=1"), {}, {{28, 28}}, {}},
    {6, T, unsupported(prov_no, "CryptGetProvParam", "param=2, flags=1"), {}, {{28, 28}}, {}},
    {6, E, "", {}, {{28, 28}}, {}},
    {7, not_end, prov_param(prov_read, "param=2, flags=1"), {}, {{28, 28}}, {}},
    {7, E, "", {}, {{28, 28}}, {}},
    {8, O, prov_param(prov_len, "param=2, flags=2"), {}, {{28, 28}}, {}},
    {8, T, unsupported(prov_no, "CryptGetProvParam", "param=2, flags=2"), {}, {{28, 28}}, {}},
    {8, E, "", {}, {{11, 20}, {28, 28}}, first + second},
    {9, not_end, prov_param(prov_read, "param=2, flags=2"), {}, {{28, 28}}, {}},
    {9, E, "", {}, {{11, 20}, {28, 28}}, first + second},
    {10, O, prov_param(prov_len, "param=2, flags=2"), {}, {{28, 28}}, {}},
    {10, T, unsupported(prov_no, "CryptGetProvParam", "param=2, flags=2"), {}, {{28, 28}}, {}},
    {10, E, "", {}, {{11, 28}}, all},
    {11, every, "", {"<debug> " + acquire("c1", "0x0")}, {{21, 28}}, third},
    {12, every, "", {user_key("KEYEXCHANGE")}, {{16, 28}}, second + third},
    {13, not_type, "", {key_len}, {{15, 15}, {20, 28}}, third},
    {13, T, "", {skipping("c1")}, {{15, 15}, {20, 28}}, third},
    {14, every, "", {key_read}, {{15, 15}, {20, 28}}, third},
    {15, every, "", {destroy}, {{16, 28}}, all},
    {16, every, "", {user_key("SIGNATURE")}, {{20, 28}}, first + third},
    {17, not_type, "", {key_len}, {{19, 28}}, first + third},
    {17, T, "", {skipping("c1")}, {{19, 28}}, first + third},
    {18, every, "", {key_read}, {{19, 28}}, first + third},
    {19, every, "", {destroy}, {{20, 28}}, all},
    {20, every, "", {release}, {{21, 28}}, all},
    {21, every, "", {"<debug> " + acquire("c2", "0x0")}, {{28, 28}}, first + second},
    {22, every, "", {user_key("KEYEXCHANGE")}, {{23, 28}}, all},
    {23, every, "", {user_key("SIGNATURE")}, {{27, 28}}, first + second},
    {24, not_type, "", {key_len}, {{26, 28}}, first + second},
    {24, T, "", {skipping("c2")}, {{26, 28}}, first + second},
    {25, every, "", {key_read}, {{26, 28}}, first + second},
    {26, every, "", {destroy}, {{27, 28}}, all},
    {27, every, "", {release}, {{28, 28}}, all},
    {28, every, "", {release}, {}, all},
};

std::string with_code(std::string text, DWORD code) {
    const std::size_t at = text.find("CODE");
    return at == std::string::npos ? text : text.replace(at, 4, win_code(code));
}

class CapiPkoIdScannerSweepTest : public CapiTest {
protected:
    void expect(const Row& row, DWORD code) {
        restart_script();
        script().fail_step(row.call, win_failure(code));
        const LogCapture log(2 | 8 | 16 | 32);
        PkoIdList list;
        list.register_scanner(std::make_unique<CapiPkoIdScanner>(csp, nullptr));
        const std::string error = error_text([&] { list.scan(Pin()); });
        EXPECT_EQ(error, row.error.empty() ? "no exception" : with_code(row.error, code));
        Lines rest;
        Lines logged;
        for (const std::string& line : row.logged)
            logged.push_back(with_code(line, code));
        for (const auto& [from, to] : row.rest) {
            for (std::size_t call = from; call <= to; ++call)
                rest.push_back(calls.at(call - 1));
        }
        EXPECT_EQ(script().calls_after_step(row.call), rest);
        EXPECT_EQ(log.lines(), logged);
        EXPECT_EQ(records(list), row.kept);
        EXPECT_EQ(capi().unreleased_handles(), 0U);
        EXPECT_EQ(script().violations(), Lines());
    }
};

TEST_F(CapiPkoIdScannerSweepTest, ScanWithoutFailureMakesExactlyTheListedCalls) {
    PkoIdList list;
    list.register_scanner(std::make_unique<CapiPkoIdScanner>(csp, nullptr));
    list.scan(Pin());
    EXPECT_EQ(script().calls(), calls);
    EXPECT_EQ(script().steps(), calls.size());
    EXPECT_EQ(records(list), all);
}

TEST_F(CapiPkoIdScannerSweepTest, EachFailedCallIsReportedByItsCodeAndAllHandlesAreReleasedInOrder) {
    std::vector<std::pair<std::size_t, DWORD>> done;
    for (const Row& row : rows) {
        for (const DWORD code : row.codes) {
            SCOPED_TRACE(calls.at(row.call - 1) + " fails with " + std::to_string(code));
            expect(row, code);
            done.emplace_back(row.call, code);
        }
    }
    std::vector<std::pair<std::size_t, DWORD>> wanted;
    for (std::size_t call = 1; call <= calls.size(); ++call)
        for (const DWORD code : all_codes)
            wanted.emplace_back(call, code);
    EXPECT_THAT(done, testing::UnorderedElementsAreArray(wanted));
}

} // namespace
} // namespace Kes::test
