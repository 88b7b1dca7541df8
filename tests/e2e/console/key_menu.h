#ifndef KES_TESTS_E2E_CONSOLE_KEY_MENU_H_
#define KES_TESTS_E2E_CONSOLE_KEY_MENU_H_

#include "console_fixture.h"

namespace Kes::test {

const std::string menu_location = "cons_select_menu:143 Kes::ConsSelectMenu<unsigned __int64>::select(): ";
const std::string dot_error =
    "ossl_scard_if_imp:390 Kes::OsslScardIfImp::select_key_from_console(): user abort: val=16 (user_abort)";

const std::string first_keys = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

/// The characters of the items: the byte values up to 255 follow "z", then the sequence restarts at 0.
inline std::string item_keys(std::size_t count) {
    std::string keys = first_keys;
    for (int byte = 'z' + 1; byte <= 255; ++byte)
        keys += static_cast<char>(byte);
    for (int byte = 0; byte < '0'; ++byte)
        keys += static_cast<char>(byte);
    keys += first_keys; // cannot be selected: these characters select the first items
    return keys.substr(0, count);
}

inline std::string menu_of(std::size_t count) {
    const std::string keys = item_keys(count);
    std::string text = "\nPlease select from available keys:\n";
    for (std::size_t i = 0; i < count; ++i)
        text += std::string("   ( ") + keys[i] + " ) ... Card: key " + std::to_string(i) + "\n";
    return text + "   ( . ) ... exit\n  => ";
}

inline std::string success(std::size_t number) {
    return "key status=0 selected=" + std::to_string(number) + " error=''";
}

inline std::string failure(const std::string& error) {
    return "key status=1 selected=77 error='" + error + "'";
}

inline std::string log_line(char key, std::size_t number) {
    return std::string("<info> selected item: '") + key + "', obj=" + std::to_string(number);
}

class KeyMenuTest : public ConsoleTest {
protected:
    void start_menu(std::size_t count, const std::string& menu = "key") {
        const EnvVar keys("MARVO_TEST_KEYS", std::to_string(count));
        start(MARVO_KEYS_CLIENT, {menu});
        EXPECT_EQ(terminal_.read_until(prompt), on_screen(menu_of(count)));
    }

    /// Selects the item in a menu that the client then shows again.
    void pick(const std::string& key, std::size_t count) {
        terminal_.type(key);
        EXPECT_EQ(terminal_.read_until(prompt), on_screen(key + "\n" + menu_of(count)));
    }
};

} // namespace Kes::test

#endif // KES_TESTS_E2E_CONSOLE_KEY_MENU_H_
