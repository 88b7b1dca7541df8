/* A library that has what is looked for in an engine and in a PKCS#11 module. Nobody calls it. */
__declspec(dllexport) int bind_engine(void) { return 0; }
__declspec(dllexport) unsigned long C_GetFunctionList(void) { return 1; }
