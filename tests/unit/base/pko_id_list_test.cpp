#include "base/pko_id_list.h"

#include <chrono>
#include <sstream>

#include "support/core_fixture.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

constexpr const char* not_registered =
    "pko_id_list:86 Kes::PkoIdList::scan(): no scanner registered: val=9 (not_registered)";

/// A test double that adds two records and then calls a function of the test.
class TestScanner final : public PkoIdScanner {
public:
    explicit TestScanner(std::function<void()> after = [] {}) : PkoIdScanner(nullptr), after_(after) {}

    void scan(const Pin& pin) override {
        pins.emplace_back(pin.c_str());
        ASSERT_NE(list, nullptr);
        list->add(PkoType::certificate, 0, "cert", "%01", "Cert", nullptr);
        list->add(PkoType::private_key, 0, "key", "%01", "Key", nullptr);
        after_();
    }

    bool passes(const CertKeyUsage& usage) const { return key_usage_filter->check(usage); }

    static inline std::vector<std::string> pins;

private:
    std::function<void()> after_;
};

class PkoIdListTest : public ::testing::Test {
protected:
    PkoIdListTest() { TestScanner::pins.clear(); }

    const PkoId* add(PkoType type, const std::string& cluster, std::uint32_t key_type = 0) {
        return list.add(type, key_type, "name " + cluster, cluster, "display " + cluster, nullptr);
    }

    LogCapture log;
    PkoIdList list;
};

TEST_F(PkoIdListTest, EveryTypeValueHasAName) {
    EXPECT_EQ(pko_type_name(PkoType::private_key), "private_key");
    EXPECT_EQ(pko_type_name(PkoType::public_key), "public_key");
    EXPECT_EQ(pko_type_name(PkoType::certificate), "certificate");
    EXPECT_EQ(pko_type_name(static_cast<PkoType>(3)), "unknown");
    EXPECT_EQ(pko_type_name(static_cast<PkoType>(0xffffffffU)), "unknown");
}

TEST_F(PkoIdListTest, RecordIsPrintedAsOneLineAndTheListAsOneLinePerRecord) {
    const PkoId* key = list.add(PkoType::private_key, 0, "pkcs11:token=Token1;id=%01;type=private", "%01",
                                "Token1: Auth key", nullptr);
    list.add(static_cast<PkoType>(9), 4294967295U, "", "", "", std::make_unique<const CertKeyUsage>());
    const std::string first = "Token1: Auth key [type=private_key, key_type=0, "
                              "name=pkcs11:token=Token1;id=%01;type=private, cluster_name=%01]\n";
    EXPECT_EQ(text_of(*key), first);
    EXPECT_EQ(text_of(list), first + " [type=unknown, key_type=4294967295, name=, cluster_name=]\n");
}

TEST_F(PkoIdListTest, EmptyListPrintsNothingAndFindsNothing) {
    EXPECT_EQ(text_of(list), "");
    EXPECT_TRUE(list.is_empty());
    EXPECT_EQ(list.find_first(PkoType::private_key), nullptr);
    EXPECT_EQ(list.find_next(PkoType::private_key, nullptr), nullptr);
    EXPECT_EQ(list.find(PkoType::private_key, 0, ""), nullptr);
    EXPECT_EQ(list.find_matching(PkoType::private_key, nullptr), nullptr);
}

TEST_F(PkoIdListTest, ScanWithoutAScannerThrowsAndKeepsTheRecords) {
    const PkoId* record = add(PkoType::private_key, "%01");
    EXPECT_EQ(error_text([&] { list.scan(Pin("1")); }), not_registered);
    EXPECT_EQ(list.find_first(PkoType::private_key), record);
}

TEST_F(PkoIdListTest, EachScanStartsWithAnEmptyListAndPassesThePinToTheScanner) {
    list.register_scanner(std::make_unique<TestScanner>());
    add(PkoType::public_key, "%77");
    list.scan(Pin("first"));
    const std::string once = text_of(list);
    list.scan(Pin("second"));
    EXPECT_EQ(text_of(list), once);
    EXPECT_EQ(once, "Cert [type=certificate, key_type=0, name=cert, cluster_name=%01]\n"
                    "Key [type=private_key, key_type=0, name=key, cluster_name=%01]\n");
    EXPECT_EQ(TestScanner::pins, (Lines{"first", "second"}));
}

TEST_F(PkoIdListTest, RecordsOfAFailedScanAreKeptUntilTheNextScan) {
    bool is_failing = true;
    list.register_scanner(std::make_unique<TestScanner>([&] {
        if (is_failing) throw ErrorString("card gone");
    }));
    EXPECT_EQ(error_text([&] { list.scan(Pin()); }), "card gone");
    EXPECT_NE(list.find_first(PkoType::private_key), nullptr);
    is_failing = false;
    list.scan(Pin());
    EXPECT_EQ(split_lines(text_of(list)).size(), 2U);
}

