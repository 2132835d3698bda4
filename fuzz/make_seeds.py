#!/usr/bin/env python3
"""Writes the first inputs of every fuzz target into corpus/: one for each kind that the daemon tells apart.

What fuzzing has found since lies beside them; files of the same name are replaced, nothing is removed.
"""
import pathlib
import struct

CORPUS = pathlib.Path(__file__).resolve().parent / "corpus"


def swapped(digits):
    digits += "F" * (len(digits) % 2)
    return "".join(digits[i + 1] + digits[i] for i in range(0, len(digits), 2))


def number(text):
    digits = text.lstrip("+")
    return f"{len(digits):02X}{'91' if text.startswith('+') else '81'}{swapped(digits)}"


def pack(septets, fill=0):
    bits = 0
    for i, septet in enumerate(septets):
        bits |= septet << (7 * i + fill)
    return bits.to_bytes((7 * len(septets) + fill + 7) // 8, "little")


def name(text):
    octets = pack(text.encode("ascii"))
    return f"{(7 * len(text) + 3) // 4:02X}D0{octets.hex().upper()}"


def deliver(body, dcs=0, udl=None, header=b"", sender=number("+31612345678"), smsc="07911356131313F3",
            stamp="42305041700002"):
    user_data = (bytes([len(header)]) + header if header else b"") + body
    octet = 0x44 if header else 0x04
    length = len(user_data) if udl is None else udl
    return f"{smsc}{octet:02X}{sender}00{dcs:02X}{stamp}{length:02X}{user_data.hex().upper()}"


def septets(codes, header=b"", **more):
    codes = codes.encode("ascii") if isinstance(codes, str) else bytes(codes)
    bits = 8 * (len(header) + 1) if header else 0
    fill = -bits % 7
    return deliver(pack(codes, fill), udl=(bits + fill) // 7 + len(codes), header=header, **more)


def ucs2(text, **more):
    return deliver(text.encode("utf-16-be"), dcs=8, **more)


def part(total, sequence, reference=0x2A):
    return bytes([0, 3, reference, total, sequence])


PDUS = {
    "7bit": septets("hi"),
    "7bit_160": septets("0123456789" * 16),
    "every_code": septets(range(128)),
    "extensions": septets(sum([[0x1B, c] for c in (0x0A, 0x14, 0x28, 0x29, 0x2F, 0x3C, 0x3D, 0x3E, 0x40, 0x65, 0x7F)], [])),
    "escape_last": septets([0x61, 0x1B]),
    "turkish": septets([0x47, 0x1B, 0x47, 0x1B, 0x69, 0x1B, 0x7F, 0x04], header=bytes([0x24, 1, 1])),
    "ucs2": ucs2("中文短信"),
    "ucs2_70": ucs2("信" * 70),
    "ucs2_surrogates": ucs2("😀 hi"),
    "ucs2_blank": ucs2(" "),
    "8bit": deliver(bytes(range(0x80, 0x9E)), dcs=4),
    "8bit_f4": deliver(b"binary", dcs=0xF4),
    "class_0": septets("flash", dcs=0x10),
    "waiting": septets("waiting", dcs=0xC8),
    "name": septets("from a name", sender=name("My Bank")),
    "name_11": septets("from a name", sender=name("Eleven Char")),
    "national_number": septets("short", sender=number("12345")),
    "odd_number": septets("odd", sender=number("+3161234567")),
    "no_sender": septets("nobody", sender="0080"),
    "no_smsc": septets("no centre", smsc="00"),
    "reference_16": septets("wide", header=bytes([8, 4, 0x12, 0x34, 2, 1])),
    "reference_wide_8": septets("wide", header=bytes([0, 4, 0x12, 0x34, 2, 1])),
    "ports": deliver(b"\x01\x06", dcs=4, header=bytes([5, 4, 0x0B, 0x84, 0x23, 0xF0])),
    "part_0_of_0": septets("lost", header=part(0, 0)),
    "header_beyond_text": "07911356131313F3440B911316325476F8000042305041700002" "A0FF00",
    "cut_in_address": "07911356131313F3040B911316",
    "lower_case": septets("hi").lower(),
    "no_hex": "zz" * 40,
    "empty": "",
    # Well-known examples
    "known_hellohello": "07917283010010F5040BC87238880900F10000993092516195800AE8329BFD4697D9EC37",
    "known_how_are_you": "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07",
}


def write(target, inputs):
    directory = CORPUS / target
    directory.mkdir(parents=True, exist_ok=True)
    for label, content in inputs.items():
        (directory / label).write_bytes(content if isinstance(content, bytes) else content.encode("utf-8"))


def decode():
    inputs = dict(PDUS)
    inputs["three_parts"] = "\n".join(septets("0" * 153, header=part(3, i)) for i in (1, 2, 3))
    inputs["parts_mixed"] = "\n".join(septets(f"part {i}", header=part(2, i % 2 + 1, i % 3)) for i in range(7))
    inputs["part_twice"] = "\n".join([septets("one", header=part(2, 1))] * 2)
    inputs["parts_chinese"] = "\n".join(ucs2("信" * 67, header=part(2, i)) for i in (2, 1))
    inputs["parts_many"] = "\n".join(septets("many", header=part(12, i)) for i in range(12))
    write("decode", inputs)


def encode():
    def ask(text, to="+31612345678", smsc="+31653131313"):
        return f"{smsc}\n{to}\n{text}"

    write("encode", {
        "short": ask("hi"), "national": ask("hi", "12345"), "longest_numbers": ask("hi", "+" + "1" * 20, "2" * 22),
        "too_long_number": ask("hi", "1" * 21), "no_smsc": ask("hi", smsc=""), "no_digits": ask("hi", "a b#*"),
        "control_in_number": ask("hi", "12\r3"), "160": ask("x" * 160), "161": ask("x" * 161), "306": ask("x" * 306),
        "escape_at_153": ask("x" * 152 + "[" + "y" * 153), "escapes": ask("^{}\\[~]|" * 30), "controls":
        ask("".join(map(chr, range(1, 0x1B)))), "chinese": ask("中文短信"), "70": ask("信" * 70), "71": ask("信" * 71),
        "emoji": ask("😀 hi"), "latin": ask("é" * 150), "malformed": ask("a").encode() + b"\xc3A\xff\x80\xe4\xb8",
        "4000": ask("0123456789" * 400), "4000_growing": ask("[" + "x" * 3999), "4031_chinese": ask("信" * 1343),
        "nothing": ask(""),
    })


def indication():
    pdu = PDUS["7bit"]
    write("indication", {
        "cmti": '\r\n+CMTI: "SM",3\r\n', "cmti_negative": '\r\n+CMTI: "SM",-1\r\n', "cmti_no_comma": "\r\n+CMTI: 3\r\n",
        "cmti_huge": '\r\n+CMTI: "SM",99999999999999999999\r\n', "cmt": f"\r\n+CMT: ,23\r\n{pdu}\r\n",
        "cmt_name": f'\r\n+CMT: "Bank",23\r\n{pdu}\r\n', "cmt_no_end": f"\r\n+CMT: ,23\r\n{pdu}", "cmt_bare": "\r\n+CMT:",
        "cmt_long": "\r\n+CMT: ,23\r\n" + "07" * 256 + "\r\n", "cmt_fits": "\r\n+CMT: ,23\r\n" + ("07" * 256)[:511] + "\r\n",
        "pdu_alone": f"\r\n{pdu}\r\n", "several": f'\r\n+CMTI: "SM",3\r\n\0\r\n+CMT: ,23\r\n{pdu}\r\n\0\r\nRING\r\n',
        "full_field": "\r\n+CMT: ,23\r\n" + "A" * 4084, "other": "\r\n+CREG: 1\r\n", "no_pdu": "\r\n+CMT: ,23\r\n0A\r\nOK",
    })


OK = "\r\nOK\r\n"


def answer():
    def step(number, *answers):
        return bytes([number]) + b"\0".join(a if isinstance(a, bytes) else b" " + a.encode() for a in answers)

    def cmgr(pdu):
        return f"\r\n+CMGR: 0,,23\r\n{pdu}\r\n{OK}"

    receive, init, cmgf, cnmi, cpms, csca, smsc, full = (2 * i for i in range(8))
    silent, stray, failed = b"\x83", b"\x82", b"\x85"
    cpms_full = '\r\n+CPMS: "SM",2,2,"SM",2,2\r\n' + OK
    write("answer", {
        "receive": step(receive, cmgr(PDUS["7bit"]), OK), "receive_name": step(receive, cmgr(PDUS["name"]), OK),
        "receive_parts": step(receive, *(a for i in (1, 2) for a in (cmgr(septets("p", header=part(2, i))), OK))),
        "receive_many": step(receive, *[cmgr(PDUS["ucs2"]), OK] * 5), "receive_empty": step(receive, OK),
        "receive_no_end": step(receive, "\r\n+CMGR: 0,,23\r\n0791" + OK.rstrip()), "receive_silent": step(receive, silent),
        "receive_stray": step(receive, stray + cmgr(PDUS["7bit"]).encode()), "receive_failed": step(receive, failed),
        "receive_delete_fails": step(receive, cmgr(PDUS["7bit"]), "\r\nERROR\r\n"),
        "receive_full_field": step(receive, b"\xe0" + b"\r\n+CMGR: 0,,23\r\n"),
        "init": step(init), "init_refused": step(init, *["\r\nERROR\r\n"] * 9), "init_silent": step(init, *[silent] * 6),
        "init_set": step(init, "\r\n+CMGF: 1\r\n" + OK, OK, "\r\n+CNMI: 0,0,0,0,0\r\n" + OK, OK, cpms_full,
                         cmgr(PDUS["7bit"]), OK), "cmgf": step(cmgf, "\r\n+CMGF: 1\r\n" + OK, OK),
        "cnmi": step(cnmi, "\r\n+CNMI: 2,1\r\n" + OK, OK), "cpms_full": step(cpms, cpms_full, OK, cmgr(PDUS["7bit"]), OK),
        "cpms_other": step(cpms, *['\r\n+CPMS: "ME",0,9\r\n' + OK, OK] * 4), "cpms_commas": step(cpms, ",,,,,," + OK),
        "cpms_huge": step(cpms, '\r\n+CPMS: "SM",9999999999,9999999999,' + OK),
        "csca": step(csca, '\r\n+CSCS: "GSM"\r\n' + OK, OK, '\r\n+CSCA: "+31653131313",145\r\n' + OK),
        "csca_long": step(csca, '\r\n+CSCS: "IRA"\r\n' + OK, '\r\n+CSCA: "' + "1" * 40 + '",145\r\n' + OK),
        "smsc": step(smsc, '\r\n+CSCA: "+31653131313",145\r\n' + OK), "smsc_long": step(smsc, '\r\n+CSCA: "' + "é" * 40 +
                                                                                   '"' + OK),
        "smsc_open": step(smsc, '\r\n+CSCA: "123' + OK), "full": step(full, '\r\n+CPMS: "SM", 5, 5,' + OK),
    })


def record():
    def rec(which, payload=b"", options=0):
        payload = payload if isinstance(payload, bytes) else payload.encode()
        return struct.pack("<BBH", which, options, len(payload)) + payload

    def sms(phone, text):
        return bytes(32) + phone.encode().ljust(32, b"\0") + text.encode()

    def indicated(text):
        return struct.pack("<I8x", 0xABCD) + text.encode()

    cmt = indicated(f"\r\n+CMT: ,23\r\n{PDUS['7bit']}\r\n")
    cmti = indicated('\r\n+CMTI: "SM",3\r\n')
    draft = rec(7, sms("+31612345678", "a draft"))
    state = bytes([0x03])
    write("record", {
        "send": state + rec(0, sms("+31612345678", "hello")), "send_long": state + rec(0, sms("12345", "x" * 400)),
        "send_full_fields": state + rec(0, b"9" * 4096), "send_padded": state + rec(0, b"", 1), "draft": state + draft,
        "drafts_over_capacity": state + draft * 5, "read": state + rec(10, cmt, 8) + rec(1, "1"),
        "read_all": state + rec(10, cmt, 8) + rec(1, "READ ALL"), "delete": state + rec(10, cmt, 8) + rec(2, "1,2"),
        "delete_all": state + draft + rec(4, "DELETE ALL"), "delete_outside": state + draft + rec(4, "../1,.,..,a/b"),
        "generate": state + rec(5), "notices": bytes([0x33]) + rec(6) + b"".join(rec(8, str(i)) for i in range(5)),
        "notices_texts": bytes([0x73]) + rec(6) + rec(8, "0"), "redirect": bytes([0x0F]) + rec(10, cmt, 8),
        "stored": state + rec(10, cmti, 8), "answer": state + rec(9, struct.pack("<IiI", 0xABCD, 1, 0) + b"\r\nOK\r\n"),
        "trouble": state + rec(11) + rec(12), "unknown": state + b"\xff\x12\x34\x56payload", "off": state +
        rec(0, sms("1", "a"), 2) + rec(10, cmt, 2), "flooded": state + rec(0, sms("1", "a")) * 16,
        "unregistered": bytes([0x83]) + rec(0, sms("1", "a")), "traced": state + rec(0, sms("1", "a"), 4) + rec(10, cmt, 12),
    })


def store():
    def left(actions, request, index, unread, capacity, *messages):
        return "\0".join((actions, request, index, unread, capacity) + messages)

    one = "1 0 +31612345678 2024/03/05 14:07:00 hello"
    two = "2 1 Bank 2024/03/05 14:07:00 hello again"
    write("store", {
        "read": left("0r", "1,2", " 1 2 ", "1", "100", one, two), "read_all": left("0r", "READ ALL", " 1 2 ", "1", "100", one, two),
        "delete": left("0d", "2", " 1 2 ", "1", "100", one, two), "delete_sent": left("1d", "1,2,3", " 1 2 ", "1", "100", one, two),
        "delete_all": left("2d", "DELETE ALL", " 1 2 ", "1", "100", one, two), "rebuild": left("0xui", "", "", "", "2", one, two),
        "rebuild_then_all": left("0xird", "READ ALL", "", "7", "100", one, two), "no_numbers": left("0rdi", "abc", "x y z", "-", "", "", two),
        "outside": left("0rd", "../sms_send/1,/etc/passwd,.,..", " ../sms_draft/1 ", "1", "100", one),
        "long_index": left("0rd", "1", " " + "1 " * 2100, "1", "100", one), "long_message": left("0r", "1", " 1 ", "1", "9", one + "信" * 1500),
        "short_messages": left("0ri", "1,2,3,4", " 1 2 3 4 ", "9999999999999", "4", "1", "1 ", "1 0", " "),
        "blank_index": left("0rd", "1", " ", "", "1"), "gaps": left("0i", "", " 1 5 ", "2", "5", one, "", "", "", "5 0 x y z"),
    })


def stream():
    pdu = PDUS["7bit"]

    def ask(command):
        return f"\0\1{command}\r"

    write("stream", {
        "answer": ask("AT+CMGR=1") + f"\r\n+CMGR: 0,,23\r\n{pdu}\r\n{OK}", "echo": ask("AT+CMGF?") + f"AT+CMGF?\r\r\n+CMGF: 0\r\n{OK}",
        "error": ask("AT+CMGR=9") + "\r\n+CMS ERROR: 321\r\n", "words": ask("AT+CMGR=9") + "\r\n+CMS ERROR: SIM busy\r\n",
        "cmt": f"\r\n+CMT: ,23\r\n{pdu}\r\n", "cmt_inside": ask("AT+CPMS?") + f"\r\n+CMT: ,23\r\n{pdu}\r\n\r\n+CPMS: 1\r\n{OK}",
        "cmti_inside": ask("AT+CPMS?") + f'\r\n+CPMS: 1\r\n\r\n+CMTI: "SM",1\r\n{OK}', "prompt": f"\0\2\r\n> \0\3\r\n+CMGS: 5\r\n{OK}",
        "no_prompt": "\0\2\r\n+CMS ERROR: 500\r\n", "abandoned": ask("AT+CMGR=1") + "\r\n+CMGR: 0,,23\r\n\0\4late\r\n" + OK,
        "reset": ask("AT") + "\r\nhalf\0\5\r\nRDY\r\n", "drained": f"\0\6{OK}{OK}\r\n+CSQ: 1\r\n{OK}", "stray": OK + "\x01\x02\r\n",
        "null": ask("AT") + f"\r\n\0\7O\0\7K\r\n", "too_long": "A" * 4200 + "\r\nRING\r\n", "too_much": ask("AT+CMGL=4") +
        ("\r\n" + "B" * 1000) * 10 + OK, "registration": ask("AT+CREG?") + f"\r\n+CREG: 1\r\n\r\n+CREG: 0,1\r\n{OK}",
        "vendor_send": f"AT+DORVYSMS=19,{pdu}\x1a\r", "routing": "AT+CNMI=3,2,0,0,0\r", "line_feeds": ask("AT") + "\nOK\n",
    })


if __name__ == "__main__":
    for make in (decode, encode, indication, answer, record, store, stream):
        make()
