"""Ending the daemon and starting another one."""

import signal
import subprocess

import bus
from bench import Bench


def second_daemon(bench):
    return subprocess.run([str(bench.build / "bin" / "dv_sms_mgr_workbench")], cwd=bench.root, env=bench.environment(),
                          capture_output=True, text=True, timeout=60, check=False)


def test_a_second_daemon_on_the_bus_is_refused_with_a_clear_word():
    with Bench() as bench:
        bench.start_with_fake()
        done = second_daemon(bench)
        assert done.returncode == 255
        assert done.stderr == f"module 27 cannot join the bus in {bench.bus}: another process is that module\n"
        assert bench.ask(bus.MSG_DRAFT, bus.pack_message("+491", "the first one goes on")) == 0


def test_the_place_of_a_killed_daemon_is_taken_over():
    with Bench() as bench:
        bench.start_with_fake()
        bench.daemon.stop(signal.SIGKILL)
        assert bench.root.joinpath("platform/bus/27").is_socket(), "left behind"
        bench.restart_daemon()
        assert bench.ask(bus.MSG_DRAFT, bus.pack_message("+491", "taken over")) == 0


def test_sigterm_ends_it_in_the_middle_of_an_answer_and_leaves_the_store_whole():
    with Bench() as bench:
        fake = bench.start_with_fake({"AT+CMGR=1": None})           # an answer that never comes
        for number in range(3):
            assert bench.ask(bus.MSG_DRAFT, bus.pack_message("+491", f"draft {number}")) == 0
        fake.indicate('\r\n+CMTI: "SM",1\r\n')
        bench.wait(lambda: "AT+CMGR=1\r" in fake.texts(), "the daemon waits for the modem")
        assert bench.daemon.stop(signal.SIGTERM) == -signal.SIGTERM
        bench.restart_daemon()
        assert bench.store.index("draft") == " 1 2 3 "
        assert bench.store.texts("draft") == ["draft 0", "draft 1", "draft 2"]
