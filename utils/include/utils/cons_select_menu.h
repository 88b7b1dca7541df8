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

/// What a menu must know of the type of its objects. Specialise it beside the type:
/// - static std::string to_text(const T&): the object as the log shows it
/// - static constexpr const char* location: where select() reports that it was broken off
template <typename T>
struct ConsSelectMenuTraits;

template <>
struct ConsSelectMenuTraits<std::uint64_t> {
    static std::string to_text(std::uint64_t object) { return std::to_string(object); }
    static constexpr const char* location =
        "cons_select_menu:143 Kes::ConsSelectMenu<unsigned __int64>::select()";
};

/// A console menu from which one key press picks an item, without echo and without Enter.
/// By convention the last item has the key '.' and the text "exit"; the caller takes it as a user abort.
template <typename T>
class ConsSelectMenu {
public:
    struct Item {
        char key;
        T object;
        std::string text;
    };

    /// @param items  shown in this order; of items with one key the first is picked
    ConsSelectMenu(std::string title, std::vector<Item> items)
        : title_(std::move(title)), items_(std::move(items)) {}

    /// Shows the menu on standard output and waits for the key of an item; other keys are ignored, upper and
    /// lower case differ.
    /// @return a copy of the picked item
    /// @throws Error user_abort on CTRL-C, and when the input ends before an item is picked
    Item select() const {
        platform::Keyboard keyboard; // before the prompt: what is typed from then on is not echoed
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
        std::cout << std::endl << title_ << std::endl;
        for (const Item& item : items_)
            std::cout << "   ( " << item.key << " ) ... " << item.text << std::endl;
        std::cout << "  => " << std::flush;
    }

    const Item& wait_for_item(platform::Keyboard& keyboard) const {
        for (;;) {
            const int key = keyboard.read_key();
            if (key == 0) continue; // the first half of a function key
            if (key == ctrl_c)
                throw Error(ErrorCodeType::user_abort, "user abort <CTRL-C>", Traits::location);
            // Without this a program whose input is closed would ask forever.
            if (key == platform::Keyboard::end_of_input)
                throw Error(ErrorCodeType::user_abort, "user abort <end of input>", Traits::location);
            for (const Item& item : items_)
                if (static_cast<unsigned char>(item.key) == key) return item;
        }
    }

    std::string title_;
    std::vector<Item> items_;
};

} // namespace Kes

#endif // KES_UTILS_CONS_SELECT_MENU_H_
