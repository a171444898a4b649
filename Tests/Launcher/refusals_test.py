"""Where ./dev cannot work it says what is wrong and what to do, in two lines, and changes nothing."""

import hashlib
import os
import pathlib
import subprocess
import tempfile
import unittest

CHECKOUT = pathlib.Path(__file__).resolve().parents[2]

DEBIAN_12 = "ID=debian\nVERSION_ID=12\n"
DEBIAN_13 = "ID=debian\nVERSION_ID=13\n"

# Programs that answer in place of the machine's own; the last ones keep a test that goes wrong from doing anything.
FAKES = {
    "id": "echo 0",
    "unshare": "exit 0",
    "df": "echo Filesystem; echo tmpfs 9999999 1 99999 1% /",
    "getent": "exit 0",
    "dpkg-query": "exit 1",
    "grep": 'case "$*" in *Acquire*) exit 1 ;; esac; exec /usr/bin/grep "$@"',
    "debootstrap": "exit 1",
    "apt-get": "exit 1",
    "chroot": "exit 1",
}

NOT_ROOT = {"id": "echo 1000"}

CASES = {
    "a distribution that is not known": ("ID=plan9\n", {}, "not known"),
    "no root to set the contained root up": (DEBIAN_12, NOT_ROOT, "Setting up the contained root needs root"),
    "no root to install packages": (DEBIAN_13, NOT_ROOT, "Installing the packages"),
    "no private mounts": (DEBIAN_12, {"unshare": "exit 1"}, "private mounts"),
    "too little disk": (DEBIAN_12, {"df": "echo Filesystem; echo tmpfs 100 1 99 1% /"}, "Only 99 MB are free"),
    "too little disk for packages": (DEBIAN_13, {"df": "echo Filesystem; echo tmpfs 100 1 99 1% /"}, "Only 99 MB"),
    "no network": (DEBIAN_12, {"getent": "exit 2"}, "no network"),
    "no network for packages": (DEBIAN_13, {"getent": "exit 2"}, "no network"),
}


def stamp():
    files = [CHECKOUT / "Environment/packages.txt", *sorted((CHECKOUT / "Environment").glob("*x265*"))]
    return hashlib.sha256(b"".join(file.read_bytes() for file in files)).hexdigest()


class Refusals(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.cache = self.folder / "cache"

    def refusal(self, os_release, fakes):
        programs = self.folder / "bin"
        programs.mkdir(exist_ok=True)
        for name, text in (FAKES | fakes).items():
            program = programs / name
            program.write_text(f"#!/bin/sh\n{text}\n")
            program.chmod(0o755)
        (self.folder / "os-release").write_text(os_release)
        environment = {
            "PATH": f"{programs}:{os.environ['PATH']}",
            "HOME": str(self.folder),
            "PANOVEER_CACHE": str(self.cache),
            "PANOVEER_OS_RELEASE": str(self.folder / "os-release"),
        }
        result = subprocess.run([CHECKOUT / "dev", "shell", "true"], env=environment, capture_output=True, text=True)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertEqual(result.stdout, "")
        lines = result.stderr.splitlines()
        self.assertEqual(len(lines), 2, result.stderr)
        self.assertTrue(lines[0].startswith("dev: ") and lines[1].startswith("     "), result.stderr)
        return lines[0]

    def test_every_reason_is_told(self):
        for name, (os_release, fakes, says) in CASES.items():
            with self.subTest(name):
                self.assertIn(says, self.refusal(os_release, fakes))
                self.assertFalse((self.cache / "env/root").exists())

    def test_a_ready_root_is_not_entered_without_root(self):
        (self.cache / "env").mkdir(parents=True)
        (self.cache / "env/stamp").write_text(stamp() + "\n")
        self.assertIn("Entering the contained root needs root", self.refusal(DEBIAN_12, NOT_ROOT))

    def test_a_cache_that_cannot_be_made_or_written(self):
        self.cache.write_text("no folder")
        self.assertIn("Cannot create", self.refusal(DEBIAN_12, {}))
        self.cache.unlink()
        (self.cache / "env/lock").mkdir(parents=True)
        self.assertIn("Cannot write to", self.refusal(DEBIAN_12, {}))


if __name__ == "__main__":
    unittest.main()
