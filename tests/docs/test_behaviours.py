"""docs/behaviours.md: what it says of the codec, asked of the codec itself."""

import json
import re
import subprocess

import pytest

from documents import BUILD, REPOSITORY

TEXT = (REPOSITORY / "docs" / "behaviours.md").read_text()
HEAD = "0491214365"                             # a service centre
STAMP = "42305041700000"


def said(words):
    """The document says so, wherever its lines end."""
    assert words in re.sub(r"\s+", " ", TEXT), words


def sms_pdu(*arguments):
    return json.loads(subprocess.run([BUILD / "bin" / "sms_pdu", *arguments[:1], "--json", *arguments[1:]],
                                     capture_output=True, text=True, timeout=20).stdout)


def deliver(body, dcs="00", udhi=False, address="05812143F5", pid="00"):
    """What the daemon makes of it; the body from its length on."""
    return sms_pdu("decode", f"{HEAD}{'44' if udhi else '04'}{address}{pid}{dcs}{STAMP}{body}")[0]["daemon"]


def sent(text, number="12345"):
    return sms_pdu("encode", "--", number, text)


@pytest.mark.parametrize("text, parts", [("x" * 160, 1), ("x" * 161, 2), ("x" * 306, 2), ("x" * 307, 3), ("ä" * 70, 1),
                                         ("ä" * 71, 2), ("ä" * 134, 2), ("ä" * 135, 3), ("{" * 80, 1), ("{" * 81, 2)])
def test_sizes_of_parts(text, parts):
    said("70 characters, 67 a part")
    said("160 septets, 153 a part")
    assert sent(text)["total"] == parts


def test_the_septet_that_is_never_sent():
    said("with 306 septets and an escape at the 153rd the last septet is never sent")
    message = sent("x" * 152 + "{" + "y" * 152)
    assert message["units"] == 306 and "".join(part["text"] for part in message["parts"]) == "x" * 152 + "{" + "y" * 151


def test_lengths_of_numbers_and_texts():
    said("A destination has at most 20 digits")
    assert sent("x", "+" + "1" * 20)["refused"] is None and sent("x", "1" * 21)["refused"]
    said("| A text to send | 4,000 bytes, cut at a character;")
    assert sum(len(part["text"]) for part in sent("x" * 4031)["parts"]) == 4000
    assert sum(len(part["text"]) for part in sent("€" * 1343)["parts"]) == 1333


def test_characters_that_arrive_as_others():
    said("A backtick becomes an apostrophe, a tab a blank, the control characters 1A and 1E an é and an ñ")
    assert sent("`\t\x1a\x1e")["parts"][0]["text"] == "' éñ"
    said("Characters beyond U+FFFF are cut to 16 bits")
    assert sent("😀")["parts"][0]["text"] == "\uf600"


def test_validity_and_reference():
    said("The validity period is 45 minutes | TP-VP 8")
    fields = {field["name"]: field for field in sent("x")["parts"][0]["fields"]}
    assert fields["TP-VP"]["octets"] == "08" and fields["TP-VP"]["meaning"] == "45 minutes"


def test_only_8_bit_references_make_parts():
    said("`06 08 04 12 34 02 01`")
    assert deliver("0906080412340201" "0041", "08", udhi=True)["concatenation"] is None
    assert deliver("080500032A0201" "0041", "08", udhi=True)["concatenation"]["reference"] == 42


def test_what_a_header_of_six_octets_costs():
    said("Behind a header of six octets a 7-bit message loses its first character and a UCS-2 one its last")
    assert deliver("0A06080412340201" "E834", udhi=True)["text"].startswith("i")
    assert deliver("0B06080412340201" "00410042", "08", udhi=True)["text"] == "A"


def test_senders():
    said('"My Bank" is "My$Bank"')
    assert deliver("02E834", address="0DD0CD3C481876AF01")["sender"] == "My$Bank"
    said("`12*` is a name")
    assert not deliver("02E834", address="038121FA")["sender"].isdigit()
    said("type 90 has none")
    assert deliver("02E834", address="05902143F5")["sender"] == "12345"


def test_alphabets():
    said("DCS 48 and E0, UCS-2 by the standard")
    for dcs in ("48", "E0"):
        assert deliver("020041", dcs)["text"] != "A"
    said("Septet 0x09 is the small c-cedilla")
    assert deliver("0109")["text"] == "ç"
    said("0x40 is è")
    assert deliver("06032401010002", udhi=True)["text"].startswith("è")
    said("An escape without an extension gives the byte FF")
    assert deliver("029B20")["text_hex"] == "ff"


def test_ucs2():
    said("an emoji is six bytes on flash")
    assert len(bytes.fromhex(deliver("04D83DDE00", "08")["text_hex"])) == 6
    said("A UCS-2 message of one octet that begins with 20 keeps an empty text")
    assert deliver("0120", "08")["text"] == ""
    said("A UCS-2 character 0 ends the filed text")
    assert deliver("06004100000042", "08")["text"] == "A"


def test_a_long_part_is_cut():
    said("a part of 153 Greek letters loses its end")
    said("255 bytes of UTF-8 a part")
    assert deliver("8C" + "03A9" * 70, "08")["text"] == "Ω" * 70
    assert deliver("8C" + "4E2D" * 70, "08")["text"] == "中" * 70
    septets = "".join(f"{0x15:07b}"[::-1] for _ in range(160))          # Ω, two bytes each
    packed = "".join(f"{int(septets[i:i + 8][::-1], 2):02X}" for i in range(0, len(septets), 8))
    assert deliver("A0" + packed)["text"] == "Ω" * 127


def test_lines_that_are_no_pdu():
    said('A PDU line is taken when its second character lies between "3" and "C" in ASCII')
    said("| A PDU line | 511 characters |")
    for line, taken in (("07", True), ("00", False), ("0D", False), ("0C", True), ("03", True)):
        assert sms_pdu("decode", line)[0]["daemon"]["taken"] == taken
    assert sms_pdu("decode", "07" * 255 + "0")[0]["daemon"]["taken"]
    assert not sms_pdu("decode", "07" * 256)[0]["daemon"]["taken"]
