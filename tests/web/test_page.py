"""The page in a real browser: the real server, SMS manager, owner of the AT port and simulated modem behind it."""

import json
import os
from pathlib import Path

import pytest

import browser
from browser import DESK, TELEPHONE, Keys, Page
from web_bench import WebBench

HANDSET = "+31687654321"
VECTORS = json.loads((Path(__file__).parent / "measure_vectors.json").read_text(encoding="utf-8"))


@pytest.fixture(scope="module", name="chromium")
def a_browser():
    chromium = browser.Browser()
    yield chromium
    chromium.close()


class PageBench(WebBench):
    web_factor = 1                              # a person is slow as well
    allowed = ()                                # complaints of the browser that belong to the test

    def start_all(self, *web_options, **options):
        self.start(**options)
        self.web_options = ["--handset-control", self.control, "--trace", self.root / "trace", *web_options]
        return self.start_web(*self.web_options)

    def start_owner(self, *options):
        super().start_owner("--trace", self.root / "trace", *options)

    def clear(self):
        """Empties the boxes and the handset."""
        for box, name in (("read", "inbox"), ("send", "sent"), ("draft", "drafts")):
            if self.store.index(box).strip():   # the server may not have looked yet
                assert self.web.do("/api/delete", {"box": name, "all": True})["ok"]
        self.handset("clear")
        self.wait(lambda: not any(self.web.messages(box) for box in ("inbox", "sent", "drafts")), "nothing is left")


@pytest.fixture(name="bench")
def a_bench(chromium):
    chromium.look(DESK)
    with PageBench() as bench:
        yield bench
        complaints = [text for text in chromium.complaints() if not any(word in text for word in bench.allowed)]
        chromium.driver.get("about:blank")
        assert not complaints


@pytest.fixture(name="page")
def a_page(chromium, bench):
    return Page(chromium, bench.start_all().url)


@pytest.fixture(scope="module", name="shared")
def a_bench_for_many(chromium):
    """For tests that leave nothing behind which the next one would notice."""
    chromium.look(DESK)
    with PageBench() as bench:
        bench.start_all()
        yield bench


@pytest.fixture(name="shared_page")
def a_page_with_nothing_in_it(chromium, shared):
    chromium.look(DESK)
    shared.clear()
    page = Page(chromium, shared.web.url)
    yield page
    complaints = chromium.complaints()
    chromium.driver.get("about:blank")
    assert not complaints


# ---- the main job ----

def test_message_typed_on_the_handset_appears_in_the_inbox(bench, page):
    assert page.rows() == [] and "Nothing has arrived yet." in page.text("#empty")
    page.handset_send("hello from the handset")
    page.wait_rows((HANDSET, "unread", "hello from the handset"))
    page.wait_note(f"New message from {HANDSET}")
    assert page.text("#tab-inbox .number") == "1"
    page.wait(lambda: page.driver.title == "(1) Router messages", "the title tells of it")
    assert page.text("#capacity-text") == "1 of 100"
    assert bench.wait_records("read", 1)[0].text == "hello from the handset"


def test_message_that_is_opened_is_read(bench, page):
    page.handset_send("read me")
    page.wait_rows((HANDSET, "unread", "read me"))
    page.open()
    page.wait_rows((HANDSET, "", "read me"))
    page.wait(lambda: bench.store.records("read")[0].state == 1, "the store says so")
    page.wait(lambda: bench.store.unread().strip() == "0", "and the counter")
    assert page.is_shown("#messages > li.open .actions"), "it stays open"
    page.wait(lambda: page.driver.title == "Router messages", "nothing is unread")
    assert page.texts("#tab-inbox .number") == []


def test_mark_all_read(bench, page):
    for text in ("one", "two"):
        bench.handset("send", text)
    bench.wait_records("read", 2)
    page.wait(lambda: page.text("#tab-inbox .number") == "2", "two are unread")
    page.click("#read-all")
    page.wait_rows((HANDSET, "", "two"), (HANDSET, "", "one"))
    assert [record.state for record in bench.store.records("read")] == [1, 1]
    page.wait(lambda: not page.find("#read-all").is_enabled(), "there is nothing more to mark")


