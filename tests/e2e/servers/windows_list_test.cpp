#include <regex>

#include "support/process.h"
#include "windows_capi.h"

// The program marvo under Wine lists the keys of the CryptoAPI back-ends.
namespace Kes::test {
namespace {

/// The output, with the parts that differ from certificate to certificate replaced.
std::string masked(const std::string& output) {
    static const std::regex serial("(serial   )[0-9A-F]+");
    static const std::regex dates(
        "[0-9]{4}-[0-9]{2}-[0-9]{2} to [0-9]{4}-[0-9]{2}-[0-9]{2} .[0-9]+ days left.");
    return std::regex_replace(std::regex_replace(output, serial, "$1SERIAL"), dates, "DATES");
}

std::string certificate(const std::string& name, const std::string& usage) {
    return "    key      RSA, 2048 bits\n    subject  CN=" + name +
           "\n    issuer   CN=Soft token CA,O=Throw-away\n" +
           "    serial   SERIAL\n    valid    DATES\n    usage    " + usage + "\n    extended clientAuth\n";
}

const std::vector<std::string> filter{"--set", "key_usage_filter_type=1", "--set", "key_usage_filter=0x80"};

std::vector<std::string> list(const std::string& backend) {
    std::vector<std::string> arguments{"list", "--backend", backend};
    arguments.insert(arguments.end(), filter.begin(), filter.end());
    return arguments;
}

class WindowsCapiListTest : public WindowsCapiTest {
protected:
    void add_key(const std::string& container, const std::string& kind, const std::string& usage) const {
        run_program(
            {script(), "key", card(), container, kind, dir_.path().string(), "/CN=" + container, usage});
    }
};

TEST_F(WindowsCapiListTest, EveryKeyOfTheCardIsShownWithItsVerdict) {
    add_key("login", "exchange", "keyEncipherment");
    add_key("login", "signature", "digitalSignature");
    EXPECT_EQ(run_client("marvo", list("capi")), 0);
    EXPECT_EQ(masked(output_),
              "Back-end   capi\n"
              "Provider   Microsoft Base Smart Card Crypto Provider\n"
              "Keys       2 keys, 1 offered\n"
              "\n"
              "Key - login (KEYEXCHANGE)\n"
              "    verdict  not offered: the filter wants digitalSignature, the certificate has "
              "keyEncipherment\n"
              "    warning  no digitalSignature in key usage\n"
              "    set_key  type 1, id \"login\"\n" +
                  certificate("login", "keyEncipherment") +
                  "\n"
                  "Key 0 login (SIGNATURE)\n"
                  "    verdict  offered\n"
                  "    set_key  type 2, id \"login\"\n" +
                  certificate("login", "digitalSignature"));
}

TEST_F(WindowsCapiListTest, MissingCardIsTheLibrarysError) {
    EXPECT_EQ(run_client("marvo", list("capi")), 1);
    EXPECT_TRUE(
        output_.starts_with("marvo list: capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() "
                            "with prov_name=Microsoft Base Smart Card Crypto Provider"))
        << output_;
}

class WindowsMyStoreListTest : public WindowsCapiListTest {
protected:
    MyStore store_;
};

TEST_F(WindowsMyStoreListTest, EveryCertificateOfTheStoreIsShownWithItsVerdict) {
    add_key("login", "signature", "keyEncipherment");
    store_.add_card_key(card(), "signature");
    EXPECT_EQ(run_client("marvo", list("capi_store")), 0);
    EXPECT_EQ(masked(output_),
              "Back-end   capi_store\n"
              "Store      MY\n"
              "Keys       1 key, 0 offered\n"
              "\n"
              "Key - login\n"
              "    verdict  not offered: the filter wants digitalSignature, the certificate has "
              "keyEncipherment\n"
              "    warning  no digitalSignature in key usage\n"
              "    set_key  type 0, id \"login\"\n" +
                  certificate("login", "keyEncipherment"));
}

} // namespace
} // namespace Kes::test
