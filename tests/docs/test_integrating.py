"""docs/integrating.md, followed by the engineer of a firmware: the daemon against libraries that are not ours."""

import os
import re
import subprocess

import pytest

from documents import REPOSITORY, blocks, checkout, follow

INCLUDE = REPOSITORY / "platform" / "include"
# How a router may have divided its functions; the names are its own.
LIBRARIES = {"sockmsg": ["sockmsg.h"], "cfg": ["cfg.h", "flag.h", "devinfo.h"], "util": ["commlog.h", "util.h"]}


def functions(header):
    """(result, name, parameters) of each."""
    text = re.sub(r"/\*.*?\*/", "", (INCLUDE / header).read_text(), flags=re.S)
    text = re.sub(r"^#.*?(?<!\\)$", "", text, flags=re.M)
    return re.findall(r"^\s*(int|void|const char \*) ?\*?(\w+)\(([^()]*)\)[^;{}]*;", text, re.M)


def closed_library(folder, name, headers, result):
    """A shared library with nothing but the names: what a router's own looks like to a linker."""
    lines = ["#include <stdio.h>"] + [f'#include "{header}"' for header in headers]
    for header in headers:
        for kind, function, parameters in functions(header):
            said = f'puts("closed {function}"); fflush(stdout); ' if function == "init_sockmsg" else ""
            answer = "" if kind == "void" else f"return {result if kind == 'int' else 0};"
            lines.append(f"{kind} {function}({parameters}) {{ {said}{answer} }}")
    folder.mkdir(exist_ok=True)
    source = folder / f"{name}.c"
    source.write_text("\n".join(lines) + "\n")
    subprocess.run(["/usr/bin/cc", "-shared", "-fPIC", "-w", f"-I{INCLUDE}", source, "-o", folder / f"lib{name}.so"],
                   check=True, timeout=60)
    source.unlink()


@pytest.fixture(name="here")
def empty_directory(tmp_path):
    here = tmp_path / "empty"
    (here / "lib").mkdir(parents=True)
    for name, headers in LIBRARIES.items():
        closed_library(here / "lib", name, headers, -1)
    return here


def needed(program):
    text = subprocess.run(["readelf", "-d", program], capture_output=True, text=True, check=True, timeout=20).stdout
    return set(re.findall(r"NEEDED.*\[(.*)\]", text))


def expect_linked(program):
    libraries = needed(program)
    assert {"libsockmsg.so", "libcfg.so", "libutil.so"} <= libraries
    assert not any(name.startswith(("libdvplatform", "libstdc++")) for name in libraries), libraries


def test_every_function_of_the_platform_is_in_a_library():
    names = {name for headers in LIBRARIES.values() for header in headers for _, name, _ in functions(header)}
    exported = set(re.findall(r"^\s+(\w+);", (REPOSITORY / "platform/linux/dvplatform.map").read_text(), re.M))
    assert names == exported and len(names) == 18


def test_it_is_built_with_cmake(here, tmp_path):
    done = follow(blocks("integrating.md", "sh")[0], here, DV=checkout(tmp_path))
    assert done.returncode == 0, done.stdout + done.stderr
    program = here / "build" / "bin" / "dv_sms_mgr"
    expect_linked(program)
    ran = subprocess.run([program], capture_output=True, text=True, timeout=20)
    assert (ran.returncode, ran.stdout) == (255, "closed init_sockmsg\n"), "a failing bus ends the start"


def test_it_is_built_by_a_compiler_alone(here, tmp_path):
    done = follow(blocks("integrating.md", "sh")[1], here, DV=checkout(tmp_path))
    assert done.returncode == 0, done.stderr
    expect_linked(here / "dv_sms_mgr")
    ran = subprocess.run([here / "dv_sms_mgr"], capture_output=True, text=True, timeout=20,
                         env={**os.environ, "LD_LIBRARY_PATH": str(here / "lib")})
    assert (ran.returncode, ran.stdout) == (255, "closed init_sockmsg\n")


def test_another_library_takes_the_place_of_ours(here, tmp_path):
    closed_library(here / "replacement", "dvplatform", [header for headers in LIBRARIES.values() for header in headers], -1)
    done = follow(blocks("integrating.md", "sh")[2], here, DV=checkout(tmp_path))
    assert (done.returncode, done.stdout) == (255, "closed init_sockmsg\n"), done
