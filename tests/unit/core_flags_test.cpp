/* The two flags by which a program follows its request: what is written when, and who is waited for. */
#include <optional>
#include <string>
#include <vector>

#include "core_bench.h"
#include "dv_sms_mgr_log.h"

namespace
{

static const char last_message[] = "DV_SMS_MGR_LAST_RECEIVED_MSG";
static const char last_code[] = "DV_SMS_MGR_LAST_ERR_CODE";

static const std::string wait_for_message = "flag already exist,wait for DV_SMS_MGR_LAST_RECEIVED_MSG flag clear..";

using maybe = std::optional<std::string>;

/* A flag's value at each look: the last one stays. An unset one is not there at all. */
struct flag_case {
    const char *name;
    std::vector<maybe> looks;
    bool unset_is_emptied;
    int waits;
    bool written;
};

class flags : public core_bench
{
protected:
    void show(const char *flag, const maybe &value)
    {
        if (value)
            platform.set_flag(flag, *value);
        else
            platform.unset_flag(flag);
    }

    /* Each sleep brings the flag's next value. */
    void show_in_turn(const char *flag, const std::vector<maybe> &looks)
    {
        show(flag, looks[0]);
        next_ = 1;
        seams::on_sleep([this, flag, looks](unsigned, int) {
            if (next_ < looks.size())
                show(flag, looks[next_++]);
        });
    }

