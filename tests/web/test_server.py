"""The real server, with a stand-in for the SMS manager and a store made by hand."""

import http.client
import json
import re
import signal
import socket
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor

import pytest

import bus
from processes import wait_for
from web_bench import WebBench, phone_and_text, text_of

ONE = "1 0 +31612345678 2024/03/05 14:07:00 one"


@pytest.fixture(name="bench")
def a_bench():
    with WebBench() as bench:
        yield bench


@pytest.fixture(name="daemon")
def a_daemon(bench):
    return bench.start_fake_daemon()


@pytest.fixture(name="web")
def a_server(bench, daemon):
    return bench.start_web()


def fill(bench, box, *records):
    for number, record in enumerate(records, 1):
        bench.store.put(box, number, record)
    (bench.store.folder / f"{box}_index").write_text(" " + "".join(f"{n} " for n in range(1, len(records) + 1)))


# ---- what can be read ----

def test_page_and_its_files_are_there(web):
    page = web.get("/")
    assert page.status == 200
    assert page.headers["Content-Type"] == "text/html; charset=utf-8"
    text = page.body.decode()
    for name in re.findall(r'(?:href|src)="([^"#]+)"', text):
        assert web.get("/" + name).status == 200, name
    for script in ("app", "composer", "dom", "handset", "inspector", "live", "measure", "messages", "notes", "server",
                   "status", "traffic", "words"):
        found = web.get(f"/{script}.js")
        assert found.headers["Content-Type"] == "text/javascript; charset=utf-8"
        assert web.get(f"/{script}.js", If_None_Match=found.headers["ETag"]).status == 304


def test_page_uses_nothing_from_elsewhere_and_nothing_inline(web):
    page = web.get("/")
    policy = page.headers["Content-Security-Policy"]
    assert "default-src 'none'" in policy and "script-src 'self'" in policy and "unsafe" not in policy
    text = page.body.decode()
    assert not re.search(r'\son\w+=|style=|<style|javascript:|(?:href|src)="(?:https?:)?//', text)
    assert page.headers["X-Content-Type-Options"] == "nosniff"
    assert page.headers["X-Frame-Options"] == "DENY"


@pytest.mark.parametrize("path", ["/nothing", "/../main.cpp", "/%2e%2e/main.cpp", "/api", "/api/nothing", "//etc/passwd",
                                  "/api/messages/attic", "/api/messages/"])
def test_what_is_not_there_is_not_found(web, path):
    assert web.get(path).status == 404


def test_store_is_shown_as_it_is(bench, daemon):
    long = "é" * 1000
    fill(bench, "read", ONE, "2 1 TELCO 2024/03/05 14:08:00 " + long,
         b"3 0 +1 2024/03/05 14:09:00 a\xed\xa0\xbd\xed\xb8\x80b\xffc")
    fill(bench, "send", "1 1 +31612345678 2024-03-05 14:07:00 went", "2 0 +31612345678 2024-03-05 14:08:00 did not")
    web = bench.start_web()
    inbox = web.messages("inbox")
    assert [(each["number"], each["state"], each["phone"]) for each in inbox] == [
        (3, "unread", "+1"), (2, "read", "TELCO"), (1, "unread", "+31612345678")]
    assert inbox[1]["text"] == long
    assert inbox[0]["text"] == "a😀b\ufffdc" and inbox[0]["text_runs"] == ["a😀b", {"hex": "FF"}, "c"]
    assert inbox[2]["date"] == "2024/03/05 14:07:00"
    assert [each["state"] for each in web.messages("sent")] == ["failed", "sent"]
    boxes = web.state()["boxes"]
    assert (boxes["inbox"]["total"], boxes["inbox"]["unread"], boxes["sent"]["failed"]) == (3, 2, 1)


