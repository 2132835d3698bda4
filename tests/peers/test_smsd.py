"""smsd of smstools3 on the simulated modem."""

from peer import FROM, INCOMING, OUTGOING, TO, PeerBench, needs

SETTINGS = """
devices = modem
outgoing = {root}/outgoing
checked = {root}/checked
incoming = {root}/incoming
failed = {root}/failed
sent = {root}/sent
logfile = {root}/smsd.log
infofile = {root}/smsd.info
pidfile = {root}/smsd.pid
stats = {root}/stats
loglevel = 7
delaytime = 1
[modem]
device = {port}
baudrate = 115200
incoming = yes
report = no
"""


def start(bench):
    for name in ("outgoing", "checked", "incoming", "failed", "sent", "stats"):
        bench.folder(name)
    settings = bench.root / "smsd.conf"
    settings.write_text(SETTINGS.format(root=bench.root, port=bench.port))
    return bench.launch_peer("smsd", "smsd", "-t", "-c", settings)


@needs("smsd")
def test_smsd_sends_and_receives():
    with PeerBench() as bench:
        bench.start_generic_modem()
        start(bench)
        draft = bench.root / "draft"
        draft.write_text(f"To: {TO}\n\n{OUTGOING}")
        draft.rename(bench.root / "outgoing" / "one")
        message, = bench.inbox(1, seconds=120)
        assert (message["text"], message["to"]) == (OUTGOING, f"+{TO}")
        bench.wait(lambda: list((bench.root / "sent").iterdir()), "smsd files it as sent", 120)
        assert not list((bench.root / "failed").iterdir())

        bench.handset("send", "--from", FROM, "--via", "cmti", INCOMING)
        bench.wait(lambda: bench.stored() == [], "smsd takes it off the SIM", 120)
        bench.wait(lambda: list((bench.root / "incoming").iterdir()), "smsd files it", 120)
        received, = (bench.root / "incoming").iterdir()
        header, text = received.read_bytes().split(b"\n\n", 1)
        assert f"From: {FROM[1:]}".encode() in header
        assert text.strip() in (INCOMING.encode("iso-8859-15"), INCOMING.encode())
