"""Manual pages and completion say what --help says: the same commands, the same options, the same choices."""

import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

from fake_manager import BUILD, Bench

TOOLS = Path(__file__).resolve().parents[2] / "tools"
EVERYWHERE = {"--help", "--version", "-h"}


def help_of(program, *command):
    return subprocess.run([BUILD / "bin" / program, *command, "--help"], capture_output=True, text=True, timeout=20,
                          check=True).stdout


def options_in(help_text):
    """Those of a group that stands by itself as well."""
    section = help_text.split("\nOptions:\n", 1)[1].split("\n\n", 1)[0]
    return {name for line in section.splitlines() if re.match(r" +-", line) for name in line.split()[0].split(",")}


def commands_in(help_text):
    if "\nSubcommands:\n" not in help_text:
        return []
    return re.findall(r"^  (\w+)", help_text.split("\nSubcommands:\n", 1)[1], re.M)


def all_commands():
    """{("send",): options, ..., ("cfg", "get"): options}; a command that only has commands is none itself."""
    out = {}
    for name in commands_in(help_of("smsctl")):
        inner = commands_in(help_of("smsctl", name))
        for path in [(name, other) for other in inner] or [(name,)]:
            out[path] = options_in(help_of("smsctl", *path)) - EVERYWHERE
    return out


@pytest.fixture(scope="module")
def commands():
    return all_commands()


# ---- manual pages ----

def plain(text):
    """Roff without its font changes and escapes."""
    return re.sub(r"\\f.|\\&", "", text).replace("\\-", "-")


def options_of_page(text):
    return {name for tag in re.findall(r"^\.TP\n(.+)", plain(text), re.M)
            for name in re.findall(r"(?<!\S)--?[a-z][a-z0-9-]*", tag)}


def test_manual_of_smsctl(commands):
    text = (TOOLS / "man" / "smsctl.1").read_text()
    general = text.split(".SH OPTIONS\n")[1].split(".SH COMMANDS\n")[0]
    assert options_of_page(general) == options_in(help_of("smsctl"))
    sections = re.split(r"^\.SS (.+)\n", text.split(".SH COMMANDS\n")[1].split("\n.SH ")[0], flags=re.M)[1:]
    found = {}
    for heading, body in zip(sections[::2], sections[1::2]):
        words = plain(heading).split()
        path = tuple(words[:2]) if words[0] in ("smsc", "cfg", "flag", "devinfo") else (words[0],)
        found[path] = options_of_page(body)
    assert found == commands


def test_manual_of_at_owner():
    text = (TOOLS / "man" / "at_owner.8").read_text()
    assert options_of_page(text.split(".SH OPTIONS\n")[1].split("\n.SH ")[0]) == options_in(help_of("at_owner"))


SIMPLE = ["sms_pdu", "t750_sim", "handset", "modem"]       # a level of commands, or none


@pytest.mark.parametrize("program", SIMPLE)
def test_manual_of_the_other_programs(program):
    text = (TOOLS / "man" / f"{program}.1").read_text()
    assert options_of_page(re.split(r"^\.SH .*\n", text.split(".SH OPTIONS\n")[1], flags=re.M)[0]) == \
        options_in(help_of(program))
    found = {}
    if ".SH COMMANDS\n" in text:
        parts = re.split(r"^\.SS (.+)\n", text.split(".SH COMMANDS\n")[1].split("\n.SH ")[0], flags=re.M)[1:]
        for heading, body in zip(parts[::2], parts[1::2]):
            found[plain(heading).split()[0]] = options_of_page(body) | \
                set(re.findall(r"--[a-z]+", plain(heading)))
    assert found == {name: options_in(help_of(program, name)) - EVERYWHERE for name in commands_in(help_of(program))}


def test_every_program_has_a_manual_page():
    pages = {path.stem for path in (TOOLS / "man").iterdir()}
    assert pages == {"dv_sms_mgr", "smsctl", "at_owner", "sms_web", *SIMPLE}


def test_manual_of_the_daemon_names_its_only_switch():
    text = (TOOLS / "man" / "dv_sms_mgr.8").read_text()
    used = set(re.findall(r'strcmp\(argv\[i\], "(-\w)"\)', (TOOLS.parent / "src" / "main.cpp").read_text()))
    assert set(re.findall(r"^\\fB(-\w)\\fR$", text.replace("\\-", "-"), re.M)) == used == {"-D"}


@pytest.mark.skipif(not shutil.which("groff"), reason="no groff")
@pytest.mark.parametrize("page", sorted(path.name for path in (TOOLS / "man").iterdir()))
def test_pages_are_sound(page):
    done = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-z", TOOLS / "man" / page], capture_output=True, text=True,
                          timeout=20)
    assert done.stderr == "" and done.returncode == 0