def test_state_follows_the_platform(bench, web):
    bench.devinfo[306002] = "1"
    state = web.state()
    assert state["service"] == {"daemon": True, "on": True, "why_off": "", "sim": True, "network": "LTE", "centre": ""}
    assert state["capacity"] == 100
    assert [state["boxes"][box]["full"] for box in ("inbox", "sent", "drafts")] == [True, False, False]
    assert (state["handset"], state["traffic"], state["token"]) == (False, False, False)
    bench.devinfo[301002] = "Unkown"
    bench.cfg["SYS_SMS_SW"] = "0"
    bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = "0"
    bench.flag["SMS_CSCA"] = "+31624000000"
    state = web.state()
    assert state["service"]["network"] == "" and not state["service"]["on"]
    assert state["service"]["centre"] == "+31624000000" and state["capacity"] == 500


def test_health(bench, daemon, web):
    assert (web.get("/healthz").status, web.get("/healthz").json) == (200, {"daemon": True, "service": True})
    bench.devinfo[301001] = "0"
    assert web.get("/healthz").json == {"daemon": True, "service": False}
    bench.__dict__.pop("daemon_stand_in").stop()
    assert (web.get("/healthz").status, web.get("/healthz").json) == (503, {"daemon": False, "service": False})


def test_metrics(bench, daemon):
    fill(bench, "read", ONE, ONE.replace("1 0", "2 1"), ONE.replace("1 0", "3 0"))
    bench.devinfo[306004] = "1"
    web = bench.start_web()
    daemon.behave[bus.MSG_SEND] = (True, 500)
    assert not web.do("/api/messages", {"to": "+1", "text": "x"})["ok"]
    assert web.do("/api/drafts", {"to": "+1", "text": "x"})["ok"]
    stream = web.events()
    stream.next("hello")
    answer = web.get("/metrics")
    assert answer.headers["Content-Type"].startswith("text/plain; version=0.0.4")
    lines = answer.body.decode().splitlines()
    for line in ('sms_web_daemon_up 1', 'sms_web_service_on 1', 'sms_web_messages{box="inbox",state="unread"} 2',
                 'sms_web_messages{box="inbox",state="read"} 1', 'sms_web_messages{box="sent",state="failed"} 0',
                 'sms_web_unread 2', 'sms_web_box_capacity 100', 'sms_web_box_full{box="drafts"} 1',
                 'sms_web_box_full{box="inbox"} 0', 'sms_web_requests_total{kind="send",outcome="failed"} 1',
                 'sms_web_requests_total{kind="draft",outcome="done"} 1', 'sms_web_event_clients 1'):
        assert line in lines
    for line in lines:
        assert re.fullmatch(r'# (HELP|TYPE) sms_web_\w+ .+|sms_web_\w+(\{\w+="\w+"(,\w+="[\w-]+")*\})? \d+', line), line
    stream.close()


# ---- what is told by itself ----

def test_events_tell_what_changes(bench, web):
    stream = web.events()
    assert stream.next() == ("hello", {})
    bench.store.put("read", 1, ONE)
    (bench.store.folder / "read_index").write_text(" 1 ")
    while (state := stream.next("state")[1])["boxes"]["inbox"]["total"] != 1:
        pass
    assert state["boxes"]["inbox"]["unread"] == 1
    while state["boxes"]["inbox"]["revision"] != web.get("/api/messages/inbox").json["revision"]:
        state = stream.next("state")[1]         # the two files of the change may have been seen one by one
    bench.devinfo[301002] = ""
    while stream.next("state")[1]["service"]["network"] != "":
        pass
    stream.close()


def test_state_that_somebody_saw_is_told_of_to_all(bench, web):
    stream = web.events()
    stream.next("hello")
    turn = web.state()["turn"]
    bench.cfg["SYS_SMS_SW"] = "0"
    seen = web.state()                          # the watcher may look only when this has passed
    bench.cfg["SYS_SMS_SW"] = "1"
    assert not seen["service"]["on"] and seen["turn"] > turn
    told = stream.next("state")[1]
    while told["turn"] < seen["turn"]:
        told = stream.next("state")[1]
    assert told == seen
    after = stream.next("state")[1]
    assert after["service"]["on"] and after["turn"] > seen["turn"]
    stream.close()