def test_reply_appears_on_the_handset(bench, page):
    page.handset_send("are you there?")
    page.wait_rows((HANDSET, "unread", "are you there?"))
    page.open()
    page.act("reply")
    assert page.find("#to").get_attribute("value") == HANDSET
    assert page.focused() == "text"
    page.type("#text", "yes, I am")
    page.click("#send")
    page.wait(lambda: page.bubbles(False) == ["yes, I am"], "the reply arrives")
    page.wait_note("Sent: the modem took it.")
    assert not page.is_shown("#composer")
    page.box("sent")
    page.wait_rows((HANDSET, "sent", "yes, I am"))
    assert bench.store.records("send")[0].state == 1
    page.open()
    assert "nobody reports whether it arrived" in page.text("#messages .note")
    assert "delivered" not in page.body().lower()


def test_long_reply_goes_in_parts(bench, page):
    text = "".join(f"{n:04d} " for n in range(200))
    page.write(HANDSET, text)
    assert page.text("#count").startswith("7 parts, 7-bit: 1,000 of 1,071")
    page.click("#send")
    page.wait(lambda: page.bubbles(False) == [text], "all of it arrives")
    page.wait_note("Sent in 7 parts")
    assert "7 parts" in page.text("#handset-messages .bubble .about")


def test_deleting_asks_first(bench, page):
    for text in ("keep me", "delete me"):
        bench.handset("send", text)
    page.wait(lambda: len(page.rows()) == 2, "both are there")
    page.open(1)
    page.act("delete")
    page.confirm(yes=False)
    page.act("delete")
    page.confirm()
    page.wait(lambda: [row[2] for row in page.rows()] == ["keep me"], "one is gone")
    assert bench.store.texts("read") == ["keep me"]
    page.wait_note("Deleted.")


def test_delete_all(bench, page):
    for text in ("one", "two"):
        bench.handset("send", text)
    page.wait(lambda: len(page.rows()) == 2, "both are there")
    page.click("#delete-all")
    page.confirm(yes=False)
    page.click("#delete-all")
    page.confirm()
    page.wait(lambda: page.is_shown("#empty"), "the box is empty")
    assert bench.store.numbers("read") == [] and bench.store.index("read") == " "


def test_full_box_is_told_of(bench, chromium):
    bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = "2"
    page = Page(chromium, bench.start_all().url)
    for text in ("one", "two"):
        bench.handset("send", text)
    page.wait(lambda: page.is_shown("#box-warning"), "the page warns")
    assert "The inbox is full" in page.text("#box-warning") and page.text("#capacity-text") == "2 of 2"
    page.handset_send("lost")
    bench.wait_log("can not continue save")
    assert [row[2] for row in page.rows()] == ["two", "one"]
    page.open(2)
    page.act("delete")
    page.confirm()
    page.wait(lambda: not page.is_shown("#box-warning"), "there is room again")
    page.handset_send("fits")
    page.wait(lambda: [row[2] for row in page.rows()] == ["fits", "two"], "and it is used")


def test_unplugged_modem(bench, page):
    page.click("#handset .trouble summary")
    page.click("#trouble-buttons button:nth-child(1)")
    page.wait(lambda: page.text("#handset-link") == "modem unplugged", "the page says so")
    assert "Modem unplugged" in page.texts("#status li")
    page.write(HANDSET, "into the void")
    page.click("#send")
    page.wait_note("Not sent")
    page.box("sent")
    page.wait_rows((HANDSET, "not sent", "into the void"))
    assert bench.store.records("send")[0].state == 0
    assert page.bubbles(False) == []
    page.click("#trouble-buttons button:nth-child(1)")
    page.wait(lambda: page.text("#handset-link") == "router reachable", "it is back")
    assert "Modem unplugged" not in page.texts("#status li")
    assert page.text("#failed") == "1 not sent"
    page.wait(lambda: "".join(page.texts("#lines .note code")).count("port opened") == 2, "and its port is open again")
    page.open()
    page.act("again")
    assert page.find("#text").get_attribute("value") == "into the void"
    page.click("#send")
    page.wait(lambda: page.bubbles(False) == ["into the void"], "this time it arrives")
    page.wait_rows((HANDSET, "sent", "into the void"), (HANDSET, "not sent", "into the void"))