# ---- completion ----

def complete(*words, function="_smsctl", file=None, env=None):
    """What completing the last of the words offers."""
    script = (f'source {TOOLS / "completion" / (file or function[1:])}; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); {function}; '
              'printf "%s\\n" "${COMPREPLY[@]}"')
    done = subprocess.run(["bash", "-c", script, "bash", *words], capture_output=True, text=True, timeout=20,
                          env=env or os.environ)
    assert done.stderr == "", done.stderr
    return set(done.stdout.split())


def test_completion_of_commands(commands):
    assert complete("smsctl", "") == {path[0] for path in commands}
    for parent in {path[0] for path in commands if len(path) == 2}:
        assert complete("smsctl", parent, "") == {path[1] for path in commands if path[0] == parent}
    assert complete("smsctl", "wa") == {"warn", "watch"}


def test_completion_of_options(commands):
    short = {"-y"}
    for path, options in commands.items():
        assert complete("smsctl", *path, "-") == options - short | {"--store", "--help", "--version"}, path
    assert complete("at_owner", "-", function="_at_owner") == options_in(help_of("at_owner")) - {"-h"}


def test_completion_of_choices(commands):
    boxes = set(re.search(r"\{([a-z,]+)\}", help_of("smsctl", "show")).group(1).split(","))
    for command in ("list", "show", "export", "delete"):
        assert complete("smsctl", command, "") == boxes
    items = {name for name in re.findall(r"([a-z-]+) \(\d+\)", help_of("smsctl", "devinfo", "get"))}
    assert complete("smsctl", "devinfo", "set", "") == items and items
    for kind in complete("smsctl", "warn", ""):
        assert re.search(rf"\b{kind}\b", help_of("smsctl", "warn"))
    assert complete("at_owner", "--flow", "", function="_at_owner") == {"none", "rtscts"}


def test_completion_of_message_numbers():
    with Bench(manager=False) as b:
        b.put("inbox", 3, "0 1 2026/01/01 10:00:00 x")
        b.put("inbox", 12, "0 1 2026/01/01 10:00:00 1 x")
        b.put("sent", 7, "0 1 2026-01-01 10:00:00 x")
        env = b.environment()
        env["PATH"] = f"{BUILD / 'bin'}:{env['PATH']}"
        assert complete("smsctl", "show", "inbox", "", env=env) == {"3", "12"}
        assert complete("smsctl", "read", "1", env=env) == {"12"}
        assert complete("smsctl", "delete", "sent", "", env=env) == {"7", "all"}
        assert complete("smsctl", "resend", "", env=env) == {"7"}
        assert complete("smsctl", "--store", str(b.root), "show", "inbox", "", env=env) == set()
        assert complete("smsctl", "show", "--json", "inbox", "", env=env) == {"3", "12"}


def complete_by_help(program, *words):
    env = {**os.environ, "PATH": f"{BUILD / 'bin'}:{os.environ['PATH']}"}
    return complete(program, *words, function="_dv_from_help", file="sms_pdu", env=env)


@pytest.mark.parametrize("program", SIMPLE)
def test_completion_by_help(program):
    names = commands_in(help_of(program))
    assert complete_by_help(program, "-") == options_in(help_of(program)) - {"-h"}
    if names:
        assert complete_by_help(program, "") == set(names)
    for name in names:
        assert complete_by_help(program, name, "-") == options_in(help_of(program, name)) - {"-h"}, name


def test_completion_by_help_of_choices(tmp_path):
    (tmp_path / "socket").touch()
    assert complete_by_help("modem", "sim", "") == {"in", "out"}
    assert complete_by_help("modem", "registered", "o") == {"on", "off"}
    assert complete_by_help("t750_sim", "--cscs", "") == {"IRA", "GSM", "UCS2"}
    assert complete_by_help("t750_sim", "--capacity", "") == set()
    assert complete_by_help("modem", "--control", f"{tmp_path}/") == {f"{tmp_path}/socket"}
    assert complete_by_help("modem", "--control", "status", "") == set(commands_in(help_of("modem"))), \
        "the value of an option is no command"
    assert complete_by_help("sms_pdu", "en") == {"encode"}


def test_completion_is_found_by_the_programs_name():
    """A completion file is looked up by the name of the command."""
    for program in ("smsctl", "at_owner", "sms_web", "sms_pdu"):
        script = f'source {TOOLS / "completion" / program}; complete -p {program}'
        assert subprocess.run(["bash", "-c", script], capture_output=True, timeout=20).returncode == 0, program
