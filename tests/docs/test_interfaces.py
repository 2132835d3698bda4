"""docs/interfaces.md, followed by the author of a back end."""

import os
import subprocess

from documents import BUILD, blocks, checkout, compilers, follow

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
