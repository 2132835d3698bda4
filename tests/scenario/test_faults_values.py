"""Configuration, flags and device information that are missing or make no sense."""

import os
import shutil

import pytest

from bench import BOX_FULL, NETWORK, SIM_READY, UNREAD, Bench
from recovery import survived, works

ABSURD = {"empty": "", "negative": "-1", "huge": "99999999999999999999", "words": "%s%n$(reboot)`id`",
          "binary": "\udcff\udcfe\x01\x02", "long": "9" * 60000, "lines": "1\n2\n3\n"}


def put(values, key, value):
    with open(os.path.join(values.folder, str(key)), "wb") as file:
        file.write(value.encode("utf-8", "surrogateescape"))


CONFIGURATION = ("SYS_SMS_MAX_SAVE_SIZE", "SYS_REBOOT_WHEN_MODEM_UNORMAL", "USR_SMS_REDIRECT_SW",
                 "USR_SMS_REDIRECT_PHONE", "USR_WAN_MODE", "USR_FLOW_SMS_NOTICE_SWITCH",
                 "USR_FLOW_SMS_NOTICE_PHONE_NUMBER", "USR_FLOW_SMS_NOTICE_TEXT_1", "SYS_LOG_LEVEL")
FLAGS = ("SMS_CSCA", "DV_SMS_MGR_LAST_RECEIVED_MSG", "DV_SMS_MGR_LAST_ERR_CODE")
ITEMS = (UNREAD, *BOX_FULL.values(), 301003)


@pytest.fixture(scope="module")
def router():
    with Bench() as bench:
        bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = "500"
        bench.cfg["SYS_LOG_LEVEL"] = "3"
        bench.start()
        yield bench


def traffic(bench, tag):
    for message, payload in ((0x5506, b""), (0x8002, b"1"), (0x8002, b"nonsense"), (0x5501, b"1"), (0x5504, b"1")):
        bench.request(message, payload)
    bench.handset("send", "--via", "cmt", f"during {tag}")
    bench.draft("1", f"draft during {tag}")


@pytest.mark.parametrize("what", sorted(ABSURD))
def test_absurd_values(router, what):
    keep = {(values, key): values[key] for values, keys in ((router.cfg, CONFIGURATION), (router.flag, FLAGS))
            for key in keys}
    with survived(router, what, growth=(1 if what == "long" else 0.2) * 2 ** 20):
        for values, key in keep:
            put(values, key, ABSURD[what])
        for item in (*ITEMS, NETWORK):
            put(router.devinfo, item, ABSURD[what])
        traffic(router, what)
        for (values, key), value in keep.items():
            values[key] = value
        router.devinfo[NETWORK] = "LTE"


@pytest.mark.parametrize("values", ["cfg", "flag", "devinfo"])
def test_a_store_of_values_that_is_gone(router, values):
    folder = router.platform / values
    with survived(router, f"no {values}"):
        shutil.copytree(folder, router.root / f"kept_{values}")
        shutil.rmtree(folder)
        traffic(router, f"no {values}")
        router.wait_sleeps(router.daemon, 1)
        shutil.copytree(router.root / f"kept_{values}", folder, dirs_exist_ok=True)


@pytest.mark.parametrize("values, key", [("cfg", "SYS_SMS_SW"), ("devinfo", SIM_READY)])
def test_switch_and_sim_make_no_sense(router, values, key):
    """Neither "0" nor "1" leaves the service as it is; "0" ends it, "1" brings it back."""
    with survived(router, f"{key}"):
        for value in ABSURD.values():
            if not value.startswith(("0", "1")):
                put(getattr(router, values), key, value)
                assert router.service_is_on()
        getattr(router, values)[key] = "0"
        router.wait(lambda: not router.service_is_on(), "the service ends")
        getattr(router, values)[key] = "1"
        router.wait(router.service_is_on, "the service is back")


def test_nothing_is_set_at_the_start():
    with Bench() as bench:
        for values in (bench.cfg, bench.flag, bench.devinfo):
            shutil.rmtree(values.folder)
        bench.start_modem()
        bench.start_owner()
        bench.start_daemon()
        bench.wait_sleeps(bench.daemon, 3)
        assert bench.commands("AT+CMGF") == []          # without a SIM nothing is asked of the modem
        for values in (bench.cfg, bench.flag, bench.devinfo):
            os.makedirs(values.folder, exist_ok=True)
        bench.devinfo[SIM_READY] = "1"
        bench.wait_log("dv_sms_mgr init complete")
        assert not bench.service_is_on()
        bench.cfg["SYS_SMS_SW"] = "1"
        bench.devinfo[NETWORK] = "LTE"
        bench.wait_service()
        works(bench, "at last")
