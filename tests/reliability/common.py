"""What the drivers of this folder share: the scenario tests' bench, texts that tell whether they are whole, PDUs."""

import os
import re
import sys
import zlib
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "scenario"))

SENDER = "+31612345678"


def in_memory():
    """Puts the benches on a file system in memory where there is one: what is written thousands of times wears no disk."""
    if "TMPDIR" not in os.environ and os.access("/dev/shm", os.W_OK):
        os.environ["TMPDIR"] = "/dev/shm"


class Texts:
    """Texts with a number, of a chosen length, which show when a part of them is missing."""

    PATTERN = re.compile(r"<(\d+):(x*):([0-9a-f]{8})>", re.ASCII)

    def __init__(self):
        self.count = 0

    def new(self, length=0):
        """The next text, as long as asked for where that is more than it needs."""
        self.count += 1
        return self.text(self.count, length)

    @staticmethod
    def text(number, length=0):
        filling = "x" * max(0, length - len(f"<{number}::00000000>"))
        return f"<{number}:{filling}:{zlib.crc32(f'{number}:{filling}'.encode()):08x}>"

    @classmethod
    def number(cls, text):
        """The number of a text that is whole, else None."""
        found = cls.PATTERN.fullmatch(text)
        if not found or int(found[3], 16) != zlib.crc32(f"{found[1]}:{found[2]}".encode()):
            return None
        return int(found[1])


def _semi_octets(digits):
    digits += "F" * (len(digits) % 2)
    return "".join(digits[i + 1] + digits[i] for i in range(0, len(digits), 2))


def deliver(text, part=None):
    """An SMS-DELIVER with its service centre, in hex, of a text in UCS-2; `part` is (reference, total, sequence)."""
    digits = SENDER.lstrip("+")
    header = "050003%02X%02X%02X" % part if part else ""
    body = header + text.encode("utf-16-be").hex().upper()
    return ("0791" + _semi_octets("31624000000") + ("44" if part else "04") + f"{len(digits):02X}91" +
            _semi_octets(digits) + "0008" + "42305041700002" + f"{len(body) // 2:02X}" + body)


PART_LENGTH = 67                # characters


def deliver_parts(text, reference):
    """The PDUs of a text in parts."""
    pieces = [text[i:i + PART_LENGTH] for i in range(0, len(text), PART_LENGTH)]
    return [deliver(piece, (reference % 256, len(pieces), number)) for number, piece in enumerate(pieces, 1)]


def cmt(pdu):
    return f"\r\n+CMT: ,{len(pdu) // 2 - 8}\r\n{pdu}\r\n"
