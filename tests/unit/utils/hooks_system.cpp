#include "hooks_system.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "hooks.h"

namespace Kes::test {
namespace {

constexpr std::size_t unlimited = static_cast<std::size_t>(-1);

std::atomic<std::size_t> disk_room = unlimited;
std::atomic<bool> is_recording = false;
std::mutex recorded_mutex;
std::vector<std::string>& recorded() {
    static std::vector<std::string> writes;
    return writes;
}

std::atomic<std::size_t> clock_reads = 0;

} // namespace

bool is_recording_writes() noexcept { return is_recording; }

void record_write(std::string bytes) {
    const std::lock_guard lock(recorded_mutex);
    recorded().push_back(std::move(bytes));
}

bool has_room_for(std::size_t count) noexcept { return count <= disk_room; }

void note_clock_read() noexcept { ++clock_reads; }

WriteRecord::WriteRecord() {
    recorded().clear();
    is_recording = true;
}

WriteRecord::~WriteRecord() { is_recording = false; }

std::vector<std::string> WriteRecord::writes() const {
    const std::lock_guard lock(recorded_mutex);
    return recorded();
}

FullDisk::FullDisk(std::size_t room) { disk_room = room; }

FullDisk::~FullDisk() { disk_room = unlimited; }

std::size_t clock_read_count() noexcept { return clock_reads; }

} // namespace Kes::test
