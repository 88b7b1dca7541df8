"""Tests of the package with the real library, its engine and a software token."""

import unittest

from support import LIBRARY, PIN, TokenFixture

TABLE = """
    from marvo import _abi
    library = _abi.load_library()
    interface = _abi.TableObject(library.get_ossl_scard_if(), _abi.IF_OPERATIONS)
    cfg = _abi.TableObject(interface.call("get_config_default"), _abi.CFG_OPERATIONS)
    names = [operation.name[4:] for operation in _abi.CFG_OPERATIONS if operation.name.startswith("set_")]
    for number, name in enumerate(names):
        if name == "crypto_if":
            continue
        value = name.encode() if isinstance(cfg.call(f"get_{name}"), bytes) else number
        cfg.call(f"set_{name}", value)
        assert cfg.call(f"get_{name}") == value, name
    import ctypes
    dump = ctypes.create_string_buffer(4096)
    cfg.call("dump_settings", dump, len(dump))
    lines = dump.value.decode().splitlines()
    print([name for name in names if f"  {name}={name}" in lines])
"""

LISTING = f"""
    import marvo
    with marvo.Session(marvo.Settings(crypto_if=marvo.CryptoIf.PKCS11)) as session:
        session.read_card()
        assert session.pin_required and session.crypto_if == marvo.CryptoIf.PKCS11
        session.set_pin(bytearray(b"{PIN}"))
        for key in sorted(session.keys(), key=lambda key: key.id):
            print(key.name, key.id, key.type)
"""


class LibraryTest(TokenFixture):
    def test_each_setting_is_in_its_slot(self):
        texts = ["capi_openssl_engine_dll", "capi_csp_name", "pkcs11_openssl_engine_dll", "pkcs11_module_dll"]
        texts += ["capi_store_openssl_engine_dll", "capi_store_cert_store_name", "priv_key_name", "cert_name"]
        texts += ["xkuse_nid_filter", "logfile"]
        self.assertEqual(self.run_client(TABLE), (0, f"{texts}\n", ""))

    def test_keys_of_the_token_are_listed(self):
        self.assertEqual(self.run_client(LISTING), (0, "demo: RSA key %01 0\ndemo: EC key %02 0\n", ""))

    def test_wrong_pin_raises_the_text_of_the_library(self):
        code = """
            import marvo, re
            with marvo.Session(marvo.Settings(crypto_if=marvo.CryptoIf.PKCS11)) as session:
                session.read_card()
                session.set_pin(b"0000")
                try:
                    session.keys()
                except marvo.OperationError as error:
                    print(re.sub("(?m)^[0-9A-F]{16}:", "THREAD:", str(error)))
        """
        self.assertEqual(
            self.run_client(code),
            (
                0,
                "libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1\n"
                "THREAD:error:408000A0:PKCS#11 module:ERR_CKR_error:PIN incorrect:p11_slot.c:208:\n",
                "",
            ),
        )

    def test_certificate_of_the_loaded_key_is_available(self):
        code = f"""
            import marvo
            from cryptography import x509
            with marvo.Session(marvo.Settings(crypto_if=marvo.CryptoIf.PKCS11)) as session:
                session.set_pin(bytearray(b"{PIN}"))
                loaded = session.load(session.find_key("%02"))
                print(x509.load_der_x509_certificate(loaded.certificate_der()).subject.rfc4514_string())
        """
        self.assertEqual(self.run_client(code), (0, "CN=Paul\n", ""))

    def test_library_with_another_libcrypto_is_refused(self):
        code = f"""
            import ctypes, marvo
            with marvo.Session(marvo.Settings(crypto_if=marvo.CryptoIf.PKCS11)) as session:
                session.set_pin(bytearray(b"{PIN}"))
                loaded = session.load(session.find_key("%01"))
                try:
                    loaded.use_in(0, ctypes.CDLL("libc.so.6"))
                except marvo.LibcryptoError as error:
                    print(error)
        """
        text = "the client's libssl (libc.so.6) is not linked to libcrypto dynamically\n"
        self.assertEqual(self.run_client(code), (0, text, ""))

    def test_other_keys_can_use_openssl_itself_after_the_load(self):
        code = f"""
            import ctypes, marvo
            create = ctypes.CDLL("libcrypto.so.3").EVP_PKEY_Q_keygen
            create.restype = ctypes.c_void_p
            for openssl_defaults in (False, True):
                with marvo.Session(marvo.Settings(crypto_if=marvo.CryptoIf.PKCS11)) as session:
                    session.set_pin(bytearray(b"{PIN}"))
                    session.load(session.find_key("%01"), openssl_defaults=openssl_defaults)
                    print(create(None, None, ctypes.c_char_p(b"EC"), ctypes.c_char_p(b"P-256")) is not None)
        """
        self.assertEqual(self.run_client(code), (0, "False\nTrue\n", ""))

    def test_sessions_follow_each_other(self):
        code = f"""
            import marvo
            for key_id in ("%01", "%02", "%01"):
                with marvo.Session(marvo.Settings(crypto_if=marvo.CryptoIf.PKCS11)) as session:
                    session.set_pin(bytearray(b"{PIN}"))
                    session.load(session.find_key(key_id))
                    session.unload()
                    session.read_card()
                    print(session.load(session.find_key(key_id)).private_key != 0)
        """
        self.assertEqual(self.run_client(code), (0, "True\nTrue\nTrue\n", ""))

    def test_path_argument_precedes_the_environment(self):
        code = f"import marvo; marvo.Session(library={LIBRARY!r}).close(); print('opened')"
        self.assertEqual(self.run_client(code, MARVO_LIBRARY="/nowhere"), (0, "opened\n", ""))

    def test_other_library_is_refused(self):
        code = """
            import marvo
            try:
                marvo.Session(library="libc.so.6")
            except marvo.LibraryError as error:
                print(error)
        """
        text = "'libc.so.6' is not libmarvo: it does not export get_ossl_scard_if\n"
        self.assertEqual(self.run_client(code), (0, text, ""))

    def test_pin_is_not_in_the_log(self):
        self.run_client(LISTING)
        with open(f"{self.folder}/client.log") as log:
            text = log.read()
        self.assertIn("setting pin", text)
        self.assertNotIn(PIN, text)


if __name__ == "__main__":
    unittest.main()
