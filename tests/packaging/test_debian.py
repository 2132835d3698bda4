"""The Debian packages: what is in them, and the installed daemon at work in a root of its own."""

import os
import re
import shutil
import stat
import subprocess
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "scenario"))
from bench import BUILD, Bench, Store                                 # noqa: E402
from processes import Process                                         # noqa: E402

NAMES = ("dv-sms-mgr", "dv-sms-platform", "dv-sms-tools")
NOBODY = 65534

# What must be in each, beside its documents.
CONTENT = {
    "dv-sms-mgr": ["lib/systemd/system/dv_sms_mgr.service", "usr/bin/dv_sms_mgr", "usr/lib/tmpfiles.d/dv_sms_mgr.conf",
                   "usr/share/man/man8/dv_sms_mgr.8.gz", "usr/share/doc/dv-sms-mgr/examples/trace.conf"],
    "dv-sms-platform": ["lib/systemd/system/at_owner@.service", "usr/bin/at_owner", "usr/bin/smsctl",
                        "usr/lib/sysusers.d/dv_sms.conf", "usr/lib/tmpfiles.d/dv_sms_platform.conf",
                        "etc/default/at_owner", "etc/dvplatform/cfg/SYS_SMS_SW",
                        "etc/dvplatform/cfg/SYS_SMS_MAX_SAVE_SIZE", "usr/share/man/man8/at_owner.8.gz",
                        "usr/share/man/man1/smsctl.1.gz", "usr/share/bash-completion/completions/smsctl",
                        "usr/share/bash-completion/completions/at_owner"],
    "dv-sms-tools": ["usr/bin/sms_web", "usr/bin/sms_pdu"],
}


def run(*arguments, **more):
    return subprocess.run([str(argument) for argument in arguments], check=True, capture_output=True, text=True,
                          timeout=120, **more).stdout


@pytest.fixture(scope="module")
def packages(tmp_path_factory):
    """The three packages, made from the build in a directory of their own."""
    folder = tmp_path_factory.mktemp("packages")
    run(os.environ.get("DV_CPACK", "cpack"), "-G", "DEB", "--config", BUILD / "CPackConfig.cmake", "-B", folder)
    return {name: next(folder.glob(f"{name}_*.deb")) for name in NAMES}


@pytest.fixture(scope="module")
def scratch(packages, tmp_path_factory):
    """A root that all of them are unpacked into."""
    root = tmp_path_factory.mktemp("root")
    for package in packages.values():
        run("dpkg-deb", "-x", package, root)
    return root


@pytest.mark.parametrize("name", NAMES)
def test_each_holds_what_it_should(packages, name):
    held = {line.split()[5].removeprefix("./") for line in run("dpkg-deb", "-c", packages[name]).splitlines()}
    plain = {re.sub(r"usr/lib/[^/]+-linux-gnu[^/]*/", "usr/lib/", path) for path in held}
    for path in CONTENT[name]:
        assert path in plain
    assert ("usr/lib/libdvplatform.so" in plain) == (name == "dv-sms-platform")
    assert not any("workbench" in path or "t750" in path for path in held)


@pytest.mark.parametrize("name", NAMES)
def test_the_checker_of_packages_has_nothing_to_say(packages, name):
    if not shutil.which("lintian"):
        pytest.skip("lintian is not installed")
    done = subprocess.run(["lintian", "--allow-root", str(packages[name])], capture_output=True, text=True,
                          timeout=120, check=False)
    assert done.stdout == "" and done.returncode == 0


def test_settings_survive_an_upgrade(packages):
    held = run("dpkg-deb", "-I", packages["dv-sms-platform"], "conffiles").split()
    assert held == ["/etc/default/at_owner", "/etc/dvplatform/cfg/SYS_SMS_MAX_SAVE_SIZE", "/etc/dvplatform/cfg/SYS_SMS_SW"]


def test_the_daemon_needs_the_platform_and_the_c_library_alone(packages):
    depends = run("dpkg-deb", "-f", packages["dv-sms-mgr"], "Depends")
    assert sorted(re.sub(r" \(.*?\)", "", depends).strip().split(", ")) == ["dv-sms-platform", "libc6"]


def needed(program):
    """The files that a program needs to run: itself, its interpreter and libraries."""
    program = os.path.realpath(program)
    return [program, *re.findall(r"(/\S+) \(0x", run("ldd", program))]


