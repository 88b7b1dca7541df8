"""Tests of sessions with a test double of the library."""

import unittest

import marvo
from library_double import LibraryDouble

TEXT = "libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1\nPIN incorrect"
NO_PIN = "the card needs a PIN; call set_pin() first"
FAILED_PIN = "the card needs a PIN, and the one that was set is not used again after a failure; call set_pin() again"


class SessionFixture(unittest.TestCase):
    def setUp(self):
        self.double = LibraryDouble()
        installed = self.double.installed()
        installed.start()
        self.addCleanup(installed.stop)

    def open(self, settings=None):
        session = marvo.Session(settings)
        self.addCleanup(session.close)
        return session

    def open_with_pin(self):
        session = self.open()
        session.read_card()
        session.set_pin(b"1234")
        return session

    def load(self):
        session = self.open_with_pin()
        return session, session.load(session.keys()[0])

    def operations(self):
        return [call[0] for call in self.double.calls]

    def assert_raises_text(self, kind, text, function, *arguments):
        with self.assertRaises(kind) as caught:
            function(*arguments)
        self.assertIs(type(caught.exception), kind)
        self.assertEqual(str(caught.exception), text)
        return caught.exception


class SessionTest(SessionFixture):
    def test_with_block_starts_and_ends_the_library(self):
        with marvo.Session() as session:
            self.assertEqual(session.version, "4.3.0")
        self.assertEqual(self.double.calls, [("version_check", 4), ("init",), ("destroy",)])

    def test_error_in_the_block_ends_the_session(self):
        with self.assertRaises(KeyError), marvo.Session():
            raise KeyError
        self.assertEqual(self.operations(), ["version_check", "init", "destroy"])

    def test_second_close_does_nothing(self):
        session = self.open()
        session.close()
        session.close()
        self.assertEqual(self.operations().count("destroy"), 1)

    def test_only_one_session_can_be_open(self):
        self.open().read_card()
        self.assert_raises_text(marvo.Error, "this process has an open session already", marvo.Session)

    def test_another_session_can_follow(self):
        self.open().close()
        self.open().read_card()
        self.assertEqual(self.operations(), ["version_check", "init", "destroy", "version_check", "init", "read_scard"])

    def test_closed_session_refuses_operations(self):
        session = self.open()
        session.close()
        self.assert_raises_text(marvo.Error, "the session is closed", session.read_card)

    def test_settings_are_set_before_the_start(self):
        self.open(
            marvo.Settings(
                crypto_if=marvo.CryptoIf.CAPI_STORE, logfile="/tmp/\u00fc.log", logfile_severity=63, logfile_append=True
            )
        )
        settings = self.double.settings
        self.assertEqual(settings["crypto_if"], 3)
        self.assertEqual(settings["logfile"], "/tmp/\u00fc.log".encode())
        self.assertEqual(settings["logfile_severity"], 63)
        self.assertTrue(settings["logfile_append"])

    def test_append_mode_can_be_turned_off(self):
        self.open(marvo.Settings(logfile_append=False))
        self.assertFalse(self.double.settings["logfile_append"])

    def test_setting_with_a_zero_byte_is_refused_and_the_session_ends(self):
        settings = marvo.Settings(logfile="a\0b")
        self.assert_raises_text(ValueError, "the text contains a zero byte", marvo.Session, settings)
        self.assertEqual(self.operations(), ["version_check", "destroy"])

    def test_other_interface_version_ends_the_session(self):
        self.double.fail("version_check", "interface version mismatch")
        error = self.assert_raises_text(marvo.OperationError, "interface version mismatch", marvo.Session)
        self.assertEqual((error.operation, error.status), ("version_check", 1))
        self.assertEqual(self.operations(), ["version_check", "destroy"])

    def test_failed_start_is_reported_with_the_failed_read(self):
        self.double.fail("init", "PKCS11_CTX_load() failed")
        self.double.fail("read_scard", "operation not allowed in current state (cfg_state=uninitialized)")
        session = self.open()
        self.assert_raises_text(
            marvo.OperationError,
            "PKCS11_CTX_load() failed\noperation not allowed in current state (cfg_state=uninitialized)",
            session.read_card,
        )

    def test_log_file_that_cannot_be_opened_causes_one_warning(self):
        self.double.fail("init", "error opening logfile")
        session = self.open()
        with self.assertWarns(marvo.LogFileWarning) as caught:
            session.read_card()
        self.assertEqual(str(caught.warning), "error opening logfile")
        self.double.fail("read_scard", "no card")
        self.assert_raises_text(marvo.OperationError, "no card", session.read_card)

    def test_missing_card_raises_the_text_of_the_library(self):
        self.double.fail("read_scard", "PKCS11_find_token() failed")
        self.assert_raises_text(marvo.OperationError, "PKCS11_find_token() failed", self.open().read_card)

    def test_failure_without_a_text_names_operation_and_status(self):
        self.double.fail("read_scard", "", status=255)
        self.assert_raises_text(marvo.OperationError, "read_scard failed with status 255", self.open().read_card)


