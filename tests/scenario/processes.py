"""Processes that a bench starts: watched, never left behind, and what they said kept in files."""

import ctypes
import os
import signal
import subprocess
import time

PR_SET_PDEATHSIG = 1
SANITIZER_EXIT = 86
SANITIZER_WORDS = ("ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "WARNING: ThreadSanitizer",
                   "FATAL: ThreadSanitizer", "runtime error: ", "SUMMARY: UndefinedBehaviorSanitizer")

# How many times longer everything may last than it should: for a machine that has stood still.
PATIENCE = int(os.environ.get("DV_PATIENCE", "1"))

_libc = ctypes.CDLL(None, use_errno=True)


class Trouble(AssertionError):
    """What was awaited did not come, or a process went wrong."""


def paced(factor):
    """How fast time passes where it should be `factor` times as fast."""
    return max(1, factor // PATIENCE)


def wait_for(condition, what, seconds=20, interval=0.01):
    """The first true value of `condition`; raises Trouble after `seconds` of real time, times PATIENCE."""
    seconds *= PATIENCE
    deadline = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise Trouble(f"not seen within {seconds} s: {what() if callable(what) else what}")
        time.sleep(interval)


def environment(factor=1, library=None, **more):
    """The environment of a program under test: the caller's, with time `factor` times as fast. The seconds of the date
    pass as fast: the daemon tells its AT requests apart by them, so that an answer which comes too late is none."""
    env = {key: value for key, value in os.environ.items() if not key.startswith(("DV_PLATFORM", "LD_PRELOAD"))}
    if factor != 1:
        env.update(LD_PRELOAD=str(library), FAST_TIME=str(factor), FAST_SECONDS="1")
    env.update(ASAN_OPTIONS=f"verify_asan_link_order=0:exitcode={SANITIZER_EXIT}",
               TSAN_OPTIONS=f"atexit_sleep_ms=0:exitcode={SANITIZER_EXIT}",
               UBSAN_OPTIONS="print_stacktrace=1", LC_ALL="C.UTF-8", TZ="UTC")
    env.update(more)
    return env


class Process:
    """A program that runs on its own until it is stopped."""

    def __init__(self, name, arguments, folder, env, cwd=None):
        self.name = name
        self.out_path = os.path.join(folder, f"{name}.out")
        self.err_path = os.path.join(folder, f"{name}.err")
        self.stopped = False
        parent = os.getpid()

        def tie_to_parent():                    # it must not outlive us, however we end
            _libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
            if os.getppid() != parent:
                os._exit(1)

        with open(self.out_path, "ab") as out, open(self.err_path, "ab") as err:
            self.popen = subprocess.Popen([str(argument) for argument in arguments], stdin=subprocess.DEVNULL,
                                          stdout=out, stderr=err, cwd=cwd, env=env, preexec_fn=tie_to_parent,
                                          start_new_session=True)

    def out(self):
        return read_text(self.out_path)

    def err(self):
        return read_text(self.err_path)

    def ended(self):
        """What it ended with when nobody had asked it to, else None."""
        return None if self.stopped else self.popen.poll()

    def stop(self, number=signal.SIGTERM):
        """Ends it and gives its exit code, as subprocess does."""
        if self.popen.poll() is None:
            self.stopped = True
            self.popen.send_signal(number)
            try:
                self.popen.wait(10)
            except subprocess.TimeoutExpired:
                self.popen.kill()
                self.popen.wait()
        return self.popen.returncode

    def complaint(self):
        """What went wrong with it by itself: an end that nobody asked for, or a sanitizer's report."""
        said = self.err() + self.out()
        for word in SANITIZER_WORDS:
            if word in said:
                return f"{self.name}: {said[max(0, said.index(word) - 200):][:6000]}"
        code = self.popen.poll()
        if code is not None and not self.stopped:
            return f"{self.name} ended by itself with {code}: {self.err()[-2000:]}"
        if code is not None and code not in (0, -signal.SIGTERM, -signal.SIGKILL, 128 + signal.SIGTERM):
            return f"{self.name} ended with {code} when it was stopped: {self.err()[-2000:]}"
        return None


def read_text(path):
    """A file's text, or "" where there is none. Bytes that are not UTF-8 are kept as surrogates."""
    try:
        with open(path, "rb") as file:
            return file.read().decode("utf-8", "surrogateescape")
    except FileNotFoundError:
        return ""
