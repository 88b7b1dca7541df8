// The DLL with libcrypto in a folder that held nothing before.
#include "dll_folder.h"

namespace Kes::test {
namespace {

class EmptyFolderTest : public DllFolder {};

TEST_F(EmptyFolderTest, TheDllNeedsNothingButLibcrypto) {
    const std::string defaults = R"(configuration settings:
  crypto_if=capi
  capi_openssl_engine_dll=.\capi.dll
  capi_csp_name=Microsoft Base Smart Card Crypto Provider
  capi_key_type=SIGNATURE
  pkcs11_openssl_engine_dll=.\pkcs11.dll
  pkcs11_module_dll=itp11.dll
  capi_store_openssl_engine_dll=.\capi.dll
  capi_store_cert_store_name=MY
  priv_key_name=
  cert_name=
  kuse_filter_type=all
  kuse_filter=none
  xkuse_filter_type=all
  xkuse_nid_filter=
  logfile=)" + dir.file("log") + R"(
  logfile_severity=info|warn|error|fatal
  logfile_append=false

)";
    EXPECT_EQ(run({log_setting, "version_check", "init", "settings", "destroy"}),
              "version_check: 0\ninit: 0\n" + defaults + "settings: 0\ndestroy: 0\n");
    EXPECT_EQ(logged_errors(), Lines());
}

TEST_F(EmptyFolderTest, ByDefaultTheLogIsInTheCurrentFolder) {
    EXPECT_EQ(run({"init", "destroy"}), "init: 0\ndestroy: 0\n");
    EXPECT_TRUE(std::filesystem::exists(current / "ossl_scard.log"));
    EXPECT_FALSE(std::filesystem::exists(folder / "ossl_scard.log"));
}

TEST_F(EmptyFolderTest, WithoutLibcryptoTheDllDoesNotLoadAndTheClientLives) {
    std::filesystem::remove(folder / "libcrypto-3-x64.dll");
    EXPECT_EQ(run({"init"}), "ended with 3\n");
}

} // namespace
} // namespace Kes::test
