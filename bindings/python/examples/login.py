#!/usr/bin/python3
"""Logs in to a TLS server with a key of the card. TLS is libssl's, called by ctypes.

The environment contains the settings (ossl_scard_cfg_...), and in SSL_CERT_FILE the CA certificate of the server.
"""

import argparse
import ctypes
import getpass
import ipaddress
import socket
import sys
from ctypes import c_char_p, c_int, c_long, c_void_p

import marvo

SSL_VERIFY_PEER = 1
SSL_CTRL_SET_TLSEXT_HOSTNAME = 55


def load_libssl() -> ctypes.CDLL:
    libssl = ctypes.CDLL("libssl-3-x64.dll" if sys.platform == "win32" else "libssl.so.3")
    signatures = {
        "TLS_client_method": (c_void_p, []),
        "SSL_CTX_new": (c_void_p, [c_void_p]),
        "SSL_CTX_free": (None, [c_void_p]),
        "SSL_CTX_set_verify": (None, [c_void_p, c_int, c_void_p]),
        "SSL_CTX_set_default_verify_paths": (c_int, [c_void_p]),
        "SSL_new": (c_void_p, [c_void_p]),
        "SSL_free": (None, [c_void_p]),
        "SSL_ctrl": (c_long, [c_void_p, c_int, c_long, c_char_p]),
        "SSL_set1_host": (c_int, [c_void_p, c_char_p]),
        "SSL_set_fd": (c_int, [c_void_p, c_int]),
        "SSL_connect": (c_int, [c_void_p]),
        "SSL_write": (c_int, [c_void_p, c_char_p, c_int]),
        "SSL_read": (c_int, [c_void_p, c_void_p, c_int]),
    }
    for name, (result, arguments) in signatures.items():
        function = getattr(libssl, name)
        function.restype, function.argtypes = result, arguments
    return libssl


def require(good: bool, libssl: ctypes.CDLL, text: str) -> None:
    if not good:
        raise marvo.TlsError("\n".join([text, *marvo.error_queue(libssl)]))


def load_key(session: marvo.Session, key_id: str) -> marvo.LoadedKey:
    session.read_card()
    if session.pin_required:
        session.set_pin(bytearray(getpass.getpass("PIN: ").encode()))
    return session.load(session.find_key(key_id))


def get(libssl: ctypes.CDLL, ssl: int, host: str) -> bytes:
    """Sends a request. With TLS 1.3, the refusal of a certificate arrives here."""
    request = f"GET / HTTP/1.0\r\nHost: {host}\r\n\r\n".encode()
    libssl.SSL_write(ssl, request, len(request))
    answer, buffer = b"", ctypes.create_string_buffer(4096)
    while (size := libssl.SSL_read(ssl, buffer, len(buffer))) > 0:
        answer += buffer.raw[:size]
    require(bool(answer), libssl, "the server does not answer")
    return answer.partition(b"\r\n\r\n")[2]


def is_address(host: str) -> bool:
    try:
        ipaddress.ip_address(host)
        return True
    except ValueError:
        return False


def set_server_name(libssl: ctypes.CDLL, ssl: int, host: str) -> None:
    """Without the check of the name, every server with a certificate of the same CA would be accepted."""
    name = host.encode()
    # Servers with several names choose the certificate by this name (SNI). RFC 6066 allows no IP address in it.
    is_set = is_address(host) or libssl.SSL_ctrl(ssl, SSL_CTRL_SET_TLSEXT_HOSTNAME, 0, name) == 1
    require(is_set, libssl, "the server's name cannot be sent")
    require(libssl.SSL_set1_host(ssl, name) == 1, libssl, "the server's name cannot be checked")


def log_in(libssl: ctypes.CDLL, loaded: marvo.LoadedKey, host: str, port: int) -> bytes:
    ctx = libssl.SSL_CTX_new(libssl.TLS_client_method())
    ssl = None
    try:
        libssl.SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER, None)
        require(libssl.SSL_CTX_set_default_verify_paths(ctx) == 1, libssl, "no CA certificates")
        loaded.use_in(ctx, libssl)
        ssl = libssl.SSL_new(ctx)
        set_server_name(libssl, ssl, host)
        with socket.create_connection((host, port)) as connection:
            libssl.SSL_set_fd(ssl, connection.fileno())
            require(libssl.SSL_connect(ssl) == 1, libssl, "no TLS connection")
            return get(libssl, ssl, host)
    finally:
        # Before the session ends, because both use the key.
        libssl.SSL_free(ssl)
        libssl.SSL_CTX_free(ctx)


def main() -> int:
    parser = argparse.ArgumentParser(description="Logs in to a TLS server with a key of the card.")
    parser.add_argument("host")
    parser.add_argument("port", type=int)
    parser.add_argument("key_id", help='such as "%%01"; the log shows it as "cluster_name"')
    arguments = parser.parse_args()
    try:
        with marvo.Session(marvo.Settings(crypto_if=marvo.CryptoIf.PKCS11)) as session:
            loaded = load_key(session, arguments.key_id)
            print(log_in(load_libssl(), loaded, arguments.host, arguments.port).decode())
    except (marvo.Error, OSError) as error:
        print(f"login: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
