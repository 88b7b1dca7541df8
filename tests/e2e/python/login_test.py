"""Tests of the examples: logins to nginx, with the PIN typed at a terminal."""

import runpy
import sys
import unittest
from unittest import mock

import marvo
from support import PACKAGE, PIN, Nginx, TokenFixture, run_at_terminal


class LoginTest(TokenFixture):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.server = Nginx(cls.folder)
        cls.addClassCleanup(cls.server.close)

    def log_in(self, *arguments, pin=PIN):
        return run_at_terminal([sys.executable, f"{PACKAGE}/examples/login.py", *arguments], self.environment, pin)

    def log_in_with_requests(self, *arguments, pin=PIN):
        command = [sys.executable, f"{PACKAGE}/examples/requests_login.py", *arguments]
        return run_at_terminal(command, self.environment, pin)

    def place(self):
        return "127.0.0.1", str(self.server.port)

    def url(self):
        return f"https://127.0.0.1:{self.server.port}/"

    def test_libssl_logs_in_with_each_key(self):
        self.assertEqual(self.log_in(*self.place(), "%01"), (0, "PIN: \nTLSv1.3, CN=Rosa, SUCCESS\n"))
        self.assertEqual(self.log_in(*self.place(), "%02"), (0, "PIN: \nTLSv1.3, CN=Paul, SUCCESS\n"))

    def test_requests_logs_in_with_each_key(self):
        self.assertEqual(self.log_in_with_requests(self.url(), "%01"), (0, "PIN: \nTLSv1.3, CN=Rosa, SUCCESS\n"))
        self.assertEqual(self.log_in_with_requests(self.url(), "%02"), (0, "PIN: \nTLSv1.3, CN=Paul, SUCCESS\n"))

    def test_libssl_sends_the_servers_name_unless_it_is_an_address(self):
        port = str(self.server.port)
        self.assertEqual(self.log_in("localhost", port, "%01"), (0, "PIN: \nTLSv1.3, CN=Rosa, SUCCESS\n"))
        self.assertEqual(self.server.last_server_name(), "localhost")
        self.assertEqual(self.log_in("127.0.0.1", port, "%01"), (0, "PIN: \nTLSv1.3, CN=Rosa, SUCCESS\n"))
        self.assertEqual(self.server.last_server_name(), "-")

    def test_unknown_key_is_an_error(self):
        text = "the card has no suitable key with the id '%03' and the type 0"
        self.assertEqual(self.log_in(*self.place(), "%03"), (1, f"PIN: \nlogin: {text}\n"))
        self.assertEqual(self.log_in_with_requests(self.url(), "%03"), (1, f"PIN: \nrequests_login: {text}\n"))

    def test_unknown_server_certificate_is_refused(self):
        self.environment = {**self.environment, "SSL_CERT_FILE": "/dev/null"}
        status, output = self.log_in(*self.place(), "%01")
        self.assertEqual(status, 1)
        self.assertEqual(
            output,
            "PIN: \nlogin: no TLS connection\nerror:0A000086:SSL routines::certificate verify failed\n",
        )


class UncheckedServerTest(unittest.TestCase):
    """The first example with a test double of libssl: without the server's name, it must not connect."""

    def log_in(self, **results):
        libssl = mock.Mock(SSL_CTX_set_default_verify_paths=mock.Mock(return_value=1), **results)
        login = runpy.run_path(f"{PACKAGE}/examples/login.py")["log_in"]
        with mock.patch("marvo.error_queue", return_value=["reason"]), mock.patch("socket.create_connection") as connect:
            with self.assertRaises(marvo.TlsError) as caught:
                login(libssl, mock.Mock(), "host.example", 443)
        connect.assert_not_called()
        libssl.SSL_free.assert_called_once_with(libssl.SSL_new.return_value)
        libssl.SSL_CTX_free.assert_called_once_with(libssl.SSL_CTX_new.return_value)
        return str(caught.exception)

    def test_name_that_cannot_be_checked_ends_the_login(self):
        set_name, check_name = mock.Mock(return_value=1), mock.Mock(return_value=0)
        text = self.log_in(SSL_ctrl=set_name, SSL_set1_host=check_name)
        self.assertEqual(text, "the server's name cannot be checked\nreason")

    def test_name_that_cannot_be_sent_ends_the_login(self):
        text = self.log_in(SSL_ctrl=mock.Mock(return_value=0))
        self.assertEqual(text, "the server's name cannot be sent\nreason")


if __name__ == "__main__":
    unittest.main()
