"""The built programs carry what makes an attack on them harder: read off the files themselves."""

import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

BUILD = Path(os.environ["DV_BUILD"])
PROGRAMS = ["bin/dv_sms_mgr", "bin/dv_sms_mgr_workbench", "bin/at_owner", "bin/smsctl", "bin/sms_web"]
LIBRARY = "lib/libdvplatform.so"


def readelf(*arguments):
    if not shutil.which("readelf"):
        pytest.skip("no readelf here")
    return subprocess.run(["readelf", "--wide", *arguments], check=True, capture_output=True, text=True).stdout


def built(name):
    path = BUILD / name
    if not path.exists():
        found = list(BUILD.glob(f"{name}*")) + list(BUILD.glob(f"*/{Path(name).name}*"))
        path = found[0] if found else pytest.skip(f"{name} is not built")
    return path


def setting(name):
    cache = (BUILD / "CMakeCache.txt").read_text(encoding="utf-8")
    found = re.search(rf"^{name}:[A-Z]+=(.*)$", cache, re.MULTILINE)
    return found[1] if found else ""


@pytest.mark.parametrize("name", [*PROGRAMS, LIBRARY])
def test_where_it_is_loaded_and_what_stays_writable(name):
    path = built(name)
    header, segments, dynamic = readelf("-h", path), readelf("-l", path), readelf("-d", path)
    assert re.search(r"Type:\s+DYN", header), "position-independent"
    assert "GNU_RELRO" in segments, "relocations become read-only"
    assert re.search(r"\(FLAGS_1\).*\bNOW\b|\(FLAGS\).*BIND_NOW|\(BIND_NOW\)", dynamic), "all of them, at the start"
    stack = re.search(r"GNU_STACK\s.*", segments)[0]
    assert " RW " in stack and "RWE" not in stack, "no code on the stack"
    assert "TEXTREL" not in dynamic
    if name != LIBRARY:
        assert re.search(r"\(FLAGS_1\).*\bPIE\b", dynamic)


@pytest.mark.parametrize("name", [*PROGRAMS, LIBRARY])
def test_the_compiler_put_its_checks_in(name):
    if setting("DV_SANITIZE"):
        pytest.skip("a sanitizer's build has checks of its own")
    symbols = readelf("--dyn-syms", built(name))
    assert "__stack_chk_fail" in symbols, "stack protector"
    if setting("CMAKE_BUILD_TYPE") == "Debug":
        pytest.skip("fortify needs optimisation")
    assert re.search(r"__\w+_chk\b", symbols.replace("__stack_chk_fail", "")), "fortified calls"


def test_the_daemon_loads_no_more_than_it_needs():
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", readelf("-d", built("bin/dv_sms_mgr")))
    if not setting("DV_SANITIZE"):
        assert sorted(name.split(".so")[0] for name in needed) == ["libc", "libdvplatform"]