def test_service_that_is_off(bench, page):
    bench.cfg["SYS_SMS_SW"] = "0"
    page.wait(lambda: "SMS service off" in page.texts("#status li"), "the page says so")
    assert "SYS_SMS_SW" in page.text("#service") and page.is_shown("#service"), "and why"
    page.write(HANDSET, "not now")
    page.click("#send")
    page.wait_note("The SMS service is off")
    assert page.find("#text").get_attribute("value") == "not now", "what was written is not lost"
    bench.cfg["SYS_SMS_SW"] = "1"
    page.wait(lambda: "SMS service on" in page.texts("#status li"), "it is on again")
    assert not page.is_shown("#service")
    bench.devinfo[301002] = "Unkown"
    page.wait(lambda: "No network" in page.texts("#status li"), "the network is gone")
    assert "no network" in page.text("#service")


def test_daemon_that_does_not_run(bench, page):
    page.handset_send("filed before")
    page.wait_rows((HANDSET, "unread", "filed before"))
    bench.daemon.stop()
    page.wait(lambda: "SMS manager not running" in page.texts("#status li"), "the page says so")
    assert "nothing comes in and nothing goes out" in page.text("#service")
    assert page.rows() == [(HANDSET, "unread", "filed before")], "what was filed can still be read"
    page.write(HANDSET, "not now")
    page.click("#send")
    page.wait_note("The SMS manager is not running.")
    assert page.find("#text").get_attribute("value") == "not now"
    bench.restart_daemon()
    page.wait(lambda: "SMS service on" in page.texts("#status li"), "it is back")
    page.click("#send")
    page.wait(lambda: page.bubbles(False) == ["not now"], "and takes it")


def test_draft(bench, page):
    page.write(HANDSET, "unfinished")
    page.click("#save")
    page.wait_note("Saved as a draft.")
    page.box("drafts")
    page.wait_rows((HANDSET, "draft", "unfinished"))
    page.open()
    page.act("edit")
    page.type("#text", "finished")
    page.click("#send")
    page.wait(lambda: page.bubbles(False) == ["finished"], "it goes out")
    page.wait(lambda: page.rows() == [], "the draft is gone")
    assert bench.store.numbers("draft") == []


def test_what_is_written_is_not_lost_unasked(bench, page):
    bench.handset("send", "reply to me")
    page.wait_rows((HANDSET, "unread", "reply to me"))
    page.write("+4915112345678", "half a message")
    page.click("#composer-close")
    page.confirm(yes=False)
    assert page.find("#text").get_attribute("value") == "half a message"
    page.open()
    page.act("reply")
    page.confirm(yes=False)
    assert page.find("#to").get_attribute("value") == "+4915112345678", "nor by another message"
    page.find("#text").send_keys(Keys.ESCAPE)
    page.confirm()
    assert not page.is_shown("#composer")
    page.act("reply")
    assert page.find("#text").get_attribute("value") == "", "what was discarded is gone"
    page.click("#composer-close")
    assert not page.is_shown("#composer"), "nothing was written, so nothing is asked"


# ---- texts ----

TEXTS = {
    "Chinese": "您好，您的快递已经到达。",
    "Turkish": "Şifreniz İĞÜŞÖÇ ığüşöç",
    "emoji": "See you 🎉🚲 👩‍👩‍👧",
    "right to left": "שלום עולם! 123 مرحبا",
    "lines": "one\ntwo\n\n  four",
    "markup": "<img src=x onerror=\"document.title='hurt'\"><script>document.title='hurt'</script>&lt;b&gt;",
    "a thousand characters": "".join(chr(0x4E00 + n) for n in range(1000)),
}


@pytest.mark.parametrize("name", TEXTS)
def test_texts_are_shown_as_stored(shared, shared_page, name):
    text = TEXTS[name]
    images = shared_page.run("return document.images.length + document.scripts.length")
    shared.handset("send", text)
    shared_page.wait(lambda: shared_page.rows() and shared_page.rows()[0][2] == text, "the text is there, whole")
    shared_page.open()
    shared_page.wait(lambda: shared_page.rows()[0][1] == "", "it is marked as read")
    assert shared_page.text("#messages .message-text") == text
    assert shared_page.run("const e = document.querySelector('#messages .message-text');"
                    "return e.scrollWidth <= e.clientWidth"), "nothing of it is cut off"
    assert shared_page.run("return document.images.length + document.scripts.length") == images
    assert "hurt" not in shared_page.driver.title


