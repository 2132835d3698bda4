"""What the documents name is there: files, functions, options of the build, links."""

import re

import pytest

from documents import DOCUMENTS, REPOSITORY

FOLDERS = ["src", "platform", "modem", "tools", "tests", "cmake"]
SOURCES = {path: path.read_text(errors="replace")
           for folder in FOLDERS for path in (REPOSITORY / folder).rglob("*")
           if path.is_file() and path.suffix != ".md" and "__pycache__" not in path.parts and path.parent.name != "docs"}
EVERYTHING = "\n".join(SOURCES.values())
DOCUMENT = pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)


def spans(document):
    text = re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.M | re.S)
    return re.findall(r"`([^`\n]+)`", text)


@DOCUMENT
def test_links_lead_somewhere(document):
    for target in re.findall(r"\]\(([^)#]+)\)", document.read_text()):
        assert target.startswith("http") or (document.parent / target).exists(), target


@DOCUMENT
def test_paths_are_there(document):
    for span in spans(document):
        if re.fullmatch(r"(src|platform|modem|tools|tests|docs|cmake)/[\w./-]*", span):
            stem = REPOSITORY / span
            assert stem.exists() or list(stem.parent.glob(stem.name + ".*")), span


@DOCUMENT
def test_names_are_in_the_sources(document):
    for span in spans(document):
        name = re.sub(r"\(.*", "", span.split()[0]).removesuffix(".h").removesuffix(".cpp")
        if re.fullmatch(r"[A-Za-z][A-Za-z0-9]*(_[A-Za-z0-9]+)+", name):
            folder, _, rest = name.partition("_")               # a test of ctest's: tests/FOLDER/test_REST.py
            known = any(path.name.startswith(name) or path.parent.name == name or
                        (path.parent.name, path.name) == (folder, f"test_{rest}.py") for path in SOURCES)
            assert known or re.search(rf"\b{name}\b", EVERYTHING), span


def test_the_paths_in_the_readme_name_where_each_step_is():
    text = (REPOSITORY / "README.md").read_text()
    steps = re.findall(r"^ *(?:\w+ thread)? +(?:\.\.\.)?_?(\w+)(?: \| \w+)? {2,}(src/[\w/]+\.cpp)", text, re.M)
    assert len(steps) >= 11
    for function, file in steps:
        assert re.search(rf"{function}\(", (REPOSITORY / file).read_text()), (function, file)


def rooms():
    table = (REPOSITORY / "docs" / "architecture.md").read_text().split("## Rooms")[1].split("\n## ")[0]
    cells = " ".join(row.split("|")[1] for row in table.splitlines() if row.startswith("| `"))
    names = set()
    for name in re.findall(r"`([\w/.]+)`", cells):
        names.add(("dv_sms_mgr" + name if name.startswith("_") else name).removesuffix(".h").removesuffix(".cpp"))
    return names


def test_every_source_of_the_daemon_has_its_room():
    files = {str(path.relative_to(REPOSITORY / "src").with_suffix("")) for path in (REPOSITORY / "src").rglob("*")
             if path.suffix in (".cpp", ".h")}
    assert rooms() == files


def test_every_lock_and_thread_is_described():
    text = (REPOSITORY / "docs" / "architecture.md").read_text()
    source = "\n".join(content for path, content in SOURCES.items() if path.is_relative_to(REPOSITORY / "src"))
    for lock in set(re.findall(r"pthread_mutex_t (\w+_lock)\b", source)):
        assert f"`{lock}`" in text, lock
    for thread in set(re.findall(r"\b(process_\w+_thread)\b", source)):
        assert f"`{thread}`" in text, thread
