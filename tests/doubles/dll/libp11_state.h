#ifndef KES_TESTS_DOUBLES_DLL_LIBP11_STATE_H_
#define KES_TESTS_DOUBLES_DLL_LIBP11_STATE_H_

#include <array>
#include <deque>
#include <libp11.h>
#include <list>
#include <string>
#include <vector>

#include "card_module.h"

/// The objects that the test double of libp11 has returned and that were not yet released. Each argument is
/// looked up here, so that an invalid handle is recorded and never used.
namespace Kes::test {

struct Libp11Context {
    PKCS11_CTX ctx{};
    std::string name;
    std::string manufacturer = "Module maker";
    std::string description = "Module";
    CardModule module;
};

/// The slots of one enumeration and all objects listed on their token, which libp11 frees together. The first
/// reader may be empty. The second one exists only with a token in it, which has no objects.
struct Libp11Slots {
    Libp11Slots() = default;
    ~Libp11Slots();
    Libp11Slots(const Libp11Slots&) = delete;
    Libp11Slots& operator=(const Libp11Slots&) = delete;

    char* keep(const char* text) { return texts.emplace_back(text).data(); }

    std::string name;
    Libp11Context* owner = nullptr;
    std::array<PKCS11_SLOT, 2> slots{};
    std::array<PKCS11_TOKEN, 2> tokens{};
    unsigned int count = 1;
    std::deque<std::string> texts;
    std::deque<std::vector<unsigned char>> ids;
    std::deque<std::vector<PKCS11_CERT>> certs;
    std::deque<std::vector<PKCS11_KEY>> keys;
};

class Libp11State {
public:
    static Libp11State& instance();

    Libp11Context& add_context();
    Libp11Slots& add_slots(Libp11Context& owner);
    void remove(Libp11Context& context);
    void remove(Libp11Slots& slots);

    /// Null for an invalid handle, which is recorded as a violation. Slots are valid only while their context
    /// has a module.
    Libp11Context* find(const PKCS11_CTX* ctx, const char* caller);
    Libp11Slots* find(const PKCS11_SLOT* slot, const char* caller);
    Libp11Slots* find(const PKCS11_TOKEN* token, const char* caller);

private:
    std::list<Libp11Context> contexts_;
    std::list<Libp11Slots> slots_;
    int contexts_made_ = 0;
    int slots_made_ = 0;
};

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_DLL_LIBP11_STATE_H_
