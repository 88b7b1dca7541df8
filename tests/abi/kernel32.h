#ifndef KES_TESTS_ABI_KERNEL32_H_
#define KES_TESTS_ABI_KERNEL32_H_

#include <stddef.h>

/* The system functions that the clients call. The system's headers depend on a compiler's libraries. */

#ifdef __cplusplus
extern "C" {
#endif

typedef void* win_handle;

__declspec(dllimport) win_handle GetStdHandle(unsigned long which);
__declspec(dllimport) int WriteFile(win_handle file, const void* bytes, unsigned long size,
                                    unsigned long* written, void* overlapped);
__declspec(dllimport) int ReadFile(win_handle file, void* bytes, unsigned long size, unsigned long* read,
                                   void* overlapped);
__declspec(dllimport) win_handle
    CreateFileA(const char* name, unsigned long access, unsigned long share, void* security,
                unsigned long disposition, unsigned long flags, win_handle model);
__declspec(dllimport) int CloseHandle(win_handle handle);
__declspec(dllimport) int DeleteFileA(const char* name);
__declspec(dllimport) void ExitProcess(unsigned int status);
__declspec(dllimport) const char* GetCommandLineA(void);
__declspec(dllimport) win_handle GetModuleHandleA(const char* name);
__declspec(dllimport) void* GetProcAddress(win_handle library, const char* name);
__declspec(dllimport) win_handle HeapCreate(unsigned long flags, size_t initial, size_t largest);
__declspec(dllimport) int HeapValidate(win_handle heap, unsigned long flags, const void* memory);
__declspec(dllimport) void* HeapAlloc(win_handle heap, unsigned long flags, size_t size);
__declspec(dllimport) int HeapFree(win_handle heap, unsigned long flags, void* memory);

#ifdef __cplusplus
}
#endif

#endif
