"""Tests of packaging/sbom. The variable SBOM contains its path."""
import hashlib
import json
import os
import pathlib
import subprocess
import tempfile
import unittest


class SbomTest(unittest.TestCase):
    def setUp(self):
        self.folder_ = tempfile.TemporaryDirectory()
        self.root = pathlib.Path(self.folder_.name)
        self.stage = self.root / "stage"
        (self.stage / "bin").mkdir(parents=True)
        (self.stage / "bin" / "libcrypto-3-x64.dll").write_bytes(b"crypto")
        (self.stage / "README").write_bytes(b"read me\n")
        self.output = self.root / "sbom.cdx.json"

    def tearDown(self):
        self.folder_.cleanup()

    def run_sbom(self, *arguments, epoch="1700000000", output=None):
        environment = {"PATH": os.environ["PATH"]} | ({"SOURCE_DATE_EPOCH": epoch} if epoch else {})
        return subprocess.run(
            [os.environ["SBOM"], "--name", "kit", "--version", "1.2", "--output", output or self.output, *arguments],
            env=environment, capture_output=True, text=True, check=False)

    def create(self, *arguments, **settings):
        finished = self.run_sbom(*arguments, **settings)
        self.assertEqual((finished.returncode, finished.stdout, finished.stderr), (0, "", ""))
        return json.loads(pathlib.Path(settings.get("output") or self.output).read_text(encoding="utf-8"))

    def expect_failure(self, status, text, *arguments, **settings):
        finished = self.run_sbom(*arguments, **settings)
        self.assertEqual(finished.returncode, status)
        self.assertEqual(finished.stderr.splitlines()[-1], text)
        self.assertFalse(self.output.exists())

    def test_lists_files_and_bundled_software(self):
        sbom = self.create("--bundled", "openssl=3.5.7", "--bundled", "gcc-runtime=12", self.stage)
        self.assertRegex(sbom.pop("serialNumber"), "^urn:uuid:[0-9a-f-]{36}$")
        apache = [{"license": {"id": "Apache-2.0"}}]
        self.assertEqual(sbom, {
            "bomFormat": "CycloneDX",
            "specVersion": "1.5",
            "version": 1,
            "metadata": {
                "timestamp": "2023-11-14T22:13:20Z",
                "component": {"type": "library", "bom-ref": "package", "name": "kit", "version": "1.2", "licenses": apache},
            },
            "components": [
                {"type": "file", "bom-ref": "file:README", "name": "README", "licenses": apache,
                 "hashes": [{"alg": "SHA-256", "content": hashlib.sha256(b"read me\n").hexdigest()}]},
                {"type": "file", "bom-ref": "file:bin/libcrypto-3-x64.dll", "name": "bin/libcrypto-3-x64.dll",
                 "licenses": apache,
                 "hashes": [{"alg": "SHA-256", "content": hashlib.sha256(b"crypto").hexdigest()}]},
                {"type": "library", "bom-ref": "bundled:gcc-runtime", "name": "GCC runtime libraries", "version": "12",
                 "licenses": [{"expression": "GPL-3.0-or-later WITH GCC-exception-3.1"}],
                 "purl": "pkg:generic/gcc-runtime@12"},
                {"type": "library", "bom-ref": "bundled:openssl", "name": "OpenSSL", "version": "3.5.7",
                 "licenses": apache, "purl": "pkg:generic/openssl@3.5.7"},
            ],
            "dependencies": [{"ref": "package", "dependsOn": [
                "file:README", "file:bin/libcrypto-3-x64.dll", "bundled:gcc-runtime", "bundled:openssl"]}],
        })

    def test_files_are_sorted_by_path(self):
        for number in range(100):
            (self.stage / f"{number * 37 % 101:03}").write_bytes(b"x")
        names = [component["name"] for component in self.create(self.stage)["components"]]
        self.assertEqual(len(names), 102)
        self.assertEqual(names, sorted(names))

    def test_same_content_gives_same_file(self):
        self.create(self.stage)
        first = self.output.read_bytes()
        os.utime(self.stage / "README", (0, 0))
        self.create(self.stage)
        self.assertEqual(self.output.read_bytes(), first)

    def test_other_content_gives_other_serial_number(self):
        first = self.create(self.stage)["serialNumber"]
        (self.stage / "README").write_bytes(b"read it\n")
        self.assertNotEqual(self.create(self.stage)["serialNumber"], first)

    def test_file_in_the_folder_does_not_list_itself(self):
        inside = self.stage / "sbom.cdx.json"
        first = self.create(self.stage, output=inside)
        self.assertEqual(self.create(self.stage, output=inside), first)
        self.assertNotIn("sbom.cdx.json", [component["name"] for component in first["components"]])

    def test_missing_date_is_refused(self):
        self.expect_failure(
            2, "sbom: error: SOURCE_DATE_EPOCH must be set to the date of the package, in seconds since 1970",
            self.stage, epoch=None)

    def test_unknown_software_is_refused(self):
        self.expect_failure(2, "sbom: error: unknown software 'zlib'", "--bundled", "zlib=1.3", self.stage)

    def test_software_without_version_is_refused(self):
        self.expect_failure(2, "sbom: error: 'cli11' has no version", "--bundled", "cli11", self.stage)

    def test_missing_folder_is_refused(self):
        missing = self.root / "missing"
        self.expect_failure(2, f"sbom: error: there is no folder {missing}", missing)

    def test_empty_folder_is_refused(self):
        empty = self.root / "empty"
        empty.mkdir()
        self.expect_failure(1, f"sbom: error: the folder {empty} contains no file", empty)


if __name__ == "__main__":
    unittest.main()
