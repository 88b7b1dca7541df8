#include <algorithm>
#include <filesystem>
#include <fstream>

#include "pkcs11_engine_registry_fixture.h"

namespace Kes::test {
namespace {

using Pkcs11EngineRegistryWinTest = Pkcs11EngineRegistryTest;

TEST_F(Pkcs11EngineRegistryWinTest, LibraryIsRecognisedWithSlashesOfEitherKind) {
    std::ofstream(library) << "an engine";
    load_and_free_key(library);
    std::string slashes = library;
    std::replace(slashes.begin(), slashes.end(), '\\', '/');
    ASSERT_NE(slashes, library);
    EXPECT_EQ(load_error(slashes), "no exception");
}

TEST_F(Pkcs11EngineRegistryWinTest, LibraryIsRecognisedRegardlessOfLetterCase) {
    std::ofstream(library) << "an engine";
    load_and_free_key(library);
    const std::filesystem::path path = library;
    EXPECT_EQ(load_error((path.parent_path() / "ENGINE.SO").string()), "no exception");
}

} // namespace
} // namespace Kes::test
