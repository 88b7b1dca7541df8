#include <algorithm>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "support/process.h"
#include "support/support.h"

// Checks the table layout of the public headers and the symbols of the library with the compilers' tools.
namespace {

/// The operations of the exported object, in the order on which clients rely.
const std::vector<std::string> if_table{"int version_check(unsigned int)",
                                        "Kes::OsslScardCfg *get_config_default()",
                                        "Kes::OsslScardCfg *get_config_used()",
                                        "int init(Kes::OsslScardCfg *)",
                                        "int read_scard()",
                                        "bool is_pin_required()",
                                        "int set_pin(const char *)",
                                        "int discover_keys(size_t *)",
                                        "const char *get_key_name(size_t)",
                                        "int set_key(unsigned int, const char *)",
                                        "int set_key(size_t)",
                                        "int notify_config_done()",
                                        "int ossl_load()",
                                        "int ossl_unload()",
                                        "int ossl_get_private_key(evp_pkey_st **)",
                                        "int ossl_get_certificate(x509_st **)",
                                        "destructor",
                                        "const char *get_version()",
                                        "void destroy()",
                                        "const char *get_last_error_msg()",
                                        "int select_key_from_console(size_t *)"};

/// The operations of the configuration, in the order on which clients rely.
const std::vector<std::string> cfg_table{
    "destructor",
    "Kes::OsslScardCfg *clone() const",
    "void set_crypto_if(const Kes::OsslScardCfg::CryptoIf &)",
    "const Kes::OsslScardCfg::CryptoIf &get_crypto_if() const",
    "void set_capi_openssl_engine_dll(const char *)",
    "const char *get_capi_openssl_engine_dll() const",
    "void set_capi_csp_name(const char *)",
    "const char *get_capi_csp_name() const",
    "void set_capi_key_type(unsigned int)",
    "unsigned int get_capi_key_type() const",
    "void set_pkcs11_openssl_engine_dll(const char *)",
    "const char *get_pkcs11_openssl_engine_dll() const",
    "void set_pkcs11_module_dll(const char *)",
    "const char *get_pkcs11_module_dll() const",
    "void set_capi_store_openssl_engine_dll(const char *)",
    "const char *get_capi_store_openssl_engine_dll() const",
    "void set_capi_store_cert_store_name(const char *)",
    "const char *get_capi_store_cert_store_name() const",
    "void set_priv_key_name(const char *)",
    "const char *get_priv_key_name() const",
    "void set_cert_name(const char *)",
    "const char *get_cert_name() const",
    "void set_kuse_filter_type(unsigned int)",
    "unsigned int get_kuse_filter_type() const",
    "void set_kuse_filter(unsigned int)",
    "unsigned int get_kuse_filter() const",
    "void set_xkuse_filter_type(unsigned int)",
    "unsigned int get_xkuse_filter_type() const",
    "void set_xkuse_nid_filter(const char *)",
    "const char *get_xkuse_nid_filter() const",
    "void set_logfile(const char *)",
    "const char *get_logfile() const",
    "void set_logfile_severity(unsigned int)",
    "unsigned int get_logfile_severity() const",
    "void enable_logfile_append()",
    "void disable_logfile_append()",
    "bool get_logfile_append() const",
    "char *get_crypto_if_description(Kes::OsslScardCfg::CryptoIf, char *, size_t) const",
    "char *dump_settings(char *, size_t) const",
    "int select_crypto_if_from_console(Kes::OsslScardCfg::CryptoIf *)"};

/// Converts a line of a dump, such as "  4 | int Kes::OsslScardIf::read_scard() [pure]", to the format of the
/// tables above.
std::string operation_in(std::string line) {
    line = std::regex_replace(line, std::regex(R"(^ *\d+ \| | \[pure\]$)"), "");
    static const std::regex destructor(
        R"(\w+::~\w+\(\) \[scalar deleting\]|void \*.*::destructor_entry\(unsigned int\))");
    if (std::regex_match(line, destructor)) return "destructor";
    return std::regex_replace(line, std::regex(R"(Kes::OsslScard(If|Cfg)::(\w+\())"), "$2");
}

/// The operations in the table that follows the title, without the entries before the first operation.
std::vector<std::string> slots_in(const std::string& dump, const std::string& title) {
    std::vector<std::string> slots;
    bool is_inside = false;
    for (const std::string& line : Kes::test::split_lines(dump)) {
        if (line.rfind(title, 0) == 0) {
            is_inside = true;
        } else if (is_inside) {
            if (line.empty()) break;
            const bool is_slot = std::regex_search(line, std::regex(R"(^ *\d+ \| .*\()")) &&
                                 line.find("offset_to_top") == std::string::npos;
            if (is_slot) slots.push_back(operation_in(line));
        }
    }
    return slots;
}

std::string layout_dump(const std::string& target, const std::string& standard) {
    return Kes::test::shell_output(
        std::string(MARVO_CLANGXX) + " --target=" + target + " -std=" + standard +
        " -Xclang -fdump-vtable-layouts -S -emit-llvm -o /dev/null -I " MARVO_INCLUDE_DIR
        " " MARVO_LAYOUT_PROBE);
}

class LayoutTest : public testing::TestWithParam<const char*> {};

TEST_P(LayoutTest, MicrosoftAbiHasTheDocumentedTables) {
    const std::string dump = layout_dump("x86_64-pc-windows-msvc", GetParam());
    EXPECT_EQ(slots_in(dump, "VFTable for 'Kes::OsslScardIf' in 'IfProbe' (22 entries)."), if_table);
    EXPECT_EQ(slots_in(dump, "VFTable for 'Kes::OsslScardCfg' in 'CfgProbe' (41 entries)."), cfg_table);
}

TEST_P(LayoutTest, ItaniumAbiHasTheDocumentedTables) {
    for (const char* target : {"x86_64-pc-linux-gnu", "x86_64-w64-windows-gnu"}) {
        const std::string dump = layout_dump(target, GetParam());
        EXPECT_EQ(slots_in(dump, "Vtable for 'IfProbe' (23 entries)."), if_table) << target;
        EXPECT_EQ(slots_in(dump, "Vtable for 'CfgProbe' (42 entries)."), cfg_table) << target;
    }
}

INSTANTIATE_TEST_SUITE_P(Standards, LayoutTest, testing::Values("c++11", "c++20"),
                         [](const auto& standard) { return "Cxx" + std::string(standard.param).substr(3); });

std::vector<std::string> dynamic_entries(const std::string& tag) {
    std::vector<std::string> values;
    const std::regex entry("\\(" + tag + "\\).*\\[(.*)\\]");
    for (const std::string& line :
         Kes::test::split_lines(Kes::test::shell_output(MARVO_READELF " -d " MARVO_LIBRARY))) {
        std::smatch match;
        if (std::regex_search(line, match, entry)) values.push_back(match[1]);
    }
    return values;
}

TEST(SharedObjectTest, OnlyOneFunctionIsExported) {
    const auto names =
        Kes::test::split_lines(Kes::test::shell_output(MARVO_NM " -D --defined-only " MARVO_LIBRARY));
    ASSERT_EQ(names.size(), 1U) << testing::PrintToString(names);
    EXPECT_TRUE(std::regex_match(names[0], std::regex("[0-9a-f]+ T get_ossl_scard_if"))) << names[0];
}

TEST(SharedObjectTest, SonameHasTheMajorVersion) {
    EXPECT_EQ(dynamic_entries("SONAME"), std::vector<std::string>{"libmarvo-4.so"});
}

TEST(SharedObjectTest, LibcryptoIsNeededButNotLibssl) {
    std::set<std::string> needed;
    for (const std::string& library : dynamic_entries("NEEDED"))
        if (library.find("san.so") == std::string::npos)
            needed.insert(library.substr(0, library.find(".so")));
    EXPECT_EQ(needed.count("libcrypto"), 1U);
    EXPECT_EQ(needed.count("libp11"), 1U);
    for (const char* system : {"libcrypto", "libp11", "libstdc++", "libgcc_s", "libm", "libc"})
        needed.erase(system);
    EXPECT_EQ(needed, std::set<std::string>{});
}

TEST(SharedObjectTest, LibcryptoOfMajorVersion3IsNeeded) {
    const auto needed = dynamic_entries("NEEDED");
    EXPECT_NE(std::find(needed.begin(), needed.end(), "libcrypto.so.3"), needed.end());
}

TEST(SharedObjectTest, LibraryStaysLoadedAndHasNeitherTextRelocationsNorRpath) {
    const std::string dynamic = Kes::test::shell_output(MARVO_READELF " -d " MARVO_LIBRARY);
    EXPECT_NE(dynamic.find("NODELETE"), std::string::npos);
    EXPECT_EQ(dynamic.find("TEXTREL"), std::string::npos);
    EXPECT_EQ(dynamic.find("RPATH"), std::string::npos);
}

} // namespace
