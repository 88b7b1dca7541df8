#ifndef KES_TESTS_UNIT_UTILS_HOOKS_SYSTEM_H_
#define KES_TESTS_UNIT_UTILS_HOOKS_SYSTEM_H_

#include <cstddef>
#include <string>

/// The system-independent part of the hooks (hooks_system.cpp), called by the hooks of each system.
namespace Kes::test {

bool is_recording_writes() noexcept;

void record_write(std::string bytes);

/// Whether a write of this size may succeed.
bool has_room_for(std::size_t count) noexcept;

void note_clock_read() noexcept;

} // namespace Kes::test

#endif // KES_TESTS_UNIT_UTILS_HOOKS_SYSTEM_H_