def test_bytes_that_are_no_text_are_marked(bench, chromium):
    bench.store.put("read", 1, b"1 1 A\xff 2024/03/05 14:07:00 ok \xed\xa0\xbd\xed\xb8\x80 \xed\xa0\xbd \xc3 \x01 end")
    page = Page(chromium, bench.start_all().url)
    page.wait_rows(("A\\xFF", "", "ok 😀 \\xED\\xA0\\xBD \\xC3 \\x01 end"))
    assert page.texts("#messages .bytes") == ["\\xFF", "\\xED\\xA0\\xBD", "\\xC3", "\\x01"]
    page.open()
    assert page.texts('[data-act="reply"]') == [], "there is nobody to reply to"


def whole(described):
    return described if isinstance(described, str) else "".join(
        text * times for text, times in zip(described[::2], described[1::2]))


def test_page_counts_as_the_server_does(shared_page):
    texts = [whole(case["text"]) for case in VECTORS]
    measured = shared_page.run_async("const { measure } = await import('/measure.js'); return arguments[0].map(measure)", texts)
    for case, found in zip(VECTORS, measured):
        assert {key: found[key] for key in ("wide", "units", "parts", "lost")} == \
            {key: case[key] for key in ("wide", "units", "parts", "lost")}, case["name"]


@pytest.mark.parametrize("name", ["161 do not", "81 do not fit", "an escape moves on and the end does not fit",
                                  "both of them cost a septet", "71 do not", "134 are two", "brackets count once beside an accent",
                                  "mapped one to one"])
def test_count_is_what_goes_out(shared, shared_page, name):
    case = next(each for each in VECTORS if each["name"] == name)
    text = whole(case["text"])
    shared_page.write(HANDSET, text)
    parts = f"{case['parts']} part" + ("" if case["parts"] == 1 else "s")
    assert shared_page.text("#count").startswith(parts + ",")
    assert any("does not fit" in warning for warning in shared_page.texts("#text-warnings li")) == (case["lost"] > 0)
    shared_page.click("#send")
    message = shared.inbox(1)[0]
    assert message["total"] == case["parts"]
    mapped = text.replace("`", "'").replace("\t", " ")
    assert message["text"] == (mapped[:-case["lost"]] if case["lost"] else mapped)
    shared.wait_records("send", 1)


def test_words_of_warning(shared, shared_page):
    shared_page.write(HANDSET, "a `quoted` word")
    assert shared_page.texts("#text-warnings li") == ["` will arrive as an apostrophe (')."]
    shared_page.type("#text", "a\ttab")
    assert shared_page.texts("#text-warnings li") == ["A tab will arrive as a space."]
    shared_page.type("#text", "é ` \t")
    assert shared_page.texts("#text-warnings li") == [], "in UCS-2 they stay what they are"
    shared_page.type("#text", "🎉 and 🎉")
    assert shared_page.texts("#text-warnings li") == [
        "🎉 will not arrive: the router can send only half of it, which is U+F389."]
    shared_page.click("#send")
    assert shared.inbox(1)[0]["text"] == "\uf389 and \uf389"
    shared_page.wait(lambda: not shared_page.is_shown("#composer"), "it is put away when it has been sent")
    shared_page.write(HANDSET, "x" * 4001)
    assert "too long" in shared_page.texts("#text-warnings li")[-1] and not shared_page.find("#send").is_enabled()
    shared_page.type("#text", "x" * 4000)
    assert shared_page.texts("#text-warnings li") == [] and shared_page.find("#send").is_enabled()


@pytest.mark.parametrize("number, good", [("+31 6 8765-4321", True), ("0031687654321", True), ("", False), ("+", False),
                                          ("abc", False), ("1" * 21, False), ("+" + "1" * 20, True)])
def test_number_is_looked_at(shared, shared_page, number, good):
    shared_page.write(number, "x")
    shared_page.click("#send")
    if good:
        assert shared.inbox(1)[0]["to"] in (number, "+31687654321")
        shared.wait_records("send", 1)
    else:
        assert shared_page.is_shown("#to-problem") and shared_page.focused() == "to"
        assert shared_page.find("#to").get_attribute("aria-invalid") == "true"
        assert shared.store.numbers("send") == []


# ---- traffic ----

def facts(page, selector="#inspector .facts"):
    """What the lists of facts say, by name."""
    return dict(zip(page.texts(f"{selector} dt"), page.texts(f"{selector} dd")))


def field_rows(page):
    return [tuple(row) for row in page.run(
        "return [...document.querySelectorAll('#inspector .fields tbody tr')].map((e) => "
        "[...e.children].map((cell) => cell.textContent))")]


