#!/usr/bin/env python3
"""The example files for job engines: they are well formed, and share mailboxes out as they say."""

import os
import shutil
import signal
import subprocess
import tempfile
import unittest

import installed

FILES = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))),
                     "packaging", "fleet")
# Stands in for the program: tells its words and what it was given.
PROGRAM = """#!/bin/sh
printf '%s\\n' "$@"
echo --
cat
"""


def path_of(name):
    return os.path.join(FILES, name)


class Scratch(unittest.TestCase):
    def setUp(self):
        self.scratch = tempfile.mkdtemp(prefix="trevix-fleet-")
        self.addCleanup(shutil.rmtree, self.scratch, ignore_errors=True)

    def write(self, name, text, mode=0o644):
        path = os.path.join(self.scratch, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(path, mode)
        return path


class Systemd(Scratch):
    def test_units_have_nothing_to_complain_of(self):
        installed.require("systemd-analyze")
        program = self.write("trevixctl", "#!/bin/sh\n", 0o755)
        units = []
        for name in ("trevix-fleet.service", "trevix-fleet.timer"):
            with open(path_of(name), encoding="utf-8") as file:
                units.append(self.write(name, file.read().replace("/usr/bin/trevixctl", program)))
        runtime = os.path.join(self.scratch, "runtime")
        os.mkdir(runtime, mode=0o700)
        for unit in units:
            done = installed.run("systemd-analyze", "--man=no", "verify", unit,
                                 env={**os.environ, "XDG_RUNTIME_DIR": runtime})
            self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""), unit)

    def test_the_service_takes_the_programs_codes_for_another_try(self):
        with open(path_of("trevix-fleet.service"), encoding="utf-8") as file:
            self.assertIn("\nSuccessExitStatus=75 124 130\n", file.read())


class Kubernetes(unittest.TestCase):
    def setUp(self):
        try:
            import yaml
        except ImportError:
            self.skipTest("Python has no yaml here (python3-yaml)")
        with open(path_of("kubernetes.yaml"), encoding="utf-8") as file:
            self.claim, self.cron = yaml.safe_load_all(file)

    def test_it_is_an_indexed_job_whose_shares_are_its_completions(self):
        job = self.cron["spec"]["jobTemplate"]["spec"]
        self.assertEqual(job["completionMode"], "Indexed")
        container, = job["template"]["spec"]["containers"]
        variables = {entry["name"]: entry["value"] for entry in container["env"]}
        self.assertEqual(int(variables["TREVIX_SHARES"]), job["completions"])
        self.assertEqual(job["template"]["spec"]["restartPolicy"], "Never")
        rule, = job["podFailurePolicy"]["rules"]
        self.assertEqual(rule["onExitCodes"]["containerName"], container["name"])

    def test_all_that_is_mounted_is_there(self):
        pod = self.cron["spec"]["jobTemplate"]["spec"]["template"]["spec"]
        volumes = {volume["name"]: volume for volume in pod["volumes"]}
        for mount in pod["containers"][0]["volumeMounts"]:
            self.assertIn(mount["name"], volumes)
        self.assertEqual(volumes["state"]["persistentVolumeClaim"]["claimName"],
                         self.claim["metadata"]["name"])


