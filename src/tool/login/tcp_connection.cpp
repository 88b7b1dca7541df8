#include "tool/login/tcp_connection.h"

#include <ctime>
#include <memory>
#include <stdexcept>
#include <system_error>

#include <openssl/bio.h>
#include <openssl/err.h>

namespace Kes::tool {
namespace {

using AddressesPtr = std::unique_ptr<BIO_ADDRINFO, FreeWith<&::BIO_ADDRINFO_free>>;

constexpr int stream_socket = 1; // SOCK_STREAM, whose header differs between the systems

/// Owns a socket until it is released.
class Socket {
public:
    explicit Socket(int number_in) : number(number_in) {}
    ~Socket() {
        if (number != closed) ::BIO_closesocket(number);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    int get() const { return number; }
    BioPtr release() {
        BioPtr bio(::BIO_new_socket(number, BIO_CLOSE));
        if (bio) number = closed;
        return bio;
    }

private:
    static constexpr int closed = -1;
    int number;
};

/// The system's reason on OpenSSL's error queue, which it empties.
std::string take_system_reason() {
    const unsigned long code = ::ERR_peek_error();
    ::ERR_clear_error();
    return ERR_SYSTEM_ERROR(code) ? std::system_category().message(ERR_GET_REASON(code)) : "unknown reason";
}

AddressesPtr find_addresses(const std::string& host, const std::string& port) {
    ::ERR_clear_error();
    BIO_ADDRINFO* addresses = nullptr;
    if (::BIO_lookup_ex(host.c_str(), port.c_str(), BIO_LOOKUP_CLIENT, 0, stream_socket, 0, &addresses) == 1)
        return AddressesPtr(addresses);
    const char* reason = "";
    int flags = 0;
    ::ERR_peek_last_error_data(&reason, &flags);
    const std::string text = (flags & ERR_TXT_STRING) != 0 ? reason : "unknown reason";
    ::ERR_clear_error();
    throw std::runtime_error("cannot look up its address: " + text);
}

/// Waits until the connection exists or has failed.
/// @return the reason of a failure; "" without one
std::string wait_for(const Socket& socket, std::time_t deadline) {
    // Windows does not report a failure as readiness. Therefore, each wait is short.
    while (std::time(nullptr) < deadline) {
        const bool is_ready = ::BIO_socket_wait(socket.get(), 0, std::time(nullptr) + 1) == 1;
        if (const int error = ::BIO_sock_error(socket.get()); error != 0)
            return std::system_category().message(error);
        if (is_ready) return "";
    }
    return "no connection";
}

/// @return the reason of a failure; "" without one
std::string connect(const Socket& socket, const BIO_ADDRINFO* address, std::time_t deadline) {
    ::ERR_clear_error();
    if (::BIO_connect(socket.get(), ::BIO_ADDRINFO_address(address), BIO_SOCK_NONBLOCK) == 1) return "";
    // Without an error on the queue, the connection is under way.
    return ::ERR_peek_error() == 0 ? wait_for(socket, deadline) : take_system_reason();
}

} // namespace

BioPtr connect_to(const std::string& host, const std::string& port, int timeout) {
    const AddressesPtr addresses = find_addresses(host, port);
    const std::time_t deadline = std::time(nullptr) + timeout;
    std::string reason;
    for (const BIO_ADDRINFO* address = addresses.get(); address != nullptr;
         address = ::BIO_ADDRINFO_next(address)) {
        ::ERR_clear_error();
        Socket socket(::BIO_socket(::BIO_ADDRINFO_family(address), stream_socket, 0, 0));
        reason = socket.get() < 0 ? take_system_reason() : connect(socket, address, deadline);
        if (reason.empty()) return socket.release();
        if (std::time(nullptr) >= deadline)
            throw std::runtime_error("no connection within " + std::to_string(timeout) + " s");
    }
    throw std::runtime_error(reason);
}

} // namespace Kes::tool
