"""./run --modem, with a generic modem on the port."""

import subprocess
import sys
from pathlib import Path

from bench import Bench

WALK = Path(__file__).resolve().parent / "walk_modem.py"


def walk(bench, *options):
    return subprocess.run([sys.executable, WALK, str(bench.port), "--directory", str(bench.root / "router"), "--once",
                           *options], capture_output=True, text=True, timeout=200, check=False)


def test_a_real_modem_is_brought_up_and_sends():
    with Bench(factor=1) as bench:
        bench.start_modem("--generic")
        done = walk(bench, "--to", "+31687654321")
        assert done.returncode == 0, done.stdout + done.stderr
        message, = bench.inbox(1)
        assert message["text"].startswith("This message shows")
        assert "AT+CMGS=" in str(bench.commands())


def test_nothing_is_sent_unasked_and_messages_are_kept():
    with Bench(factor=1) as bench:
        bench.start_modem("--generic")
        kept = bench.root / "router" / "mnt" / "data" / "sms" / "sms_read"
        kept.mkdir(parents=True)
        (kept / "1").write_text("1 1 +31687654321 2024/03/05 14:07:00 kept")
        for _ in range(2):
            done = walk(bench)
            assert done.returncode == 0, done.stdout + done.stderr
        assert bench.inbox() == [] and (kept / "1").read_text().endswith(" kept")