class PinTest(SessionFixture):
    def test_bytearray_is_wiped_after_the_call(self):
        session = self.open()
        pin = bytearray(b"1234")
        session.set_pin(pin)
        self.assertEqual(pin, bytearray(4))
        self.assertEqual(self.double.calls[-1], ("set_pin", b"1234"))

    def test_card_is_read_again_before_the_pin_is_set(self):
        self.open_with_pin()
        self.assertEqual(self.operations()[2:], ["read_scard", "read_scard", "set_pin"])

    def test_card_that_was_removed_costs_no_try_and_wipes_the_pin(self):
        session = self.open()
        session.read_card()
        self.double.fail("read_scard", "PKCS11_find_token() failed")
        pin = bytearray(b"1234")
        self.assert_raises_text(marvo.OperationError, "PKCS11_find_token() failed", session.set_pin, pin)
        self.assertEqual(pin, bytearray(4))
        self.assertNotIn("set_pin", self.operations())

    def test_refused_pin_is_wiped_and_absent_from_the_error(self):
        session = self.open()
        self.double.fail("set_pin", "operation not allowed")
        pin = bytearray(b"8642")
        error = self.assert_raises_text(marvo.OperationError, "operation not allowed", session.set_pin, pin)
        self.assertEqual(pin, bytearray(4))
        self.assertNotIn("8642", repr(error))

    def test_copy_is_wiped_when_the_block_ends(self):
        from marvo._pin import PinText

        with PinText(b"1234") as text:
            self.assertEqual(text.raw, b"1234\0")
        self.assertEqual(text.raw, bytes(5))

    def test_pin_with_a_zero_byte_is_refused_and_wiped(self):
        pin = bytearray(b"12\x0034")
        self.assert_raises_text(ValueError, "the PIN contains a zero byte", self.open().set_pin, pin)
        self.assertEqual(pin, bytearray(5))

    def test_text_is_refused(self):
        session = self.open()
        self.assert_raises_text(TypeError, "the PIN must be a bytearray or bytes", session.set_pin, "1234")

    def test_wrong_pin_raises_the_text_of_the_library(self):
        session = self.open_with_pin()
        self.double.fail("discover_keys", TEXT)
        error = self.assert_raises_text(marvo.OperationError, TEXT, session.keys)
        self.assertEqual(error.operation, "discover_keys")

    def test_listing_without_a_pin_does_not_ask_the_card(self):
        session = self.open()
        session.read_card()
        self.assert_raises_text(marvo.PinRequiredError, NO_PIN, session.keys)
        self.assertNotIn("discover_keys", self.operations())

    def test_load_without_a_pin_does_not_ask_the_card(self):
        session = self.open()
        session.read_card()
        self.assert_raises_text(marvo.PinRequiredError, NO_PIN, session.load)
        self.assertNotIn("ossl_load", self.operations())

    def test_empty_pin_is_refused_before_the_card_is_read(self):
        session = self.open()
        self.assert_raises_text(ValueError, "the PIN is empty", session.set_pin, b"")
        self.assertNotIn("read_scard", self.operations())

    def test_pin_for_a_card_that_needs_none_is_wiped_and_not_stored(self):
        self.double.pin_required = False
        session = self.open()
        pin = bytearray(b"1234")
        session.set_pin(pin)
        self.assertEqual(pin, bytearray(4))
        self.assertNotIn("set_pin", self.operations())
        self.double.pin_required = True
        session.read_card()
        self.assert_raises_text(marvo.PinRequiredError, NO_PIN, session.keys)

    def test_pin_that_the_listing_rejects_is_not_used_again(self):
        session = self.open_with_pin()
        self.double.fail("discover_keys", TEXT)
        self.assert_raises_text(marvo.OperationError, TEXT, session.find_key, "%01")
        self.double.calls.clear()
        self.assert_raises_text(marvo.PinRequiredError, FAILED_PIN, session.find_key, "%01")
        self.assert_raises_text(marvo.PinRequiredError, FAILED_PIN, session.load)
        self.assertEqual(self.double.calls, [])

    def test_pin_that_the_load_rejects_is_not_used_again(self):
        session = self.open_with_pin()
        self.double.fail("ossl_load", TEXT)
        self.assert_raises_text(marvo.OperationError, TEXT, session.load)
        session.read_card()
        self.double.calls.clear()
        self.assert_raises_text(marvo.PinRequiredError, FAILED_PIN, session.load)
        self.assert_raises_text(marvo.PinRequiredError, FAILED_PIN, session.keys)
        self.assertEqual(self.double.calls, [])

    def test_another_pin_is_used_after_a_rejected_one(self):
        session = self.open_with_pin()
        self.double.fail("discover_keys", TEXT)
        self.assert_raises_text(marvo.OperationError, TEXT, session.keys)
        session.set_pin(b"5678")
        self.assertEqual(len(session.keys()), 2)

    def test_pin_that_cannot_be_stored_also_ends_the_one_before(self):
        session = self.open_with_pin()
        self.double.fail("set_pin", "operation not allowed")
        self.assert_raises_text(marvo.OperationError, "operation not allowed", session.set_pin, b"5678")
        self.assert_raises_text(marvo.PinRequiredError, NO_PIN, session.keys)

    def test_failure_without_a_pin_is_not_taken_for_a_rejected_pin(self):
        self.double.pin_required = False
        session = self.open()
        session.read_card()
        self.double.fail("discover_keys", "token is not initialized")
        self.assert_raises_text(marvo.OperationError, "token is not initialized", session.keys)
        self.double.pin_required = True
        session.read_card()
        self.assert_raises_text(marvo.PinRequiredError, NO_PIN, session.keys)

    def test_pin_is_required_again_after_a_card_without_one(self):
        session = self.open_with_pin()
        self.double.pin_required = False
        session.read_card()
        self.double.pin_required = True
        session.read_card()
        self.assert_raises_text(marvo.PinRequiredError, NO_PIN, session.load)


