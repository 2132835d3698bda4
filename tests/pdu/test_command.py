"""The command sms_pdu: what it prints, how it ends, and what it takes in."""

import json
import os
import subprocess
from pathlib import Path

import pytest

BUILD = Path(os.environ.get("DV_BUILD", Path(__file__).resolve().parents[2] / "build" / "release"))
HOW_ARE_YOU = "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07"
PART = "0591214365F7440B911316325476F80000423050417000020A0500032A0201D06536"
REST = "0591214365F7440B911316325476F8000042305041700002090500032A0202D86F"
SUBMIT = "04912143651101058121" "43F500000802E834"


def run(*arguments, given=None):
    return subprocess.run([BUILD / "bin" / "sms_pdu", *arguments], input=given, capture_output=True, text=True,
                          timeout=20, stdin=None if given is not None else subprocess.DEVNULL)


def decoded(*arguments, given=None, code=0):
    done = run("decode", "--json", *arguments, given=given)
    assert done.returncode == code and done.stderr == "", done
    return json.loads(done.stdout)


def test_every_field_stands_beside_its_octets():
    done = run("decode", HOW_ARE_YOU)
    assert done.returncode == 0 and done.stderr == ""
    rows = {tuple(line.split()) for line in done.stdout.splitlines()}
    assert ("2", "1326040000F0", "SMSC", "number", "+31624000000") in rows
    assert ("19", "20806291731408", "TP-SCTS", "2002-08-26", "19:37:41", "+00:00") in rows
    assert ("......00", "TP-MTI", "SMS-DELIVER") in rows
    assert 'text           "How are you?"' in done.stdout
    assert "total_bit 84, body_len 12, sms7bit_len 11, offset 0" in done.stdout


def test_octets_that_do_not_fit_a_line_go_on_below():
    lines = run("decode", HOW_ARE_YOU).stdout.splitlines()
    at = next(i for i, line in enumerate(lines) if line.startswith("  27  C8"))
    assert lines[at].split()[1] + lines[at + 1].split()[1] == "C8F71D14969741F977FD07"
    assert lines[at + 1].split()[0] == "37"


@pytest.mark.parametrize("form", ["{}", "+CMGR: 0,,30\n{}\n\nOK\n", "\r\n+CMT: ,30\r\n{}\r\n", "AT+CMGL=4\n+CMGL: 1,1,,30\n{}\nOK"])
def test_a_modems_answer_is_taken_as_it_is(form):
    text = form.format(HOW_ARE_YOU)
    for pdus in (decoded(given=text), decoded("-", given=text), decoded(text)):
        assert len(pdus) == 1 and pdus[0]["daemon"]["text"] == "How are you?" and pdus[0]["problems"] == []


def test_header_and_pdu_may_be_two_arguments():
    assert decoded("+CMGR: 0,,30", HOW_ARE_YOU)[0]["header"] == "+CMGR: 0,,30"


def test_several_pdus_are_shown_in_order_and_joined():
    pdus = decoded(REST, HOW_ARE_YOU, PART)
    assert [pdu["pdu"] for pdu in pdus] == [REST, HOW_ARE_YOU, PART]
    assert [pdu["daemon"].get("joined") for pdu in pdus] == [None, None, "hello"]
    assert '"hello", with the parts above' in run("decode", PART, REST).stdout


def test_a_submit_is_told_by_its_type():
    pdu = decoded(SUBMIT)[0]
    assert pdu["kind"] == "SMS-SUBMIT" and pdu["daemon"] is None
    assert "The SMS manager writes such PDUs and reads none." in run("decode", SUBMIT).stdout
    assert decoded("--deliver", SUBMIT, code=1)[0]["kind"] == "SMS-DELIVER"


def test_without_a_service_centre():
    assert decoded("--no-smsc", HOW_ARE_YOU[16:])[0]["standard"]["text"] == "How are you?"


