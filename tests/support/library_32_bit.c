/* The functions that OpenSSL and libp11 look for, in a library for 32 bits. */
int bind_engine(void) { return 0; }
int C_GetFunctionList(void) { return 0; }
