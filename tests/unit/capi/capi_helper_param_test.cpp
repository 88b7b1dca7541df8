#include "capi/capi_helper.h"
#include "support/capi_fixture.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

/// Tests the parameters of an open provider.
class CapiProvParamTest : public CapiTest {
protected:
    CapiProvParamTest() { script().take_calls(); }

    const CapiInit opened{csp, "c1", 0};
    LogCapture log;

    HCRYPTPROV handle() const { return opened.provider(); }
    Lines containers() const { return read_capi_containers(handle()); }
};

/// Tests the parameters of an open key.
class CapiKeyParamTest : public CapiTest {
protected:
    CapiKeyParamTest() {
        opened.fetch_key(AT_SIGNATURE);
        script().take_calls();
        log.emplace();
    }

    CapiInit opened{csp, "c1", 0};
    std::optional<LogCapture> log;

    Bytes certificate() const { return read_capi_key_certificate(opened.key()); }
};

TEST_F(CapiProvParamTest, ReadsTheSizeThenTheDataAndLogsTheObjectAtTrace) {
    {
        const CapiProvParamReader reader(handle(), PP_NAME, 0);
        EXPECT_EQ(reader.data().size(), std::string(csp).size() + 1);
        EXPECT_EQ(reader.text(), csp);
        EXPECT_EQ(log.lines(), Lines{"<trace> created CapiProvParamReader object"});
    }
    EXPECT_EQ(log.lines(), (Lines{"<trace> created CapiProvParamReader object",
                                  "<trace> destroyed CapiProvParamReader object"}));
    EXPECT_EQ(script().calls(),
              (Lines{"CryptGetProvParam(prov:c1, 4, 0, size)", "CryptGetProvParam(prov:c1, 4, 0, read)"}));
}

TEST_F(CapiProvParamTest, ParameterOfLengthZeroIsNotRead) {
    capi().odd_answers["CryptGetProvParam 4"] = {.size = 0};
    const CapiProvParamReader reader(handle(), PP_NAME, 0);
    EXPECT_TRUE(reader.data().empty());
    EXPECT_EQ(reader.text(), "");
    EXPECT_EQ(script().calls().back(), "CryptGetProvParam(prov:c1, 4, 0, size)");
}

TEST_F(CapiProvParamTest, ReadThatReturnsLessThanAnnouncedIsAccepted) {
    const Bytes few{'a', 'b'};
    for (const Bytes& given : {few, Bytes()}) {
        capi().odd_answers["CryptGetProvParam 4"] = {.size = 100, .data = given};
        const CapiProvParamReader reader(handle(), PP_NAME, 0);
        EXPECT_EQ(reader.data(), given);
    }
}

TEST_F(CapiProvParamTest, ReadThatReportsMoreThanTheBufferHoldsIsLimitedToTheBuffer) {
    capi().odd_answers["CryptGetProvParam 4"] = {.size = 4, .data = Bytes{'a', 'b'}, .reported = 4000000000U};
    const CapiProvParamReader reader(handle(), PP_NAME, 0);
    EXPECT_EQ(reader.data(), (Bytes{'a', 'b', 0, 0}));
    EXPECT_EQ(reader.text(), "ab");
}

TEST_F(CapiProvParamTest, SizeThatGrowsBeforeTheReadThrows) {
    capi().odd_answers["CryptGetProvParam 4"] = {.size = 3};
    EXPECT_EQ(error_text([&] { const CapiProvParamReader reader(handle(), PP_NAME, 0); }),
              "capi_helper:289 Kes::CapiProvParamReader::read(): CryptGetProvParam(param=4, flags=0) failed: "
              "val=234 [0xea] (unknown winerror)");
    EXPECT_EQ(log.lines(), Lines());
}

TEST_F(CapiProvParamTest, TextsEndAtTheFirstNulOrAtTheEndOfTheData) {
    const std::string cut("one\0two", 7);
    capi().odd_answers["CryptGetProvParam 4"] = {.size = 7, .data = Bytes(cut.begin(), cut.end())};
    EXPECT_EQ(CapiProvParamReader(handle(), PP_NAME, 0).text(), "one");
    capi().odd_answers.clear();
    provider().ends_names = false;
    EXPECT_EQ(CapiProvParamReader(handle(), PP_NAME, 0).text(), csp);
}