    /* The calls that `waits` looks without success and then, unless all are used up, one more make. */
    static lines expected_calls(const char *flag, int size, int waits, const maybe &written)
    {
        const std::string look = std::string("flag_get_item ") + flag + " " + std::to_string(size);
        lines calls;

        for (int i = 0; i < waits; i++) {
            calls.push_back(look);
            calls.push_back("sleep 1");
        }
        if (waits < 3)
            calls.push_back(look);
        if (written)
            calls.push_back(std::string("flag_set ") + flag + " \"" + *written + "\"");
        return calls;
    }

private:
    size_t next_ = 1;
};

TEST_F(flags, the_last_message_waits_for_another_value_to_be_cleared)
{
    const std::string mine = "3,21760", other = "5,21761";
    const std::vector<flag_case> cases = {
        {"empty: written at once", {""}, false, 0, true},
        {"unset, the read leaves the buffer alone: counts as equal", {std::nullopt}, false, 0, false},
        {"unset, the read empties the buffer: written at once", {std::nullopt}, true, 0, true},
        {"equal: neither waited for nor written", {mine}, false, 0, false},
        {"another, never cleared: overwritten after three seconds", {other}, false, 3, true},
        {"another, cleared after one second", {other, ""}, false, 1, true},
        {"another, cleared after two seconds", {other, other, ""}, false, 2, true},
        {"another, cleared in the third second: not looked at again, written",
         {other, other, other, ""},
         false,
         3,
         true},
        {"another, equal in the third second: written all the same", {other, other, other, mine}, false, 3, true},
        {"another, which becomes equal", {other, mine}, false, 1, false},
        {"another, which is removed: counts as equal", {other, std::nullopt}, false, 1, false},
        {"longer, the beginning is equal", {mine + "0"}, false, 3, true},
        {"shorter", {"3,2176"}, false, 3, true},
        {"blank", {" "}, false, 3, true},
        {"fills the buffer without a terminator", {std::string(32, '9')}, false, 3, true},
        {"longer than the buffer", {std::string(400, '9')}, false, 3, true},
    };

    for (const bool scribbles : {false, true}) {
        for (const flag_case &each : cases) {
            forget();
            platform.set_read_mode("flag_get_item", {.empties_unset = each.unset_is_emptied, .scribbles = scribbles});
            show_in_turn(last_message, each.looks);
            dv_sms_mgr_update_last_msg_flag(3, 0x5500);
            EXPECT_EQ(expected_calls(last_message, 32, each.waits, each.written ? maybe(mine) : std::nullopt),
                      platform.calls())
                << each.name;
            EXPECT_EQ(lines(static_cast<size_t>(each.waits), "dv_sms_mgr_update_last_msg_flag: " + wait_for_message),
                      traced())
                << each.name;
        }
    }
}

TEST_F(flags, a_value_that_fills_the_buffer_is_compared_as_a_whole)
{
    /* Sender and id can make no text of 32 characters, so such a value is never one's own. */
    platform.set_flag(last_message, "-2147483648,-2147483648" + std::string(9, '0'));
    dv_sms_mgr_update_last_msg_flag(0x80000000, 0x80000000);
    EXPECT_EQ(3, platform.count("sleep 1"));
    EXPECT_EQ("-2147483648,-2147483648", platform.flag(last_message));
}

struct value_case {
    uint32_t sender, msg_id;
    const char *value;
};

TEST_F(flags, the_last_message_is_the_senders_number_and_the_id_in_decimal)
{
    for (const value_case &each : {value_case{3, 21760, "3,21760"}, value_case{0, 0x5507, "0,21767"},
                                   value_case{27, 0x5501, "27,21761"}, value_case{0xFFFFFFFF, 1, "-1,1"}}) {
        platform.set_flag(last_message, "");
        dv_sms_mgr_update_last_msg_flag(each.sender, each.msg_id);
        EXPECT_EQ(each.value, platform.flag(last_message));
    }
}

static std::string wait_for_code(const std::string &value)
{
    return "dv_sms_mgr_update_last_err_code_flag: flag already exist (" + value +
           "),wait for DV_SMS_MGR_LAST_ERR_CODE flag clear..";
}

struct code_case {
    const char *name;
    std::vector<maybe> looks;
    bool unset_is_emptied;
    lines waits; /* the values that were waited for */
};

TEST_F(flags, the_code_waits_for_any_value_to_be_cleared_even_an_equal_one)
{
    const std::vector<code_case> cases = {
        {"empty: written at once", {""}, false, {}},
        {"unset, the read empties the buffer: written at once", {std::nullopt}, true, {}},
        {"unset, the read leaves the buffer alone: its \"0\" is waited for", {std::nullopt}, false, {"0", "0", "0"}},
        {"equal: three seconds all the same", {"500"}, false, {"500", "500", "500"}},
        {"another", {"0"}, false, {"0", "0", "0"}},
        {"cleared after one second", {"0", ""}, false, {"0"}},
        {"cleared after two seconds", {"0", "7", ""}, false, {"0", "7"}},
        {"cleared in the third second: not looked at again", {"0", "0", "0", ""}, false, {"0", "0", "0"}},
        {"fills the buffer without a terminator", {"12345678"}, false, {"12345678", "12345678", "12345678"}},
        {"longer than the buffer", {"123456789"}, false, {"12345678", "12345678", "12345678"}},
        {"removed, the read leaves what was there", {"12", std::nullopt}, false, {"12", "12", "12"}},
    };

    for (const code_case &each : cases) {
        lines waits;

        forget();
        platform.set_read_mode("flag_get_item", {.empties_unset = each.unset_is_emptied});
        show_in_turn(last_code, each.looks);
        dv_sms_mgr_update_last_err_code_flag(500);
        EXPECT_EQ(expected_calls(last_code, 8, static_cast<int>(each.waits.size()), "500"), platform.calls())
            << each.name;
        for (const std::string &value : each.waits)
            waits.push_back(wait_for_code(value));
        EXPECT_EQ(waits, traced()) << each.name;
    }
}

TEST_F(flags, the_code_is_written_in_at_most_seven_digits)
{
    const std::pair<int, const char *> cases[] = {
        {0, "0"}, {500, "500"}, {-1, "-1"}, {1234567, "1234567"}, {12345678, "1234567"}, {-2147483647, "-214748"}};

    for (const auto &[code, value] : cases) {
        platform.set_flag(last_code, "");
        dv_sms_mgr_update_last_err_code_flag(code);
        EXPECT_EQ(value, platform.flag(last_code));
    }
}

TEST_F(flags, nothing_of_a_longer_value_stays_behind_a_shorter_code)
{
    platform.set_read_mode("flag_get_item", {.scribbles = true});
    platform.set_flag(last_code, "9999999");
    dv_sms_mgr_update_last_err_code_flag(0);
    EXPECT_EQ("0", platform.flag(last_code));
}

TEST_F(flags, a_store_that_fails_is_not_noticed)
{
    platform.set_result("flag_set", -1);
    platform.set_flag(last_message, "");
    platform.set_flag(last_code, "");
    dv_sms_mgr_update_last_msg_flag(3, 0x5500);
    dv_sms_mgr_update_last_err_code_flag(500);
    EXPECT_EQ(lines{}, platform.calls({"sleep", "savelog"}));
    EXPECT_EQ(2u, platform.calls({"flag_set"}).size());
    EXPECT_EQ("", output());
}

TEST_F(flags, it_says_what_it_waits_for_before_it_waits)
{
    std::vector<size_t> said;

    platform.set_flag(last_message, "5,5");
    platform.set_flag(last_code, "500");
    seams::on_sleep([&](unsigned, int) { said.push_back(traced().size()); });
    dv_sms_mgr_update_last_msg_flag(3, 0x5500);
    dv_sms_mgr_update_last_err_code_flag(500);
    EXPECT_EQ((std::vector<size_t>{1, 2, 3, 4, 5, 6}), said);
}

TEST_F(flags, waiting_is_not_logged_and_without_tracing_not_seen)
{
    debug_mode = 0;
    platform.set_flag(last_message, "5,5");
    platform.set_flag(last_code, "500");
    dv_sms_mgr_update_last_msg_flag(3, 0x5500);
    dv_sms_mgr_update_last_err_code_flag(500);
    EXPECT_EQ(6, platform.count("sleep 1"));
    EXPECT_EQ(lines{}, platform.saved());
    EXPECT_EQ("", output());
}

} // namespace
