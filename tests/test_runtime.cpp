// Bounded strings and CRCs: truncation rules and published check values.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "drlib.h"

namespace {

const uint8_t kCheckInput[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

}  // namespace

TEST(Strlcpy, CopiesAndTruncates) {
    char buf[10];
    std::memset(buf, 'x', sizeof buf);
    EXPECT_EQ(strlcpy(buf, "abc", 10), 4);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(buf[4], 'x');  // nothing past the terminator

    std::memset(buf, 'x', sizeof buf);
    EXPECT_EQ(strlcpy(buf, "abcdef", 4), 4);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(buf[4], 'x');

    std::memset(buf, 'x', sizeof buf);
    EXPECT_EQ(strlcpy(buf, "abcdef", 1), 1);
    EXPECT_EQ(buf[0], '\0');
    EXPECT_EQ(buf[1], 'x');

    // Exactly fitting text keeps its terminator.
    EXPECT_EQ(strlcpy(buf, "abc", 4), 4);
    EXPECT_STREQ(buf, "abc");

    std::memset(buf, 'x', sizeof buf);
    EXPECT_EQ(strlcpy(buf, "abc", 0), 0);
    EXPECT_EQ(strlcpy(nullptr, "abc", 4), 0);
    EXPECT_EQ(strlcpy(buf, nullptr, 4), 0);
    EXPECT_EQ(buf[0], 'x');
}

TEST(Slprintf, FormatsAndTruncates) {
    char buf[10];
    std::memset(buf, 'x', sizeof buf);
    EXPECT_EQ(slprintf(buf, 5, "%d", 123456), 4U);
    EXPECT_STREQ(buf, "1234");
    EXPECT_EQ(buf[5], 'x');

    EXPECT_EQ(slprintf(buf, 10, "%d", 42), 2U);
    EXPECT_STREQ(buf, "42");
    EXPECT_EQ(slprintf(buf, 3, "%s", "ab"), 2U);  // exact fit
    EXPECT_STREQ(buf, "ab");

    std::memset(buf, 'x', sizeof buf);
    EXPECT_EQ(slprintf(buf, 0, "%d", 42), 0U);
    EXPECT_EQ(buf[0], 'x');
    EXPECT_EQ(slprintf(nullptr, 10, "%d", 42), 0U);
    EXPECT_EQ(slprintf(buf, 1, "%d", 42), 0U);
    EXPECT_EQ(buf[0], '\0');
}

TEST(Crc, PublishedCheckValues) {
    EXPECT_EQ(crc16_calc_IMB(0, kCheckInput, 9), 0xBB3DU);     // CRC-16/ARC
    EXPECT_EQ(crc16_calc_IMB(0xFFFF, kCheckInput, 9), 0x4B37U);  // CRC-16/MODBUS
    EXPECT_EQ(crc16_cal_xmodem(0, kCheckInput, 9), 0x31C3U);
    EXPECT_EQ(crc16_cal_xmodem(0xFFFF, kCheckInput, 9), 0x29B1U);  // CRC-16/IBM-3740
    EXPECT_EQ(crc16_cal_ccitt(0, kCheckInput, 9), 0x2189U);        // KERMIT
    EXPECT_EQ(crc16_cal_ccitt(0xFFFF, kCheckInput, 9), 0x6F91U);   // MCRF4XX
    EXPECT_EQ(crc16_cal_ccitt(0xFFFF, kCheckInput, 9) ^ 0xFFFFU, 0x906EU);
    EXPECT_EQ(crc24q_calc(0, kCheckInput, 9), 0xCDE703U);
    EXPECT_EQ(static_cast<uint32_t>(crc32_calc(0xFFFFFFFFU, kCheckInput, 9)) ^ 0xFFFFFFFFU, 0xCBF43926U);
    EXPECT_EQ(static_cast<uint32_t>(crc32_calc(0, kCheckInput, 9)), 0x2DFD2D88U);
}

TEST(Crc, EmptyInputReturnsMaskedRegister) {
    EXPECT_EQ(crc16_calc_IMB(0x12345678U, kCheckInput, 0), 0x5678U);
    EXPECT_EQ(crc16_cal_xmodem(0xBEEF, kCheckInput, 0), 0xBEEFU);
    EXPECT_EQ(crc16_cal_xmodem(0xBEEF, kCheckInput, -3), 0xBEEFU);
    EXPECT_EQ(crc16_cal_ccitt(0xBEEF, kCheckInput, 0), 0xBEEFU);
    EXPECT_EQ(crc24q_calc(0xFF123456U, kCheckInput, 0), 0x123456U);
    EXPECT_EQ(static_cast<uint32_t>(crc32_calc(0xDEADBEEFU, kCheckInput, 0)), 0xDEADBEEFU);
}

// A CRC continued over a split buffer equals the CRC of the whole, at random
// offsets and lengths.
TEST(Crc, SplitBufferEqualsWhole) {
    std::mt19937 rng(81);
    std::vector<uint8_t> data(600);
    for (uint8_t &b : data) b = static_cast<uint8_t>(rng());
    for (int trial = 0; trial < 200; ++trial) {
        const uint32_t start = rng() % 100U;
        const uint32_t len = rng() % 500U;
        const uint32_t cut = len == 0 ? 0 : rng() % (len + 1U);
        const uint8_t *p = data.data() + start;
        const int32_t ilen = static_cast<int32_t>(len), icut = static_cast<int32_t>(cut);
        const uint32_t init = static_cast<uint32_t>(rng());

        EXPECT_EQ(crc16_calc_IMB(crc16_calc_IMB(init & 0xFFFFU, p, cut), p + cut, len - cut),
                  crc16_calc_IMB(init & 0xFFFFU, p, len));
        const uint16_t i16 = static_cast<uint16_t>(init);
        EXPECT_EQ(crc16_cal_xmodem(static_cast<uint16_t>(crc16_cal_xmodem(i16, p, icut)), p + cut, ilen - icut),
                  crc16_cal_xmodem(i16, p, ilen));
        EXPECT_EQ(crc16_cal_ccitt(static_cast<uint16_t>(crc16_cal_ccitt(i16, p, icut)), p + cut, ilen - icut),
                  crc16_cal_ccitt(i16, p, ilen));
        EXPECT_EQ(crc24q_calc(crc24q_calc(init, p, cut), p + cut, len - cut), crc24q_calc(init, p, len));
        EXPECT_EQ(crc32_calc(static_cast<uint32_t>(crc32_calc(init, p, cut)), p + cut, len - cut),
                  crc32_calc(init, p, len));
    }
}

// Appending the CRC-16/XMODEM of a message (big-endian) gives a zero
// remainder: a property of MSB-first CRCs without final XOR.
TEST(Crc, XmodemResidueIsZero) {
    std::vector<uint8_t> msg(kCheckInput, kCheckInput + 9);
    const uint32_t c = crc16_cal_xmodem(0, msg.data(), 9);
    msg.push_back(static_cast<uint8_t>(c >> 8));
    msg.push_back(static_cast<uint8_t>(c));
    EXPECT_EQ(crc16_cal_xmodem(0, msg.data(), 11), 0U);
    std::vector<uint8_t> m24(kCheckInput, kCheckInput + 9);
    const uint32_t c24 = crc24q_calc(0, m24.data(), 9);
    m24.push_back(static_cast<uint8_t>(c24 >> 16));
    m24.push_back(static_cast<uint8_t>(c24 >> 8));
    m24.push_back(static_cast<uint8_t>(c24));
    EXPECT_EQ(crc24q_calc(0, m24.data(), 12), 0U);
}
