/* Packing and unpacking of septets (TS 23.038, 6.1.2.1), against bits that are moved one by one. */
#include <random>

#include "vectors/codec_bench.h"

class charset_septets : public codec
{
protected:
    std::mt19937 random{23038};

    reference::bytes draw(size_t count, unsigned below)
    {
        reference::bytes drawn;

        for (size_t i = 0; i < count; i++)
            drawn.push_back(static_cast<uint8_t>(random() % below));
        return drawn;
    }
};

TEST_F(charset_septets, well_known_packings)
{
    static const struct {
        const char *text, *octets;
    } rows[] = {
        {"hi", "E834"},
        {"hellohello", "E8329BFD4697D9EC37"}, /* ten septets in nine octets */
        {"A", "41"},
        {"1234567", "31D98C56B3DD00"},  /* seven in seven, the last of them but fill */
        {"12345678", "31D98C56B3DD70"}, /* eight in seven */
        {"How are you?", "C8F71D14969741F977FD07"},
        {"", ""},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        const std::string text = row.text;
        const size_t octets = (text.size() * 7 + 7) / 8;
        marked_buffer packed(octets + 1, '~'), unpacked(octets * 8 / 7 + 2, '~');

        EXPECT_EQ(static_cast<int>(octets), dv_sms_mgr_pack_7bit(reinterpret_cast<const uint8_t *>(text.data()),
                                                                 packed.octets(), static_cast<int>(text.size())));
        EXPECT_TRUE(packed.intact());
        EXPECT_EQ(row.octets, reference::hex({packed.octets(), packed.octets() + octets}));
        EXPECT_EQ(0, packed.data()[octets]); /* the octet behind is zeroed */

        const int septets = dv_sms_mgr_unpack_7bit(packed.octets(), unpacked.octets(), static_cast<int>(octets), 0);
        EXPECT_EQ(static_cast<int>(octets * 8 / 7), septets);
        EXPECT_TRUE(unpacked.intact());
        EXPECT_EQ(text, std::string(unpacked.data()).substr(0, text.size()));
        EXPECT_EQ(0, unpacked.data()[septets]);
    }
}

TEST_F(charset_septets, packing_agrees_with_the_bits)
{
    for (size_t count = 0; count <= 170; count++) {
        const reference::bytes septets = draw(count, 128), expected = reference::pack(septets);
        marked_buffer octets(expected.size() + 1, '~');

        ASSERT_EQ(static_cast<int>(expected.size()),
                  dv_sms_mgr_pack_7bit(septets.data(), octets.octets(), static_cast<int>(count)));
        EXPECT_TRUE(octets.intact()) << count;
        EXPECT_EQ(expected, reference::bytes(octets.octets(), octets.octets() + expected.size())) << count;
        EXPECT_EQ(0, octets.data()[expected.size()]);
    }
}

/* One octet for each septet but every eighth: the septet moved up by 8 - k, with what the one before
 * left over; what a septet has above its seven bits is carried along. */
TEST_F(charset_septets, packing_masks_nothing)
{
    for (size_t count = 1; count <= 40; count++) {
        const reference::bytes septets = draw(count, 256);
        reference::bytes expected;
        unsigned carry = 0;
        for (size_t i = 0; i < count; i++) {
            const unsigned k = i % 8;
            if (k != 0)
                expected.push_back(static_cast<uint8_t>(septets[i] * (1U << (8 - k)) + carry));
            carry = septets[i] / (1U << k);
        }
        if (count % 8 != 0)
            expected.push_back(static_cast<uint8_t>(carry));
        reference::bytes octets(expected.size() + 1);
        ASSERT_EQ(static_cast<int>(expected.size()),
                  dv_sms_mgr_pack_7bit(septets.data(), octets.data(), static_cast<int>(count)));
        octets.pop_back();
        EXPECT_EQ(expected, octets) << count;
    }
}

TEST_F(charset_septets, one_septet_with_its_highest_bit_at_every_place)
{
    for (size_t count = 1; count <= 40; count++) {
        for (size_t place = 0; place < count; place++) {
            reference::bytes septets = draw(count, 128), expected = reference::pack(septets);
            marked_buffer octets(expected.size() + 1, '~');

            septets[place] |= 0x80;
            if (place % 8 != 7 || place + 1 == count) { /* what is carried over; the eighth has nothing left over */
                const size_t behind = place / 8 * 7 + place % 8;
                if (behind < expected.size())
                    expected[behind] = static_cast<uint8_t>(expected[behind] + (0x80U >> place % 8));
            }
            ASSERT_EQ(static_cast<int>(expected.size()),
                      dv_sms_mgr_pack_7bit(septets.data(), octets.octets(), static_cast<int>(count)));
            EXPECT_TRUE(octets.intact());
            ASSERT_EQ(expected, reference::bytes(octets.octets(), octets.octets() + expected.size()))
                << count << " at " << place;
        }
    }
}

TEST_F(charset_septets, unpacking_agrees_with_the_bits_at_every_offset)
{
    for (int offset = 0; offset < 8; offset++) {
        for (size_t count = 0; count <= 160; count++) {
            const reference::bytes octets = draw(count, 256), expected = reference::unpack(octets, offset);
            marked_buffer septets(count * 8 / 7 + 2, '~');

            ASSERT_EQ(static_cast<int>(expected.size()),
                      dv_sms_mgr_unpack_7bit(octets.data(), septets.octets(), static_cast<int>(count), offset))
                << "offset " << offset << ", octets " << count;
            EXPECT_TRUE(septets.intact()) << "offset " << offset << ", octets " << count;
            EXPECT_EQ(expected, reference::bytes(septets.octets(), septets.octets() + expected.size()))
                << "offset " << offset << ", octets " << count;
            EXPECT_EQ(0, septets.data()[expected.size()]);
            EXPECT_TRUE(septets.untouched_from(count * 8 / 7 + 2));
        }
    }
}

TEST_F(charset_septets, unpacking_reads_no_octet_too_many)
{
    for (size_t count = 0; count <= 20; count++) {
        const std::unique_ptr<uint8_t[]> octets(new uint8_t[count]);
        uint8_t septets[32];

        memset(octets.get(), 0xFF, count);
        for (int offset = 0; offset < 8; offset++)
            dv_sms_mgr_unpack_7bit(octets.get(), septets, static_cast<int>(count), offset);
    }
}

TEST_F(charset_septets, offset_1_takes_the_first_septet_from_the_top_bits)
{
    const uint8_t octets[] = {0xD0, 0x00};
    uint8_t septets[8] = {};

    EXPECT_EQ(2, dv_sms_mgr_unpack_7bit(octets, septets, 2, 1));
    EXPECT_EQ('h', septets[0]);
}

TEST_F(charset_septets, there_and_back_at_every_offset)
{
    for (int offset = 0; offset < 8; offset++) {
        for (size_t count = 0; count <= 160; count++) {
            const reference::bytes septets = draw(count, 128), octets = reference::pack(septets, offset);
            reference::bytes back(octets.size() * 8 / 7 + 2);

            dv_sms_mgr_unpack_7bit(octets.data(), back.data(), static_cast<int>(octets.size()), offset);
            back.resize(count);
            EXPECT_EQ(septets, back) << "offset " << offset << ", septets " << count;
        }
    }
}