def test_traffic_is_shown_and_a_pdu_explained(bench, chromium):
    page = Page(chromium, bench.start_all().url)
    page.wait(lambda: page.texts("#lines code"), "what was said before is there")
    page.handset_send("<b>look</b> at €me")
    page.wait(lambda: "+CMT: " in "".join(page.texts("#lines .indication code")[-1:]), "the indication is shown")
    pdu = page.texts("#lines .indication button.pdu")[-1]
    page.run("[...document.querySelectorAll('#lines .indication button.pdu')].at(-1).click()")
    page.wait(lambda: page.texts("#inspector h3") == ["SMS-DELIVER"], "it is explained")
    assert page.text("#inspector .pdu-hex") == pdu
    said = facts(page)
    assert (said["From"], said["Text"]) == (HANDSET, "<b>look</b> at €me"), "as the SMS manager has it"
    record, = bench.wait_records("read", 1)
    assert (record.phone, record.text, record.date) == (said["From"], said["Text"], said["Date"])
    rows = field_rows(page)
    assert ("0", pdu[:2], "SMSC length") == rows[0][:3], "octets beside meaning, from the first on"
    names = [row[2] for row in rows]
    assert all(name in names for name in ("TP-MTI", "TP-OA", "TP-PID", "TP-DCS", "TP-SCTS", "TP-UDL", "TP-UD"))
    offsets = [int(row[0]) for row in rows]
    assert offsets == sorted(offsets), "in the order in which they stand"
    assert page.run(FAINT) == []
    page.press(Keys.ESCAPE)
    page.wait(lambda: not page.is_shown("#inspector"), "it closes")


def test_pdu_that_goes_out_is_explained(bench, page):
    page.write(HANDSET, "".join(f"{n:04d} " for n in range(40)))
    page.click("#send")
    page.wait_note("Sent in 2 parts")
    page.wait(lambda: len(page.texts("#lines .command button.pdu")) == 2, "the commands are shown")
    assert page.texts("#lines .command button.pdu")[-1] in bench.commands("AT+DORVYSMS")[-1]
    page.run("[...document.querySelectorAll('#lines .command button.pdu')].at(-1).click()")
    page.wait(lambda: page.texts("#inspector h3") == ["SMS-SUBMIT, part 2 of 2"], "it is explained")
    assert facts(page)["To"] == HANDSET and facts(page)["Text"].endswith("0039 ")


def test_parts_of_the_handset_are_explained_together(bench, page):
    text = "".join(f"{n:04d} " for n in range(40))
    page.handset_send(text)
    page.wait_rows((HANDSET, "unread", text))
    page.click("#handset-messages .bubble.mine .link-button")
    page.wait(lambda: page.texts("#inspector h3") == ["SMS-DELIVER, part 1 of 2", "SMS-DELIVER, part 2 of 2"], "both are")
    assert facts(page)["Joined"] == text


def explain(page, *pdus):
    """Has the page explain PDUs as if they had gone by."""
    page.run_async("const { inspect } = await import('/inspector.js'); await inspect(arguments[0]);", list(pdus))


WIDE_REFERENCE = "07911326040000F0" "44" "0B911386786545F3" "00" "00" "42305041700002" "09" "06080412340201" "41"


def page_problems(page):
    return page.texts("#inspector .banner.bad")


def test_differences_and_faults_of_a_pdu_are_told(shared_page):
    explain(shared_page, WIDE_REFERENCE)
    assert page_problems(shared_page) == []
    assert shared_page.texts("#inspector .difference strong"), "where the SMS manager differs on purpose"
    assert {"Standard", "SMS manager", "Why"} <= set(facts(shared_page, "#inspector .difference .facts"))
    explain(shared_page, "07911326040000F0" "04" "0B91")
    assert any("Malformed at octet" in text for text in page_problems(shared_page))


@pytest.mark.parametrize("size", [DESK, TELEPHONE], ids=["desk", "telephone"])
def test_explanation_can_be_read(chromium, shared_page, size):
    chromium.look(size)
    explain(shared_page, WIDE_REFERENCE)
    assert shared_page.run(FAINT) == []
    assert shared_page.run("const e = document.querySelector('#inspector-body');"
                    "return e.scrollWidth <= e.clientWidth && document.documentElement.scrollWidth <= innerWidth")


# ---- the page itself ----

