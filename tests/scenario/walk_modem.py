"""What ./run --modem shows: the daemon on a real modem. Its messages stay where they were filed.

    walk_modem.py PORT [--once] [--owner-options OPTIONS] [--to NUMBER] [--directory DIRECTORY]
"""

import argparse
import os
import shlex
import signal
import sys

import walk
from bench import NETWORK, SIM_READY, Bench
from processes import Trouble
from walk import Ended, check, end, paint, stay, write_environment

ASKED = "This message shows that the router can send. It needs no answer."


class ModemWalk(walk.Walk):
    def __init__(self, bench, options):
        super().__init__(bench)
        self.options = options
        self.sent = len(bench.store.numbers("send"))

    def start_the_owner(self):
        """The owner of the AT port joins the bus as module 5 and opens the port"""
        self.bench.start_owner(*shlex.split(self.options.owner_options), "--trace", self.bench.root / "trace")
        return f"the port is {self.options.port}; what goes over it is in {self.bench.root / 'modem.trace'}"

    def await_the_sim(self):
        """The modem says that its SIM is ready"""
        self.bench.wait(lambda: self.bench.devinfo[SIM_READY] == "1",
                        lambda: f"a ready SIM: the modem's last word is {self.bench.devinfo[SIM_READY]!r}. A PIN can be "
                                "given with --owner-options '--generic --init AT+CPIN=1234'", 60)
        return f"network: {self.bench.devinfo[NETWORK] or 'not yet registered'}"

    def start_the_daemon(self):
        """The SMS manager brings the modem's message service up and says that it is ready"""
        self.bench.start_daemon()
        self.bench.wait_service(120)
        return f"service centre: {self.bench.flag['SMS_CSCA']}"

    def send(self):
        """A text goes out"""
        if not self.options.to:
            return "left out: --to NUMBER would send one, at your cost"
        self.bench.run("smsctl", "send", self.options.to, ASKED)
        self.bench.wait_records("send", self.sent + 1)
        record = self.bench.store.records("send")[-1]
        check(record.state == 1, record.content)
        return record.content.decode()

    STEPS = (start_the_owner, await_the_sim, start_the_daemon, walk.Walk.start_the_page, send)


def how_to_play(bench):
    print(f"""
{paint('1', 'Now it is yours.')} Send a text to the number of the SIM. The page: {bench.page}. In another terminal:

  . {write_environment(bench)}

  smsctl watch                            what arrives, as it arrives
  smsctl send NUMBER "At home"            a text from this modem, at your cost
  smsctl list inbox                       the messages; they stay in {bench.store.folder}

It stays until Ctrl-C.""", flush=True)


def parse():
    options = argparse.ArgumentParser(prog="run --modem")
    options.add_argument("port")
    options.add_argument("--once", action="store_true")
    options.add_argument("--owner-options", default="--generic")
    options.add_argument("--to")
    options.add_argument("--directory", required=True)
    return options.parse_args()


def main():
    options = parse()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, end)
    bench = Bench(factor=1, root=os.path.abspath(options.directory))
    bench.port = options.port
    for name in os.listdir(bench.root):                         # what an earlier run said
        if name in ("log", "trace") or name.endswith((".out", ".err")):
            os.unlink(bench.root / name)
    bench.devinfo[SIM_READY] = bench.devinfo[NETWORK] = ""      # the owner of the port tells
    try:
        print(f"Everything that it keeps is in {bench.root}", flush=True)
        ModemWalk(bench, options).go()
        if not options.once:
            how_to_play(bench)
            stay(bench)
    except Ended:
        print("\nEnding what was started.", flush=True)
    except Trouble as error:
        print(bench.report(1500), file=sys.stderr)
        print(paint("31", f"FAILED: {error}"), file=sys.stderr)
        return 1
    finally:
        bench.stop()
    return 0


if __name__ == "__main__":
    sys.exit(main())
