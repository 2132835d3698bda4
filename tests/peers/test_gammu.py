"""gammu-smsd on the simulated modem."""

from peer import FROM, INCOMING, OUTGOING, TO, PeerBench, needs

SETTINGS = """
[gammu]
device = {port}
connection = at115200

[smsd]
service = files
logfile = {root}/gammu.log
debuglevel = 255
checksecurity = 0
receivefrequency = 1
statusfrequency = 1
loopsleep = 1
inboxpath = {root}/inbox/
outboxpath = {root}/outbox/
sentsmspath = {root}/sent/
errorsmspath = {root}/error/
inboxformat = unicode
"""


@needs("gammu-smsd")
def test_gammu_sends_and_receives():
    with PeerBench() as bench:
        bench.start_generic_modem()
        for name in ("inbox", "outbox", "sent", "error"):
            bench.folder(name)
        settings = bench.root / "gammu.conf"
        settings.write_text(SETTINGS.format(root=bench.root, port=bench.port))
        bench.run_peer("gammu-smsd-inject", "-c", settings, "TEXT", f"+{TO}", "-text", OUTGOING)
        bench.launch_peer("gammu", "gammu-smsd", "-c", settings)
        message, = bench.inbox(1, seconds=120)
        assert (message["text"], message["to"]) == (OUTGOING, f"+{TO}")
        bench.wait(lambda: list((bench.root / "sent").iterdir()), "gammu-smsd files it as sent", 120)
        assert not list((bench.root / "error").iterdir())

        bench.handset("send", "--from", FROM, "--via", "cmti", INCOMING)
        bench.wait(lambda: bench.stored() == [], "gammu-smsd takes it off the SIM", 120)
        bench.wait(lambda: list((bench.root / "inbox").iterdir()), "gammu-smsd files it", 120)
        received, = (bench.root / "inbox").iterdir()
        assert FROM in received.name
        content = received.read_bytes()
        assert content.decode("utf-16").rstrip("\0") == INCOMING