def furnish(root, platform_libraries):
    """What the daemon's commands need of a system; nothing of it is mounted, so no right is needed but chroot's."""
    (root / "bin").symlink_to("usr/bin")
    for name in ("sh", "ls", "head", "grep", "wc", "rm", "mkdir"):
        path = shutil.which(name, path="/usr/bin")
        for file in {path, *needed(path)}:
            copy_in(root, file)
    for file in re.findall(r"(/\S+) \(0x", run("ldd", root / "usr/bin/dv_sms_mgr",
                                               env=dict(os.environ, LD_LIBRARY_PATH=str(platform_libraries)))):
        if not file.startswith(str(root)):
            copy_in(root, file)
    (root / "dev").mkdir(exist_ok=True)
    (root / "dev/null").touch()
    (root / "dev/null").chmod(0o666)


def copy_in(root, file):
    for path in {file, os.path.realpath(file)}:
        place = root / path.lstrip("/")
        place.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(os.path.realpath(file), place)


def other_root():
    """How a program is started in another root by an account without rights; None where nothing of it is allowed."""
    if os.geteuid() == 0:
        return ["chroot", f"--userspec={NOBODY}:{NOBODY}"]
    allowed = subprocess.run(["unshare", "--user", "--map-root-user", "true"], capture_output=True, check=False)
    return ["unshare", "--user", "--map-root-user", "chroot"] if allowed.returncode == 0 else None


class Installed(Bench):
    """The installed daemon and owner of the port, and the simulated modem beside them."""

    def __init__(self, root):
        super().__init__(factor=1)
        self.installed = root
        self.libraries = next(root.glob("usr/lib/**/libdvplatform.so")).parent
        shutil.rmtree(self.platform)
        self.platform.symlink_to(root / "run/dvplatform")
        for folder in ("bus", "flag", "devinfo"):
            os.makedirs(root / "run/dvplatform" / folder, exist_ok=True)
        shutil.copytree(root / "etc/dvplatform/cfg", root / "run/dvplatform/cfg", dirs_exist_ok=True)
        self.store = Store(root / "mnt/data/sms")
        os.makedirs(self.store.folder, exist_ok=True)

    def launch_installed(self, name, *command, **more):
        env = dict(self.environment(), **more)
        process = Process(name, [*command], str(self.root), env, cwd=self.root)
        self.processes.append(process)
        return process

    def start_owner(self, *options):
        self.owner = self.launch_installed("at_owner", self.installed / "usr/bin/at_owner", self.port, *options,
                                           LD_LIBRARY_PATH=str(self.libraries))
        self.wait(lambda: "ready" in self.owner.out(), "the installed owner of the port is ready")

    def start_daemon(self, *options):
        self.log_path = self.installed / "run/dvplatform/log"
        inside = "/" + str(self.libraries.relative_to(self.installed))
        self.daemon = self.launch_installed(
            "dv_sms_mgr", *other_root(), self.installed, "/usr/bin/dv_sms_mgr", "-D", *options,
            LD_LIBRARY_PATH=inside, DV_PLATFORM_ROOT="/run/dvplatform", DV_PLATFORM_LOG="/run/dvplatform/log")


def give_to(uid, *paths):
    """The account of the service owns these, as tmpfiles.d would have it."""
    for top in paths:
        for folder, folders, files in os.walk(top):
            for path in (folder, *(os.path.join(folder, name) for name in (*folders, *files))):
                os.chown(path, uid, uid, follow_symlinks=False)


def test_the_installed_daemon_takes_in_and_sends(scratch):
    if other_root() is None:
        pytest.skip("no right to change the root")
    with Installed(scratch) as bench:
        furnish(scratch, bench.libraries)
        bench.devinfo["301001"] = "1"
        bench.devinfo["301002"] = "LTE"
        bench.start_modem()
        bench.start_owner()
        if os.geteuid() == 0:
            for folder in (scratch, *scratch.parents[:2]):
                folder.chmod(folder.stat().st_mode | stat.S_IXOTH)
            give_to(NOBODY, scratch / "run", scratch / "mnt")
        bench.start_daemon()
        bench.wait_service()
        bench.handset("send", "--from", "+31687654321", "--date", "2024-03-05 14:07:00", "Hello router")
        bench.wait_records("read", 1)
        assert bench.store.content("read", 1) == b"1 0 +31687654321 2024/03/05 14:07:00 Hello router"
        assert bench.send("+31687654321", "Hello you") == 0
        message, = bench.inbox(1)
        assert message["text"] == "Hello you"
        assert "msg(0x1010) from at_owner" in bench.trace()
        held = Path(bench.store.folder, "sms_read", "1").stat()
        assert held.st_uid == (NOBODY if os.geteuid() == 0 else os.geteuid())
