"""The manual page, the completion and the README of sms_web say what the program does."""

import re
import shutil
import subprocess

import pytest

from bench import BUILD, REPOSITORY

TOOLS = REPOSITORY / "tools"
MANUAL = TOOLS / "man" / "sms_web.8"


@pytest.fixture(name="options", scope="module")
def what_help_names():
    text = subprocess.run([BUILD / "bin" / "sms_web", "--help"], capture_output=True, text=True, timeout=60,
                          check=True).stdout
    section = text.split("\nOptions:\n", 1)[1].split("\n\n", 1)[0]
    return {name for line in section.splitlines() if line.startswith("  -") for name in line.split()[0].split(",")}


@pytest.fixture(name="routes", scope="module")
def what_the_server_answers():
    table = (TOOLS / "web" / "app.cpp").read_text().split("app::routes[] = {", 1)[1].split("};", 1)[0]
    return set(re.findall(r'\{"(GET|POST)", "([^"]+)"', table))


def test_manual_names_every_option(options):
    text = re.sub(r"\\f.|\\&", "", MANUAL.read_text()).replace("\\-", "-")
    section = text.split(".SH OPTIONS\n")[1].split("\n.SH ")[0]
    tags = re.findall(r"^\.TP\n(.+)", section, re.M)
    assert {name for tag in tags for name in re.findall(r"(?<!\S)--?[a-z][a-z-]*", tag)} == options


@pytest.mark.skipif(not shutil.which("groff"), reason="no groff")
def test_manual_is_sound():
    done = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-z", MANUAL], capture_output=True, text=True, timeout=20,
                          check=False)
    assert (done.returncode, done.stderr) == (0, "")


def complete(*words):
    """What completing the last of the words offers."""
    script = (f'source {TOOLS / "completion" / "sms_web"}; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _sms_web; '
              'printf "%s\\n" "${COMPREPLY[@]}"')
    done = subprocess.run(["bash", "-c", script, "bash", *words], capture_output=True, text=True, timeout=20, check=True)
    assert done.stderr == ""
    return set(done.stdout.split())


def test_completion_knows_every_option(options, tmp_path):
    assert complete("sms_web", "-") == options - {"-h"}
    assert complete("sms_web", "--to") == {"--token", "--token-file"}
    (tmp_path / "secret").touch()
    (tmp_path / "folder").mkdir()
    for option in sorted(options - {"-h", "--help", "--version"}):
        offered = complete("sms_web", option, f"{tmp_path}/")
        assert not any(word.startswith("-") for word in offered), f"{option} takes a value"
    assert complete("sms_web", "--token-file", f"{tmp_path}/s") == {f"{tmp_path}/secret"}
    assert complete("sms_web", "--store", f"{tmp_path}/") == {f"{tmp_path}/folder"}


def test_readme_has_every_path(routes):
    text = (TOOLS / "web" / "README.md").read_text()
    described = {(method, re.sub(r"[A-Z]+$", "", path)) for method, path in re.findall(r"\| `(GET|POST) (/[^ `?]*)", text)}
    assert described == routes | {("GET", "/")}