def test_only_so_many_may_listen_and_their_places_are_given_back(web):
    streams = [web.events() for _ in range(16)]
    assert all(stream.next()[0] == "hello" for stream in streams)
    assert web.get("/api/events").status == 503
    for stream in streams:
        stream.close()
    wait_for(lambda: "sms_web_event_clients 0" in web.get("/metrics").body.decode(),
             "listeners that went away are noticed")


def test_traffic_is_followed(bench, daemon):
    trace = bench.root / "trace"
    trace.write_text("2026-11-21T09:30:12.345Z > AT\\r\n")
    web = bench.start_web("--trace", trace)
    assert web.get("/api/traffic").json["lines"][0]["parts"] == ["AT\\r"]
    stream = web.events()
    stream.next("hello")
    with open(trace, "a", encoding="ascii") as file:
        file.write("2026-11-21T09:30:13.345Z < \\r\\nOK\\r\\n\n")
    lines = stream.next("traffic")[1]["lines"]
    assert lines == [{"seq": 2, "at": "2026-11-21T09:30:13.345Z", "kind": "<", "parts": ["\\r\\nOK\\r\\n"]}]
    assert web.get("/api/traffic?after=1").json["lines"] == lines
    assert web.get("/api/traffic?after=x").status == 200
    stream.close()


# ---- what is asked of the SMS manager ----

def test_sending(bench, daemon, web):
    job = web.do("/api/messages", {"to": "+31612345678", "text": "Merhaba 您好 😀"})
    assert (job["ok"], job["code"], job["details"]) == (True, "done", {"parts": 1})
    assert [phone_and_text(payload) for payload in daemon.of(bus.MSG_SEND)] == [("+31612345678", "Merhaba 您好 😀")]
    assert bench.flag["DV_SMS_MGR_LAST_RECEIVED_MSG"] == "" and bench.flag["DV_SMS_MGR_LAST_ERR_CODE"] == ""


@pytest.mark.parametrize("behaviour, code", [((True, 500), "failed"), ((False, None), "not-taken"),
                                             ((True, None), "no-answer")])
def test_ends_of_a_request(daemon, web, behaviour, code):
    daemon.behave[bus.MSG_SEND] = behaviour
    job = web.do("/api/messages", {"to": "1", "text": "x"})
    assert (job["ok"], job["code"]) == (False, code)
    assert len(daemon.of(bus.MSG_SEND)) == 1


def test_nothing_is_sent_while_the_service_is_off(bench, daemon, web):
    bench.cfg["SYS_SMS_SW"] = "0"
    assert web.do("/api/messages", {"to": "1", "text": "x"})["code"] == "service-off"
    assert daemon.requests == []
    assert web.do("/api/drafts", {"to": "1", "text": "x"})["ok"], "drafts need no service"


def test_no_daemon(bench):
    web = bench.start_web()
    assert web.do("/api/messages", {"to": "1", "text": "x"})["code"] == "no-daemon"
    assert not web.state()["service"]["daemon"]


def test_retry_does_not_send_twice(daemon, web):
    daemon.hold.clear()
    id = web.new_id()
    body = {"to": "+31612345678", "text": "once"}
    first = web.post("/api/messages", body, id)
    assert (first.status, first.json["state"]) in ((202, "waiting"), (202, "running"))
    assert web.post("/api/messages", body, id).status == 200
    daemon.hold.set()
    assert web.finish(first)["ok"]
    again = web.post("/api/messages", body, id)
    assert (again.status, again.json["state"], again.json["ok"]) == (200, "finished", True)
    assert len(daemon.of(bus.MSG_SEND)) == 1
    other = web.post("/api/messages", {**body, "text": "other"}, id)
    assert (other.status, other.json["error"]) == (409, "id-used")
    assert web.post("/api/drafts", body, id).status == 409
    assert len(daemon.requests) == 1


