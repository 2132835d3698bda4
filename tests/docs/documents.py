"""The documents' examples, taken out of them and followed from an empty directory."""

import os
import re
import subprocess
import sys
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPOSITORY / "tests" / "scenario"))
BUILD = Path(os.environ.get("DV_BUILD", REPOSITORY / "build" / "release"))
SANITIZE = os.environ.get("DV_SANITIZE", "")
GUIDES = sorted(REPOSITORY.glob("docs/*.md"))
DOCUMENTS = [REPOSITORY / "README.md", REPOSITORY / "CONTRIBUTING.md", *GUIDES]


def blocks(document, language):
    """The fenced blocks of a language, in order."""
    text = (REPOSITORY / "docs" / document).read_text()
    return re.findall(rf"^```{language}\n(.*?)^```$", text, re.M | re.S)


def checkout(folder):
    """A checkout as the guides name it, $DV, with what was built in build/release."""
    root = folder / "checkout"
    (root / "build").mkdir(parents=True)
    for entry in REPOSITORY.iterdir():
        if entry.name != "build" and not entry.name.startswith("."):
            (root / entry.name).symlink_to(entry)
    (root / "build" / "release").symlink_to(BUILD)
    return root


def compilers(folder):
    """cc and c++ as they are; in a sanitized build with its sanitizers, which its libraries need."""
    path = folder / "compilers"
    path.mkdir()
    for name in ("cc", "c++"):
        flags = f"-fsanitize={SANITIZE}" if SANITIZE else ""
        (path / name).write_text(f'#!/bin/sh\nexec /usr/bin/{name} {flags} "$@"\n')
        (path / name).chmod(0o755)
    return path


def follow(script, folder, **variables):
    """Runs it as one pastes it, and stops where it goes wrong."""
    env = {**os.environ, **{name: str(value) for name, value in variables.items()}}
    return subprocess.run(["bash", "-e", "-c", script], cwd=folder, env=env, capture_output=True, text=True, timeout=800,
                          stdin=subprocess.DEVNULL)
