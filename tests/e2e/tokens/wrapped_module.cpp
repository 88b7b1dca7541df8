// A PKCS#11 module that counts every call and forwards it to another module. It can also simulate readers and
// cards that SoftHSM does not provide.
#include "wrapped_module.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace {

using Kes::test::P11;
using Kes::test::WrappedBlock;

using Word = unsigned long; // CK_ULONG, which can also hold a pointer
using Function = Word (*)(Word, Word, Word, Word, Word, Word, Word, Word);

constexpr std::size_t function_count = static_cast<std::size_t>(P11::count);
constexpr Word function_failed = 0x06;
constexpr Word device_error = 0x30;
constexpr Word device_removed = 0x32;
constexpr Word too_many_sessions = 0xB1;
constexpr Word token_not_present = 0xE0;
constexpr Word flag_token_present = 0x01; // of a slot
constexpr std::size_t slot_flags_offset = 96;
constexpr std::size_t token_flags_offset = 96;

/// CK_FUNCTION_LIST.
struct FunctionList {
    std::array<unsigned char, 2> version;
    std::array<Function, function_count> functions;
};

FunctionList* real = nullptr;
WrappedBlock* block = nullptr;

struct Session {
    Word number, slot;
};

std::array<Session, 1024> sessions; // trivially destructible: calls may arrive after static destruction
std::size_t session_count = 0;

constexpr std::size_t index_of(P11 function) { return static_cast<std::size_t>(function); }

void change_flags(Word record, std::size_t offset, std::uint64_t set, std::uint64_t clear) {
    auto* place = reinterpret_cast<char*>(record) + offset;
    Word flags = 0;
    std::memcpy(&flags, place, sizeof flags);
    flags = (flags | set) & ~clear;
    std::memcpy(place, &flags, sizeof flags);
}

bool needs_card(std::size_t index) { return index > index_of(P11::get_slot_info); }

void change_result(std::size_t index, Word second, Word third) {
    if (index == index_of(P11::get_slot_list) && block->reverse_slots != 0 && second != 0) {
        auto* slots = reinterpret_cast<Word*>(second);
        std::reverse(slots, slots + *reinterpret_cast<Word*>(third));
    }
    if (index == index_of(P11::get_slot_info) && (block->removed != 0 || block->no_token != 0))
        change_flags(second, slot_flags_offset, 0, flag_token_present);
    if (index == index_of(P11::get_token_info))
        change_flags(second, token_flags_offset, block->set_token_flags, block->clear_token_flags);
}

template <typename Condition>
void forget_sessions(Condition is_closed) {
    const auto end = sessions.begin() + static_cast<std::ptrdiff_t>(session_count);
    session_count =
        static_cast<std::size_t>(std::remove_if(sessions.begin(), end, is_closed) - sessions.begin());
}

/// @param place  where C_OpenSession() stores the session handle
void record_sessions(P11 function, Word slot_or_session, Word place) {
    if (function == P11::open_session)
        sessions.at(session_count++) = {*reinterpret_cast<Word*>(place), slot_or_session};
    if (function == P11::close_session)
        forget_sessions([=](const Session& session) { return session.number == slot_or_session; });
    if (function == P11::close_all_sessions)
        forget_sessions([=](const Session& session) { return session.slot == slot_or_session; });
    if (function == P11::finalize) session_count = 0;
    block->open_sessions = session_count;
}

/// @param call  how often the function has been called, including this call
/// @return the error that the call must return instead of calling the real module; 0 if there is none
Word simulated_error(std::size_t index, std::uint64_t call) {
    if (block->removed != 0 && needs_card(index)) return device_removed;
    if (block->no_token != 0 && index == index_of(P11::get_token_info)) return token_not_present;
    if (index == index_of(P11::open_session)) {
        const bool is_limit_reached = block->session_limit != 0 && session_count >= block->session_limit;
        return is_limit_reached ? too_many_sessions : block->no_session.load();
    }
    const bool is_failing_read =
        index == index_of(P11::get_attribute_value) && call == block->failing_attribute_read;
    return is_failing_read ? device_error : 0;
}

// No PKCS#11 function has more than eight arguments, and all are integers or pointers. Most functions have
// fewer; the calling conventions of the supported systems allow passing more arguments than a function takes.
template <std::size_t index>
Word forward(Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h) {
    if (const Word error = simulated_error(index, ++block->calls[index]); error != 0) return error;
    const Word result = real->functions[index](a, b, c, d, e, f, g, h);
    if (result == 0) {
        record_sessions(static_cast<P11>(index), a, e);
        change_result(index, b, c);
    }
    return result;
}

template <std::size_t... indices>
constexpr std::array<Function, function_count> all_functions(std::index_sequence<indices...>) {
    return {forward<indices>...};
}

FunctionList wrapped{{2, 40}, all_functions(std::make_index_sequence<function_count>())};

bool open_block() {
    const char* name = std::getenv(Kes::test::wrapped_block_variable);
    const int file = name == nullptr ? -1 : ::open(name, O_RDWR | O_CLOEXEC);
    if (file < 0) return false;
    void* mapped = ::mmap(nullptr, sizeof(WrappedBlock), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    if (mapped == MAP_FAILED) return false;
    block = static_cast<WrappedBlock*>(mapped);
    return true;
}

bool open_real() {
    const char* name = std::getenv(Kes::test::wrapped_module_variable);
    void* library = name == nullptr ? nullptr : ::dlopen(name, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return false;
    const auto get_list = reinterpret_cast<Word (*)(FunctionList**)>(::dlsym(library, "C_GetFunctionList"));
    if (get_list == nullptr || get_list(&real) != 0) return false;
    wrapped.version = real->version;
    return true;
}

} // namespace

extern "C" [[gnu::visibility("default")]] Word C_GetFunctionList(FunctionList** list) {
    if (block == nullptr && !open_block()) return function_failed;
    if (real == nullptr && !open_real()) return function_failed;
    *list = &wrapped;
    return 0;
}
