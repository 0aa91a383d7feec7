#!/usr/bin/env python3
"""The Debian package: built, checked, unpacked, used."""

import glob
import os
import re
import shutil
import tempfile
import unittest

import installed


class Package(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        installed.require("dpkg-buildpackage", "dh", "dpkg-deb")
        cls.scratch = tempfile.mkdtemp(prefix="trevix-package-")
        cls.addClassCleanup(shutil.rmtree, cls.scratch, ignore_errors=True)
        done = installed.run(os.path.join(installed.SOURCE, "scripts/package"), timeout=3000)
        if done.returncode != 0:
            raise AssertionError(done.stdout + done.stderr)
        (cls.package,) = glob.glob(os.path.join(installed.SOURCE, "build/package/*.deb"))
        root = os.path.join(cls.scratch, "root")
        done = installed.run("dpkg-deb", "-x", cls.package, root)
        if done.returncode != 0:
            raise AssertionError(done.stderr)
        cls.installed = installed.Installed(root, "/usr")

    def test_has_no_error_that_lintian_knows(self):
        installed.require("lintian")
        done = installed.run("lintian", "--allow-root", "--fail-on", "error", self.package)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_holds_all_that_it_should(self):
        files = self.installed.files()
        for name in ("usr/bin/trevixctl", "usr/libexec/trevix/trevixci",
                     "usr/share/trevix/TrevixTb.htm", "usr/share/man/man1/trevixctl.1.gz",
                     "usr/share/man/man8/trevixci.8.gz",
                     "usr/share/bash-completion/completions/trevixctl",
                     "usr/share/zsh/vendor-completions/_trevixctl",
                     "usr/share/fish/vendor_completions.d/trevixctl.fish",
                     "usr/share/dbus-1/interfaces/com.quellmar.TrevixCI1.xml",
                     "usr/share/dbus-1/system.d/com.quellmar.TrevixCI1.conf",
                     "lib/systemd/system/trevixci.service", "usr/lib/systemd/user/trevixci.service",
                     "usr/share/doc/trevix/copyright", "usr/share/doc/trevix/automation.md"):
            self.assertIn(name, files)
        self.assertFalse([name for name in files if "trevix_reference" in name])

    def test_runs_where_it_is_unpacked(self):
        done = installed.run(self.installed.ctl, "--version")
        self.assertRegex(done.stdout, r"^trevixctl [0-9.]+\n$")
        version = installed.run("dpkg-deb", "-f", self.package, "Version").stdout.strip()
        self.assertEqual(done.stdout.split()[1], version)

    def test_names_the_libraries_that_it_needs(self):
        depends = installed.run("dpkg-deb", "-f", self.package, "Depends").stdout
        for library in ("libgmime", "libzip", "libsqlite3", "libdeflate"):
            self.assertIn(library, depends)

    def test_says_nothing_of_the_place_where_it_was_built(self):
        for name in ("usr/bin/trevixctl", "usr/libexec/trevix/trevixci"):
            with open(os.path.join(self.installed.root, name), "rb") as file:
                self.assertNotIn(installed.SOURCE.encode(), file.read())

    def test_can_be_installed(self):
        """Into an empty root: what runs at installation must not fail where nothing else is."""
        if os.geteuid() != 0:
            installed.skip("needs root")
        root = os.path.join(self.scratch, "empty")
        os.makedirs(os.path.join(root, "var/lib/dpkg/info"))
        os.makedirs(os.path.join(root, "var/lib/dpkg/updates"))
        for name in ("status", "available"):
            with open(os.path.join(root, "var/lib/dpkg", name), "w", encoding="utf-8"):
                pass
        done = installed.run("dpkg", f"--root={root}", "--force-depends",
                             "--force-script-chrootless", "--unpack", self.package)
        self.assertEqual(done.returncode, 0, done.stderr)
        status = installed.run("dpkg", f"--root={root}", "-s", "trevix").stdout
        self.assertTrue(re.search(r"(?m)^Status: install ok unpacked$", status), status)


if __name__ == "__main__":
    installed.main()
