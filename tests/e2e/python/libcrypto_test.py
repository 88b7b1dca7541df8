"""Tests of the check that client and library use one libcrypto, and of the TLS settings, with the system's OpenSSL."""

import ctypes
import os
import shutil
import struct
import subprocess
import tempfile
import unittest

import marvo
from marvo import _libcrypto, _pe_imports, _tls

CRYPTO_NAME = "libcrypto.so.3"


def certificate_in_memory(folder):
    """Returns libssl, a new SSL_CTX, and the addresses of a key and its certificate."""
    key_file, certificate_file = os.path.join(folder, "key"), os.path.join(folder, "certificate")
    command = ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=Software"]
    subprocess.run([*command, "-keyout", key_file, "-out", certificate_file], check=True, capture_output=True)
    libssl = ctypes.CDLL("libssl.so.3")
    pointer = ctypes.c_void_p
    for name in ("TLS_client_method", "SSL_CTX_new", "SSL_CTX_get0_privatekey", "SSL_CTX_get0_certificate"):
        getattr(libssl, name).restype = pointer
    new = lambda: pointer(libssl.SSL_CTX_new(pointer(libssl.TLS_client_method())))
    source = new()
    assert libssl.SSL_CTX_use_certificate_file(source, certificate_file.encode(), 1) == 1
    assert libssl.SSL_CTX_use_PrivateKey_file(source, key_file.encode(), 1) == 1
    key, certificate = libssl.SSL_CTX_get0_privatekey(source), libssl.SSL_CTX_get0_certificate(source)
    return libssl, new().value, key, certificate