def test_retry_after_a_new_start_is_refused(bench, daemon, web):
    id = web.new_id()
    assert web.do("/api/messages", {"to": "1", "text": "x"}, id)["ok"]
    bench.web_process.stop()
    web = bench.start_web(name="sms_web_again")
    answer = web.post("/api/messages", {"to": "1", "text": "x"}, id)
    assert (answer.status, answer.json["error"]) == (409, "restarted")
    assert (web.get(f"/api/requests/{id}").status, web.get(f"/api/requests/{id}").json["error"]) == (409, "restarted")
    assert len(daemon.of(bus.MSG_SEND)) == 1


def test_requests_wait_for_each_other(daemon, web):
    daemon.hold.clear()
    jobs = [web.post("/api/messages", {"to": "1", "text": str(n)}) for n in range(3)]
    wait_for(lambda: daemon.requests, "the first is asked for")
    assert web.get(f"/api/requests/{jobs[1].json['id']}").json["state"] == "waiting"
    assert len(daemon.requests) == 1, "the flags hold one request's state"
    daemon.hold.set()
    assert all(web.finish(job)["ok"] for job in jobs)
    assert [phone_and_text(payload)[1] for payload in daemon.of(bus.MSG_SEND)] == ["0", "1", "2"]


def test_too_many_requests_are_refused(daemon, web):
    daemon.hold.clear()
    answers = [web.post("/api/messages", {"to": "1", "text": str(n)}) for n in range(18)]
    assert [answer.status for answer in answers[:16]] == [202] * 16
    assert answers[-1].status == 503 and answers[-1].headers["Retry-After"]
    assert web.get("/healthz").status == 200, "and the server answers all the same"
    daemon.hold.set()


def test_another_client_has_its_turn(bench, daemon, web):
    bench.platform.joinpath(".requests.lock").touch()
    with subprocess.Popen(["flock", "-x", bench.platform / ".requests.lock", "-c", "echo got; read line"],
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE) as other:
        assert other.stdout.readline() == b"got\n"
        job = web.post("/api/messages", {"to": "1", "text": "x"})
        assert web.get(f"/api/requests/{job.json['id']}?wait=1").json["state"] == "running"
        assert daemon.requests == []
        other.communicate(b"\n")
    assert web.finish(job)["ok"]


def test_message_that_another_client_changes_first_is_left_alone(bench, daemon):
    fill(bench, "read", ONE)
    web = bench.start_web()
    seen = marks(web.messages("inbox"))
    bench.platform.joinpath(".requests.lock").touch()
    with subprocess.Popen(["flock", "-x", bench.platform / ".requests.lock", "-c", "echo got; read line"],
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE) as other:
        assert other.stdout.readline() == b"got\n"
        jobs = [web.post("/api/delete", {"box": "inbox", "messages": seen}), web.post("/api/read", {"messages": seen})]
        wait_for(lambda: web.get(f"/api/requests/{jobs[0].json['id']}").json["state"] == "running", "it waits its turn")
        bench.store.put("read", 1, "1 0 +31612345678 2024/03/05 15:00:00 a new one under the old number")
        other.communicate(b"\n")
    assert [web.finish(job)["code"] for job in jobs] == ["changed", "changed"]
    assert daemon.requests == []


def marks(messages):
    return [{"number": each["number"], "key": each["key"]} for each in messages]


def test_reading(bench, daemon):
    fill(bench, "read", ONE, ONE.replace("1 0", "2 1"), ONE.replace("1 0", "3 0"))
    web = bench.start_web()
    messages = web.messages("inbox")
    assert web.do("/api/read", {"messages": marks(messages)})["ok"]
    assert [text_of(payload) for payload in daemon.of(bus.MSG_READ)] == ["1,3"], \
        "the counter falls for each that is named, so those that are read are not"
    assert web.do("/api/read", {"messages": marks(messages[1:2])})["ok"]
    assert len(daemon.of(bus.MSG_READ)) == 1, "there is nothing to ask for"
    assert web.do("/api/read", {"all": True})["ok"]
    assert text_of(daemon.of(bus.MSG_READ)[1]) == "READ ALL"


