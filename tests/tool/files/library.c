/* A library that ends the process that loads it, so that a test cannot overlook that its code runs. FUNCTIONS lists the
   functions that it exports, each as EXPORT(name). CALLED is a function of another library, which it then needs. */
#include <stdlib.h>

#if defined(_WIN32)
#define VISIBLE __declspec(dllexport)
#else
#define VISIBLE __attribute__((visibility("default")))
#endif

#if defined(CALLED)
extern int CALLED(void);
#define RESULT CALLED()
#else
#define RESULT 0
#endif

#define EXPORT(name)                                                                                         \
    VISIBLE int name(void);                                                                                  \
    int name(void) { return RESULT; }

__attribute__((constructor)) static void end_process(void) { abort(); }

FUNCTIONS
