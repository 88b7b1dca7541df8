"""What the tests with the real library share: their paths, a software token and a web server."""

import os
import pty
import socket
import subprocess
import sys
import tempfile
import textwrap
import time
import unittest

PACKAGE = os.environ["MARVO_PYTHON_PACKAGE"]
LIBRARY = os.environ["MARVO_TEST_LIBRARY"]
SOFT_TOKEN = os.environ["MARVO_SOFT_TOKEN"]
NGINX = os.environ["MARVO_NGINX"]
PIN = "135790"


def soft_token(*arguments):
    return subprocess.run([SOFT_TOKEN, *arguments], check=True, capture_output=True, text=True).stdout.strip()


def client_environment(folder):
    """The settings of a client that uses the token in the folder, without the user's own settings."""
    own = {name: value for name, value in os.environ.items() if not name.startswith("ossl_scard_cfg_")}
    return {
        **own,
        "MARVO_LIBRARY": LIBRARY,
        "PYTHONPATH": PACKAGE,
        "SOFTHSM2_CONF": f"{folder}/softhsm2.conf",
        "SSL_CERT_FILE": f"{folder}/ca.crt",
        "REQUESTS_CA_BUNDLE": f"{folder}/ca.crt",
        "ossl_scard_cfg_pkcs11_module_dll": soft_token("module"),
        "ossl_scard_cfg_pkcs11_openssl_engine_dll": soft_token("engine"),
        "ossl_scard_cfg_logfile": f"{folder}/client.log",
    }


class TokenFixture(unittest.TestCase):
    """A token with an RSA key "%01" and an EC key "%02", for all tests of the class."""

    @classmethod
    def setUpClass(cls):
        temporary = tempfile.TemporaryDirectory()
        cls.addClassCleanup(temporary.cleanup)
        cls.folder = temporary.name
        soft_token("server", cls.folder)
        soft_token("init", cls.folder, "demo", PIN)
        soft_token("add", cls.folder, "demo", PIN, "--id", "01", "--name", "RSA key", "--subject", "/CN=Rosa")
        soft_token(
            "add", cls.folder, "demo", PIN, "--id", "02", "--name", "EC key", "--key", "ec:P-256", "--subject", "/CN=Paul"
        )
        cls.environment = client_environment(cls.folder)

    def run_client(self, code, **variables):
        """Runs Python code in a process of its own and returns its status, output and errors."""
        result = subprocess.run(
            [sys.executable, "-W", "error", "-c", textwrap.dedent(code)],
            env={**self.environment, **variables},
            capture_output=True,
            text=True,
            timeout=60,
        )
        return result.returncode, result.stdout, result.stderr


def run_at_terminal(command, environment, typed):
    """Runs a program with a terminal, types a line when it asks for the PIN, and returns its status and output."""
    process, terminal = pty.fork()
    if process == 0:
        os.execve(command[0], command, environment)
    output, is_typed = b"", False
    try:
        while chunk := os.read(terminal, 4096):
            output += chunk
            if not is_typed and output.endswith(b"PIN: "):
                os.write(terminal, typed.encode() + b"\n")
                is_typed = True
    except OSError:
        pass  # Linux reports the end of the program in this way
    status = os.waitstatus_to_exitcode(os.waitpid(process, 0)[1])
    os.close(terminal)
    return status, output.decode().replace("\r\n", "\n")


class Nginx:
    """A web server on 127.0.0.1 that requires a client certificate and answers with its subject."""

    def __init__(self, folder):
        self._folder = folder
        for _ in range(10):
            self.port = self._free_port()
            if self._start():
                return
        raise RuntimeError("nginx does not start")

    def close(self):
        self._process.terminate()
        self._process.wait()

    def last_server_name(self):
        """What the last client sent as the server's name in its handshake; "-" for none."""
        with open(f"{self._folder}/server-names") as log:
            return log.read().splitlines()[-1]

    @staticmethod
    def _free_port():
        """Another process may take the port before nginx does; then nginx ends, and the caller tries again."""
        with socket.socket() as unused:
            unused.bind(("127.0.0.1", 0))
            return unused.getsockname()[1]

    def _start(self):
        file = f"{self._folder}/nginx.conf"
        with open(file, "w") as config:
            config.write(self._config())
        command = [NGINX, "-e", "stderr", "-p", self._folder, "-c", file]
        self._process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        while self._process.poll() is None:
            with socket.socket() as client:
                if client.connect_ex(("127.0.0.1", self.port)) == 0 and self._process.poll() is None:
                    return True
            time.sleep(0.01)
        return False

    def _config(self):
        folder = self._folder
        paths = "".join(f"{name}_temp_path {folder}/{name}; " for name in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        return f"""daemon off; master_process off; pid {folder}/nginx.pid; error_log stderr error; events {{}}
http {{
    log_format server_names "$ssl_server_name"; access_log {folder}/server-names server_names;
    default_type text/plain; {paths}
    server {{
        listen 127.0.0.1:{self.port} ssl; ssl_protocols TLSv1.2 TLSv1.3;
        ssl_certificate {folder}/server.crt; ssl_certificate_key {folder}/server.key;
        ssl_client_certificate {folder}/ca.crt; ssl_verify_client on;
        return 200 "$ssl_protocol, $ssl_client_s_dn, $ssl_client_verify";
    }}
}}
"""
