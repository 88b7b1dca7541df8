// Changes a certificate store of the current user, for tests/data/prepare-card. Usage:
//   test_card_store clear STORE
//   test_card_store add STORE CERTIFICATE CONTAINER KEY_SPEC [BLOB]
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include "certificates.h"
#include "system_store.h"

namespace Kes::test {
namespace {

void run(const std::vector<std::string>& arguments) {
    const std::string command = arguments.empty() ? "" : arguments[0];
    if (command == "clear" && arguments.size() == 2) {
        SystemStore(arguments[1], SystemStore::as_it_is).remove();
    } else if (command == "add" && (arguments.size() == 5 || arguments.size() == 6)) {
        const DWORD key_spec = std::stoul(arguments[4]);
        const bool is_on_card = arguments.size() == 5;
        if (!is_on_card) import_software_key(arguments[3], key_spec, read_bytes(arguments[5]));
        const KeyPlace key =
            is_on_card ? on_card(arguments[3], key_spec) : in_software(arguments[3], key_spec);
        SystemStore(arguments[1], SystemStore::as_it_is).add(read_bytes(arguments[2]), &key);
    } else {
        throw std::runtime_error("wrong arguments");
    }
}

} // namespace
} // namespace Kes::test

int main(int argc, char** argv) {
    try {
        Kes::test::run({argv + 1, argv + argc});
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "test_card_store: " << error.what() << std::endl;
        return 1;
    }
}
