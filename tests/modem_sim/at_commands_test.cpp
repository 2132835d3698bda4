/* Every command's answer, letter by letter. */
#include <gtest/gtest.h>

#include "bench.h"

namespace sim
{
namespace
{

const std::string error = "\r\nERROR\r\n";

struct exchange {
    const char *command, *answer; /* the answer's information; "" for none, "!" in front of a final result */
};

constexpr exchange fresh_modem[] = {
    {"AT", ""},
    {"at", ""},
    {"AT ", ""},
    {"ATI", "MediaTek Inc.\r\nT750 simulator\r\nT750SIM 1.0"},
    {"AT+CGMI", "MediaTek Inc."},
    {"AT+CGMM", "T750 simulator"},
    {"AT+CGMR", "T750SIM 1.0"},
    {"AT+CGSN", "004999010640000"},
    {"AT+CIMI", "204080123456789"},
    {"AT+CNUM", "+CNUM: ,\"+31612345678\",145"},
    {"AT+GCAP", "+GCAP: +CGSM"},
    {"AT+CMEE?", "+CMEE: 0"},
    {"AT+CMEE=?", "+CMEE: (0-2)"},
    {"AT+CSCS?", "+CSCS: \"GSM\""},
    {"AT+CSCS=?", "+CSCS: (\"IRA\",\"GSM\",\"UCS2\")"},
    {"AT+CSCS=\"KLINGON\"", "!ERROR"},
    {"AT+CPIN?", "+CPIN: READY"},
    {"AT+CREG?", "+CREG: 0,1"},
    {"AT+CREG=?", "+CREG: (0-2)"},
    {"AT+CEREG?", "+CEREG: 0,1"},
    {"AT+CEREG=?", "+CEREG: (0-2)"},
    {"AT+CSQ", "+CSQ: 21,99"},
    {"AT+CSQ=?", "+CSQ: (0-31,99),(0-7,99)"},
    {"AT+COPS?", "+COPS: 0,0,\"Simulated\",7"},
    {"AT+CFUN?", "+CFUN: 1"},
    {"AT+CFUN=1", ""},
    {"AT+CFUN=0", "!ERROR"},
    {"AT+CPAS", "+CPAS: 0"},
    {"AT+CSMS?", "+CSMS: 0,1,1,0"},
    {"AT+CSMS=0", "+CSMS: 1,1,0"},
    {"AT+CSMS=1", "!+CMS ERROR: 303"},
    {"AT+CMGF?", "+CMGF: 1"},
    {"AT+CMGF=?", "+CMGF: (0,1)"},
    {"AT+CMGF=2", "!+CMS ERROR: 303"},
    {"AT+CMGF=", "!+CMS ERROR: 303"},
    {"AT+CNMI?", "+CNMI: 0,0,0,0,0"},
    {"AT+CNMI=?", "+CNMI: (0-3),(0-3),(0,2),(0),(0,1)"},
    {"AT+CNMI=4,0", "!+CMS ERROR: 303"},
    {"AT+CNMI=3,4", "!+CMS ERROR: 303"},
    {"AT+CNMI=3,2,1", "!+CMS ERROR: 303"},
    {"AT+CNMI=3,2,0,1", "!+CMS ERROR: 303"},
    {"AT+CNMI=3,2,0,0,0,0", "!+CMS ERROR: 303"},
    {"AT+CNMI=x", "!+CMS ERROR: 303"},
    {"AT+CSCA?", "+CSCA: \"+31624000000\",145"},
    {"AT+CPMS?", "+CPMS: \"SM\",0,5,\"SM\",0,5,\"SM\",0,5"},
    {"AT+CPMS=?", "+CPMS: (\"SM\",\"ME\"),(\"SM\",\"ME\"),(\"SM\",\"ME\")"},
    {"AT+CPMS=\"XX\"", "!+CMS ERROR: 303"},
    {"AT+CPMS=\"SM\",\"SM\",\"SM\",\"SM\"", "!+CMS ERROR: 303"},
    {"AT+CMGR=1", "!+CMS ERROR: 303"},
    {"AT+CMGL", "!+CMS ERROR: 303"},
    {"AT+CMGL=\"ALL\"", "!+CMS ERROR: 304"},
    {"AT+CMGL=?", "+CMGL: (\"REC UNREAD\",\"REC READ\",\"STO UNSENT\",\"STO SENT\",\"ALL\")"},
    {"AT+CMGD=?", "+CMGD: (),(0-4)"},
    {"AT+CMGD=6", "!+CMS ERROR: 321"},
    {"AT+CMGD=0", "!+CMS ERROR: 321"},
    {"AT+CMGD=", "!+CMS ERROR: 321"},
    {"AT+CMGD=1,5", "!+CMS ERROR: 304"},
    {"AT+CMGD=1", ""},
    {"AT+DORVYSMS=13,00\x1A", "!+CMS ERROR: 305"},
    {"AT+DORVYSMS?", "!ERROR"},
    {"AT+CMGS=13", "!ERROR"},
    {"AT+CMGW=13", "!ERROR"},
    {"AT+NOSUCH", "!ERROR"},
    {"AT+NOSUCH?", "!ERROR"},
    {"AT+CMGF?1", "!ERROR"},
    {"AT!", "!ERROR"},
    {"AT&", "!ERROR"},
    {"ATV0", "!ERROR"},
    {"ATV1", ""},
    {"ATE2", "!ERROR"},
    {"ATH", ""},
    {"AT&F", ""},
    {"ATZ", ""},
    {"ATS0=0", ""},
    {"ATD+31612345678;", "!ERROR"},
};

TEST(at_commands, a_fresh_modem_answers)
{
    for (const exchange &e : fresh_modem) {
        bench b;
        const std::string expected = *e.answer == '\0'  ? ok
                                     : *e.answer == '!' ? line(e.answer + 1)
                                                        : line(e.answer) + ok;
        EXPECT_EQ(b.at(e.command), expected) << e.command;
    }
}

struct setting {
    const char *set, *query, *value;
};

constexpr setting settings[] = {
    {"AT+CMGF=0", "AT+CMGF?", "+CMGF: 0"},
    {"AT+CMGF=1", "AT+CMGF?", "+CMGF: 1"},
    {"AT+CNMI=3,2,0,0,0", "AT+CNMI?", "+CNMI: 3,2,0,0,0"},
    {"AT+CNMI=2,1", "AT+CNMI?", "+CNMI: 2,1,0,0,0"},
    {"AT+CNMI=,3,2,0,1", "AT+CNMI?", "+CNMI: 0,3,2,0,1"},
    {"AT+CSCS=\"IRA\"", "AT+CSCS?", "+CSCS: \"IRA\""},
    {"AT+CSCS=\"UCS2\"", "AT+CSCA?", "+CSCA: \"002B00330031003600320034003000300030003000300030\",145"},
    {"AT+CSCA=\"+491710760000\",145", "AT+CSCA?", "+CSCA: \"+491710760000\",145"},
    {"AT+CSCA=\"+491710760000\"", "AT+CSCA?", "+CSCA: \"+491710760000\",145"},
    {"AT+CSCA=\"491710760000\",145", "AT+CSCA?", "+CSCA: \"+491710760000\",145"},
    {"AT+CSCA=\"12345\"", "AT+CSCA?", "+CSCA: \"12345\",129"},
    {"AT+CMEE=2", "AT+CMEE?", "+CMEE: 2"},
    {"AT+CREG=1", "AT+CREG?", "+CREG: 1,1"},
    {"AT+CREG=2", "AT+CREG?", "+CREG: 2,1,\"00C3\",\"0001A2B3\",7"},
    {"AT+CEREG=1", "AT+CEREG?", "+CEREG: 1,1"},
};

TEST(at_commands, settings_are_kept)
{
    for (const setting &s : settings) {
        bench b;
        EXPECT_EQ(b.at(s.set), ok) << s.set;
        EXPECT_EQ(b.at(s.query), line(s.value) + ok) << s.set;
    }
}

TEST(at_commands, bad_service_centres_are_refused)
{
    for (const char *bad : {"AT+CSCA=", "AT+CSCA=\"\"", "AT+CSCA=+31", "AT+CSCA=\"+31x\"", "AT+CSCA=\"+31",
                            "AT+CSCA=\"123456789012345678901\"", "AT+CSCA=\"1\",129,1"}) {
        bench b;
        EXPECT_EQ(b.at(bad), line("+CMS ERROR: 303")) << bad;
        EXPECT_EQ(b.at("AT+CSCA?"), line("+CSCA: \"+31624000000\",145") + ok);
    }
}

TEST(at_commands, an_empty_service_centre_is_shown_empty)
{
    modem_config config = bench_config();
    config.service_centre = "";
    bench b(config);
    EXPECT_EQ(b.at("AT+CSCA?"), line("+CSCA: \"\",129") + ok);
}

TEST(at_commands, storages_are_chosen_one_by_one)
{
    modem_config config = bench_config();
    config.power_up.memories.fill("ME");
    bench b(config);
    b.device.state.sim.add({*from_hex(hellohello), message_state::unread, ""});
    EXPECT_EQ(b.at("AT+CPMS?"), line("+CPMS: \"ME\",0,50,\"ME\",0,50,\"ME\",0,50") + ok);
    EXPECT_EQ(b.at("AT+CPMS=\"SM\""), line("+CPMS: 1,5,0,50,0,50") + ok);
    EXPECT_EQ(b.at("AT+CPMS?"), line("+CPMS: \"SM\",1,5,\"ME\",0,50,\"ME\",0,50") + ok);
    EXPECT_EQ(b.at("AT+CPMS=\"SM\",\"SM\",\"SM\""), line("+CPMS: 1,5,1,5,1,5") + ok);
    EXPECT_EQ(b.at("AT+CPMS?"), line("+CPMS: \"SM\",1,5,\"SM\",1,5,\"SM\",1,5") + ok);
}

TEST(at_commands, reading_shows_the_pdu_and_marks_it_read)
{
    bench b;
    b.at("AT+CMGF=0");
    b.device.state.sim.add({*from_hex(hellohello), message_state::unread, ""});
    EXPECT_EQ(b.at("AT+CMGR=1"), "\r\n+CMGR: 0,,28\r\n" + std::string(hellohello) + "\r\n\r\nOK\r\n");
    EXPECT_EQ(b.at("AT+CMGR=1"), "\r\n+CMGR: 1,,28\r\n" + std::string(hellohello) + "\r\n\r\nOK\r\n");
    EXPECT_EQ(b.at("AT+CMGR=?"), ok);
    for (const char *none : {"AT+CMGR=2", "AT+CMGR=0", "AT+CMGR=6", "AT+CMGR=", "AT+CMGR=x", "AT+CMGR=999999999999"})
        EXPECT_EQ(b.at(none), line("+CMS ERROR: 321")) << none;
}

TEST(at_commands, listing_shows_one_state_or_all)
{
    bench b;
    b.at("AT+CMGF=0");
    const std::string pdu = hellohello;
    for (const message_state state : {message_state::read, message_state::unread, message_state::sent})
        b.device.state.sim.add({*from_hex(hellohello), state, ""});
    EXPECT_EQ(b.at("AT+CMGL=?"), line("+CMGL: (0-4)") + ok);
    EXPECT_EQ(b.at("AT+CMGL=2"), ok);
    EXPECT_EQ(b.at("AT+CMGL=3"), line("+CMGL: 3,3,,28\r\n" + pdu) + ok);
    EXPECT_EQ(b.at("AT+CMGL"), line("+CMGL: 2,0,,28\r\n" + pdu) + ok);
    EXPECT_EQ(b.at("AT+CMGL=0"), ok) << "listing marks as read";
    EXPECT_EQ(b.at("AT+CMGL=4"),
              line("+CMGL: 1,1,,28\r\n" + pdu + "\r\n+CMGL: 2,1,,28\r\n" + pdu + "\r\n+CMGL: 3,3,,28\r\n" + pdu) + ok);
    EXPECT_EQ(b.at("AT+CMGL=5"), line("+CMS ERROR: 304"));
}

TEST(at_commands, deleting_by_index_and_by_flag)
{
    constexpr message_state states[] = {message_state::unread, message_state::read, message_state::unsent,
                                        message_state::sent};
    constexpr size_t left[] = {3, 3, 2, 1, 0}; /* by flag; 0 deletes the message at the index */
    for (int flag = 0; flag <= 4; flag++) {
        bench b;
        for (const message_state state : states)
            b.device.state.sim.add({*from_hex(hellohello), state, ""});
        EXPECT_EQ(b.at("AT+CMGD=1," + std::to_string(flag)), ok);
        EXPECT_EQ(b.device.state.sim.used(), left[flag]) << flag;
        EXPECT_EQ(b.device.state.sim.find(1) != nullptr, flag != 0 && flag != 4);
    }
    bench b;
    b.device.state.sim.add({*from_hex(hellohello), message_state::unread, ""});
    b.device.state.sim.add({*from_hex(hellohello), message_state::unread, ""});
    EXPECT_EQ(b.at("AT+CMGD=?"), line("+CMGD: (1,2),(0-4)") + ok);
    EXPECT_EQ(b.at("AT+CMGD=2"), ok);
    EXPECT_EQ(b.at("AT+CMGD=2"), ok) << "nothing there any more";
    EXPECT_EQ(b.device.state.sim.used(), 1u);
    EXPECT_EQ(b.at("AT+CMGD=9,4"), ok) << "the flag makes the index irrelevant";
    EXPECT_EQ(b.device.state.sim.used(), 0u);
}

TEST(at_commands, without_a_sim)
{
    bench b;
    b.device.set_sim(false);
    for (const char *command : {"AT+CPMS?", "AT+CMGR=1", "AT+CMGD=1", "AT+CMGL=4", "AT+CSCA?",
                                "AT+DORVYSMS=13,0491214365110105812143F500000802E834\x1A"})
        EXPECT_EQ(b.at(command), line("+CMS ERROR: 310")) << command;
    EXPECT_EQ(b.at("AT+CPIN?"), error);
    b.at("AT+CMEE=1");
    EXPECT_EQ(b.at("AT+CPIN?"), line("+CME ERROR: 10"));
    b.at("AT+CMEE=2");
    EXPECT_EQ(b.at("AT+CPIN?"), line("+CME ERROR: SIM not inserted"));
    b.device.set_sim(true);
    EXPECT_EQ(b.at("AT+CPIN?"), line("+CPIN: READY") + ok);
}

TEST(at_commands, error_detail)
{
    bench b;
    EXPECT_EQ(b.at("AT+CSCS=\"X\""), error);
    b.at("AT+CMEE=1");
    EXPECT_EQ(b.at("AT+CSCS=\"X\""), line("+CME ERROR: 50"));
    EXPECT_EQ(b.at("AT+CMEE=3"), line("+CME ERROR: 50"));
    b.at("AT+CMEE=2");
    EXPECT_EQ(b.at("AT+CREG=7"), line("+CME ERROR: Incorrect parameters"));
    EXPECT_EQ(b.at("AT+CMGD=99"), line("+CMS ERROR: 321")) << "message service errors are numbers always";
}

TEST(at_commands, without_the_network)
{
    bench b;
    b.at("AT+CREG=1");
    b.at("AT+CEREG=1");
    b.device.set_registered(false);
    EXPECT_EQ(b.heard(), line("+CREG: 0") + line("+CEREG: 0"));
    EXPECT_EQ(b.at("AT+CREG?"), line("+CREG: 1,0") + ok);
    EXPECT_EQ(b.at("AT+CSQ"), line("+CSQ: 99,99") + ok);
    EXPECT_EQ(b.at("AT+COPS?"), line("+COPS: 0") + ok);
    b.device.set_registered(true);
    EXPECT_EQ(b.heard(), line("+CREG: 1") + line("+CEREG: 1"));
    b.device.set_registered(true);
    EXPECT_EQ(b.heard(), "") << "no change";
    b.at("AT+CREG=2;+CEREG=0");
    b.device.set_registered(false);
    b.device.set_registered(true);
    EXPECT_EQ(b.heard(), line("+CREG: 0") + line("+CREG: 1,\"00C3\",\"0001A2B3\",7"));
}

TEST(at_commands, several_on_one_line)
{
    bench b;
    EXPECT_EQ(b.at("AT+CMGF=0;+CMGF?;+CREG?"), line("+CMGF: 0") + line("+CREG: 0,1") + ok);
    EXPECT_EQ(b.at("ATE0V1&C1+CMGF?"), line("+CMGF: 0") + ok);
    EXPECT_EQ(b.at("AT+CMGF=0;+NOSUCH;+CMGF=1"), error);
    EXPECT_EQ(b.at("AT+CMGF?"), line("+CMGF: 0") + ok) << "what follows a failing command is not carried out";
    EXPECT_EQ(b.at("AT+CSCS=\";\";+CMGF?"), error) << "a quoted semicolon parts nothing";
    EXPECT_EQ(b.at("at+cmgf?"), line("+CMGF: 0") + ok);
}

TEST(at_commands, echo_is_on_until_switched_off)
{
    modem_config config = bench_config();
    config.power_up.echo = true;
    bench b(config);
    EXPECT_EQ(b.at("AT"), "AT\r" + ok);
    b.device.receive("AT+C");
    EXPECT_EQ(b.heard(), "AT+C");
    b.device.receive("MGF?\r");
    EXPECT_EQ(b.heard(), "MGF?\r" + line("+CMGF: 1") + ok);
    EXPECT_EQ(b.at("ATE0"), "ATE0\r" + ok);
    EXPECT_EQ(b.at("AT"), ok);
    EXPECT_EQ(b.at("ATE1"), ok);
    EXPECT_EQ(b.at("AT"), "AT\r" + ok);
    EXPECT_EQ(b.at("ATE"), "ATE\r" + ok);
    EXPECT_EQ(b.at("AT"), ok);
}

TEST(at_commands, lines_are_read_as_people_type_them)
{
    bench b;
    EXPECT_EQ(b.at(""), "");
    EXPECT_EQ(b.at("hello"), "") << "no AT, no answer";
    EXPECT_EQ(b.at("\x1BxxAT+CMGF?"), line("+CMGF: 1") + ok) << "noise in front of AT";
    EXPECT_EQ(b.at("AT+CMGG\bF?"), line("+CMGF: 1") + ok) << "backspace";
    b.device.receive("AT\r\nAT\r\n");
    EXPECT_EQ(b.heard(), ok + ok);
    EXPECT_EQ(b.device.commands().size(), 4u);
}

TEST(at_commands, endless_lines_end_in_an_error)
{
    bench b;
    for (int i = 0; i < 200; i++)
        b.device.receive(std::string(1000, 'A') + "T");
    EXPECT_EQ(b.heard(), "");
    EXPECT_EQ(b.at(""), error);
    EXPECT_EQ(b.at("AT+" + std::string(line_reader::most_in_line, 'X')), error);
    EXPECT_EQ(b.at("AT"), ok);
}

TEST(at_commands, survives_any_bytes)
{
    bench b;
    std::minstd_rand random(7);
    constexpr std::string_view pieces[] = {"AT",   "+CMGR", "=",          "?",     ",",     "\"",    ";",
                                           "\x1A", "\r",    "+DORVYSMS=", "\n",    "99",    "00",    "E",
                                           "&",    "S",     "\xFF",       "+CMGD", "+CNMI", "+CPMS", "\x1B"};
    for (int i = 0; i < 200000; i++)
        b.device.receive(pieces[random() % std::size(pieces)]);
    b.device.receive("\x1B\r");
    b.heard();
    b.device.restart();
    b.heard();
    EXPECT_EQ(b.at("AT+CMGF?"), line("+CMGF: 1") + ok);
}

} // namespace
} // namespace sim
