#include <filesystem>
#include <fstream>

#include "pkcs11_engine_registry_fixture.h"

namespace Kes::test {
namespace {

using Pkcs11EngineRegistryPosixTest = Pkcs11EngineRegistryTest;

TEST_F(Pkcs11EngineRegistryPosixTest, LibraryIsRecognisedByItsSymbolicLink) {
    std::ofstream(library) << "an engine";
    std::filesystem::create_symlink(library, library + ".link");
    load_and_free_key(library);
    EXPECT_EQ(load_error(library + ".link"), "no exception");
}

} // namespace
} // namespace Kes::test
