#include "readers.h"

#include <algorithm>

#include "control_files.h"
#include "failure.h"

namespace Kes::test {

const TokenObject& Reader::find(CK_OBJECT_HANDLE handle, CK_RV code) const {
    for (const TokenObject& object : objects)
        if (object.handle == handle && shows(object)) return object;
    throw Failure{code};
}

std::vector<CK_SLOT_ID> Readers::list(bool only_with_token) {
    for (const std::string& name : reader_names()) {
        const auto folder = tokens_folder() / name;
        const bool is_known = std::any_of(readers_.begin(), readers_.end(), [&](const Reader& reader) {
            return reader.files.folder() == folder;
        });
        if (!is_known) readers_.push_back({TokenFiles(folder), false, {}});
    }
    std::vector<CK_SLOT_ID> slots;
    for (CK_SLOT_ID slot = 0; slot < readers_.size(); ++slot) {
        const TokenFiles& files = readers_[slot].files;
        if (only_with_token ? files.has_token() : exists(files.folder())) slots.push_back(slot);
    }
    return slots;
}

Reader& Readers::reader(CK_SLOT_ID slot) {
    require(slot < readers_.size() && exists(readers_[slot].files.folder()), CKR_SLOT_ID_INVALID);
    if (!readers_[slot].files.has_token()) forget_card(slot);
    return readers_[slot];
}

Reader& Readers::reader_with_token(CK_SLOT_ID slot) {
    Reader& found = reader(slot);
    require(found.files.has_token(), CKR_TOKEN_NOT_PRESENT);
    return found;
}

void Readers::forget_card(CK_SLOT_ID slot) {
    readers_[slot].is_logged_in = false;
    for (auto& [handle, session] : sessions_)
        if (session.slot == slot) session.is_lost = true;
}

CK_SESSION_HANDLE Readers::open(CK_SLOT_ID slot, CK_FLAGS flags) {
    Reader& reader = reader_with_token(slot);
    const CK_ULONG limit = reader.files.session_limit();
    const CK_ULONG open = count_sessions(slot, 0);
    require(limit == 0 || open < limit, CKR_SESSION_COUNT);
    if (open == 0) read_token(reader);
    sessions_[++last_session_] = {slot, flags, false, {}, {}};
    return last_session_;
}

void Readers::read_token(Reader& reader) {
    reader.objects = read_objects(reader.files.folder());
    for (TokenObject& object : reader.objects)
        object.handle = ++last_object_;
}

void Readers::close(CK_SESSION_HANDLE handle) {
    const CK_SLOT_ID slot = session(handle).slot;
    sessions_.erase(handle);
    if (count_sessions(slot, 0) == 0) readers_[slot].is_logged_in = false;
}

void Readers::close_all(CK_SLOT_ID slot) {
    reader_with_token(slot).is_logged_in = false;
    std::erase_if(sessions_, [&](const auto& entry) { return entry.second.slot == slot; });
}

Session& Readers::session(CK_SESSION_HANDLE handle) {
    const auto found = sessions_.find(handle);
    require(found != sessions_.end(), CKR_SESSION_HANDLE_INVALID);
    Session& session = found->second;
    if (!reader_of(session).files.has_token()) {
        forget_card(session.slot);
        throw Failure{CKR_DEVICE_REMOVED};
    }
    require(!session.is_lost, CKR_SESSION_HANDLE_INVALID);
    return session;
}

CK_ULONG Readers::count_sessions(CK_SLOT_ID slot, CK_FLAGS with_flags) const {
    return static_cast<CK_ULONG>(std::count_if(sessions_.begin(), sessions_.end(), [&](const auto& entry) {
        const Session& session = entry.second;
        return session.slot == slot && !session.is_lost && (session.flags & with_flags) == with_flags;
    }));
}

} // namespace Kes::test