def test_what_is_malformed_is_told_by_its_octet():
    for length in range(0, len(HOW_ARE_YOU), 2):
        if length == 0:
            continue
        done = run("decode", HOW_ARE_YOU[:length])
        assert done.returncode == 1 and done.stderr == ""
        assert f"Malformed at octet {length // 2}: " in done.stdout
        assert length < 4 or "SMSC type" in done.stdout, "what stands in front is shown"
    assert decoded(HOW_ARE_YOU[:21], code=1)[0]["problems"][0]["offset"] == 10
    assert decoded(HOW_ARE_YOU[:20] + "zz", code=1)[0]["problems"][0]["offset"] == 10


def test_json_stays_valid_with_any_bytes():
    raw = subprocess.run([BUILD / "bin" / "sms_pdu", "decode", "--json"], input=b"07\xff\xfe\x00\n+CMT: \xc3\n\xff",
                         capture_output=True, timeout=20)
    assert raw.returncode == 1 and len(json.loads(raw.stdout.decode("utf-8"))) == 2


def test_nothing_from_the_air_reaches_the_terminal_raw():
    pdu = "00" "04" "0581" "2143F5" "00" "08" "42305041700000" "06" "001B005B009B"
    done = run("decode", pdu)
    assert "\x1b" not in done.stdout and "\x9b" not in done.stdout and r"\x1b[" in done.stdout


@pytest.mark.parametrize("wrong", [[], ["decode", "--nothing"], ["encode"], ["encode", "12345"], ["encode", "", "x"],
                                   ["encode", "12345", ""], ["encode", "12345", "x" * 4032],
                                   ["encode", "--reference", "256", "12345", "x"],
                                   ["decode", "--submit", "--deliver", SUBMIT], ["decode", "OK"]])
def test_wrong_use(wrong):
    done = run(*wrong)
    assert done.returncode == 2 and done.stdout == "" and done.stderr


def test_no_pdu_on_standard_input_is_wrong_use():
    assert run("decode", given="").returncode == 2


def test_encode_shows_parts_and_arithmetic():
    done = run("encode", "+31612345678", "x" * 161)
    assert done.returncode == 0 and done.stderr == ""
    assert "161 septets, 153 a part: 2 parts" in done.stdout
    assert "Part 1 of 2: 153 septets, UDL 160" in done.stdout and "Part 2 of 2: 8 septets, UDL 15" in done.stdout
    assert "TP-DA" not in done.stdout
    assert "TP-DA" in run("encode", "--verbose", "+31612345678", "x").stdout


def test_encode_takes_the_text_from_standard_input():
    done = run("encode", "--json", "--smsc", "+123456", "12345", "-", given="hi")
    message = json.loads(done.stdout)
    assert message["parts"][0]["pdu"] == SUBMIT and message["parts"][0]["command"] == f"AT+DORVYSMS=13,{SUBMIT}"


def test_encode_says_why_and_what_is_lost():
    done = run("encode", "12345", "¡hola! 😀")
    assert "UCS-2: \"¡\" (U+00A1) is not ASCII" in done.stdout and "beyond U+FFFF" in done.stdout


def test_what_is_encoded_can_be_decoded():
    for text in ("hi", "{[~]}" * 100, "日本語" * 40):
        parts = json.loads(run("encode", "--json", "12345", text).stdout)["parts"]
        pdus = decoded(*[part["command"] for part in parts])
        assert "".join(pdu["standard"]["text"] for pdu in pdus) == text
        assert all(pdu["problems"] == [] for pdu in pdus)


def test_encode_refuses_as_the_daemon_does():
    done = run("encode", "1" * 21, "x")
    assert done.returncode == 1 and done.stdout == "Refused: a destination has at most 20 digits\n"


def test_version():
    for command in ([], ["decode"], ["encode"]):
        assert run(*command, "--version").stdout.startswith("sms_pdu ")


def test_output_that_cannot_be_written_is_a_failure():
    with open("/dev/full", "w") as full:
        done = subprocess.run([BUILD / "bin" / "sms_pdu", "decode", HOW_ARE_YOU], stdout=full, stderr=subprocess.PIPE,
                              text=True, timeout=20)
    assert done.returncode != 0 and "cannot be written" in done.stderr