TEST_F(PkoIdListTest, RegisteringAScannerDeletesTheEarlierOne) {
    list.register_scanner(std::make_unique<TestScanner>());
    const Lines before{"<trace> created PkoIdList object", "<trace> created PkoIdScanner object"};
    EXPECT_EQ(log.lines(), before);
    list.register_scanner(std::make_unique<TestScanner>());
    EXPECT_EQ(log.lines(), (Lines{before[0], before[1], "<trace> created PkoIdScanner object",
                                  "<trace> destroyed PkoIdScanner object"}));
    list.register_scanner(nullptr);
    EXPECT_EQ(error_text([&] { list.scan(Pin()); }), not_registered);
}

TEST_F(PkoIdListTest, ConstructorRunsTheScannerThatItReceives) {
    {
        const PkoIdList scanned(std::make_unique<TestScanner>(), Pin("0815"));
        EXPECT_EQ(TestScanner::pins, Lines{"0815"});
        EXPECT_FALSE(scanned.is_empty());
    }
    EXPECT_EQ(log.lines(), (Lines{"<trace> created PkoIdList object", "<trace> created PkoIdScanner object",
                                  "<trace> created PkoIdList object", "<trace> destroyed PkoIdScanner object",
                                  "<trace> destroyed PkoIdList object"}));
}

TEST_F(PkoIdListTest, ScannerThatFailsInTheConstructorIsDeletedAndTheCommonErrorTypeIsThrown) {
    const auto make = [] {
        const PkoIdList failing(std::make_unique<TestScanner>(
            [] { throw Error(ErrorCodeType::timeout, "too slow", "here:1 f()"); }));
    };
    EXPECT_THROW(make(), ErrorBase);
    try {
        make();
    } catch (const std::exception& error) {
        EXPECT_EQ(typeid(error), typeid(ErrorBase));
        EXPECT_STREQ(error.what(), "here:1 f(): too slow: val=7 (timeout)");
    }
    EXPECT_EQ(log.lines(),
              (Lines{"<trace> created PkoIdList object", "<trace> created PkoIdScanner object",
                     "<trace> destroyed PkoIdScanner object", "<trace> created PkoIdScanner object",
                     "<trace> destroyed PkoIdScanner object"}));
}

TEST_F(PkoIdListTest, ConstructorPropagatesOtherExceptionsOfTheScannerUnchanged) {
    const auto make = [](std::function<void()> throw_exception) {
        const PkoIdList failing(std::make_unique<TestScanner>(throw_exception));
    };
    EXPECT_THROW(make([] { throw 42; }), int);
    EXPECT_THROW(make([] { throw std::out_of_range("x"); }), std::out_of_range);
}

/// A list that marks the display name of each record it creates.
class MarkingList final : public PkoIdList {
public:
    std::unique_ptr<PkoId> create_pko_id(PkoType type, std::uint32_t key_type, const std::string& name,
                                         const std::string& cluster_name, const std::string& display_name,
                                         std::unique_ptr<const CertKeyUsage> key_usage) override {
        return PkoIdList::create_pko_id(type, key_type, name, cluster_name, "marked " + display_name,
                                        std::move(key_usage));
    }
};

TEST_F(PkoIdListTest, AddCreatesTheRecordWithTheVirtualFunction) {
    MarkingList marking;
    EXPECT_EQ(marking.add(PkoType::certificate, 0, "n", "c", "d", nullptr)->display_name, "marked d");
}

TEST_F(PkoIdListTest, CreatedRecordIsNotInTheListUntilItIsAdded) {
    auto record =
        list.create_pko_id(PkoType::certificate, 3, "n", "c", "d", std::make_unique<const CertKeyUsage>());
    EXPECT_TRUE(list.is_empty());
    const PkoId* made = record.get();
    EXPECT_EQ(list.add(std::move(record)), made);
    EXPECT_EQ(list.find(PkoType::certificate, 3, "c"), made);
}

TEST_F(PkoIdListTest, FindFirstAndFindNextVisitTheRecordsOfOneTypeInOrder) {
    const PkoId* key1 = add(PkoType::private_key, "%01");
    const PkoId* cert = add(PkoType::certificate, "%01");
    const PkoId* key2 = add(PkoType::private_key, "%02");
    const PkoId* last = add(PkoType::public_key, "%02");
    EXPECT_EQ(list.find_first(PkoType::private_key), key1);
    EXPECT_EQ(list.find_next(PkoType::private_key, key1), key2);
    EXPECT_EQ(list.find_next(PkoType::private_key, cert), key2) << "a record of another type will do";
    EXPECT_EQ(list.find_next(PkoType::private_key, key2), nullptr);
    EXPECT_EQ(list.find_next(PkoType::public_key, key1), last);
    EXPECT_EQ(list.find_next(PkoType::public_key, last), nullptr);
    EXPECT_EQ(list.find_first(static_cast<PkoType>(7)), nullptr);
}