class KeyTest(SessionFixture):
    def test_keys_have_name_id_and_type(self):
        session = self.open_with_pin()
        self.assertEqual(
            session.keys(), [marvo.Key(0, "demo: key 1", "%01", 0), marvo.Key(1, "demo: key 2", "%02", 0)]
        )

    def test_listing_leaves_the_selection_unchanged(self):
        self.double.settings.update(priv_key_name=b"before", cert_name=b"also", capi_key_type=1)
        self.open_with_pin().keys()
        settings = self.double.settings
        names = [settings[name] for name in ("priv_key_name", "cert_name", "capi_key_type")]
        self.assertEqual(names, [b"before", b"also", 1])

    def test_label_of_the_token_may_contain_separators(self):
        from marvo._session import _id_in_uri

        self.assertEqual(_id_in_uri("pkcs11:token=a;id=%09;type=b;id=%01%ab;type=private"), "%01%ab")

    def test_keys_of_cryptoapi_have_the_name_of_their_container_and_their_type(self):
        self.double.pin_required = False
        session = self.open(marvo.Settings(crypto_if=marvo.CryptoIf.CAPI))
        session.read_card()
        key = session.keys()[0]
        self.assertEqual((key.id, key.type), ("pkcs11:token=demo;id=%01;type=private", 2))

    def test_card_must_be_read_before_a_listing_or_a_load(self):
        session = self.open()
        self.assert_raises_text(marvo.Error, "no card was read", session.keys)
        self.assert_raises_text(marvo.Error, "no card was read", session.load)
        self.assertEqual(self.operations(), ["version_check", "init"])

    def test_card_that_cannot_be_read_is_not_asked_for_keys(self):
        session = self.open_with_pin()
        self.double.fail("read_scard", "no card")
        self.assert_raises_text(marvo.OperationError, "no card", session.read_card)
        self.assert_raises_text(marvo.Error, "no card was read", session.keys)
        self.assertNotIn("discover_keys", self.operations())

    def test_key_that_cannot_be_selected_has_no_id(self):
        session = self.open_with_pin()
        self.double.fail("set_key", "no certificate for private key found")
        self.assertEqual([key.id for key in session.keys()], [None, "%02"])

    def test_loading_a_key_that_cannot_be_selected_raises_the_text_of_the_library(self):
        session = self.open_with_pin()
        self.double.fail("set_key", "no certificate for private key found", times=2)
        key = session.keys()[0]
        self.double.fail("set_key", "no certificate for private key found")
        text = "no certificate for private key found"
        self.assert_raises_text(marvo.OperationError, text, session.load, key)

    def test_key_is_found_by_its_id(self):
        self.assertEqual(self.open_with_pin().find_key("%02").number, 1)

    def test_unknown_id_is_an_error(self):
        text = "the card has no suitable key with the id '%03' and the type 0"
        self.assert_raises_text(marvo.Error, text, self.open_with_pin().find_key, "%03")

    def test_key_of_an_earlier_listing_is_refused(self):
        session = self.open_with_pin()
        key = session.keys()[0]
        session.read_card()
        text = "the key is from an earlier listing; call keys() again"
        self.assert_raises_text(marvo.Error, text, session.load, key)
        self.assertNotIn("ossl_load", self.operations())


