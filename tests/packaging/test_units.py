#!/usr/bin/env python3
"""The installed units, activation files, policy, users and directories."""

import configparser
import os
import re
import shutil
import xml.etree.ElementTree

import installed

NAME = "com.quellmar.TrevixCI1"
SYSTEM_UNITS = ("trevixci.service", "trevix-compress@.service", "trevix-compress@.timer")
USER_UNITS = ("trevixci.service", "trevix-compress.service", "trevix-compress.timer")


class Units(installed.Case):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        installed.require("systemd-analyze")
        # The programs are looked for where they are now.
        for scope in ("system", "user"):
            os.makedirs(os.path.join(cls.scratch, scope))
            folder = cls.installed.path(f"lib/systemd/{scope}")
            for name in os.listdir(folder):
                with open(os.path.join(folder, name), encoding="utf-8") as file:
                    text = file.read()
                text = re.sub("(?m)^ExecStart=", "ExecStart=" + cls.installed.root, text)
                with open(os.path.join(cls.scratch, scope, name), "w", encoding="utf-8") as file:
                    file.write(text)
        os.mkdir(os.path.join(cls.scratch, "runtime"), mode=0o700)

    def analyze(self, *words):
        return installed.run("systemd-analyze", *words,
                             env={**os.environ,
                                  "XDG_RUNTIME_DIR": os.path.join(self.scratch, "runtime")})

    def test_all_units_are_there(self):
        for scope, units in (("system", SYSTEM_UNITS), ("user", USER_UNITS)):
            self.assertEqual(sorted(os.listdir(self.installed.path(f"lib/systemd/{scope}"))),
                             sorted(units))

    def test_no_unit_has_anything_to_complain_of(self):
        for scope, units in (("system", SYSTEM_UNITS), ("user", USER_UNITS)):
            for unit in units:
                done = self.analyze("--man=no", f"--{scope}", "verify",
                                    os.path.join(self.scratch, scope, unit))
                self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""), unit)

    def test_a_misspelt_unit_is_noticed(self):
        path = os.path.join(self.scratch, "misspelt.service")
        shutil.copy(os.path.join(self.scratch, "system", "trevixci.service"), path)
        with open(path, "a", encoding="utf-8") as file:
            file.write("ProtectHoem=yes\n")
        self.assertIn("ProtectHoem", self.analyze("--man=no", "verify", path).stderr)

    def test_units_of_the_system_are_confined(self):
        for unit, most in (("trevixci.service", 10), ("trevix-compress@.service", 15)):
            done = self.analyze("security", "--offline=true", f"--threshold={most}",
                                os.path.join(self.scratch, "system", unit))
            self.assertEqual(done.returncode, 0, done.stdout[-300:])

    def test_nothing_is_started_by_being_installed(self):
        for scope, units in (("system", SYSTEM_UNITS), ("user", USER_UNITS)):
            for unit in units:
                with open(os.path.join(self.scratch, scope, unit), encoding="utf-8") as file:
                    self.assertEqual("[Install]" in file.read(), unit.endswith(".timer"), unit)


class Activation(installed.Case):
    def read(self, name):
        with open(self.installed.path(name), encoding="utf-8") as file:
            return file.read()

    def test_both_buses_find_the_service(self):
        for folder, scope in (("services", "user"), ("system-services", "system")):
            parser = configparser.ConfigParser()
            parser.optionxform = str
            parser.read_string(self.read(f"share/dbus-1/{folder}/{NAME}.service"))
            service = dict(parser["D-BUS Service"])
            self.assertEqual(service["Name"], NAME)
            unit = self.read(f"lib/systemd/{scope}/{service['SystemdService']}")
            self.assertIn(f"BusName={NAME}\n", unit)
            program = re.search(r"(?m)^ExecStart=(\S+)", unit).group(1)
            self.assertTrue(os.access(self.installed.root + program, os.X_OK), program)
            if folder == "services":
                self.assertEqual(service["Exec"], program)
            else:
                # Only systemd can start it as its user, confined.
                self.assertEqual(service["Exec"], "/bin/false")
                self.assertIn(f"User={service['User']}\n", unit)

    def test_the_policy_lets_in_whom_it_names(self):
        tree = xml.etree.ElementTree.fromstring(self.read(f"share/dbus-1/system.d/{NAME}.conf"))
        policies = {next(iter(policy.attrib.values())): policy for policy in tree}
        self.assertEqual(set(policies), {"trevix", "default", "root", "trevix-clients"})
        self.assertEqual([rule.attrib for rule in policies["trevix"]], [{"own_prefix": NAME}])
        self.assertEqual([(rule.tag, rule.attrib) for rule in policies["default"]],
                         [("deny", {"send_destination_prefix": NAME})])
        interfaces = {rule.attrib["send_interface"] for rule in policies["trevix-clients"]}
        declared = xml.etree.ElementTree.fromstring(
            self.read(f"share/dbus-1/interfaces/{NAME}.xml"))
        self.assertLessEqual({one.attrib["name"] for one in declared.iter("interface")}, interfaces)

    def test_users_and_directories_can_be_made(self):
        installed.require("systemd-sysusers", "systemd-tmpfiles")
        if os.geteuid() != 0:
            installed.skip("needs root")
        root = os.path.join(self.scratch, "system-root")
        os.makedirs(os.path.join(root, "etc"))
        done = installed.run("systemd-sysusers", f"--root={root}",
                             self.installed.path("lib/sysusers.d/trevix.conf"))
        self.assertEqual(done.returncode, 0, done.stderr)
        with open(os.path.join(root, "etc/passwd"), encoding="utf-8") as file:
            self.assertRegex(file.read(), r"(?m)^trevix:.*:/var/lib/trevix:/usr/sbin/nologin$")
        with open(os.path.join(root, "etc/group"), encoding="utf-8") as file:
            self.assertRegex(file.read(), "(?m)^trevix-clients:")
        done = installed.run("systemd-tmpfiles", f"--root={root}", "--create",
                             self.installed.path("lib/tmpfiles.d/trevix.conf"))
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(os.stat(os.path.join(root, "etc/trevix")).st_mode & 0o7777, 0o755)


if __name__ == "__main__":
    installed.main()
