/* The functions that OpenSSL and libp11 look for, in a 32-bit DLL. */
int bind_engine(void) { return 0; }
int C_GetFunctionList(void) { return 0; }