def test_first_screen_explains_itself(bench, page):
    assert page.texts("#intro strong") == ["A message comes in", "A reply goes out", "See how it works"]
    assert "Nothing has arrived yet." in page.text("#empty") and "Type a text below" in page.text("#handset-empty")
    assert not page.is_shown("#sign-out"), "without a token there is nothing to leave"
    page.click("#intro-close")
    assert not page.is_shown("#intro") and page.focused() == "help"
    page.driver.refresh()
    page.wait(lambda: page.texts("#status li"), "it is there again")
    assert not page.is_shown("#intro"), "once is enough"
    page.click("#help")
    assert page.is_shown("#intro") and page.focused() == "intro-title"


def test_page_without_handset_and_traffic(bench, chromium):
    bench.start()
    page = Page(chromium, bench.start_web().url)
    for panel in ("#handset", "#traffic", "#switch"):
        assert not page.is_shown(panel)
    assert "What other telephones send" in page.text("#intro")
    page.write(HANDSET, "all the same")
    page.click("#send")
    page.wait_note("Sent: the modem took it.")


def test_server_that_goes_and_comes_back(bench, page):
    bench.allowed = ("ERR_",)
    page.write(HANDSET, "kept")
    port = bench.web.port
    bench.web_process.stop()
    page.wait(lambda: page.is_shown("#offline"), "the page says so")
    bench.handset("send", "meanwhile")
    bench.wait_records("read", 1)
    bench.start_web(*bench.web_options, port=port, name="sms_web_again")
    page.wait(lambda: not page.is_shown("#offline"), "it is back")
    page.wait_rows((HANDSET, "unread", "meanwhile"))
    assert page.find("#text").get_attribute("value") == "kept"
    page.click("#send")
    page.wait(lambda: page.bubbles(False) == ["kept"], "and it can send")


def test_pages_that_were_left_give_their_connections_back(bench, chromium):
    url = bench.start_all().url
    for _ in range(8):                          # a browser has six for a server
        page = Page(chromium, url)
        chromium.driver.get("about:blank")
    chromium.driver.back()
    page.wait(lambda: page.texts("#status li"), "the page is there again")
    page.handset_send("still there?")
    page.wait_rows((HANDSET, "unread", "still there?"))


def test_token_is_asked_for(bench, chromium):
    bench.allowed = ("401",)
    bench.start()
    web = bench.start_web("--token", "a-long-enough-secret")
    chromium.driver.get(web.url)
    page = Page.__new__(Page)
    page.driver = chromium.driver
    page.wait(lambda: page.is_shown("#sign-in"), "the page asks")
    assert page.texts("#status li") == []
    page.type("#token", "wrong")
    page.press(Keys.ENTER)
    page.wait(lambda: page.is_shown("#token-problem"), "the wrong one is refused")
    page.type("#token", "a-long-enough-secret")
    page.press(Keys.ENTER)
    page.wait(lambda: page.texts("#status li"), "the right one is not")
    page.write(HANDSET, "signed in")
    page.click("#send")
    page.wait_note("Sent: the modem took it.")
    page.driver.refresh()
    page.wait(lambda: page.texts("#status li"), "and is remembered")
    first = page.driver.current_window_handle
    page.driver.switch_to.new_window("window")
    other = Page(chromium, web.url)
    other.click("#sign-out")
    other.wait(lambda: other.is_shown("#sign-in"), "the page asks again")
    assert other.texts("#status li") == [] and other.rows() == [], "nothing stays behind"
    other.driver.close()
    page.driver.switch_to.window(first)
    page.wait(lambda: page.is_shown("#sign-in"), "other pages hear no more either")


def test_two_pages_show_the_same(bench, chromium, page):
    first = page.driver.current_window_handle
    page.driver.switch_to.new_window("window")
    other = Page(chromium, bench.web.url)
    other.handset_send("for both")
    other.wait_rows((HANDSET, "unread", "for both"))
    page.driver.switch_to.window(first)
    page.wait_rows((HANDSET, "unread", "for both"))
    page.open()
    page.wait_rows((HANDSET, "", "for both"))
    page.driver.close()
    page.driver.switch_to.window(page.driver.window_handles[0])
    other.wait_rows((HANDSET, "", "for both"))


