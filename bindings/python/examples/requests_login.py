#!/usr/bin/python3
"""Logs in to a web server with a key of the card. TLS is that of requests, through urllib3 and pyOpenSSL.

The environment contains the settings (ossl_scard_cfg_...), and in REQUESTS_CA_BUNDLE the CA certificate of the
server.
"""

import argparse
import getpass
import sys
import warnings

import requests
import requests.adapters
import urllib3.util.ssl_

import marvo
import marvo.pyopenssl

with warnings.catch_warnings():
    warnings.simplefilter("ignore", DeprecationWarning)  # urllib3 has planned to remove the module, and kept it
    import urllib3.contrib.pyopenssl

urllib3.contrib.pyopenssl.inject_into_urllib3()


class CardAdapter(requests.adapters.HTTPAdapter):
    """Connects with the loaded key."""

    def __init__(self, loaded: marvo.LoadedKey) -> None:
        self._loaded = loaded
        super().__init__()

    def init_poolmanager(self, *args, **kwargs) -> None:
        context = urllib3.util.ssl_.create_urllib3_context()
        marvo.pyopenssl.use_key(context._ctx, self._loaded)
        super().init_poolmanager(*args, ssl_context=context, **kwargs)


def load_key(session: marvo.Session, key_id: str) -> marvo.LoadedKey:
    session.read_card()
    if session.pin_required:
        session.set_pin(bytearray(getpass.getpass("PIN: ").encode()))
    return session.load(session.find_key(key_id))


def get(loaded: marvo.LoadedKey, url: str) -> str:
    """The connections end before the session does, because they use the key."""
    with requests.Session() as web:
        web.mount("https://", CardAdapter(loaded))
        answer = web.get(url)
        answer.raise_for_status()
        return answer.text


def main() -> int:
    parser = argparse.ArgumentParser(description="Logs in to a web server with a key of the card.")
    parser.add_argument("url")
    parser.add_argument("key_id", help='such as "%%01"; the log shows it as "cluster_name"')
    arguments = parser.parse_args()
    try:
        with marvo.Session(marvo.Settings(crypto_if=marvo.CryptoIf.PKCS11)) as session:
            print(get(load_key(session, arguments.key_id), arguments.url))
    except (marvo.Error, OSError) as error:
        print(f"requests_login: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
