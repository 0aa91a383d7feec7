"""Drives the built programs on scratch copies of a small mail store.

The programs come from the environment: TREVIXCTL and SYSCALL_RUNNER. Everything that the program
may write (home, settings, cache, temporary files, the store) lies in one scratch directory a run.
"""

import concurrent.futures
import dataclasses
import os
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

import mail_reader

REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
JOBS = int(os.environ.get("TREVIX_TEST_JOBS", "2"))
RUN_SECONDS = int(os.environ.get("TREVIX_RUN_SECONDS", "60"))
EXIT_DONE, EXIT_FAILED, EXIT_SOME_FAILED, EXIT_BUSY, EXIT_KILLED = 0, 1, 3, 75, 137
KINDS = "files,same_name_twice,own_log,picture_inside,signed,encrypted,only_a_file,text"


def skip(reason):
    """Skips the test, or fails it where everything must run."""
    if os.environ.get("TREVIX_REQUIRE_ALL") == "1":
        raise AssertionError(reason)
    raise unittest.SkipTest(reason)


def program(variable):
    path = os.environ.get(variable, "")
    if not path:
        skip(f"{variable} does not name a program")
    if not os.access(path, os.X_OK):
        raise AssertionError(f"{variable}: {path} is no program")
    return os.path.abspath(path)


def require_tracing():
    done = subprocess.run([program("SYSCALL_RUNNER"), "count", "--", "true"], capture_output=True,
                          text=True, check=False)
    if done.returncode == 77:
        skip("this system does not permit tracing a program (ptrace)")
    if done.returncode != 0:
        raise AssertionError(done.stderr)


def scratch_parent():
    """A file system in memory when there is room: tests that kill programs need no real disk."""
    memory = "/dev/shm"
    if os.access(memory, os.W_OK) and shutil.disk_usage(memory).free > 1 << 30:
        return memory
    return tempfile.gettempdir()


def make_store(path, seed="store", messages=8, kinds=KINDS, size_kb=4):
    """A small store with the given kinds of mail, in the Inbox and in nested folders."""
    subprocess.run([sys.executable, os.path.join(REPOSITORY, "scripts", "make_sample_mail"),
                    "--out", path, "--messages", str(messages), "--folders", "3", "--seed", seed,
                    "--size-kb", str(size_kb), "--kinds", kinds],
                   check=True, stdout=subprocess.DEVNULL)


@dataclasses.dataclass
class Done:
    """What became of a run; lines of the system-call runner are kept apart from standard error."""
    status: int
    out: str
    err: str
    runner: str

    @property
    def reached(self):
        return "was not reached" not in self.runner

    def describe(self):
        return f"exit {self.status}; {self.runner.strip()}\n{self.out[-600:]}{self.err[-1200:]}"


class Sandbox:
    """One scratch directory: a copy of a store, and a home of its own for the program."""

    def __init__(self, parent, template=None):
        self.root = tempfile.mkdtemp(prefix="trevix-test-", dir=parent)
        self.store = os.path.join(self.root, "Maildir")
        self.temporary = os.path.join(self.root, "tmp")
        self.cache = os.path.join(self.root, "cache")
        for name in ("home", "config", "cache", "state", "run", "tmp"):
            os.mkdir(os.path.join(self.root, name), 0o700)
        if template is not None:
            shutil.copytree(template, self.store)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.root, ignore_errors=True)

    def environment(self):
        kept = {name: os.environ[name] for name in ("PATH", "LD_LIBRARY_PATH", "UBSAN_OPTIONS")
                if name in os.environ}
        at = self.root
        kept.update(HOME=f"{at}/home", XDG_CONFIG_HOME=f"{at}/config", XDG_CACHE_HOME=self.cache,
                    XDG_STATE_HOME=f"{at}/state", XDG_RUNTIME_DIR=f"{at}/run",
                    TMPDIR=self.temporary, LANG="C.UTF-8", TZ="UTC")
        # A leak check stops at the tracer; leaks are looked for in the other tests.
        kept["ASAN_OPTIONS"] = "detect_leaks=0"
        return kept

    def command(self, *arguments):
        return [program("TREVIXCTL"), *arguments, "--maildir", self.store]

    def compress(self, *arguments, runner=()):
        """The compression run alone; an index run does nothing to any mail."""
        return self.run(self.command("compress", "--no-index", *arguments), runner)

    def run(self, command, runner=()):
        """Runs the command, under the system-call runner when its arguments are given."""
        if runner:
            command = [program("SYSCALL_RUNNER"), *runner, "--", *command]
        with subprocess.Popen(command, env=self.environment(), cwd=self.root, text=True,
                              errors="replace", stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            try:
                out, err = process.communicate(timeout=RUN_SECONDS)
            except subprocess.TimeoutExpired:
                process.kill()  # a killed runner takes its program along
                out, err = process.communicate()
                err += f"\nstopped after {RUN_SECONDS} s"
        lines = err.splitlines(keepends=True)
        own = [line for line in lines if line.startswith("syscall_runner:")]
        return Done(process.returncode, out,
                    "".join(line for line in lines if line not in own), "".join(own))

    def start_again(self, *arguments):
        """The next start after a run that died. Its lock may still hold; then a look at the status
        is what opens the store. None when all went well, else what did not."""
        again = self.compress(*arguments)
        if again.status == EXIT_BUSY:
            again = self.run(self.command("status"))
        if again.status not in (EXIT_DONE, EXIT_SOME_FAILED):
            return "the next start failed: " + again.describe()
        return None

    def snapshot(self, parser):
        return mail_reader.snapshot(self.store, parser)

    def temporary_entries(self):
        """What lies in the temporary directory, by relative path, the same in each sandbox."""
        own = self.root.replace("/", " ")
        return {os.path.relpath(os.path.join(path, name), self.temporary).replace(own, " sandbox")
                for path, folders, files in os.walk(self.temporary) for name in folders + files}


def in_parallel(trial, items, seconds, jobs=JOBS):
    """Runs trial(item) for the items, as many as the time allows, spread evenly over them.

    The first few tell how long one takes. Returns (results that are not None, number run).
    """
    items = list(items)
    if not items:
        return [], 0
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        begun = time.monotonic()
        probes = items[:: max(1, len(items) // 8)][:8]
        results = list(pool.map(trial, probes))
        each = (time.monotonic() - begun) / len(probes)
        rest = [item for item in items if item not in set(probes)]
        affordable = max(1, int((seconds - each * len(probes)) / each)) if seconds else len(rest)
        stride = -(-len(rest) // affordable) if rest else 1
        chosen = rest[::stride]
        results += pool.map(trial, chosen)
    return [result for result in results if result is not None], len(probes) + len(chosen)


def budget(seconds):
    """Seconds for a sweep; TREVIX_SWEEP_FACTOR stretches it, 0 means without limit."""
    return seconds * float(os.environ.get("TREVIX_SWEEP_FACTOR", "1"))


def report(test, what, failures):
    """Says how far a sweep went, and fails the test with the first failures in full."""
    print(f"{what}, {len(failures)} failures", file=sys.stderr)
    if failures:
        test.fail(f"{what}: {len(failures)} failures, the first are\n\n"
                  + "\n\n".join(str(failure) for failure in failures[:5]))
