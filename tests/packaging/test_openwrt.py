"""The router's packages: built from their Makefiles with a stand-in for the build system, and their start scripts."""

import os
import shutil
import subprocess
from pathlib import Path

import pytest

HERE = Path(__file__).resolve().parent
FEED = HERE.parents[1] / "packaging" / "openwrt"
BUILD = Path(os.environ["DV_BUILD"])
QUIET = ("-s", "--no-print-directory")
OPEN = ("CONFIG_DV_SMS_MGR_OPEN=y", "CONFIG_DV_SMS_MGR_SMALL_PAGES=y")
CLOSED = ("CONFIG_DV_SMS_MGR_PLATFORM_LIBRARIES=\"dvplatform;rt\"",)     # as many as there are on a workstation


def make(package, folder, *targets, env=None, settings=OPEN):
    include = folder / "include"
    include.mkdir(exist_ok=True)
    for path in (folder / "rules.mk", include / "package.mk", include / "cmake.mk"):
        if not path.exists():
            path.symlink_to(HERE / "sdk.mk")
    done = subprocess.run(
        ["make", "-C", str(FEED / package), *targets, f"TOPDIR={folder}", f"PKG_BUILD_DIR={folder}/source",
         f"PKG_INSTALL_DIR={folder}/staged", f"OUT={folder}/out", *settings],
        capture_output=True, text=True, timeout=250, check=False, env=dict(os.environ, **(env or {})))
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def test_the_daemon_is_built_alone_against_the_routers_libraries(tmp_path):
    make("dv_sms_mgr", tmp_path, "compile", env={"LDFLAGS": f"-L{BUILD}/lib", "CXXFLAGS": "-O0"})
    assert "max-page-size=4096" in (tmp_path / "source/build/build.ninja").read_text()
    make("dv_sms_mgr", tmp_path, "pack")
    got = sorted(str(path.relative_to(tmp_path / "out")) for path in (tmp_path / "out").rglob("*") if path.is_file())
    assert got == ["etc/config/dv_sms_mgr", "etc/init.d/dv_sms_mgr", "usr/bin/dv_sms_mgr"]
    staged = sorted(path.name for path in (tmp_path / "staged").rglob("*") if path.is_file())
    assert staged == ["dv_sms_mgr"], "nothing else is built or installed"
    said = subprocess.run(["readelf", "-d", str(tmp_path / "out/usr/bin/dv_sms_mgr")], capture_output=True, text=True,
                          check=True).stdout
    assert "[libdvplatform.so]" in said and "libstdc++" not in said
    assert make("dv_sms_mgr", tmp_path, *QUIET, "provides") == "", "libdvplatform is dv_sms_open's"
    said = make("dv_sms_mgr", tmp_path, *QUIET, "provides", settings=CLOSED)
    assert "libdvplatform.so\n" in said, "no package has it"


def test_the_libraries_are_the_ones_that_the_firmware_has(tmp_path):
    make("dv_sms_mgr", tmp_path, "configure", settings=CLOSED, env={"LDFLAGS": f"-L{BUILD}/lib"})
    rules = (tmp_path / "source/build/build.ninja").read_text()
    assert "-ldvplatform -lrt" in " ".join(rules.split()) and "max-page-size" not in rules


def test_the_open_router_gets_the_rest(tmp_path):
    make("dv_sms_open", tmp_path, "configure")
    for name, place in (("at_owner", "bin"), ("smsctl", "bin"), ("libdvplatform.so", "lib")):
        target = tmp_path / "staged" / "usr" / place / name
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(BUILD / place / name, target)       # built here already
    make("dv_sms_open", tmp_path, "pack")
    got = sorted(str(path.relative_to(tmp_path / "out")) for path in (tmp_path / "out").rglob("*") if path.is_file())
    assert got == ["etc/config/at_owner", "etc/dvplatform/cfg/SYS_SMS_MAX_SAVE_SIZE", "etc/dvplatform/cfg/SYS_SMS_SW",
                   "etc/init.d/at_owner", "usr/bin/at_owner", "usr/bin/smsctl", "usr/lib/libdvplatform.so"]