class OpensslFixture(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.libssl, self.ctx, self.key, self.certificate = certificate_in_memory(folder.name)

    def assert_raises_text(self, kind, text, function, *arguments):
        with self.assertRaises(kind) as caught:
            function(*arguments)
        self.assertEqual(str(caught.exception), text)

    def libcrypto_file(self):
        return os.path.realpath(_libcrypto.file_of_libcrypto(self.libssl))


class LibcryptoTest(OpensslFixture):
    def test_libraries_with_one_libcrypto_pass(self):
        _libcrypto.check_one_libcrypto(ctypes.CDLL(CRYPTO_NAME), self.libssl)

    def test_second_libcrypto_is_refused_with_both_files(self):
        copy = os.path.join(self.folder, CRYPTO_NAME)
        shutil.copy(self.libcrypto_file(), copy)
        text = f"the client's libssl uses {copy}, but the library uses {self.libcrypto_file()}"
        self.assert_raises_text(
            marvo.LibcryptoError, text, _libcrypto.check_one_libcrypto, self.libssl, ctypes.CDLL(copy)
        )

    def test_libssl_without_a_visible_libcrypto_is_refused(self):
        text = "the client's libssl (libc.so.6) is not linked to libcrypto dynamically"
        self.assert_raises_text(
            marvo.LibcryptoError, text, _libcrypto.check_one_libcrypto, self.libssl, ctypes.CDLL("libc.so.6")
        )

    def test_library_without_a_visible_libcrypto_is_refused(self):
        text = "the library (libc.so.6) is not linked to libcrypto dynamically"
        self.assert_raises_text(
            marvo.LibcryptoError, text, _libcrypto.check_one_libcrypto, ctypes.CDLL("libc.so.6"), self.libssl
        )

    def test_certificate_is_encoded(self):
        with open(os.path.join(self.folder, "certificate"), "rb") as file:
            command = ["openssl", "x509", "-outform", "DER"]
            expected = subprocess.run(command, input=file.read(), check=True, capture_output=True).stdout
        self.assertEqual(_libcrypto.certificate_to_der(self.libssl, self.certificate), expected)

    def test_certificate_that_cannot_be_encoded_is_an_error(self):
        text = "OpenSSL cannot encode the certificate"
        self.assert_raises_text(marvo.LibcryptoError, text, _libcrypto.certificate_to_der, self.libssl, None)


class DefaultMethodsTest(OpensslFixture):
    def test_unknown_engine_is_an_error(self):
        text = "OpenSSL has no engine 'absent'"
        self.assert_raises_text(
            marvo.LibcryptoError, text, _libcrypto.restore_default_methods, self.libssl, b"absent"
        )


class UseKeyTest(OpensslFixture):
    def max_version(self):
        return self.libssl.SSL_CTX_ctrl(ctypes.c_void_p(self.ctx), 131, ctypes.c_long(0), None)

    def test_key_and_certificate_are_set(self):
        _tls.use_key(self.libssl, self.ctx, self.key, self.certificate, False)
        self.assertEqual(self.libssl.SSL_CTX_check_private_key(ctypes.c_void_p(self.ctx)), 1)
        self.assertEqual(self.max_version(), 0)

    def test_keys_of_cryptoapi_are_limited_to_tls_1_2(self):
        _tls.use_key(self.libssl, self.ctx, self.key, self.certificate, True)
        self.assertEqual(self.max_version(), 0x0303)

    def test_other_key_is_refused_with_the_lines_of_openssl(self):
        _, _, other_key, _ = certificate_in_memory(self.folder)
        with self.assertRaises(marvo.TlsError) as caught:
            _tls.use_key(self.libssl, self.ctx, other_key, self.certificate, False)
        lines = str(caught.exception).splitlines()
        self.assertEqual(lines[0], "SSL_CTX_use_PrivateKey() failed")
        self.assertEqual(lines[1:], ["error:05800074:x509 certificate routines::key values mismatch"])

    def test_missing_certificate_is_refused_with_the_lines_of_openssl(self):
        text = "SSL_CTX_use_certificate() failed\nerror:0A0C0102:SSL routines::passed a null parameter"
        self.assert_raises_text(marvo.TlsError, text, _tls.use_key, self.libssl, self.ctx, self.key, None, False)

    def test_refused_setting_names_its_number(self):
        text = "SSL_CTX_ctrl(102) failed"
        self.assert_raises_text(marvo.TlsError, text, _tls._control, self.libssl, self.ctx, 102, 0, b"RSA+NONE")


def windows_file(names):
    """A 64-bit Windows file with one section, which imports these DLLs."""
    address, offset = 0x1000, 0x200
    descriptors_size = 20 * (len(names) + 1)
    texts, descriptors = b"", b""
    for name in names:
        descriptors += struct.pack("<5I", 0, 0, 0, address + descriptors_size + len(texts), 0)
        texts += name.encode() + b"\0"
    body = descriptors + bytes(20) + texts
    optional = struct.pack("<H110x", 0x20B) + struct.pack("<4I", 0, 0, address if names else 0, len(body))
    section = struct.pack("<8s4I16x", b".idata", len(body), address, len(body), offset)
    header = struct.pack("<4s2H12x2H", b"PE\0\0", 0x8664, 1, len(optional), 0)
    file = b"MZ".ljust(0x3C, b"\0") + struct.pack("<I", 0x40) + header + optional + section
    return file.ljust(offset, b"\0") + body


class WindowsImportsTest(unittest.TestCase):
    def test_names_of_the_imported_dlls_are_read(self):
        image = windows_file(["libcrypto-3-x64.dll", "KERNEL32.dll"])
        self.assertEqual(_pe_imports.imported_dlls(image), ["libcrypto-3-x64.dll", "KERNEL32.dll"])

    def test_file_without_imports_has_no_names(self):
        self.assertEqual(_pe_imports.imported_dlls(windows_file([])), [])

    def test_incomplete_file_is_refused(self):
        image = windows_file(["KERNEL32.dll"])
        for size in (0, 0x40, 0x60, 0x200, 0x210):
            with self.subTest(size), self.assertRaises(ValueError) as caught:
                _pe_imports.imported_dlls(image[:size])
            self.assertEqual(str(caught.exception), "the file is not a complete Windows file")

    def test_file_for_32_bits_is_refused(self):
        image = windows_file(["KERNEL32.dll"]).replace(struct.pack("<H", 0x20B), struct.pack("<H", 0x10B), 1)
        with self.assertRaises(ValueError) as caught:
            _pe_imports.imported_dlls(image)
        self.assertEqual(str(caught.exception), "the file is not a 64-bit Windows file")


if __name__ == "__main__":
    unittest.main()