/// Tests a failed size query and a failed read of a parameter.
TEST_F(CapiProvParamTest, ErrorsContainTheParameterAndTheFlagsInDecimal) {
    const std::string unsupported = "capi_helper:244 Kes::CapiProvParamReader::read_len(): "
                                    "CryptGetProvParam() with param=39, flags=17 is not supported: val=4 "
                                    "(unsupported)";
    const std::string failed = "CryptGetProvParam(param=39, flags=17) failed: ";
    const struct {
        const char* when;
        DWORD code;
        std::string error;
    } rows[] = {
        {"size", ordinary,
         "capi_helper:252 Kes::CapiProvParamReader::read_len(): " + failed + win_code(ordinary)},
        {"size", bad_type, unsupported},
        {"size", no_more_items, "no exception"},
        {"read", ordinary,
         "capi_helper:289 Kes::CapiProvParamReader::read(): " + failed + win_code(ordinary)},
        {"read", bad_type,
         "capi_helper:289 Kes::CapiProvParamReader::read(): " + failed + win_code(bad_type)},
        {"read", no_more_items, "no exception"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.when) + " " + std::to_string(row.code));
        script().clear_failures();
        script().fail_step(script().steps() + (std::string(row.when) == "size" ? 1 : 2),
                           win_failure(row.code));
        EXPECT_EQ(error_text([&] {
                      const CapiProvParamReader reader(handle(), PP_KEYSPEC, 17);
                      EXPECT_TRUE(reader.data().empty());
                  }),
                  row.error);
    }
    EXPECT_EQ(script().violations(), Lines(3, "CryptGetProvParam: flags")); // size queries before the reads
    script().reset();
}

TEST_F(CapiProvParamTest, UnsupportedParameterIsNotReportedAsAWindowsError) {
    capi().errors["CryptGetProvParam 39"] = bad_type;
    EXPECT_THROW(CapiProvParamReader(handle(), PP_KEYSPEC, 0), Error);
}

TEST_F(CapiProvParamTest, ListsTheContainersInTheOrderOfTheProvider) {
    provider().containers = {{"zebra", {}}, {"c1", {}}, {"Ärger", {}}, {"", {}}, {"c 2", {}}};
    EXPECT_EQ(containers(), (Lines{"zebra", "c1", "Ärger", "", "c 2"}));
    Lines expected{"CryptGetProvParam(prov:c1, 2, 1, size)", "CryptGetProvParam(prov:c1, 2, 1, read)"};
    for (int i = 0; i < 4; ++i)
        expected = expected +
                   Lines{"CryptGetProvParam(prov:c1, 2, 2, size)", "CryptGetProvParam(prov:c1, 2, 2, read)"};
    EXPECT_EQ(script().calls(), expected + Lines{"CryptGetProvParam(prov:c1, 2, 2, size)"});
}

TEST_F(CapiProvParamTest, EmptyProviderHasNoContainers) {
    provider().containers.clear();
    EXPECT_EQ(containers(), Lines());
    provider().reports_end_on_read = true;
    EXPECT_EQ(containers(), Lines());
}

TEST_F(CapiProvParamTest, EndOfTheContainersIsDetectedInTheSizeQueryAndInTheRead) {
    for (const bool ends_in_read : {false, true}) {
        provider().reports_end_on_read = ends_in_read;
        EXPECT_EQ(containers(), (Lines{"c1", "c2"}));
    }
    EXPECT_EQ(script().calls().back(), "CryptGetProvParam(prov:c1, 2, 2, read)");
}

TEST_F(CapiProvParamTest, ContainerNamesWithoutATerminatingNulAreReadCompletely) {
    provider().ends_names = false;
    EXPECT_EQ(containers(), (Lines{"c1", "c2"}));
}

TEST_F(CapiProvParamTest, ContainerNameLongerThanTheAnnouncedSizeThrows) {
    capi().odd_answers["CryptGetProvParam 2"] = {.size = 2};
    EXPECT_EQ(error_text([&] { containers(); }),
              "capi_helper:289 Kes::CapiProvParamReader::read(): CryptGetProvParam(param=2, flags=1) failed: "
              "val=234 [0xea] (unknown winerror)");
}

