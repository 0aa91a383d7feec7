#!/usr/bin/env python3
"""The installed manual pages: they render without a warning and tell all that help tells."""

import os
import re

import installed


class Manual(installed.Case):
    def pages(self):
        found = {}
        for section in ("1", "5", "8"):
            folder = self.installed.path(f"share/man/man{section}")
            for name in os.listdir(folder):
                found[name] = os.path.join(folder, name)
        return found

    def rendered(self, page, *options):
        done = installed.run("man", *options, "-E", "UTF-8", "-l", page,
                             env={**os.environ, "MANWIDTH": "500", "LC_ALL": "C.UTF-8",
                                  "MAN_KEEP_FORMATTING": ""})
        self.assertEqual(done.returncode, 0, done.stderr)
        return done

    def test_there_is_one_page_a_command_and_four_more(self):
        commands = {f"trevixctl-{words[0]}.1" for words in self.installed.commands()}
        self.assertEqual(set(self.pages()),
                         commands | {"trevixctl.1", "trevixci.8", "trevix-servers.5",
                                     "trevix-settings.5"})

    def test_every_page_renders_without_a_warning(self):
        installed.require("man")
        for name, page in self.pages().items():
            done = installed.run("man", "--warnings", "-E", "UTF-8", "-l", page,
                                 env={**os.environ, "MANWIDTH": "80", "LC_ALL": "C.UTF-8"})
            self.assertEqual((done.returncode, done.stderr), (0, ""), name)
            self.assertGreater(len(done.stdout.splitlines()), 20, name)

    def test_every_page_is_good_mdoc(self):
        installed.require("mandoc")
        for name, page in self.pages().items():
            done = installed.run("mandoc", "-T", "lint", "-W", "warning", page)
            self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""), name)

    def test_every_page_of_a_command_has_examples_and_exit_status(self):
        installed.require("man")
        for name, page in self.pages().items():
            if not name.endswith(".1"):
                continue
            text = self.rendered(page).stdout
            for heading in ("NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "EXAMPLES",
                            "SEE ALSO"):
                self.assertRegex(text, f"(?m)^{heading}$", name)
            self.assertRegex(text, r"(?m)^ +130 +Cancelled\.$", name)

    def test_pages_and_help_name_the_same_options(self):
        installed.require("man")
        shown = {}
        for words in [()] + self.installed.commands():
            page = "-".join(("trevixctl",) + words[:1]) + ".1"
            shown.setdefault(page, set()).update(
                installed.options_in(self.installed.help(*words)))
        for page, options in shown.items():
            text = self.rendered(self.pages()[page]).stdout
            section = re.search(r"(?ms)^OPTIONS$(.*?)^[A-Z]", text).group(1)
            told = set()
            for line in re.findall(r"(?m)^ +(-\S.*)$", section):
                told |= {word.rstrip(",") for word in line.split() if word.startswith("-")}
            self.assertEqual(told, options, page)

    def test_the_services_page_names_its_options(self):
        installed.require("man")
        done = installed.run(self.installed.path("libexec/trevix/trevixci"), "--help")
        text = self.rendered(self.pages()["trevixci.8"]).stdout
        section = re.search(r"(?ms)^DESCRIPTION$(.*?)^   Clients$", text).group(1)
        told = set(re.findall(r"(?m)^ +(--[a-z-]+)", section))
        self.assertEqual(told, set(re.findall(r"(?m)^  (--[a-z-]+)", done.stdout)))

    def test_pages_tell_every_sub_command(self):
        installed.require("man")
        for words in self.installed.commands():
            if len(words) == 2:
                text = self.rendered(self.pages()[f"trevixctl-{words[0]}.1"]).stdout
                self.assertIn(f"   {' '.join(words)}\n", text)

    def test_references_lead_to_pages(self):
        pages = set(self.pages()) | {"journalctl.1", "systemd.unit.5"}
        for name, page in self.pages().items():
            with open(page, encoding="utf-8") as file:
                for title, section in re.findall(r"^\.Xr (\S+) (\d)", file.read(), re.MULTILINE):
                    self.assertIn(title.replace("\\-", "-") + "." + section, pages, name)

    def test_settings_are_those_of_config_list(self):
        installed.require("man")
        home = os.path.join(self.scratch, "home")
        os.makedirs(home)
        listed = installed.run(self.installed.ctl, "config", "list",
                               env={"HOME": home, "PATH": os.environ["PATH"]}).stdout
        names = re.findall(r"(?m)^([a-z-]+) \((\w+)\): ", listed)
        self.assertGreater(len(names), 5)
        text = self.rendered(self.pages()["trevix-settings.5"]).stdout
        self.assertEqual(re.findall(r"(?m)^ +([a-z-]+) \((\w+)\)$", text), names)


if __name__ == "__main__":
    installed.main()
