"""The flash is full, worn, read-only or gone; when it is there again, the daemon works on as before."""

import contextlib
import ctypes
import os

import pytest

import bus
from bench import Bench
from bus import FakeOwner
from processes import Trouble
from recovery import survived

PEER = "+31687654321"
REFUSED = "can not continue save,please delete it"
OK = "\r\nOK\r\n"
MS_RDONLY, MS_REMOUNT, MNT_DETACH = 1, 32, 2
# From +31612345678, 2024/03/05 14:07:00: "hi"
PDU = "0791" "1326040000F0" "04" "0B91" "1316325476F8" "0000" "42305041700002" "02E834"

libc = ctypes.CDLL(None, use_errno=True)


class Preloaded:
    """A flash that fails by order of a file: works for any user and in any container."""

    def __init__(self, bench):
        self.control = bench.root / "bad_flash"
        bench.preloaded = ["bad_flash", *bench.preloaded]

    def fail(self, how):
        self.control.with_suffix(".new").write_text(how)
        os.rename(self.control.with_suffix(".new"), self.control)

    def mend(self):
        self.fail("")

    def remove(self):
        pass


class Mounted:
    """A file system of its own for the store, small, and really full, read-only or taken away."""

    def __init__(self, bench):
        self.folder = bench.root / "mnt" / "data" / "sms"
        self.folder.mkdir(parents=True)
        self.mounted = False
        self.mend()

    def mount(self, flags, options=b"size=3m"):
        if libc.mount(b"tmpfs", bytes(self.folder), b"tmpfs", flags, options) != 0:
            pytest.skip(f"may not mount here: {os.strerror(ctypes.get_errno())}")
        self.mounted = True

    def fail(self, how):
        if how == "full":
            with open(self.folder / ".filling", "wb", buffering=0) as file, contextlib.suppress(OSError):
                while True:
                    file.write(b"x" * 4096)
        elif how == "readonly":
            self.mount(MS_REMOUNT | MS_RDONLY)
        elif how == "gone":
            self.remove()
            self.folder.rmdir()

    def mend(self):
        if self.mounted and os.statvfs(self.folder).f_flag & os.ST_RDONLY:
            self.mount(MS_REMOUNT)
        if not self.mounted:
            self.folder.mkdir(parents=True, exist_ok=True)
            self.mount(0)
        (self.folder / ".filling").unlink(missing_ok=True)

    def remove(self):
        if self.mounted:
            libc.umount2(bytes(self.folder), MNT_DETACH)
        self.mounted = False


def receive(bench):
    """A message by storage, and what becomes of it; True: it was filed."""
    before = len(bench.store.numbers("read"))
    deletes = sum(text.startswith("AT+CMGD") for text in bench.fake.texts())
    bench.fake.answers["AT+CMGR=7"] = f"\r\n+CMGR: 0,,22\r\n{PDU}\r\n{OK}"
    bench.fake.indicate('\r\n+CMTI: "SM",7\r\n')
    bench.wait(lambda: sum(text.startswith("AT+CMGD") for text in bench.fake.texts()) > deletes, "it leaves the SIM", 60)
    return len(bench.store.numbers("read")) > before


def works(bench, tag):
    """Receiving, sending, a draft, marking and deleting, each with what it leaves in the store."""
    assert receive(bench)
    assert bench.send(PEER, f"{tag} sent", 60) == 0
    bench.wait(lambda: f"{tag} sent" in bench.store.texts("send"), "it is filed")
    assert bench.draft("1", f"{tag} draft") == 0 and f"{tag} draft" in bench.store.texts("draft")
    number = bench.store.numbers("read")[0]
    assert bench.ask(bus.MSG_READ, str(number).encode()) == 0
    assert bench.store.records("read")[0].state == 1
    for message, box in ((bus.MSG_DELETE_RECEIVED, "read"), (bus.MSG_DELETE_SENT, "send"),
                         (bus.MSG_DELETE_DRAFT, "draft")):
        assert bench.ask(message, b"DELETE ALL") == 0
        assert bench.store.numbers(box) == [] and bench.store.index(box) == " "


@pytest.mark.parametrize("how", ["full", "brim", "readonly", "gone"])
@pytest.mark.parametrize("kind", [Preloaded, Mounted], ids=["preloaded", "mounted"])
def test_the_flash_fails_and_recovers(kind, how):
    if kind is Mounted and how == "brim":
        pytest.skip("no such thing: a file system tells what is free")
    with Bench() as bench:
        flash = kind(bench)
        try:
            bench.start_with_fake()
            with survived(bench, f"{kind.__name__} {how}", works):
                assert bench.draft("1", "stays") == 0
                flash.fail(how)
                during(bench, how, kind is Mounted)
                flash.mend()
                check_what_stayed(bench, kind, how)
        finally:
            flash.remove()


def during(bench, how, mounted):
    refusals = bench.log().count(REFUSED)
    receive(bench)
    assert bench.send(PEER, "while it fails", 60) == 0          # filed or not: it was sent
    outcome = bench.draft("1", "while it fails")
    if how == "full" or (how == "gone" and not mounted):    # taken away, it leaves a directory of the system's
        assert outcome == 500
        bench.wait_log(REFUSED, refusals + 3)
    bench.ask(bus.MSG_READ, b"1")
    bench.ask(bus.MSG_READ, b"READ ALL")
    if how != "gone":                           # taken away whole, it is not there to delete in
        bench.ask(bus.MSG_DELETE_DRAFT, b"99")
    bench.ask(bus.MSG_DELETE_SENT, b"DELETE ALL")


def check_what_stayed(bench, kind, how):
    if how == "gone" and kind is Mounted:
        return                                  # a new, empty one
    assert "stays" in bench.store.texts("draft")
    for box in ("read", "send", "draft"):       # no record that is half a message
        for number in bench.store.numbers(box):
            assert bench.store.content(box, number).split(b" ")[0] == str(number).encode()


def test_a_store_whose_rights_are_taken_away(tmp_path):
    """As an ordinary user the daemon depends on the directory's rights."""
    if os.geteuid() == 0:
        pytest.skip("rights do not keep root out")
    with Bench() as bench:
        bench.start_with_fake()
        with survived(bench, "rights", works):
            for name in ("sms_read", "sms_send", "sms_draft", "."):
                os.chmod(bench.store.folder / name, 0o500)
            receive(bench)
            bench.draft("1", "no room")
            for name in (".", "sms_read", "sms_send", "sms_draft"):
                os.chmod(bench.store.folder / name, 0o700)


def test_the_flash_is_missing_at_the_start():
    with Bench() as bench:
        flash = Preloaded(bench)
        flash.fail("gone")
        bench.start_with_fake(dict(FakeOwner.READY))
        assert bench.draft("1", "nowhere to put it") == 500
        flash.mend()
        assert bench.draft("1", "here") == 0
        assert bench.store.texts("draft") == ["here"]
        assert bench.store.index("draft") == " 1 "


def test_the_bench_knows_a_failing_flash():
    """What the other tests rely on: the daemon really meets the fault."""
    with Bench() as bench:
        flash = Preloaded(bench)
        bench.start_with_fake()
        assert bench.draft("1", "before") == 0
        flash.fail("readonly")
        bench.draft("1", "refused")
        flash.mend()
        assert bench.store.texts("draft") == ["before"]
        if not bench.store.index("draft").startswith(" 1 "):
            raise Trouble(bench.store.index("draft"))
