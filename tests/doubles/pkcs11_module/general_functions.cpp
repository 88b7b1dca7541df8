// The functions of the module that need no session.
#include <algorithm>

#include "call.h"

using Kes::test::Calls;
using Kes::test::Failure;
using Kes::test::fill_field;
using Kes::test::Reader;
using Kes::test::Readers;
using Kes::test::require;
using Kes::test::store_list;

namespace {

constexpr CK_VERSION module_version{1, 0};

void check_locking(const CK_C_INITIALIZE_ARGS* args) {
    if (args == nullptr) return;
    require(args->pReserved == nullptr, CKR_ARGUMENTS_BAD);
    const int functions = (args->CreateMutex != nullptr ? 1 : 0) + (args->DestroyMutex != nullptr ? 1 : 0) +
                          (args->LockMutex != nullptr ? 1 : 0) + (args->UnlockMutex != nullptr ? 1 : 0);
    require(functions == 0 || functions == 4, CKR_ARGUMENTS_BAD);
    // The module locks with the system's functions only.
    require(functions == 0 || (args->flags & CKF_OS_LOCKING_OK) != 0, CKR_CANT_LOCK);
}

} // namespace

CK_RV C_Initialize(void* args) {
    Calls& calls = Calls::instance();
    return calls.run_always("C_Initialize", [&] {
        require(calls.readers == nullptr, CKR_CRYPTOKI_ALREADY_INITIALIZED);
        check_locking(static_cast<const CK_C_INITIALIZE_ARGS*>(args));
        Kes::test::start_crypto();
        calls.readers = std::make_unique<Readers>();
    });
}

CK_RV C_Finalize(void* reserved) {
    Calls& calls = Calls::instance();
    return calls.run("C_Finalize", [&](Readers&) {
        require(reserved == nullptr, CKR_ARGUMENTS_BAD);
        calls.readers.reset();
    });
}

CK_RV C_GetInfo(CK_INFO* info) {
    return Calls::instance().run("C_GetInfo", [&](Readers&) {
        require(info != nullptr, CKR_ARGUMENTS_BAD);
        *info = {};
        info->cryptokiVersion = {CRYPTOKI_VERSION_MAJOR, CRYPTOKI_VERSION_MINOR};
        fill_field(info->manufacturerID, "Test doubles");
        fill_field(info->libraryDescription, "Tokens from files");
        info->libraryVersion = module_version;
    });
}

CK_RV C_GetSlotList(unsigned char token_present, CK_SLOT_ID* slots, unsigned long* count) {
    return Calls::instance().run("C_GetSlotList", [&](Readers& readers) {
        store_list(readers.list(token_present != CK_FALSE), slots, count);
    });
}

CK_RV C_GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info) {
    return Calls::instance().run("C_GetSlotInfo", [&](Readers& readers) {
        require(info != nullptr, CKR_ARGUMENTS_BAD);
        const Reader& reader = readers.reader(slot);
        *info = {};
        fill_field(info->slotDescription, reader.files.folder().filename().string());
        fill_field(info->manufacturerID, "Test doubles");
        info->flags = CKF_REMOVABLE_DEVICE | CKF_HW_SLOT;
        if (reader.files.has_token()) info->flags |= CKF_TOKEN_PRESENT;
        info->hardwareVersion = module_version;
        info->firmwareVersion = module_version;
    });
}

CK_RV C_GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info) {
    return Calls::instance().run("C_GetTokenInfo", [&](Readers& readers) {
        require(info != nullptr, CKR_ARGUMENTS_BAD);
        *info = readers.reader_with_token(slot).files.info();
        info->ulSessionCount = readers.count_sessions(slot, 0);
        info->ulRwSessionCount = readers.count_sessions(slot, CKF_RW_SESSION);
        info->hardwareVersion = module_version;
        info->firmwareVersion = module_version;
    });
}

CK_RV C_GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* types, unsigned long* count) {
    return Calls::instance().run("C_GetMechanismList", [&](Readers& readers) {
        store_list(readers.reader_with_token(slot).files.mechanisms(), types, count);
    });
}

CK_RV C_GetMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO* info) {
    return Calls::instance().run("C_GetMechanismInfo", [&](Readers& readers) {
        require(info != nullptr, CKR_ARGUMENTS_BAD);
        require(readers.reader_with_token(slot).files.supports(type), CKR_MECHANISM_INVALID);
        const bool is_ec = type == CKM_ECDSA;
        *info = {is_ec ? 256UL : 1024UL, is_ec ? 521UL : 4096UL, CKF_HW | CKF_SIGN};
    });
}
