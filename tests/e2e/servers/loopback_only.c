// Preloaded into a server that has no option for its address: binds its sockets to the loopback address
// instead of to every address of the machine.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>

int bind(int fd, const struct sockaddr* address, socklen_t size) {
    int (*real_bind)(int, const struct sockaddr*, socklen_t) = NULL;
    void* symbol = dlsym(RTLD_NEXT, "bind");
    memcpy(&real_bind, &symbol, sizeof real_bind);
    if (address->sa_family == AF_INET) {
        struct sockaddr_in local;
        memcpy(&local, address, sizeof local);
        local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return real_bind(fd, (const struct sockaddr*)&local, sizeof local);
    }
    if (address->sa_family == AF_INET6) {
        struct sockaddr_in6 local;
        memcpy(&local, address, sizeof local);
        local.sin6_addr = in6addr_loopback;
        return real_bind(fd, (const struct sockaddr*)&local, sizeof local);
    }
    return real_bind(fd, address, size);
}