@pytest.mark.parametrize("package, files", [
    ("dv_sms_mgr", "/etc/config/dv_sms_mgr"), ("dv_sms_open", "/etc/config/at_owner /etc/dvplatform/cfg/")])
def test_settings_survive_an_upgrade_and_the_service_has_an_account(tmp_path, package, files):
    shown = dict(line.split("=", 1) for line in make(package, tmp_path, *QUIET, "show").splitlines())
    assert shown["conffiles"] == files
    assert "dv_sms=427" in shown["USERID"] and "libpthread" in shown["DEPENDS"]
    assert ("+DV_SMS_MGR_OPEN:dv_sms_open" in shown["DEPENDS"]) == (package == "dv_sms_mgr")


# ---- the start scripts ----

STUBS = """
said() { printf '%s\\n' "$*"; }
config_load() { said "load $1"; }
config_get() { eval "$1=\\${CONF_$3-\\$4}"; }
config_get_bool() { config_get "$@"; }
for name in procd_open_instance procd_set_param procd_append_param procd_close_instance procd_add_reload_trigger \\
    mkdir chown chmod ln logger group_add_user; do
    eval "$name() { said $name \\"\\$@\\"; }"
done
"""


def settings_of(path):
    """The options of a UCI file as variables for the stubs."""
    lines = (line.split(None, 2) for line in path.read_text().splitlines())
    return {f"CONF_{words[1]}": words[2].strip("'") for words in lines if words[:1] == ["option"]}


def start(package, name, **changed):
    files = FEED / package / "files"
    env = {**os.environ, **settings_of(files / f"{name}.config")}
    env.update({f"CONF_{key}": value for key, value in changed.items()})
    done = subprocess.run(["sh", "-eu", "-c", f"{STUBS}\n. {files}/{name}.init\nstart_service\n"], capture_output=True,
                          text=True, check=False, env=env)
    assert done.returncode == 0, done.stderr
    return done.stdout.splitlines()


def test_the_daemon_is_started_by_the_supervisor_for_its_own_account():
    said = start("dv_sms_mgr", "dv_sms_mgr")
    for line in ("procd_set_param command /usr/bin/dv_sms_mgr", "procd_set_param user dv_sms",
                 "procd_set_param group dv_sms", "procd_set_param respawn 3600 5 0", "procd_set_param no_new_privs 1",
                 "chown dv_sms:dv_sms /mnt/data/sms", "chmod 2750 /mnt/data/sms"):
        assert line in said
    assert "procd_set_param stdout 0" in said, "numbers and texts stay out of the system log"
    assert "procd_append_param command -D" not in said


def test_tracing_is_asked_for():
    said = start("dv_sms_mgr", "dv_sms_mgr", trace="1")
    assert "procd_append_param command -D" in said and "procd_set_param stdout 1" in said


@pytest.mark.parametrize("package, name", [("dv_sms_mgr", "dv_sms_mgr"), ("dv_sms_open", "at_owner")])
def test_what_is_switched_off_is_not_started(package, name):
    assert "procd_open_instance" not in start(package, name, enabled="0")


def test_the_owner_of_the_port_gets_its_options_a_word_each():
    said = start("dv_sms_open", "at_owner", port="/dev/ttyUSB*", options="--generic --store-first")
    assert "procd_set_param command /usr/bin/at_owner --port /dev/ttyUSB* --generic --store-first" in said
    assert "chown root:dv_sms /var/run/dvplatform" in said and "chmod 2770 /var/run/dvplatform/bus" in said
    assert "ln -s /etc/dvplatform/cfg /var/run/dvplatform/cfg" in said
    if not os.path.exists("/run/dvplatform"):
        assert "ln -sf /var/run/dvplatform /run/dvplatform" in said, "smsctl finds it"
    assert "procd_set_param respawn 3600 5 0" in said


def test_the_start_scripts_are_plain_shell():
    if not shutil.which("shellcheck"):
        pytest.skip("shellcheck is not installed")
    for script in FEED.glob("*/files/*.init"):
        done = subprocess.run(["shellcheck", "-s", "dash", "-e", "SC2034", str(script)], capture_output=True, text=True,
                              check=False)
        assert done.returncode == 0, done.stdout