def test_deleting(bench, daemon):
    fill(bench, "read", ONE, ONE.replace("1 0", "2 0"))
    fill(bench, "send", "1 1 1 2024-03-05 14:07:00 x")
    fill(bench, "draft", "1 1 1 2024-03-05 14:07:00 x")
    web = bench.start_web()
    messages = marks(web.messages("inbox"))
    assert web.do("/api/delete", {"box": "inbox", "messages": messages + messages})["ok"]
    assert text_of(daemon.of(bus.MSG_DELETE_RECEIVED)[0]) == "1,2", "each once: the daemon stops at a missing one"
    assert web.do("/api/delete", {"box": "sent", "messages": marks(web.messages("sent"))})["ok"]
    assert text_of(daemon.of(bus.MSG_DELETE_SENT)[0]) == "1"
    assert web.do("/api/delete", {"box": "drafts", "all": True})["ok"]
    assert text_of(daemon.of(bus.MSG_DELETE_DRAFT)[0]) == "DELETE ALL"


def test_message_that_is_another_by_now_is_left_alone(bench, daemon):
    fill(bench, "read", ONE, ONE.replace("1 0", "2 0"))
    web = bench.start_web()
    seen = marks(web.messages("inbox"))
    bench.store.put("read", 1, "1 0 +31612345678 2024/03/05 15:00:00 a new one under the old number")
    for path, body in (("/api/delete", {"box": "inbox"}), ("/api/read", {})):
        job = web.do(path, {**body, "messages": seen})
        assert (job["ok"], job["code"]) == (False, "changed")
    (bench.store.folder / "sms_read" / "1").unlink()
    assert web.do("/api/delete", {"box": "inbox", "messages": seen})["code"] == "changed"
    assert daemon.requests == []


WRONG = [
    ("/api/messages", b""), ("/api/messages", b"{"), ("/api/messages", b"[]"), ("/api/messages", b"null"),
    ("/api/messages", {}), ("/api/messages", {"to": "1"}), ("/api/messages", {"text": "x"}),
    ("/api/messages", {"to": "", "text": "x"}), ("/api/messages", {"to": "1", "text": ""}),
    ("/api/messages", {"to": 1, "text": "x"}), ("/api/messages", {"to": "1", "text": ["x"]}),
    ("/api/messages", {"to": "+", "text": "x"}), ("/api/messages", {"to": "1" * 21, "text": "x"}),
    ("/api/messages", {"to": "1\r\nAT", "text": "x"}), ("/api/messages", {"to": "12a", "text": "x"}),
    ("/api/messages", {"to": "++1", "text": "x"}), ("/api/messages", {"to": "1", "text": "x" * 4001}),
    ("/api/messages", {"to": "1", "text": "您" * 1334}), ("/api/messages", {"to": "1", "text": "[" * 2001}),
    ("/api/messages", {"to": "1", "text": "a\0b"}), ("/api/drafts", {"to": "1", "text": "x" * 4001}),
    ("/api/messages", {"to": "1", "text": "x", "id": ""}), ("/api/messages", {"to": "1", "text": "x", "id": 1}),
    ("/api/messages", {"to": "1", "text": "x", "id": "a b"}), ("/api/messages", {"to": "1", "text": "x", "id": "a" * 65}),
    ("/api/read", {}), ("/api/read", {"messages": []}), ("/api/read", {"messages": {}}), ("/api/read", {"messages": [1]}),
    ("/api/read", {"messages": [{"number": "1", "key": "x"}]}), ("/api/read", {"messages": [{"number": 1}]}),
    ("/api/read", {"messages": [{"number": 1, "key": "x"}] * 301}), ("/api/read", {"all": "yes"}),
    ("/api/delete", {"all": True}), ("/api/delete", {"box": "attic", "all": True}), ("/api/delete", {"box": "inbox"}),
]


