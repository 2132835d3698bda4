"""Changes that are made from the sources themselves: every text with one character changed, every event to other places."""
import re
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent

# Where an event goes, and where it could go by mistake.
PLACES = {
    "DV_EVENT": ["DV_TRACE", "DV_SAVE"],
    "DV_TRACE": ["DV_EVENT"],
    "DV_SAVE": ["DV_EVENT"],
    "INIT_ERROR": ["DV_EVENT"],
    "INIT_PRINT": ["DV_TRACE"],
}

# Literals, and before them what is left alone: comments, character literals, lines of the preprocessor.
TOKEN = re.compile(r"""/\*.*?\*/ | //[^\n]* | '(?:\\.|[^'\\])+' | ^[ ]*\#(?:\\\n|[^\n])* | static_assert\(.*?\); |
                       "(?P<text>(?:\\.|[^"\\])*)" """, re.VERBOSE | re.DOTALL | re.MULTILINE)
EVENT = re.compile(r"\b(DV_EVENT|DV_TRACE|DV_SAVE|INIT_ERROR|INIT_PRINT)(?=(?:_IN)?\()")
# A character that is neither part of an escape nor of a conversion.
PLAIN = re.compile(r"\\x[0-9A-F]+|\\.|%[-+ 0#.*\d]*(?:hh|l)?[a-z%]|(?P<plain>[^\\%])", re.DOTALL)


def other_text(text):
    """The text with its last plain character changed, or with one more: who looks at its beginning alone is not enough."""
    plain = [found for found in PLAIN.finditer(text) if found["plain"]]
    if not plain:
        return text + "~"
    character = plain[-1]["plain"]
    other = character.swapcase() if character.isalpha() and character.isascii() else "~"
    return text[:plain[-1].start()] + other + text[plain[-1].end():]


def unique(source, start, end, new):
    """(old, new) for these characters, with as much around them as tells them from others."""
    first, last = start, end
    while source.count(source[first:last]) != 1:
        first, last = max(first - 1, 0), min(last + 1, len(source))
    return source[first:last], source[first:start] + new + source[end:last]


def spans(source):
    """What is changed: (start, end, new, name)."""
    for found in TOKEN.finditer(source):
        if found["text"] is not None:
            yield found.start("text"), found.end("text"), other_text(found["text"]), f"text {found[0]}"
    for found in EVENT.finditer(source):
        if source.rfind("#define", source.rfind("\n\n", 0, found.start()), found.start()) == -1:
            for other in PLACES[found[0]]:
                yield found.start(), found.end(), other, f"{found[0]} as {other}"


def changes():
    made = []
    for path in sorted((ROOT / "src").rglob("*.cpp")):
        source = path.read_text()
        for start, end, new, name in spans(source):
            old, new = unique(source, start, end, new)
            line = source.count("\n", 0, start) + 1
            made.append((f"line {line}: {name}", str(path.relative_to(ROOT)), old, new))
    return made
