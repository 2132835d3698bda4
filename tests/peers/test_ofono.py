"""ofonod on the simulated modem, with a message bus of its own. It finds modems by udev, but for those that its driver
for simulators reaches by TCP: a relay stands between that and the port."""

import json
import os
import re
import select
import socket
import subprocess
import threading
import tty

from peer import FROM, INCOMING, NOBODY, OUTGOING, TO, PeerBench, needs

BUS = """
<busconfig>
  <type>system</type>
  <listen>unix:path={root}/dbus</listen>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
  </policy>
</busconfig>
"""
MODEM = """
[phonesim]
Address=127.0.0.1
Port={port}
"""


class Relay(threading.Thread):
    """One connection by TCP, passed on to a port and back until it is closed."""

    def __init__(self, port):
        super().__init__(daemon=True)
        self.port = port
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.number = self.listener.getsockname()[1]
        self.start()

    def run(self):
        connection, _ = self.listener.accept()
        port = os.open(self.port, os.O_RDWR | os.O_NOCTTY)
        tty.setraw(port)
        try:
            while True:
                ready, _, _ = select.select([connection, port], [], [])
                if connection in ready:
                    data = connection.recv(4096)
                    if not data:
                        return
                    os.write(port, data)
                if port in ready:
                    connection.sendall(os.read(port, 4096))
        except OSError:                         # one of the two is gone, and so is the test
            pass
        finally:
            os.close(port)
            connection.close()
            self.listener.close()


class OfonoBench(PeerBench):
    def start_ofono(self):
        self.root.chmod(0o755)                  # for the account that ofonod runs as
        relay = Relay(self.port)
        settings = self.root / "phonesim.conf"
        settings.write_text(MODEM.format(port=relay.number))
        bus = self.root / "bus.conf"
        bus.write_text(BUS.format(root=self.root))
        self.bus_environment = dict(DBUS_SYSTEM_BUS_ADDRESS=f"unix:path={self.root}/dbus")
        self.launch_peer("dbus", "dbus-daemon", "--nofork", f"--config-file={bus}")
        self.wait((self.root / "dbus").exists, "the message bus is there")
        self.monitor = self.launch_peer("monitor", "dbus-monitor", "--system", "type='signal',sender='org.ofono'",
                                        **self.bus_environment)
        # Not root: it would keep what it knows of the SIM in the machine's own /var/lib/ofono.
        account = [] if os.geteuid() else ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"]
        self.launch_peer("ofonod", *account, "ofonod", "--nodetach", "--plugin=phonesim,atmodem", "--debug=*",
                         **self.bus_environment, OFONO_PHONESIM_CONFIG=str(settings), OFONO_AT_DEBUG="1")

    def ask(self, path, method, *arguments):
        """Calls a method; gives what came back, or None while it is refused."""
        done = subprocess.run(["dbus-send", "--system", "--print-reply=literal", "--dest=org.ofono", path,
                               f"org.ofono.{method}", *arguments], env=dict(os.environ, **self.bus_environment),
                              capture_output=True, text=True, timeout=60, check=False)
        return done.stdout if done.returncode == 0 else None

    def switch_on(self, name):
        self.wait(lambda: self.ask("/phonesim", "Modem.SetProperty", f"string:{name}", "variant:boolean:true") is not None,
                  f"the modem is switched to {name}", 120)

    def wait_interface(self, name):
        self.wait(lambda: f"org.ofono.{name}" in (self.ask("/phonesim", "Modem.GetProperties") or ""),
                  f"ofonod offers {name}", 120)

    def wait_signal(self, *words):
        """Awaits a signal with these words in this order."""
        pattern = re.compile(".*".join(map(re.escape, words)), re.DOTALL)
        self.wait(lambda: pattern.search(self.monitor.out()), f"ofonod says {words}", 120)


@needs("ofonod")
def test_ofono_sends_and_receives():
    with OfonoBench() as bench:
        bench.start_generic_modem()
        bench.start_ofono()
        bench.switch_on("Powered")
        bench.switch_on("Online")
        bench.wait_interface("MessageManager")
        assert bench.ask("/phonesim", "MessageManager.SendMessage", f"string:+{TO}", f"string:{OUTGOING}")
        message, = bench.inbox(1, seconds=120)
        assert (message["text"], message["to"]) == (OUTGOING, f"+{TO}")
        bench.wait_signal("member=PropertyChanged", '"State"', '"sent"')

        bench.handset("send", "--from", FROM, "--via", "cmti", INCOMING)
        bench.wait_signal("member=IncomingMessage", f'string "{INCOMING}"', '"Sender"', f'"{FROM}"')
        bench.wait(lambda: bench.commands("AT+CMGD"), "ofonod deletes it in the modem", 120)
        held = json.loads(bench.modem("storage", "--memory", "ME", "--wait", "0", "--json"))
        assert held["messages"] == [] and bench.stored() == []