@pytest.mark.parametrize("path, body", WRONG)
def test_wrong_requests_are_refused_with_words(daemon, web, path, body):
    if isinstance(body, dict) and "id" not in body:
        body = {**body, "id": web.new_id()}
    answer = web.ask("POST", path, body, {"Content-Type": "application/json"})
    assert answer.status == 400 and answer.json["message"]
    assert daemon.requests == []


def test_what_fits_exactly_is_taken(daemon, web):
    for text in ("x" * 4000, "您" * 1333, "[" * 2000):
        assert web.do("/api/messages", {"to": "+" + "1" * 20, "text": text})["ok"]
        assert phone_and_text(daemon.requests[-1][1]) == ("+" + "1" * 20, text)


HI = "07911356131313F3040B911316325476F800004230504170000202E834"


def test_pdu_is_explained(daemon, web):
    answer = web.ask("POST", "/api/inspect", {"pdus": [HI, HI.lower()]})
    assert answer.status == 200 and answer.headers["Content-Type"] == "application/json"
    first, second = answer.json
    assert (first["kind"], first["problems"], first["daemon"]["text"]) == ("SMS-DELIVER", [], "hi")
    assert second["daemon"]["text"] == "hi"
    assert first["fields"][0]["offset"] == 0 and first["fields"][0]["octets"] == "07"
    assert web.ask("POST", "/api/inspect", {"pdus": [HI[:-2]]}).json[0]["problems"]
    assert daemon.requests == []


@pytest.mark.parametrize("pdus", [None, [], {}, "00", [""], ["0g"], ["00\nAT"], [1], ["0" * 1025], ["00"] * 256])
def test_what_is_no_pdu_is_refused(daemon, web, pdus):
    answer = web.ask("POST", "/api/inspect", {"pdus": pdus})
    assert answer.status == 400 and answer.json["message"]


# ---- who may ask ----

@pytest.mark.parametrize("path", ["/api/messages", "/api/drafts", "/api/read", "/api/delete", "/api/handset",
                                  "/api/modem", "/api/inspect", "/api/session", "/api/session/end"])
@pytest.mark.parametrize("method", ["GET", "HEAD", "PUT", "DELETE", "OPTIONS"])
def test_nothing_is_changed_but_by_post(daemon, web, path, method):
    assert web.ask(method, path).status in (404, 405)
    assert daemon.requests == []


def test_other_names_and_other_sites_are_refused(daemon, web):
    body = json.dumps({"to": "1", "text": "x", "id": web.new_id()})
    headers = {"Content-Type": "application/json"}
    assert web.get("/", Host="evil.example").status == 421
    assert web.get("/api/state", Host=f"evil.example:{web.port}").status == 421
    assert web.ask("POST", "/api/messages", body, {**headers, "Origin": "http://evil.example"}).status == 403
    assert web.ask("POST", "/api/messages", body, {**headers, "Sec-Fetch-Site": "cross-site"}).status == 403
    assert web.ask("POST", "/api/messages", body, {"Content-Type": "text/plain"}).status == 415
    assert web.get("/api/events", Sec_Fetch_Site="cross-site").status == 403
    assert daemon.requests == []
    assert web.ask("POST", "/api/messages", body, {**headers, "Origin": web.url[:-1]}).status == 202
    for name in ("Access-Control-Allow-Origin", "Access-Control-Allow-Methods"):
        assert name not in web.get("/api/state").headers


def test_second_host_header_does_not_help(web):
    answer = web.raw(b"GET /api/state HTTP/1.1\r\nHost: evil.example\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n")
    assert answer.startswith((b"HTTP/1.1 421 ", b"HTTP/1.1 400 "))
    assert web.raw(b"GET /api/state HTTP/1.0\r\n\r\n").startswith(b"HTTP/1.1 400 ")


TOKEN = "a-long-enough-secret"


