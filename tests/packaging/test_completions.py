#!/usr/bin/env python3
"""The installed completions, as the shells themselves use them."""

import fcntl
import os
import pty
import re
import select
import struct
import termios
import time

import installed

BASH = r"""
source "$1"; shift
compopt() { :; }
COMP_WORDS=("$@") COMP_CWORD=$(( $# - 1 ))
_trevixctl
printf '%s\n' "${COMPREPLY[@]}"
"""


class Offers:
    """What every shell must offer."""

    def setUp(self):
        self.home = os.path.join(self.scratch, "home")
        os.makedirs(os.path.join(self.home, ".config/trevix"), exist_ok=True)
        with open(os.path.join(self.home, ".config/trevix/profiles.conf"), "w",
                  encoding="utf-8") as file:
            file.write("[work]\nstore = maildir:/work\n")
        self.environment = {"HOME": self.home, "TERM": "dumb", "LC_ALL": "C.UTF-8",
                            "PATH": os.path.dirname(self.installed.ctl) + ":" + os.environ["PATH"]}

    def offered(self, *words):
        raise NotImplementedError

    def test_offers_every_command(self):
        self.assertLessEqual({words[0] for words in self.installed.commands() if len(words) == 1},
                             self.offered(""))

    def test_offers_every_sub_command(self):
        for name in ("config", "profile"):
            self.assertLessEqual(set(installed.commands_in(self.installed.help(name))),
                                 self.offered(name, ""))

    def test_offers_every_option_of_every_command(self):
        for words in self.installed.commands():
            options = {name for name in installed.options_in(self.installed.help(*words))
                       if name.startswith("--")}
            offered = {name for name in self.offered(*words, "--") if name.startswith("-")}
            self.assertEqual(offered, options, words)

    def test_offers_the_choices_of_an_option(self):
        self.assertEqual(self.offered("compress", "--level", ""), {"ex", "std", "ef", "es"})

    def test_offers_settings(self):
        self.assertLessEqual({"min-size", "exclude"}, self.offered("config", "get", ""))

    def test_offers_profiles(self):
        self.assertEqual(self.offered("compress", "--profile", ""), {"work"})
        self.assertLessEqual({"work"}, self.offered("profile", "remove", ""))

    def test_offers_directories(self):
        place = os.path.join(self.scratch, "places")
        os.makedirs(os.path.join(place, "a-directory"), exist_ok=True)
        offered = self.offered("index", "--maildir", place + "/a-d")
        self.assertEqual({os.path.basename(name.rstrip("/")) for name in offered}, {"a-directory"})

    def test_offers_nothing_for_free_text(self):
        self.assertEqual(self.offered("compress", "--min-size", ""), set())


class Bash(Offers, installed.Case):
    def offered(self, *words):
        script = self.installed.path("share/bash-completion/completions/trevixctl")
        done = installed.run("bash", "--norc", "-c", BASH, "bash", script, "trevixctl", *words,
                             env=self.environment)
        self.assertEqual(done.stderr, "")
        return set(done.stdout.split("\n")) - {""}


class Fish(Offers, installed.Case):
    def offered(self, *words):
        installed.require("fish")
        script = self.installed.path("share/fish/vendor_completions.d/trevixctl.fish")
        line = " ".join(("trevixctl",) + words)
        done = installed.run("fish", "--no-config", "-c", f"source {script}; complete -C '{line}'",
                             env=self.environment)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return {line.split("\t")[0] for line in done.stdout.splitlines()}


class Zsh(Offers, installed.Case):
    """A real zsh at a terminal: its completion works nowhere else."""

    def offered(self, *words):
        installed.require("zsh")
        folder = os.path.dirname(self.installed.path("share/zsh/vendor-completions/_trevixctl"))
        child, terminal = pty.fork()
        if child == 0:
            os.execvpe("zsh", ["zsh", "-f", "-i"], self.environment)
        fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 500, 300, 0, 0))
        try:
            # With its words in two, an echo of the command is not taken for its output. The prompt
            # says that the line editor reads, and no longer the terminal.
            self.say(terminal, "PS1=REA''DY RPS1= LISTMAX=1000; unset zle_bracketed_paste; "
                     f"unsetopt prompt_sp; fpath=({folder} $fpath); autoload -Uz compinit; "
                     "compinit -u -D; zstyle ':completion:*' verbose no; "
                     "bindkey '^I' list-choices\n", "READY")
            text = self.say(terminal, " ".join(("trevixctl",) + words) + "\t\x15print END''LIST\n",
                            "ENDLIST")
        finally:
            os.close(terminal)
            os.waitpid(child, 0)
        # The command line, the list if there is one, and the command line again.
        text = re.sub(r"\x1b\[[0-9;?]*[A-Za-z]", " ", text).partition("print END")[0]
        lines = [line.strip() for line in text.splitlines()]
        return {word for line in lines if "trevixctl" not in line for word in line.split()}

    def say(self, terminal, words, until):
        os.write(terminal, words.encode())
        text = ""
        end = time.monotonic() + 60
        while until not in text:
            readable, _, _ = select.select([terminal], [], [], end - time.monotonic())
            self.assertTrue(readable, text)
            text += os.read(terminal, 65536).decode(errors="replace")
        return text


if __name__ == "__main__":
    installed.main()
