/* A library with the entry point of an engine. It is never called. */
__declspec(dllexport) int bind_engine(void) { return 0; }
