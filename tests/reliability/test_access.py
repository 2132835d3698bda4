"""Who may talk to the daemon, and that it needs no privilege itself."""

import os
import pwd
import shutil
import stat
import subprocess
import sys

import pytest

import common

common.in_memory()

import bus  # noqa: E402
import processes  # noqa: E402
from bench import Bench  # noqa: E402

SENDS = """
import socket, sys
s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
try:
    s.sendto(bytes(4116), sys.argv[1])
except OSError as error:
    sys.exit(error.errno)
"""


def as_user(name, *command, **options):
    """Runs a command as another user with no other groups; gives its exit code."""
    if os.geteuid() == 0:
        become = [shutil.which("setpriv") or pytest.skip("no setpriv here"), f"--reuid={name}",
                  f"--regid={pwd.getpwnam(name).pw_gid}", "--clear-groups", "--"]
    elif shutil.which("sudo") and subprocess.run(["sudo", "-n", "true"], capture_output=True, check=False).returncode == 0:
        become = ["sudo", "-n", "-u", name, "--"]
    else:
        pytest.skip("needs root, or sudo without a password, to become a second user")
    return subprocess.run([*become, *map(str, command)], capture_output=True, check=False, **options)


def own_private_root(bench):
    """As an installation has it: the bench's directory is passable, the platform's belongs to its owner and group."""
    os.chmod(bench.root, 0o755)
    shutil.rmtree(bench.platform)


def set_values(bench):
    for values in (bench.cfg, bench.flag, bench.devinfo):
        os.makedirs(values.folder, exist_ok=True)
    bench.cfg["SYS_SMS_SW"] = "1"
    bench.devinfo[301001] = "1"
    bench.devinfo[301002] = "LTE"


def test_other_users_are_kept_out_of_the_bus():
    with Bench() as bench:
        own_private_root(bench)
        before = os.umask(0)                    # the modes must not depend on who starts it
        try:
            bench.start_daemon()
            bench.wait(lambda: os.path.exists(f"{bench.bus}/27"), "the bus is there")
        finally:
            os.umask(before)
        for path, mode in ((bench.platform, 0o770), (bench.bus, 0o770), (f"{bench.bus}/27", 0o660),
                           (f"{bench.bus}/27.lock", 0o660)):
            assert stat.S_IMODE(os.stat(path).st_mode) == mode, path
        set_values(bench)
        own = subprocess.run([sys.executable, "-c", SENDS, f"{bench.bus}/27"], check=False)
        assert own.returncode == 0              # whoever starts the daemon may talk to it
        bench.wait_trace("recv msg(0x0000) from")
        for what in (["-c", SENDS, f"{bench.bus}/27"],
                     ["-c", "import os, sys; os.listdir(sys.argv[1])", bench.bus],
                     ["-c", "import sys; open(sys.argv[1], 'w')", f"{bench.cfg.folder}/SYS_SMS_SW"]):
            refused = as_user("nobody", "/usr/bin/python3", *what)
            assert refused.returncode != 0, what
            if "socket" in what[1]:
                assert refused.returncode == 13, refused.stderr     # EACCES
            else:
                assert b"PermissionError" in refused.stderr
        bench.request(0x9999)
        bench.wait_trace("recv msg(0x9999) from")
        assert bench.trace().count("recv msg(0x0000) from") == 1


def test_a_socket_alone_keeps_them_out_too():
    """Even where somebody has opened the directory, the socket is its owner's and group's."""
    with Bench() as bench:
        own_private_root(bench)
        bench.start_daemon()
        bench.wait(lambda: os.path.exists(f"{bench.bus}/27"), "the bus is there")
        os.chmod(bench.platform, 0o755)
        os.chmod(bench.bus, 0o755)
        assert as_user("nobody", "/usr/bin/python3", "-c", SENDS, f"{bench.bus}/27").returncode == 13
        set_values(bench)


class AsAccount:
    """Stands for subprocess where the bench starts its processes: they become the account, without any capability."""

    def __init__(self, account):
        self.setpriv = shutil.which("setpriv") or pytest.skip("no setpriv here")
        self.account = account

    def __getattr__(self, name):
        return getattr(subprocess, name)

    def Popen(self, arguments, **options):      # pylint: disable=invalid-name
        return subprocess.Popen([self.setpriv, f"--reuid={self.account.pw_uid}", f"--regid={self.account.pw_gid}",
                                 "--clear-groups", "--inh-caps=-all", "--bounding-set=-all", "--no-new-privs", "--",
                                 *arguments], **options)


def give_to(account, folder):
    for path, _, names in os.walk(folder):
        os.chown(path, account.pw_uid, account.pw_gid)
        os.chmod(path, 0o770)
        for name in names:
            os.chown(os.path.join(path, name), account.pw_uid, account.pw_gid)


@pytest.fixture
def account(monkeypatch):
    if os.geteuid() != 0:
        pytest.skip("the ordinary tests already run without privilege")
    program = Bench.__init__.__globals__["BUILD"] / "bin" / "dv_sms_mgr_workbench"
    if as_user("nobody", "test", "-x", program).returncode != 0:
        pytest.skip("the account cannot reach the built programs")
    account = pwd.getpwnam("nobody")
    monkeypatch.setattr(processes, "subprocess", AsAccount(account))
    return account


def test_the_daemon_works_as_an_unprivileged_account(account):
    """An account that owns the bus and the store, and nothing else: messages come in and go out."""
    with Bench() as bench:
        give_to(account, bench.root)
        bench.start()
        with open(f"/proc/{bench.daemon.popen.pid}/status", encoding="utf-8") as file:
            status = dict(line.split(":", 1) for line in file)
        assert status["Uid"].split() == [str(account.pw_uid)] * 4
        assert int(status["CapEff"], 16) == 0 and int(status["CapPrm"], 16) == 0
        for via in ("cmt", "cmti"):
            bench.handset("send", "--via", via, f"by {via}")
        bench.wait_records("read", 2)
        assert bench.send("+31687654321", "out") == 0
        assert [message["text"] for message in bench.inbox(1)] == ["out"]
        assert bench.ask(bus.MSG_READ, b"READ ALL") == 0
        assert [record.state for record in bench.store.records("read")] == [1, 1]
        assert bench.ask(bus.MSG_DELETE_RECEIVED, b"DELETE ALL") == 0
        assert bench.draft("1", "draft") == 0
        for path, _, names in os.walk(bench.store.folder):
            assert all(os.stat(os.path.join(path, name)).st_uid == account.pw_uid for name in (*names, "."))


def test_an_account_without_a_store_refuses_and_goes_on(account):
    """The store belongs to somebody else: nothing is filed, nobody dies; given to the account, it is used."""
    with Bench() as bench:
        bench.start_fake_owner()
        give_to(account, bench.root)
        bench.store.folder.mkdir(parents=True)
        bench.start_daemon()
        bench.wait_service()
        assert bench.draft("1", "mine") == 500
        assert bench.store.numbers("draft") == []
        give_to(account, bench.root / "mnt")
        assert bench.draft("1", "mine") == 0
        assert bench.store.texts("draft") == ["mine"]