def test_keyboard_alone(bench, page):
    bench.handset("send", "from afar")
    page.wait_rows((HANDSET, "unread", "from afar"))
    page.run("document.activeElement.blur()")
    page.press(Keys.TAB)
    assert page.run("return document.activeElement.className") == "skip"
    page.find("#tab-inbox").send_keys(Keys.ARROW_RIGHT)
    assert page.focused() == "tab-sent"
    assert page.find("#tab-sent").get_attribute("aria-selected") == "true"
    page.press(Keys.ARROW_LEFT)
    assert page.focused() == "tab-inbox"
    for _ in range(8):
        page.press(Keys.TAB)
        if page.focused() == "open":
            break
    page.press(Keys.ENTER)
    page.wait_rows((HANDSET, "", "from afar"))
    assert page.focused() == "open", "the focus stays where it was while the list changes"
    page.press(Keys.TAB)
    assert page.focused() == "reply"
    page.press(Keys.ENTER)
    assert page.focused() == "text"
    page.press("typed")
    page.press(Keys.CONTROL, Keys.ENTER)
    page.wait(lambda: page.bubbles(False) == ["typed"], "it goes out")
    page.wait(lambda: page.focused() == "reply", "the focus goes back")
    page.press(Keys.ENTER)
    page.press(Keys.ESCAPE)
    assert not page.is_shown("#composer")
    page.press(Keys.TAB)
    assert page.focused() == "delete"
    page.press(Keys.ENTER)
    page.wait(lambda: page.is_shown("#confirm"), "it asks")
    page.press(Keys.ESCAPE)
    page.wait(lambda: page.focused() == "delete", "the focus goes back")
    assert page.rows() != []


UNNAMED = """
const named = "button, input, textarea, [role=tab], [role=tabpanel], dialog, section, nav, meter";
return [...document.querySelectorAll(named)].filter((e) => e.checkVisibility()).filter((e) => {
  const by = (e.getAttribute("aria-labelledby") ?? "").split(" ").map((id) => document.getElementById(id)?.textContent ?? "");
  const labels = [...(e.labels ?? [])].map((label) => label.textContent);
  const own = /BUTTON/.test(e.tagName) ? e.textContent : "";
  return [e.getAttribute("aria-label") ?? "", ...by, ...labels, own].join("").trim() === "";
}).map((e) => e.outerHTML.slice(0, 100));
"""


def test_everything_has_a_name(bench, page):
    page.handset_send("hello")
    page.wait(lambda: page.rows(), "it arrives")
    page.open()
    page.act("reply")
    assert page.run(UNNAMED) == []
    assert page.run("return document.documentElement.lang") == "en"
    assert page.run("return [...document.querySelectorAll('h1')].length") == 1
    levels = page.run("return [...document.querySelectorAll('h1, h2, h3')].filter((e) => e.checkVisibility()).map((e) => +e.tagName[1])")
    assert all(after - before <= 1 for before, after in zip(levels, levels[1:])), levels
    ids = page.run("return [...document.querySelectorAll('[id]')].map((e) => e.id)")
    assert len(ids) == len(set(ids))
    for attribute in ("aria-controls", "aria-labelledby", "aria-describedby", "for"):
        for value in page.run(f"return [...document.querySelectorAll('[{attribute}]')].map((e) => e.getAttribute('{attribute}'))"):
            assert set(value.split()) <= set(ids), (attribute, value)


# WCAG 2.1, 1.4.3: the contrast of each piece of text with what is behind it.
FAINT = """
const channels = (c) => (c.match(/[\\d.]+/g) ?? []).map(Number);
const paint = document.createElement("canvas").getContext("2d", {willReadFrequently: true});
const rgba = (css) => { paint.clearRect(0, 0, 1, 1); paint.fillStyle = css; paint.fillRect(0, 0, 1, 1);
  return [...paint.getImageData(0, 0, 1, 1).data].map((v, i) => i < 3 ? v : v / 255); };
const over = (top, below) => [0, 1, 2].map((i) => top[i] * top[3] + below[i] * (1 - top[3])).concat(1);
const light = (c) => { const [r, g, b] = c.slice(0, 3).map((v) => v / 255).map((v) => v <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);
  return 0.2126 * r + 0.7152 * g + 0.0722 * b; };
const behind = (e) => { const layers = []; for (; e; e = e.parentElement) layers.push(rgba(getComputedStyle(e).backgroundColor));
  return layers.reverse().reduce((below, top) => over(top, below), [255, 255, 255, 1]); };
const opacity = (e) => { let o = 1; for (; e; e = e.parentElement) o *= Number(getComputedStyle(e).opacity); return o; };
return [...document.querySelectorAll("body *")].filter((e) => e.checkVisibility() && !e.closest(".faint, :disabled, .hidden-label")
    && [...e.childNodes].some((n) => n.nodeType === 3 && n.textContent.trim() !== "")).map((e) => {
  const back = behind(e); const ink = rgba(getComputedStyle(e).color); ink[3] *= opacity(e);
  const [a, b] = [light(over(ink, back)), light(back)].sort((x, y) => y - x);
  return [e.tagName + "." + e.className + " " + e.textContent.slice(0, 30), Math.round((a + 0.05) / (b + 0.05) * 100) / 100];
}).filter(([, ratio]) => ratio < 4.5);
"""


