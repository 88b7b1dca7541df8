/* A library with the entry point of a PKCS#11 module. It is never called. */
__declspec(dllexport) unsigned long C_GetFunctionList(void) { return 1; }
