#ifndef KES_UTILS_CONS_SELECT_MENU_H_
#define KES_UTILS_CONS_SELECT_MENU_H_

#include <cstdint>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "utils/error.h"
#include "utils/logger.h"
#include "utils/platform.h"

namespace Kes {

/// What a menu needs to know about the type of its objects. Each type has a specialisation, declared next to
/// the type, with these members:
/// - static std::string to_text(const T&): the text of an object in the log
/// - static constexpr const char* location: the location in the errors that select() throws
template <typename T>
struct ConsSelectMenuTraits;

template <>
struct ConsSelectMenuTraits<std::uint64_t> {
    static std::string to_text(std::uint64_t object) { return std::to_string(object); }
    static constexpr const char* location =
        "cons_select_menu:143 Kes::ConsSelectMenu<unsigned __int64>::select()";
};

/// A console menu. The user selects an item with one key press, without echo and without Enter. By
/// convention, the last item has the key '.' and the text "exit", and the caller treats it as a user abort.
template <typename T>
class ConsSelectMenu {
public:
    struct Item {
        char key;         ///< the key that selects the item; upper and lower case differ
        T object;         ///< what the item represents
        std::string text; ///< what the user sees
    };

    /// @param items  in the order of display; if several items have the same key, it selects the first one
    ConsSelectMenu(std::string title_in, std::vector<Item> items_in)
        : title(std::move(title_in)), items(std::move(items_in)) {}

    /// Shows the menu on standard output and waits for the key of an item. Ignores other keys.
    /// @return a copy of the selected item
    /// @throws Error user_abort on CTRL-C, or if the input ends before an item is selected
    Item select() const {
        // Switch off the echo before the prompt appears, so that no key pressed after it is echoed.
        platform::Keyboard keyboard;
        show();
        const Item& item = wait_for_item(keyboard);
        std::cout << item.key << std::endl;
        log_info("selected item: '", item.key, "', obj=", Traits::to_text(item.object));
        return item;
    }

private:
    using Traits = ConsSelectMenuTraits<T>;
    static constexpr int ctrl_c = 3;

    void show() const {
        std::cout << std::endl << title << std::endl;
        for (const Item& item : items)
            std::cout << "   ( " << item.key << " ) ... " << item.text << std::endl;
        std::cout << "  => " << std::flush;
    }

    const Item& wait_for_item(platform::Keyboard& keyboard) const {
        for (;;) {
            const int key = keyboard.read_key();
            if (key == 0) continue; // a function key, or the first of its two codes on Windows
            if (key == ctrl_c)
                throw Error(ErrorCodeType::user_abort, "user abort <CTRL-C>", Traits::location);
            // Without this check, the loop would not end after the input is closed.
            if (key == platform::Keyboard::end_of_input)
                throw Error(ErrorCodeType::user_abort, "user abort <end of input>", Traits::location);
            for (const Item& item : items)
                if (static_cast<unsigned char>(item.key) == key) return item;
        }
    }

    std::string title;
    std::vector<Item> items;
};

} // namespace Kes

#endif // KES_UTILS_CONS_SELECT_MENU_H_