class Shares(Scratch):
    def share(self, script="trevix-share", **variables):
        environment = {"PATH": os.environ["PATH"], "TMPDIR": self.scratch,
                       "TREVIXCTL": self.write("program", PROGRAM, 0o755), **variables}
        done = subprocess.run([path_of(script), "--jobs", "2"], env=environment, text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, check=False, timeout=60)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        words, _, mailboxes = done.stdout.partition("--\n")
        # Words that begin with two hyphens are no mark.
        return words.split("\n")[:-1], mailboxes.splitlines()

    def test_shell_scripts_are_well_formed(self):
        for name in ("trevix-share", "slurm-array.sh"):
            with open(path_of(name), encoding="utf-8") as file:
                shell = "bash" if "bash" in file.readline() else "sh"
            done = subprocess.run([shell, "-n", path_of(name)], stderr=subprocess.PIPE, text=True,
                                  check=False)
            self.assertEqual((done.returncode, done.stderr), (0, ""), name)

    def test_each_mailbox_is_in_one_share_and_stays_there(self):
        names = [f"user{number}" for number in range(50)] + ["a b", "--help", "it's$HOME"]
        users = self.write("users.txt", "# all\n\n" + "\n".join(names))
        found = {}
        for index in range(5):
            words, mailboxes = self.share(TREVIX_USERS=users, TREVIX_SHARES="5",
                                          JOB_COMPLETION_INDEX=str(index), TREVIX_SERVER="host")
            self.assertEqual(words, ["compress", "--server", "host", "--users-from", "-", "--jobs",
                                     "2"])
            for mailbox in mailboxes:
                self.assertNotIn(mailbox, found)
                found[mailbox] = index
        self.assertEqual(sorted(found), sorted(names))
        self.assertEqual(len(set(found.values())), 5)

        users = self.write("users.txt", "\n".join(names[10:]))
        _, mailboxes = self.share(TREVIX_USERS=users, SLURM_ARRAY_TASK_COUNT="5",
                                  SLURM_ARRAY_TASK_ID="3")
        self.assertEqual(mailboxes, [name for name in names[10:] if found[name] == 3])
        self.assertEqual([name for name in os.listdir(self.scratch) if "share." in name], [])

    def test_without_an_array_all_is_one_share(self):
        users = self.write("users.txt", "maildir:/a\nmaildir:/b\n")
        words, mailboxes = self.share(TREVIX_USERS=users)
        self.assertEqual(words, ["compress", "--users-from", "-", "--jobs", "2"])
        self.assertEqual(mailboxes, ["maildir:/a", "maildir:/b"])


class Slurm(Scratch):
    def start(self, program):
        share = self.write("share", program, 0o755)
        self.write("scontrol", "#!/bin/sh\necho \"$@\" > " + self.scratch + "/requeued\n", 0o755)
        return subprocess.Popen([path_of("slurm-array.sh")], text=True, stdout=subprocess.PIPE,
                                env={"PATH": self.scratch + ":" + os.environ["PATH"],
                                     "HOME": self.scratch, "TREVIX_SHARE": share,
                                     "SLURM_JOB_ID": "77", "SLURM_ARRAY_JOB_ID": "70",
                                     "SLURM_ARRAY_TASK_ID": "4", "SLURM_CPUS_PER_TASK": "3"})

    def requeued(self):
        path = os.path.join(self.scratch, "requeued")
        if not os.path.exists(path):
            return None
        with open(path, encoding="utf-8") as file:
            return file.read()

    def test_a_share_that_is_done_is_done(self):
        run = self.start("#!/bin/sh\necho \"$@\"\n")
        out, _ = run.communicate(timeout=60)
        self.assertEqual((run.returncode, out), (0, "--jobs 3 --max-time 110m\n"))
        self.assertIsNone(self.requeued())

    def test_a_share_that_was_cut_short_goes_on_later(self):
        for status in (75, 124):
            run = self.start(f"#!/bin/sh\nexit {status}\n")
            run.communicate(timeout=60)
            self.assertEqual(run.returncode, status)
            self.assertEqual(self.requeued(), "requeue 70_4\n")

    def test_hands_the_signal_to_end_on_and_waits(self):
        run = self.start("#!/bin/bash\ncoproc cat\ntrap 'echo ended; exit 130' TERM\necho begun\n"
                         "wait\n")
        self.assertEqual(run.stdout.readline(), "begun\n")
        run.send_signal(signal.SIGTERM)
        out, _ = run.communicate(timeout=60)
        self.assertEqual((run.returncode, out), (130, "ended\n"))

    def test_its_tasks_are_told_how_many_they_are(self):
        with open(path_of("slurm-array.sh"), encoding="utf-8") as file:
            self.assertRegex(file.read(), r"(?m)^#SBATCH --array=0-\d+%\d+$")


if __name__ == "__main__":
    unittest.main()