TEST_F(PkoIdListTest, FindNextReturnsNullForRecordsOfOtherListsAndForDeletedRecords) {
    const PkoId* deleted = add(PkoType::private_key, "%01");
    list.clear();
    add(PkoType::certificate, "%01");
    PkoIdList other;
    const PkoId* foreign = other.add(PkoType::private_key, 0, "n", "%01", "d", nullptr);
    EXPECT_EQ(list.find_next(PkoType::certificate, foreign), nullptr);
    EXPECT_EQ(list.find_next(PkoType::certificate, nullptr), nullptr);
    if (list.find_first(PkoType::certificate) != deleted) { // the allocator may have reused the memory
        EXPECT_EQ(list.find_next(PkoType::certificate, deleted), nullptr);
    }
}

TEST_F(PkoIdListTest, GenerationIncreasesOnlyWhenRecordsAreDeleted) {
    const std::uint64_t before = list.generation();
    add(PkoType::private_key, "%01");
    EXPECT_EQ(list.generation(), before);
    list.clear();
    EXPECT_GT(list.generation(), before);
}

TEST_F(PkoIdListTest, FindComparesTypeKeyTypeAndTheCompleteClusterName) {
    const PkoId* key = add(PkoType::private_key, "%01%02", 1);
    EXPECT_EQ(list.find(PkoType::private_key, 1, "%01%02"), key);
    EXPECT_EQ(list.find(PkoType::private_key, 1, "%01"), nullptr);
    EXPECT_EQ(list.find(PkoType::private_key, 1, "%01%02%03"), nullptr);
    EXPECT_EQ(list.find(PkoType::private_key, 1, std::string("%01%02\0", 7)), nullptr);
    EXPECT_EQ(list.find(PkoType::private_key, 1, ""), nullptr);
    EXPECT_EQ(list.find(PkoType::private_key, 2, "%01%02"), nullptr);
    EXPECT_EQ(list.find(PkoType::certificate, 1, "%01%02"), nullptr);
}

TEST_F(PkoIdListTest, FindReturnsTheFirstRecordOfACluster) {
    const PkoId* first = add(PkoType::certificate, "%01");
    add(PkoType::certificate, "%01");
    const PkoId* key = add(PkoType::private_key, "%01");
    EXPECT_EQ(list.find(PkoType::certificate, 0, "%01"), first);
    EXPECT_EQ(list.find_matching(PkoType::certificate, key), first);
    EXPECT_EQ(list.find_matching(PkoType::public_key, key), nullptr);
}

TEST_F(PkoIdListTest, ClearedListFindsNothingAndAcceptsNewRecords) {
    add(PkoType::certificate, "%01");
    list.clear();
    EXPECT_EQ(list.find(PkoType::certificate, 0, "%01"), nullptr);
    EXPECT_TRUE(list.is_empty());
    const PkoId* fresh = add(PkoType::certificate, "%01");
    EXPECT_EQ(list.find(PkoType::certificate, 0, "%01"), fresh);
}

TEST_F(PkoIdListTest, ScannerWithoutAFilterAcceptsEveryCertificate) {
    const TestScanner scanner;
    EXPECT_TRUE(scanner.passes(CertKeyUsage()));
    EXPECT_TRUE(scanner.passes(CertKeyUsage(TestData::instance().client.get())));
}

TEST_F(PkoIdListTest, PairingTwentyThousandRecordsDoesNotTakeQuadraticTime) {
    constexpr int pairs = 10000;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < pairs; ++i)
        add(PkoType::certificate, "%" + std::to_string(i));
    for (int i = 0; i < pairs; ++i)
        add(PkoType::private_key, "%" + std::to_string(pairs - 1 - i));
    int count = 0;
    const PkoId* key = list.find_first(PkoType::private_key);
    for (; key != nullptr; key = list.find_next(PkoType::private_key, key)) {
        ASSERT_EQ(list.find_matching(PkoType::certificate, key)->cluster_name, key->cluster_name);
        ++count;
    }
    EXPECT_EQ(count, pairs);
    // A quadratic search compares 50 million pairs of names twice. A linear one takes a few hundredths of a
    // second.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

} // namespace
} // namespace Kes::test
