#include <filesystem>
#include <fstream>

#include "pkcs11_engine_keeper_fixture.h"

namespace Kes::test {
namespace {

using Pkcs11EngineKeeperPosixTest = Pkcs11EngineKeeperTest;

TEST_F(Pkcs11EngineKeeperPosixTest, ALibraryIsKnownByItsSymbolicLinkToo) {
    std::ofstream(library) << "an engine";
    std::filesystem::create_symlink(library, library + ".link");
    live_and_free(library);
    EXPECT_EQ(load_error(library + ".link"), "no exception");
}

} // namespace
} // namespace Kes::test