def test_token(bench, daemon):
    secret = bench.root / "token"
    secret.write_text(TOKEN + "\nnot this line\n")
    web = bench.start_web("--token-file", secret)
    assert web.get("/").status == 200, "the page itself is no secret: it asks for the token"
    assert web.get("/healthz").status == 200
    for path in ("/api/state", "/api/events", "/api/messages/inbox", "/metrics", "/api/traffic"):
        refused = web.get(path)
        assert (refused.status, refused.headers["WWW-Authenticate"]) == (401, "Bearer")
    bearer = {"Authorization": f"Bearer {TOKEN}"}
    assert web.get("/metrics", **bearer).status == 200
    assert web.ask("POST", "/api/session", {"token": "wrong"}).status == 401
    opened = web.ask("POST", "/api/session", {"token": TOKEN})
    cookie = opened.headers["Set-Cookie"]
    assert "HttpOnly" in cookie and "SameSite=Strict" in cookie and TOKEN not in cookie
    session = {"Cookie": cookie.split(";")[0]}
    assert web.get("/api/state", **session).status == 200
    id = web.get("/api/state", **session).json["instance"] + "-1"
    body = {"to": "1", "text": "x", "id": id}
    assert web.ask("POST", "/api/messages", body).status == 401
    assert daemon.requests == []
    assert web.ask("POST", "/api/messages", body, session).status == 202
    stream = web.events(session)
    stream.next("hello")
    assert web.ask("POST", "/api/session/end", {}, session).status == 200
    assert web.get("/api/state", **session).status == 401
    with pytest.raises((EOFError, http.client.HTTPException, ConnectionError)):
        while True:                             # its streams end as well
            stream.next(seconds=10)


def test_token_from_the_environment(bench, daemon):
    bench.environment = lambda old=bench.environment: {**old(), "SMS_WEB_TOKEN": TOKEN}
    web = bench.start_web("--listen", "0.0.0.0", "--host", "router.lan")
    web.host = "127.0.0.1"
    assert web.get("/api/state", Host="router.lan").status == 401
    assert web.get("/api/state", Host="router.lan", Authorization=f"Bearer {TOKEN}").status == 200
    assert web.get("/api/state", Host="other.lan", Authorization=f"Bearer {TOKEN}").status == 421


def test_ipv6(bench, daemon):
    web = bench.start_web("--listen", "::1")
    assert web.get("/healthz").status == 200


# ---- limits ----

def test_large_bodies_are_refused(daemon, web):
    head = b"POST /api/messages HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
    answer = web.raw(head + b"Content-Length: 70000\r\n\r\n")
    assert answer.startswith(b"HTTP/1.1 413 ")
    chunk = b"1000\r\n" + b" " * 4096 + b"\r\n"
    try:
        answer = web.raw(head + b"Transfer-Encoding: chunked\r\n\r\n" + chunk * 32 + b"0\r\n\r\n")
    except ConnectionError:
        answer = b""
    assert not answer.startswith(b"HTTP/1.1 2")
    assert web.raw(head + b"Content-Length: -1\r\nConnection: close\r\n\r\n").startswith(b"HTTP/1.1 4")
    assert daemon.requests == []
    assert web.get("/healthz").status == 200


def test_large_headers_are_refused(web):
    answer = web.raw(b"GET / HTTP/1.1\r\nHost: localhost\r\nX: " + b"x" * 100000 + b"\r\n\r\n")
    assert answer == b"" or answer.startswith((b"HTTP/1.1 431 ", b"HTTP/1.1 413 "))
    assert web.get("/healthz").status == 200


def test_who_says_nothing_is_cut_off(web):
    silences = (b"", b"GET / HT", b"POST /api/messages HTTP/1.1\r\nHost: localhost\r\nContent-Length: 5\r\n\r\n{")
    with ThreadPoolExecutor(len(silences)) as pool:
        list(pool.map(web.raw, silences))       # returns when the server closes: 30 seconds, in fast time
    assert web.get("/healthz").status == 200