@pytest.mark.parametrize("dark", [False, True], ids=["light", "dark"])
@pytest.mark.parametrize("size", [DESK, TELEPHONE], ids=["desk", "telephone"])
def test_it_can_be_read(bench, chromium, size, dark):
    bench.store.put("send", 1, "1 0 +1 2024-03-05 14:07:00 failed")
    bench.store.put("read", 1, b"1 1 A 2024/03/05 14:07:00 bytes \xff")
    bench.devinfo[306002] = "1"
    chromium.look(size, dark)
    page = Page(chromium, bench.start_all().url)
    assert page.run("return matchMedia('(prefers-color-scheme: dark)').matches") == dark
    assert page.run(FAINT) == []
    if size == DESK:
        bench.handset("send", "unread")
        page.wait(lambda: len(page.rows()) == 2, "it arrives")
        page.write(HANDSET, "a ` warning 🎉")
        assert page.run(FAINT) == []
    page.box("sent") if size == DESK else None
    assert page.run(FAINT) == []


def test_telephone(bench, chromium):
    chromium.look(TELEPHONE)
    page = Page(chromium, bench.start_all().url)
    wide = "return document.documentElement.scrollWidth > innerWidth"
    shown = lambda: [panel for panel in ("router", "handset", "traffic") if page.is_shown(f"#{panel}")]
    assert shown() == ["router"] and page.is_shown("#switch") and not page.run(wide)
    page.click('#switch [data-panel="handset"]')
    assert shown() == ["handset"] and not page.run(wide)
    page.handset_send("A" * 300)
    page.click('#switch [data-panel="traffic"]')
    assert shown() == ["traffic"] and not page.run(wide)
    page.click('#switch [data-panel="router"]')
    page.wait_rows((HANDSET, "unread", "A" * 300))
    page.open()
    assert not page.run(wide)
    page.act("reply")
    page.type("#text", "from a telephone")
    assert not page.run(wide)
    small = page.run("return [...document.querySelectorAll('button')].filter((e) => e.checkVisibility()"
                     " && e.getBoundingClientRect().height < 32).map((e) => e.textContent)")
    assert small == [], "fingers are not that thin"
    page.click("#send")
    page.click('#switch [data-panel="handset"]')
    page.wait(lambda: page.bubbles(False) == ["from a telephone"], "it arrives")


def test_text_twice_as_large(bench, chromium):
    chromium.look((640, 450))                   # what a desk is when everything is twice as large
    page = Page(chromium, bench.start_all().url)
    assert not page.run("return document.documentElement.scrollWidth > innerWidth")
    page.click("#intro-close")
    page.write(HANDSET, "x")
    page.run("document.querySelector('#send').scrollIntoView()")
    page.click("#send")
    page.wait_note("Sent: the modem took it.")


@pytest.mark.skipif(not os.environ.get("DV_SCREENSHOTS"), reason="DV_SCREENSHOTS names no directory")
def test_screenshots(bench, chromium):
    folder = Path(os.environ["DV_SCREENSHOTS"])
    page = Page(chromium, bench.start_all().url)
    for sender, name in (("+905321234567", "Turkish"), ("+8613912345678", "Chinese"), ("+31612340001", "emoji")):
        bench.handset("send", "--from", sender, TEXTS[name])
    page.handset_send("Hello router, are you there?")
    page.wait(lambda: len(page.rows()) == 4, "all have arrived")
    page.open(1)
    page.act("reply")
    page.type("#text", "Yes, I am. This `reply` is counted while it is written.")
    for name, size, dark in (("desk", DESK, False), ("desk-dark", DESK, True), ("telephone", TELEPHONE, False),
                             ("telephone-dark", TELEPHONE, True)):
        chromium.look(size, dark)
        page.driver.save_screenshot(str(folder / f"{name}.png"))