TEST_F(CapiProvParamTest, NameWithoutBytesEndsTheContainerList) {
    capi().odd_answers["CryptGetProvParam 2"] = {.size = 10, .data = Bytes()};
    EXPECT_EQ(containers(), Lines());
}

TEST_F(CapiProvParamTest, ThousandContainersAreListed) {
    provider().containers.clear();
    Lines expected;
    for (int i = 0; i < 1000; ++i) {
        expected.push_back("container " + std::to_string(i));
        provider().containers.push_back({expected.back(), {}});
    }
    EXPECT_EQ(containers(), expected);
}

TEST_F(CapiProvParamTest, ErrorOfAFailedContainerListContainsTheFlagsOfTheRead) {
    const std::string first = "CryptGetProvParam(param=2, flags=1) failed: ";
    const std::string later = "CryptGetProvParam(param=2, flags=2) failed: ";
    const std::string size = "capi_helper:252 Kes::CapiProvParamReader::read_len(): ";
    const std::string read = "capi_helper:289 Kes::CapiProvParamReader::read(): ";
    const std::string errors[] = {size + first, read + first, size + later, read + later, size + later};
    for (std::size_t step = 1; step <= std::size(errors); ++step) {
        script().clear_failures();
        script().fail_step(script().steps() + step, win_failure(ordinary));
        EXPECT_EQ(error_text([&] { containers(); }), errors[step - 1] + win_code(ordinary));
    }
}

TEST_F(CapiProvParamTest, KeySpecificationMaskIsSplitInAscendingOrder) {
    const struct {
        DWORD mask;
        std::vector<std::uint32_t> list;
    } rows[] = {{1, {1}},
                {2, {2}},
                {3, {1, 2}},
                {6, {2, 4}},
                {0x80000001, {1, 0x80000000}},
                {0x80000000, {0x80000000}}};
    for (const auto& row : rows) {
        provider().key_specs = row.mask;
        const CapiKeySpecs key_specs = read_capi_key_specs(handle());
        EXPECT_EQ(key_specs.mask, row.mask);
        EXPECT_EQ(key_specs.list, row.list);
    }
    provider().key_specs = 0xffffffff;
    EXPECT_EQ(read_capi_key_specs(handle()).list.size(), 32U);
    EXPECT_THAT(log.lines(), testing::Not(testing::Contains(testing::HasSubstr("mask"))));
}

const std::string mask_warning = "<warn> keyspec mask is 0 -> updating it to 3";

TEST_F(CapiProvParamTest, MaskZeroMeansBothKeysAndLogsAWarning) {
    provider().key_specs = 0;
    const CapiKeySpecs key_specs = read_capi_key_specs(handle());
    EXPECT_EQ(key_specs.mask, 3U);
    EXPECT_EQ(key_specs.list, (std::vector<std::uint32_t>{1, 2}));
    EXPECT_EQ(log.lines(), (Lines{"<trace> created CapiProvParamReader object",
                                  "<trace> destroyed CapiProvParamReader object", mask_warning}));
}

TEST_F(CapiProvParamTest, MaskOfAnotherLengthIsTreatedAsZero) {
    for (const Bytes& mask : {Bytes{}, Bytes{1}, Bytes{1, 0, 0}, Bytes{1, 0, 0, 0, 0}, Bytes(8, 1)}) {
        for (const DWORD size : {0U, 4U, 100U}) {
            SCOPED_TRACE(std::to_string(mask.size()) + " " + std::to_string(size));
            const LogCapture own_log(8);
            capi().odd_answers["CryptGetProvParam 39"] = {.size = size, .data = mask};
            EXPECT_EQ(read_capi_key_specs(handle()).mask, 3U);
            EXPECT_EQ(own_log.lines(), Lines{mask_warning});
        }
    }
}

