"""A test double of the library: tables of functions in Python, which record their calls and fail as planned."""

import ctypes
from unittest import mock

from marvo import _abi


class _Object:
    """An object whose first word points to a table. The functions are looked up by name in the double."""

    def __init__(self, double, prefix, operations):
        self._functions = []
        for operation in operations:
            # Functions in Python cannot return pointers of other types.
            is_pointer = operation.result in (ctypes.c_char_p, ctypes.POINTER(ctypes.c_uint))
            result = ctypes.c_void_p if is_pointer else operation.result
            prototype = ctypes.CFUNCTYPE(result, ctypes.c_void_p, *operation.arguments)
            function = getattr(double, f"{prefix}_{operation.name}", None)
            self._functions.append(prototype(function or double.unexpected(prefix, operation.name)))
        addresses = [ctypes.cast(function, ctypes.c_void_p) for function in self._functions]
        self._table = (ctypes.c_void_p * len(addresses))(*[address.value for address in addresses])
        self._word = ctypes.c_void_p(ctypes.addressof(self._table))
        self.address = ctypes.addressof(self._word)


class LibraryDouble:
    """Holds the keys "%01" and "%02". "failures" maps operations to their status, text and remaining calls."""

    def __init__(self):
        self.calls = []
        self.failures = {}
        self.pin_required = True
        self.settings = {"crypto_if": 2, "priv_key_name": b"", "cert_name": b"", "capi_key_type": 2}
        self.loaded = [0x1000, 0x2000]
        self.text = b""
        self._texts = []
        self._crypto_if = ctypes.c_uint()
        for name in ("priv_key_name", "cert_name", "capi_key_type", "logfile", "logfile_severity", "pkcs11_module_dll"):
            setattr(self, f"cfg_set_{name}", self._setter(name))
            setattr(self, f"cfg_get_{name}", self._getter(name))
        self._cfg = _Object(self, "cfg", _abi.CFG_OPERATIONS)
        self._if = _Object(self, "if", _abi.IF_OPERATIONS)

    def fail(self, operation, text, status=1, times=1):
        self.failures[operation] = [status, text.encode(), times]

    def installed(self):
        """While this context is active, a session gets this object from the loader."""
        return mock.patch("marvo._abi.load_library", return_value=self)

    def get_ossl_scard_if(self):
        return self._if.address

    @staticmethod
    def unexpected(prefix, name):
        def function(*_):
            raise AssertionError(f"unexpected call of {prefix}.{name}")

        return function

    def _run(self, operation, *arguments):
        self.calls.append((operation, *arguments))
        status, self.text, times = self.failures.get(operation, (0, b"", 0))
        if times == 0:
            self.text = b""
            return 0
        self.failures[operation][2] -= 1
        return status

    def _setter(self, name):
        return lambda _, value: self.settings.__setitem__(name, value)

    def _getter(self, name):
        def get(_):
            value = self.settings[name]
            return self._keep(value) if isinstance(value, bytes) else value

        return get

    def _keep(self, text):
        self._texts.append(ctypes.create_string_buffer(text))
        return ctypes.addressof(self._texts[-1])

    def cfg_set_crypto_if(self, _, value):
        self.settings["crypto_if"] = value.contents.value

    def cfg_get_crypto_if(self, _):
        self._crypto_if.value = self.settings["crypto_if"]
        return ctypes.addressof(self._crypto_if)

    def cfg_enable_logfile_append(self, _):
        self.settings["logfile_append"] = True

    def cfg_disable_logfile_append(self, _):
        self.settings["logfile_append"] = False

    def if_version_check(self, _, version):
        return self._run("version_check", version)

    def if_get_config_default(self, _):
        return self._cfg.address

    def if_get_config_used(self, _):
        return self._cfg.address

    def if_init(self, _, cfg):
        assert cfg == self._cfg.address
        return self._run("init")

    def if_read_scard(self, _):
        return self._run("read_scard")

    def if_is_pin_required(self, _):
        return self.pin_required

    def if_set_pin(self, _, pin):
        return self._run("set_pin", ctypes.string_at(pin))

    def if_discover_keys(self, _, count):
        status = self._run("discover_keys")
        if status == 0:
            count.contents.value = 2
        return status

    def if_get_key_name(self, _, number):
        return self._keep(f"demo: key {number + 1}".encode())

    def if_set_key_by_number(self, _, number):
        status = self._run("set_key", number)
        if status == 0:
            text = "pkcs11:token=demo;id=%0{};type={}"
            self.settings["priv_key_name"] = text.format(number + 1, "private").encode()
            self.settings["cert_name"] = text.format(number + 1, "cert").encode()
        return status

    def if_notify_config_done(self, _):
        return self._run("notify_config_done")

    def if_ossl_load(self, _):
        return self._run("ossl_load")

    def if_ossl_unload(self, _):
        return self._run("ossl_unload")

    def if_ossl_get_private_key(self, _, out):
        out.contents.value = self.loaded[0]
        return self._run("ossl_get_private_key")

    def if_ossl_get_certificate(self, _, out):
        out.contents.value = self.loaded[1]
        return self._run("ossl_get_certificate")

    def if_get_version(self, _):
        return self._keep(b"4.3.0")

    def if_destroy(self, _):
        self.calls.append(("destroy",))

    def if_get_last_error_msg(self, _):
        return self._keep(self.text)
