// Bounded strings and CRCs: truncation rules and published check values.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "drlib_toolkit.h"

namespace {
const uint8_t kCheck[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
}

// Return value, stored text, and nothing written past the terminator (or at
// all for a zero size or a null pointer).
TEST(BoundedStrings, CopyAndFormatTruncate) {
    char buf[10];
    struct Case { const char *src; uint32_t size; int32_t ret; const char *stored; };
    for (const Case &c : {Case{"abcdef", 4, 4, "abc"}, Case{"abcdef", 1, 1, ""}, Case{"abc", 4, 4, "abc"}}) {
        std::memset(buf, 'x', sizeof buf);
        EXPECT_EQ(strlcpy(buf, c.src, c.size), c.ret) << c.src << " " << c.size;
        EXPECT_STREQ(buf, c.stored);
        EXPECT_EQ(buf[std::strlen(c.stored) + 1], 'x');
    }
    std::memset(buf, 'x', sizeof buf);
    EXPECT_TRUE(strlcpy(buf, "abc", 0) == 0 && strlcpy(nullptr, "abc", 4) == 0 && strlcpy(buf, nullptr, 4) == 0);
    EXPECT_TRUE(slprintf(buf, 0, "%d", 42) == 0U && slprintf(nullptr, 10, "%d", 42) == 0U && buf[0] == 'x');
    EXPECT_EQ(slprintf(buf, 5, "%d", 123456), 4U);
    EXPECT_TRUE(std::strcmp(buf, "1234") == 0 && buf[5] == 'x');
    EXPECT_EQ(slprintf(buf, 3, "%s", "ab"), 2U);  // exact fit
    EXPECT_TRUE(slprintf(buf, 1, "%d", 42) == 0U && buf[0] == '\0');
}

// Published check values; with no bytes the register comes back, masked to
// the routine's width; continued over a split buffer a CRC equals the whole's.
TEST(Crc, PublishedCheckValuesAndSplitBuffers) {
    EXPECT_EQ(crc16_calc_IMB(0, kCheck, 9), 0xBB3DU);         // CRC-16/ARC
    EXPECT_EQ(crc16_calc_IMB(0xFFFF, kCheck, 9), 0x4B37U);    // CRC-16/MODBUS
    EXPECT_EQ(crc16_cal_xmodem(0, kCheck, 9), 0x31C3U);       // CRC-16/XMODEM
    EXPECT_EQ(crc16_cal_xmodem(0xFFFF, kCheck, 9), 0x29B1U);  // CRC-16/IBM-3740
    EXPECT_EQ(crc16_cal_ccitt(0, kCheck, 9), 0x2189U);        // CRC-16/KERMIT
    EXPECT_EQ(crc16_cal_ccitt(0xFFFF, kCheck, 9), 0x6F91U);   // CRC-16/MCRF4XX
    EXPECT_EQ(crc24q_calc(0, kCheck, 9), 0xCDE703U);          // CRC-24Q
    EXPECT_EQ(uint32_t(crc32_calc(0xFFFFFFFFU, kCheck, 9)) ^ 0xFFFFFFFFU, 0xCBF43926U);
    EXPECT_EQ(uint32_t(crc32_calc(0, kCheck, 9)), 0x2DFD2D88U);
    EXPECT_EQ(crc16_calc_IMB(0x12345678U, kCheck, 0), 0x5678U);
    EXPECT_EQ(crc16_cal_xmodem(0xBEEF, kCheck, -3), 0xBEEFU);
    EXPECT_EQ(crc24q_calc(0xFF123456U, kCheck, 0), 0x123456U);
    std::mt19937 rng(81);
    std::vector<uint8_t> data(600);
    for (uint8_t &b : data) b = static_cast<uint8_t>(rng());
    for (int trial = 0; trial < 200; ++trial) {
        const uint8_t *p = data.data() + rng() % 100U;
        const uint32_t len = rng() % 500U, cut = rng() % (len + 1U), init = rng();
        const int32_t il = int32_t(len), ic = int32_t(cut);
        const uint16_t i16 = uint16_t(init);
        EXPECT_EQ(crc16_calc_IMB(crc16_calc_IMB(i16, p, cut), p + cut, len - cut), crc16_calc_IMB(i16, p, len));
        EXPECT_EQ(crc16_cal_xmodem(uint16_t(crc16_cal_xmodem(i16, p, ic)), p + cut, il - ic), crc16_cal_xmodem(i16, p, il));
        EXPECT_EQ(crc16_cal_ccitt(uint16_t(crc16_cal_ccitt(i16, p, ic)), p + cut, il - ic), crc16_cal_ccitt(i16, p, il));
        EXPECT_EQ(crc24q_calc(crc24q_calc(init, p, cut), p + cut, len - cut), crc24q_calc(init, p, len));
        EXPECT_EQ(crc32_calc(uint32_t(crc32_calc(init, p, cut)), p + cut, len - cut), crc32_calc(init, p, len));
    }
}
