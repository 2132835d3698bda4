"""The units, accounts and directories as systemd reads them."""

import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

UNITS = Path(__file__).resolve().parents[2] / "packaging" / "systemd"
SERVICES = ("dv_sms_mgr.service", "at_owner@.service")


def needs(program):
    if not shutil.which(program):
        pytest.skip(f"{program} is not installed")


def run(*arguments):
    done = subprocess.run(arguments, capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout + done.stderr


def settings(name):
    lines = (UNITS / name).read_text().splitlines()
    pairs = [line.split("=", 1) for line in lines if "=" in line and not line.startswith("#")]
    return {key: value for key, value in pairs}


@pytest.fixture
def root(tmp_path):
    needs("systemd-analyze")
    """A root with the programs in it, as far as systemd looks."""
    for name in ("usr/bin/dv_sms_mgr", "usr/bin/at_owner"):
        path = tmp_path / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text("#!/bin/sh\n")
        path.chmod(0o755)
    shutil.copytree("/lib/systemd/system", tmp_path / "lib/systemd/system", symlinks=True, ignore=lambda folder, names: [
        name for name in names if not name.endswith((".target", "tmpfiles-setup.service"))])
    (tmp_path / "etc").mkdir()
    for name in SERVICES:
        shutil.copy(UNITS / name, tmp_path / "lib/systemd/system" / name)
    for name, folder in (("dv_sms.sysusers", "sysusers.d"), ("dv_sms_platform.tmpfiles", "tmpfiles.d"),
                         ("dv_sms_mgr.tmpfiles", "tmpfiles.d")):
        path = tmp_path / "usr/lib" / folder / f"{Path(name).stem}.conf"
        path.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(UNITS / name, path)
    return tmp_path


@pytest.mark.parametrize("name", SERVICES)
def test_units_are_well_formed(root, name):
    needs("systemd-analyze")
    done = subprocess.run(["systemd-analyze", "verify", "--man=no", f"--root={root}", name.replace("@", "@ttyUSB2")],
                          capture_output=True, text=True, check=False, cwd=root)
    ours = [line for line in (done.stdout + done.stderr).splitlines() if re.search("dv_sms|at_owner", line)]
    assert ours == []


@pytest.mark.parametrize("name", SERVICES)
def test_the_sandbox_is_tight(name):
    needs("systemd-analyze")
    done = subprocess.run(["systemd-analyze", "security", "--offline=true", "--threshold=15", str(UNITS / name)],
                          capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout[-2000:] + done.stderr


@pytest.mark.parametrize("name", SERVICES)
def test_a_service_has_its_own_account_and_says_nothing_of_the_messages(name):
    unit = settings(name)
    assert unit["StandardOutput"] == "null", "raw AT lines carry numbers and texts"
    assert unit["User"] in ("dv_sms", "dv_at") and unit["Group"] == "dv_sms"
    assert unit["NoNewPrivileges"] == "yes" and unit["CapabilityBoundingSet"] == ""
    assert unit["Restart"] == "always" and unit["StartLimitIntervalSec"] == "0"


def test_a_modem_that_comes_after_the_service_can_be_opened():
    text = (UNITS / "at_owner@.service").read_text()
    for kind, driver in (("ttyUSB", "usbserial"), ("ttyACM", "cdc_acm"), ("wwan_port", "wwan")):
        assert f"DeviceAllow=char-{kind} rw" in text
        for order in ("Wants", "After"):
            assert re.search(rf"^{order}=.*\bmodprobe@{driver}\.service", text, re.MULTILINE)


def test_accounts_and_directories_are_made(root):
    needs("systemd-sysusers")
    needs("systemd-tmpfiles")
    if os.geteuid() != 0:
        pytest.skip("only root can give directories away")
    run("systemd-sysusers", f"--root={root}", "dv_sms.conf")
    accounts = {line.split(":")[0]: line.split(":") for line in (root / "etc/passwd").read_text().splitlines()}
    groups = {line.split(":")[0]: line.split(":") for line in (root / "etc/group").read_text().splitlines()}
    group = int(groups["dv_sms"][2])
    assert "dv_at" in groups["dv_sms"][3].split(",")
    run("systemd-tmpfiles", "--create", f"--root={root}", "dv_sms_platform.conf", "dv_sms_mgr.conf")
    for name in ("run/dvplatform", "run/dvplatform/bus", "run/dvplatform/flag", "run/dvplatform/devinfo"):
        held = (root / name).stat()
        assert (held.st_uid, held.st_gid, oct(held.st_mode & 0o7777)) == (0, group, "0o2770")
    store = (root / "mnt/data/sms").stat()
    assert (store.st_uid, store.st_gid, oct(store.st_mode & 0o7777)) == (int(accounts["dv_sms"][2]), group, "0o2750")
    assert os.readlink(root / "run/dvplatform/cfg") == "/etc/dvplatform/cfg"
