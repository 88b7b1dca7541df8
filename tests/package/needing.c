/* An engine and a module that import a function from a DLL that does not exist. */
__declspec(dllimport) int absent_function(void);
__declspec(dllexport) int bind_engine(void);
__declspec(dllexport) int C_GetFunctionList(void);

int bind_engine(void) { return absent_function(); }
int C_GetFunctionList(void) { return absent_function(); }