def test_there_are_only_so_many_connections(web):
    idle = [socket.create_connection((web.host, web.port)) for _ in range(80)]
    for connection in idle:
        connection.close()
    wait_for(lambda: web.get("/healthz").status == 200, "the server answers again")


@pytest.mark.parametrize("noise", [b"\0" * 100, b"\x16\x03\x01\x02\x00\x01", b"GET\r\n\r\n", b"X" * 50000,
                                   b"GET /%00 HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n",
                                   b"GET /?%ff=%fe HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n",
                                   b"GET /\xff\xfe HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n"])
def test_noise_does_no_harm(web, noise):
    try:
        web.raw(noise, last=True)
    except ConnectionError:
        pass
    assert web.get("/healthz").status == 200


def test_ends_at_once_whatever_is_going_on(bench, daemon, web):
    daemon.hold.clear()
    stream = web.events()
    stream.next("hello")
    job = web.post("/api/messages", {"to": "1", "text": "x"})
    wait_for(lambda: daemon.requests, "it is asked for")
    waiting = socket.create_connection((web.host, web.port))
    waiting.sendall(f"GET /api/requests/{job.json['id']}?wait=25 HTTP/1.1\r\nHost: localhost\r\n\r\n".encode())
    begun = time.monotonic()
    assert bench.web_process.stop(signal.SIGTERM) == 0
    assert time.monotonic() - begun < 20
    waiting.close()
    stream.close()


# ---- the command line ----

def call(bench, *arguments):
    return subprocess.run([bench.build / "bin" / "sms_web", *arguments], env=bench.environment(), capture_output=True,
                          text=True, timeout=60, check=False)


def test_help_and_version(bench):
    done = call(bench, "--help")
    assert done.returncode == 0
    for option in ("--listen", "--port", "--token", "--token-file", "--host", "--store", "--handset-control",
                   "--handset-number", "--trace", "--assets", "--version"):
        assert option in done.stdout
    assert re.fullmatch(r"\d+\.\d+\.\d+\n", call(bench, "--version").stdout)


@pytest.mark.parametrize("arguments, word", [
    (["--listen", "0.0.0.0"], "token"), (["--listen", "::"], "token"), (["--listen", "192.168.1.1"], "token"),
    (["--listen", "0.0.0.0", "--token", "short"], "16"), (["--listen", "nowhere"], "nowhere"),
    (["--port", "70000"], "port"), (["--nothing"], "nothing"), (["--token-file", "/nowhere"], "/nowhere"),
    (["--assets", "/nowhere"], "nowhere")])
def test_wrong_use(bench, arguments, word):
    done = call(bench, *arguments)
    assert done.returncode == 2 and word in done.stderr and done.stdout == ""


def test_port_that_is_taken(bench, daemon, web):
    bench.web_process.stop()
    with socket.socket() as other:
        other.bind(("127.0.0.1", 0))
        other.listen()
        done = call(bench, "--port", str(other.getsockname()[1]))
    assert done.returncode == 1 and "cannot listen on 127.0.0.1" in done.stderr


def test_port_of_another_server_is_not_shared(bench, daemon, web):
    with WebBench() as other:
        done = call(other, "--port", str(web.port))
        assert done.returncode == 1
        assert f"cannot listen on 127.0.0.1 port {web.port}: Address already in use" in done.stderr
        assert "--port" in done.stderr.split("in use")[1], "and it says what to do"
    assert web.get("/healthz").status == 200


def test_port_is_free_again_at_once(bench, daemon, web):
    idle = socket.create_connection((web.host, web.port))
    wait_for(lambda: web.get("/healthz").status == 200, "the server has taken the connection")
    assert bench.web_process.stop() == 0
    assert bench.start_web(port=web.port, name="sms_web_again").get("/healthz").status == 200
    idle.close()


def test_second_server_on_the_same_bus(bench, daemon, web):
    done = call(bench, "--port", "0")
    assert done.returncode == 1 and "41" in done.stderr
