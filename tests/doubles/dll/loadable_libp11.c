/* A test double of libp11.dll that can only be loaded. The manufacturer in a context is the path of the DLL.
   One variant imports from a DLL that does not exist; two others lack a function in their export lists. */
#include <libp11.h>
#include <p11_err.h>
#include <stdlib.h>
#include <windows.h>

static char path[MAX_PATH];

#ifdef NEEDS_ABSENT_DLL
__declspec(dllimport) void absent_function(void);
#endif

BOOL WINAPI DllMain(HINSTANCE self, DWORD reason, LPVOID reserved) {
    (void)reserved;
    if (reason == DLL_PROCESS_ATTACH) GetModuleFileNameA(self, path, sizeof path);
    return TRUE;
}

void ERR_load_PKCS11_strings(void) {
#ifdef NEEDS_ABSENT_DLL
    absent_function();
#endif
}

PKCS11_CTX* PKCS11_CTX_new(void) { return calloc(1, sizeof(PKCS11_CTX)); }

int PKCS11_CTX_load(PKCS11_CTX* ctx, const char* ident) {
    ctx->manufacturer = path;
    ctx->description = (char*)(ident[0] == '\0' ? "no module" : "a module");
    return 0;
}

void PKCS11_CTX_unload(PKCS11_CTX* ctx) { (void)ctx; }
void PKCS11_CTX_free(PKCS11_CTX* ctx) { free(ctx); }

int PKCS11_enumerate_slots(PKCS11_CTX* ctx, PKCS11_SLOT** slots, unsigned int* count) {
    (void)ctx, (void)slots, (void)count;
    return -1;
}

void PKCS11_release_all_slots(PKCS11_CTX* ctx, PKCS11_SLOT* slots, unsigned int count) {
    (void)ctx, (void)slots, (void)count;
}

PKCS11_SLOT* PKCS11_find_token(PKCS11_CTX* ctx, PKCS11_SLOT* slots, unsigned int count) {
    (void)ctx, (void)slots, (void)count;
    return NULL;
}

int PKCS11_is_logged_in(PKCS11_SLOT* slot, int so, int* answer) {
    (void)slot, (void)so, (void)answer;
    return -1;
}

int PKCS11_login(PKCS11_SLOT* slot, int so, const char* pin) {
    (void)slot, (void)so, (void)pin;
    return -1;
}

int PKCS11_enumerate_certs(PKCS11_TOKEN* token, PKCS11_CERT** certs, unsigned int* count) {
    (void)token, (void)certs, (void)count;
    return -1;
}

int PKCS11_enumerate_keys(PKCS11_TOKEN* token, PKCS11_KEY** keys, unsigned int* count) {
    (void)token, (void)keys, (void)count;
    return -1;
}

int PKCS11_enumerate_public_keys(PKCS11_TOKEN* token, PKCS11_KEY** keys, unsigned int* count) {
    (void)token, (void)keys, (void)count;
    return -1;
}

int PKCS11_update_slots(PKCS11_CTX* ctx, PKCS11_SLOT** slots, unsigned int* count) {
    (void)ctx, (void)slots, (void)count;
    return -1;
}