class LoadTest(SessionFixture):
    def test_loaded_key_and_certificate_are_addresses(self):
        _, loaded = self.load()
        self.assertEqual((loaded.private_key, loaded.certificate), (0x1000, 0x2000))
        self.assertEqual(
            self.double.calls[-5:],
            [("set_key", 0), ("notify_config_done",), ("ossl_load",), ("ossl_get_private_key",), ("ossl_get_certificate",)],
        )

    def test_configured_key_is_loaded_without_a_listing(self):
        session = self.open_with_pin()
        session.load()
        self.assertNotIn("set_key", self.operations())

    def test_each_failed_step_raises_the_text_of_the_library(self):
        for step in ("notify_config_done", "ossl_load", "ossl_get_private_key", "ossl_get_certificate"):
            with self.subTest(step):
                session = self.open_with_pin()
                self.double.fail(step, f"{step}() failed")
                error = self.assert_raises_text(marvo.OperationError, f"{step}() failed", session.load)
                self.assertEqual((error.operation, error.status), (step, 1))
                self.assertIsNone(session.loaded)
                session.close()

    def test_missing_object_is_an_error(self):
        self.double.loaded[1] = None
        session = self.open_with_pin()
        self.assert_raises_text(marvo.Error, "ossl_get_certificate returned no object", session.load)

    def test_failed_unload_raises_the_text_of_the_library(self):
        session, _ = self.load()
        self.double.fail("ossl_unload", "operation not allowed")
        self.assert_raises_text(marvo.OperationError, "operation not allowed", session.unload)

    def test_failed_load_also_ends_the_key_of_the_load_before(self):
        session, loaded = self.load()
        self.double.fail("ossl_load", "ENGINE_load_private_key() failed")
        self.assert_raises_text(marvo.OperationError, "ENGINE_load_private_key() failed", session.load)
        self.assert_raises_text(marvo.Error, "the key is no longer loaded", getattr, loaded, "private_key")

    def test_addresses_end_with_the_key(self):
        for end in (marvo.Session.unload, marvo.Session.close, marvo.Session.load):
            with self.subTest(end.__name__):
                session, loaded = self.load()
                end(session)
                for name in ("private_key", "certificate"):
                    self.assert_raises_text(marvo.Error, "the key is no longer loaded", getattr, loaded, name)
                session.close()


if __name__ == "__main__":
    unittest.main()
