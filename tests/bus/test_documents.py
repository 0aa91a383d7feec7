"""The worked clients of docs/automation.md do what they say."""

import os
import re
import subprocess
import sys

import bus

DOCUMENT = os.path.join(bus.REPOSITORY, "docs", "automation.md")


def program(language):
    with open(DOCUMENT, encoding="utf-8") as file:
        blocks = re.findall(rf"^```{language}\n(.*?)^```$", file.read(), re.DOTALL | re.MULTILINE)
    assert len(blocks) == 1, f"{len(blocks)} programs in {language}"
    return blocks[0]


class Clients(bus.Case):
    def setUp(self):
        super().setUp()
        self.mail = os.path.join(self.bus.environment["HOME"], "Maildir")
        self.make_store()

    def run_program(self, *command):
        return subprocess.run(
            command, text=True, capture_output=True, timeout=bus.SECONDS, check=False,
            env={**self.bus.environment, "DBUS_SESSION_BUS_ADDRESS": self.bus.address})

    def test_in_python_compresses_and_indexes(self):
        done = self.run_program(sys.executable, "-c", program("python"))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertRegex(done.stdout, r"(?s)Inbox: 2\n.*compressed in \d+ ms\nindexed in \d+ ms\n")
        self.assertEqual(self.zipped(), 6)

    def test_in_python_says_what_failed(self):
        done = self.run_program(sys.executable, "-c", program("python"), "maildir:/nowhere")
        self.assertEqual((done.returncode, done.stderr), (1, "Invalid logon maildir:/nowhere\n"))

    def test_in_the_shell_compresses(self):
        done = self.run_program("sh", "-eu", "-c", program("sh"))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(self.zipped(), 6)

    def test_in_the_shell_says_what_failed(self):
        done = self.run_program("sh", "-eu", "-c", program("sh"), "sh", "maildir:/nowhere")
        self.assertEqual((done.returncode, done.stderr),
                         (1, 's "Invalid logon maildir:/nowhere"\n'))


if __name__ == "__main__":
    bus.main()