TEST_F(CapiProvParamTest, UnreadableMaskMeansBothKeysAndLogsTheReason) {
    const std::string failed = "CryptGetProvParam(param=39, flags=0) failed: ";
    const struct {
        std::size_t step;
        DWORD code;
        Lines reason;
    } rows[] = {
        {1,
         ordinary,
         {"<debug> capi_helper:252 Kes::CapiProvParamReader::read_len(): " + failed + win_code(ordinary)}},
        {1,
         bad_type,
         {"<debug> capi_helper:244 Kes::CapiProvParamReader::read_len(): CryptGetProvParam() with param=39, "
          "flags=0 is not supported: val=4 (unsupported)"}},
        {1, no_more_items, {}},
        {2,
         ordinary,
         {"<debug> capi_helper:289 Kes::CapiProvParamReader::read(): " + failed + win_code(ordinary)}},
        {2,
         bad_type,
         {"<debug> capi_helper:289 Kes::CapiProvParamReader::read(): " + failed + win_code(bad_type)}},
        {2, no_more_items, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.step) + " " + std::to_string(row.code));
        const LogCapture own_log(0xffff & ~1U); // all severities except trace
        script().clear_failures();
        script().fail_step(script().steps() + row.step, win_failure(row.code));
        EXPECT_EQ(read_capi_key_specs(handle()).list, (std::vector<std::uint32_t>{1, 2}));
        EXPECT_EQ(own_log.lines(), row.reason + Lines{mask_warning});
    }
}

TEST_F(CapiKeyParamTest, ReturnsTheCertificateOfTheCardUnchanged) {
    EXPECT_EQ(certificate(), cert_der("sign"));
    EXPECT_EQ(script().calls(),
              (Lines{"CryptGetKeyParam(key:c1/2, 26, 0, size)", "CryptGetKeyParam(key:c1/2, 26, 0, read)"}));
    EXPECT_EQ(log->lines(), (Lines{"<trace> created CapiKeyParamReader object",
                                   "<trace> destroyed CapiKeyParamReader object"}));
}

TEST_F(CapiKeyParamTest, CertificateOfLengthZeroIsEmptyAndNotRead) {
    container(0).keys[AT_SIGNATURE].certificate = Bytes();
    EXPECT_EQ(certificate(), Bytes());
    EXPECT_EQ(script().calls(), Lines{"CryptGetKeyParam(key:c1/2, 26, 0, size)"});
}

TEST_F(CapiKeyParamTest, ShortReadIsAccepted) {
    capi().odd_answers["CryptGetKeyParam 26"] = {.size = 5000};
    EXPECT_EQ(certificate(), cert_der("sign"));
}

TEST_F(CapiKeyParamTest, EachFailureIncludingNoMoreItemsThrows) {
    const std::string failed = "CryptGetKeyParam(param=26, flags=0) failed: ";
    const std::string size = "capi_helper:426 Kes::CapiKeyParamReader::read_len(): " + failed;
    const std::string read = "capi_helper:459 Kes::CapiKeyParamReader::read(): " + failed;
    const struct {
        std::size_t step;
        DWORD code;
        std::string error;
    } rows[] = {
        {1, ordinary, size + win_code(ordinary)},
        {1, bad_type,
         "capi_helper:423 Kes::CapiKeyParamReader::read_len(): CryptGetKeyParam() with param=26, flags=0 is "
         "not supported: val=4 (unsupported)"},
        {1, no_more_items, size + win_code(no_more_items)},
        {2, ordinary, read + win_code(ordinary)},
        {2, bad_type, read + win_code(bad_type)},
        {2, no_more_items, read + win_code(no_more_items)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        script().clear_failures();
        script().fail_step(script().steps() + row.step, win_failure(row.code));
        EXPECT_EQ(error_text([&] { certificate(); }), row.error);
    }
    EXPECT_EQ(log->lines(), Lines());
}

TEST_F(CapiKeyParamTest, SizeThatGrowsBeforeTheReadThrows) {
    capi().odd_answers["CryptGetKeyParam 26"] = {.size = 10};
    EXPECT_EQ(error_text([&] { certificate(); }),
              "capi_helper:459 Kes::CapiKeyParamReader::read(): CryptGetKeyParam(param=26, flags=0) failed: "
              "val=234 [0xea] (unknown winerror)");
}

} // namespace
} // namespace Kes::test
