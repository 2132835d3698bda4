"""docs/interfaces.md, followed by the author of a back end."""

import os
import re
import subprocess

from documents import BUILD, REPOSITORY, blocks, checkout, compilers, follow

from bench import Bench
from processes import read_text, wait_for


def test_the_example_in_c_sends_and_waits(tmp_path):
    source, = blocks("interfaces.md", "c")
    commands = blocks("interfaces.md", "sh")[0]
    here = tmp_path / "empty"
    here.mkdir()
    (here / "example.c").write_text(source)
    path = f"{compilers(tmp_path)}:{os.environ['PATH']}"
    with Bench() as bench:
        bench.start()
        variables = {"DV": checkout(tmp_path), "DV_PLATFORM_ROOT": bench.platform, "PATH": path}
        done = follow(commands, here, **variables)
        assert (done.returncode, done.stdout) == (0, "sent\n"), done
        assert [message["text"] for message in bench.inbox(1)] == ["Hello"]
        assert bench.flag["DV_SMS_MGR_LAST_ERR_CODE"] == "", "it leaves the flags cleared"

        bench.modem("fail", "AT+DORVYSMS", "500")
        done = follow("LD_LIBRARY_PATH=$DV/build/release/lib ./example", here, **variables)
        assert (done.returncode, done.stdout) == (1, "failed\n"), done
        bench.cfg["SYS_SMS_SW"] = "0"
        bench.wait_log("sms function close or sim not exsit, please check it")
        done = follow("LD_LIBRARY_PATH=$DV/build/release/lib ./example", here, **variables)
        assert (done.returncode, done.stdout) == (3, "not taken: is the service on?\n"), done


def test_the_example_in_shell(tmp_path):
    script = blocks("interfaces.md", "sh")[1]
    assert "smsctl watch --exec ./on-message" in script
    script = script.replace("smsctl watch ", "smsctl watch --count 1 ")        # else it goes on until Ctrl-C
    hook = tmp_path / "on-message"
    hook.write_text('#!/bin/sh\necho "$SMS_PHONE: $(cat)" >result.new && mv result.new result\n')
    hook.chmod(0o755)
    with Bench() as bench:
        bench.start()
        env = {**os.environ, "DV_PLATFORM_ROOT": str(bench.platform), "DV_SMS_STORE": str(bench.store.folder),
               "PATH": f"{BUILD / 'bin'}:{os.environ['PATH']}"}
        said, heard = tmp_path / "said", tmp_path / "heard"
        with open(said, "w") as out, open(heard, "w") as err:
            running = subprocess.Popen(["bash", "-e", "-c", script], cwd=tmp_path, env=env, stdout=out, stderr=err,
                                       stdin=subprocess.DEVNULL)
        try:
            wait_for(lambda: "watching" in read_text(heard), "smsctl watches", 60)
            assert [message["text"] for message in bench.inbox(1)] == ["Hello"]
            assert read_text(said).startswith("sent\ntaken by the network\n{")
            bench.handset("send", "hello router")
            assert running.wait(60) == 0
        finally:
            running.kill()
            running.wait()
        assert read_text(tmp_path / "result") == "+31687654321: hello router\n"


def rows():
    """The table of fields: (record, id, offset, size, field); an empty cell repeats the one above."""
    text = (REPOSITORY / "docs" / "interfaces.md").read_text()
    record = number = None
    for line in re.findall(r"^\|(.*)\|$", text.split("| Record | Id | Offset |")[1].split("\n\n")[0], re.M)[1:]:
        cells = [cell.strip(" `") for cell in line.split("|")]
        record, number = cells[0] or record, cells[1] or number
        yield record, number, int(cells[2]), int(cells[3]), re.match(r"\w+", cells[4]).group()


def test_offsets_and_ids_are_those_of_the_headers(tmp_path):
    text = (REPOSITORY / "docs" / "interfaces.md").read_text()
    claims = [f"offsetof({record}, {field}) == {offset} && sizeof((({record} *)0)->{field}) == {size}"
              for record, _, offset, size, field in rows()]
    claims += [f"AT_MSG_ID_{'INDICATION' if record == 'at_indication' else 'COMMAND'} == {number}"
               for record, number, *_ in rows()]
    assert len(claims) >= 24
    ids = re.findall(r"^\| (0x[0-9A-F]{4}) \| ([^|]+) \|", text, re.M)
    names = ["SEND_SMS", "READ_SMS", "DELETE_RECEIVE_SMS", "DELETE_SEND_SMS", "DELETE_DRAFT_SMS", "GENERATE_SMS",
             "FLOW_CONTROL_SMS", "SAVE_DRAFT_SMS"]
    assert [number for number, _ in ids] == [f"0x550{i}" for i in range(8)] + ["0x8002"]
    claims += [f"DV_SMS_MGR_MSG_ID_{name} == {number}" for (number, _), name in zip(ids, names)]
    claims += ["FLOWCONTROL_MSG_ID_WARN_EVENT == 0x8002", "sizeof(sockmsg_record) == 4116",
               "offsetof(sockmsg_record, payload) == 12", "offsetof(sockmsg_record, sender_module_id) == 4108",
               "offsetof(sockmsg_record, sender_extra) == 4112", "12 + offsetof(sms_payload, phone) == 44",
               "12 + offsetof(sms_payload, text) == 76", "sizeof(((sms_payload *)0)->text) == 4032",
               "sizeof(((sms_payload *)0)->phone) == 32"]
    source = tmp_path / "claims.c"
    source.write_text('#include "at_msg.h"\n#include "sms_msg.h"\n' +
                      "".join(f'_Static_assert({claim}, "{claim}");\n' for claim in claims))
    done = subprocess.run(["/usr/bin/cc", f"-I{REPOSITORY / 'platform/include'}", "-fsyntax-only", source],
                          capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, done.stderr
