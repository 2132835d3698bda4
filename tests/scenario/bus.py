"""The local message bus as a program on it sees it: one Unix datagram socket a module, one record a datagram."""

import os
import queue
import socket
import struct
import threading
import time

RECORD = struct.Struct("<III4096sII")           # id, reserved, length, payload, sender's module, sender's extra word
AT_REQUEST = struct.Struct("<IiiI4080s")        # the payload of a command: marker, at_id, time-out, length, text
AT_RESPONSE = struct.Struct("<IiI3980si100s")   # marker, at_id, unused, text, error code, error text
AT_INDICATION = struct.Struct("<III4084s")      # marker, unused, unused, text

AT_OWNER, SMS_MGR, CLIENT = 5, 27, 50
AT_MAGIC = 0xABCD
MSG_INDICATION, MSG_AT, MSG_ASSERT = 0x1010, 0x1017, 0x4000
(MSG_SEND, MSG_READ, MSG_DELETE_RECEIVED, MSG_DELETE_SENT, MSG_DELETE_DRAFT,
 MSG_GENERATE, MSG_NOTICE, MSG_DRAFT) = range(0x5500, 0x5508)


def pack_record(message, payload=b"", sender=CLIENT, extra=0, length=4096):
    return RECORD.pack(message, 0, length, payload, sender, extra)


def pack_message(phone, text):
    """The payload of a send or draft request."""
    return struct.pack("<32x32s4032s", phone.encode(), text.encode())


def pack_response(at_id, text, error=0, detail=""):
    return AT_RESPONSE.pack(AT_MAGIC, at_id, 0, text.encode("latin-1"), error, detail.encode())


def pack_indication(text, magic=AT_MAGIC):
    return AT_INDICATION.pack(magic, 0, 0, text.encode("latin-1"))


def send(folder, module, data):
    """Sends one datagram to a module of the bus in `folder`."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.settimeout(10)
        sender.sendto(data, os.path.join(folder, str(module)))


class Command:
    """An AT command as it arrived: its text, its number, its time-out, and when (seconds, monotonic)."""

    def __init__(self, data):
        _, _, length, payload, self.sender, _ = RECORD.unpack(data)
        self.magic, self.at_id, self.timeout, text_length, text = AT_REQUEST.unpack(payload)
        self.text = text[:text_length].decode("latin-1")
        self.terminated = not any(text[text_length:])
        self.length = length
        self.when = time.monotonic()


class FakeOwner:
    """Stands in for the owner of the AT port: answers commands as it is told.

    `answers` maps a command without its "\\r" to what comes back: the text of the answer; or a pair of
    text and error code; or None, for silence; or a function of the Command that gives one of these. A
    command that is not there is answered with "OK". It is read anew for each command.
    """

    OK = "\r\nOK\r\n"
    READY = {                                   # a modem that needs nothing to be set
        "AT+CMGF?": "\r\n+CMGF: 0\r\n\r\nOK\r\n",
        "AT+CNMI?": "\r\n+CNMI: 3,2,0,0,0\r\n\r\nOK\r\n",
        "AT+CPMS?": '\r\n+CPMS: "SM",0,50,"SM",0,50,"SM",0,50\r\n\r\nOK\r\n',
        "AT+CSCS?": '\r\n+CSCS: "IRA"\r\n\r\nOK\r\n',
        "AT+CSCA?": '\r\n+CSCA: "+8613800100500",145\r\n\r\nOK\r\n',
    }

    def __init__(self, folder, answers=None):
        self.folder = folder
        self.answers = dict(self.READY if answers is None else answers)
        self.commands = []                      # every Command, in order
        self.arrived = queue.Queue()            # the same, for whoever waits
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(os.path.join(folder, str(AT_OWNER)))
        self.thread = threading.Thread(target=self._serve, daemon=True)
        self.thread.start()

    def texts(self):
        return [command.text for command in list(self.commands)]

    def respond(self, at_id, text, error=0, detail=""):
        send(self.folder, SMS_MGR, pack_record(MSG_AT, pack_response(at_id, text, error, detail), AT_OWNER))

    def indicate(self, text, **options):
        send(self.folder, SMS_MGR, pack_record(MSG_INDICATION, pack_indication(text, **options), AT_OWNER))

    def stop(self):
        send(self.folder, AT_OWNER, b"")        # ends the thread
        self.thread.join()
        os.unlink(os.path.join(self.folder, str(AT_OWNER)))
        self.socket.close()

    def _serve(self):
        while True:
            data = self.socket.recv(RECORD.size + 1)
            if not data:
                return
            command = Command(data)
            self.commands.append(command)
            answer = self.answers.get(command.text.rstrip("\r"), self.OK)
            if callable(answer):
                answer = answer(command)
            if isinstance(answer, str):
                answer = (answer, 0)
            if answer is not None:
                self.respond(command.at_id, *answer)
            self.arrived.put(command)
