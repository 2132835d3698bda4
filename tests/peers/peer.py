"""A simulated generic modem for a program that others wrote."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "scenario"))
from bench import Bench                                               # noqa: E402
from processes import Process, wait_for                               # noqa: E402, F401

PATH = f"{os.environ['PATH']}:/usr/sbin"        # where Debian puts services; not on every account's path
NOBODY = 65534
FROM, TO = "+31687654321", "31612345678"
INCOMING = "Hello from the handset: 5€ [yes/no]"
OUTGOING = "Hello from the router"


def needs(program):
    """The test is left out where the program is not installed."""
    return pytest.mark.skipif(shutil.which(program, path=PATH) is None, reason=f"{program} is not installed")


class PeerBench(Bench):
    """The modem alone, in real time: other people's programs keep their own."""

    def __init__(self):
        super().__init__(factor=1)

    def start_generic_modem(self):
        self.start_modem("--generic")

    def folder(self, name):
        path = self.root / name
        path.mkdir()
        return path

    def launch_peer(self, name, *arguments, **variables):
        """A process of somebody else's; its end is no complaint of ours unless the test awaits it."""
        environment = dict(os.environ, **variables, LC_ALL="C.UTF-8", PATH=PATH)
        process = Process(name, [*arguments], str(self.root), environment, cwd=self.root)
        self.processes.append(process)
        return process

    def run_peer(self, *arguments, **more):
        return subprocess.run([str(argument) for argument in arguments], check=True, timeout=60, cwd=self.root,
                              capture_output=True, **more)
