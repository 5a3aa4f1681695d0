// Table-driven CRCs. Each routine continues a running register; initial
// values and final XORs are the caller's, as each format defines them.
// The tables are generated at compile time from their polynomials.
#include "drlib_toolkit.h"

namespace {

template <typename T>
struct CrcTable {
    T v[256];
};

// Reflected (LSB-first) table of a polynomial given in reversed form.
template <typename T>
constexpr CrcTable<T> reflected_table(T poly_reversed) {
    CrcTable<T> t{};
    for (uint32_t i = 0; i < 256U; ++i) {
        T c = static_cast<T>(i);
        for (int32_t bit = 0; bit < 8; ++bit) {
            c = (c & 1U) != 0U ? static_cast<T>((c >> 1) ^ poly_reversed) : static_cast<T>(c >> 1);
        }
        t.v[i] = c;
    }
    return t;
}

// MSB-first table of a polynomial of `width` bits.
template <typename T>
constexpr CrcTable<T> msb_first_table(uint32_t poly, uint32_t width) {
    CrcTable<T> t{};
    const uint32_t top = 1U << (width - 1U);
    const uint32_t mask = width == 32U ? 0xffffffffU : (1U << width) - 1U;
    for (uint32_t i = 0; i < 256U; ++i) {
        uint32_t c = i << (width - 8U);
        for (int32_t bit = 0; bit < 8; ++bit) {
            c = (c & top) != 0U ? ((c << 1) ^ poly) : (c << 1);
            c &= mask;
        }
        t.v[i] = static_cast<T>(c);
    }
    return t;
}

constexpr CrcTable<uint16_t> crc16_tbl_IBM = reflected_table<uint16_t>(0xA001U);
constexpr CrcTable<uint16_t> tbl_CRC16_xmodem = msb_first_table<uint16_t>(0x1021U, 16U);
constexpr CrcTable<uint16_t> tbl_CRC16_ccitt = reflected_table<uint16_t>(0x8408U);
constexpr CrcTable<uint32_t> crc24q_tbl = msb_first_table<uint32_t>(0x864CFBU, 24U);
constexpr CrcTable<uint32_t> crc32_tbl = reflected_table<uint32_t>(0xEDB88320U);

static_assert(crc16_tbl_IBM.v[1] == 0xC0C1U && crc16_tbl_IBM.v[255] == 0x4040U, "CRC-16/IBM");
static_assert(tbl_CRC16_xmodem.v[1] == 0x1021U && tbl_CRC16_xmodem.v[255] == 0x1EF0U, "XMODEM");
static_assert(tbl_CRC16_ccitt.v[1] == 0x1189U && tbl_CRC16_ccitt.v[255] == 0x0F78U, "CCITT");
static_assert((crc24q_tbl.v[1] & 0xFFFFFFU) == 0x864CFBU, "CRC-24Q");
static_assert(crc32_tbl.v[1] == 0x77073096U && crc32_tbl.v[255] == 0x2D02EF8DU, "CRC-32");

// One table step per byte, shared by the exported routines and the
// compile-time check values below.
constexpr uint32_t step_ibm(uint32_t c, uint8_t b) {
    return crc16_tbl_IBM.v[(b ^ c) & 0xFFU] ^ (c >> 8);
}
constexpr uint32_t step_xmodem(uint32_t c, uint8_t b) {
    return (tbl_CRC16_xmodem.v[b ^ (c >> 8)] ^ (c << 8)) & 0xFFFFU;
}
constexpr uint32_t step_ccitt(uint32_t c, uint8_t b) {
    return tbl_CRC16_ccitt.v[b ^ (c & 0xFFU)] ^ (c >> 8);
}
constexpr uint32_t step_crc24q(uint32_t c, uint8_t b) {
    return crc24q_tbl.v[b ^ ((c >> 16) & 0xFFU)] ^ (c << 8);
}
constexpr uint32_t step_crc32(uint32_t c, uint8_t b) {
    return crc32_tbl.v[b ^ (c & 0xFFU)] ^ (c >> 8);
}

template <typename Step>
constexpr uint32_t run_check(Step step, uint32_t c) {
    constexpr char digits[] = "123456789";
    for (uint32_t i = 0; i < 9U; ++i) c = step(c, static_cast<uint8_t>(digits[i]));
    return c;
}

static_assert(run_check(step_ibm, 0U) == 0xBB3DU, "CRC-16/ARC check");
static_assert(run_check(step_xmodem, 0U) == 0x31C3U, "CRC-16/XMODEM check");
static_assert(run_check(step_ccitt, 0U) == 0x2189U, "CRC-16/KERMIT check");
static_assert((run_check(step_crc24q, 0U) & 0xFFFFFFU) == 0xCDE703U, "CRC-24Q check");
static_assert((run_check(step_crc32, 0xFFFFFFFFU) ^ 0xFFFFFFFFU) == 0xCBF43926U, "CRC-32 check");

}  // namespace

extern "C" {

DRLIB_API uint32_t crc16_calc_IMB(uint32_t crc, const uint8_t *data, uint32_t len) {
    uint32_t c = crc & 0xFFFFU;
    for (uint32_t i = 0; i < len; ++i) c = step_ibm(c, data[i]);
    return c;
}

DRLIB_API uint32_t crc16_cal_xmodem(uint16_t crc, const uint8_t *data, int32_t len) {
    uint32_t c = crc;
    for (int32_t i = 0; i < len; ++i) c = step_xmodem(c, data[i]);
    return c;
}

DRLIB_API uint32_t crc16_cal_ccitt(uint16_t crc, const uint8_t *data, int32_t len) {
    uint32_t c = crc;
    for (int32_t i = 0; i < len; ++i) c = step_ccitt(c, data[i]);
    return c;
}

DRLIB_API uint32_t crc24q_calc(uint32_t crc, const uint8_t *data, uint32_t len) {
    uint32_t c = crc;
    for (uint32_t i = 0; i < len; ++i) c = step_crc24q(c, data[i]);
    return c & 0xFFFFFFU;  // the upper byte of the register never feeds back
}

DRLIB_API int32_t crc32_calc(uint32_t crc, const uint8_t *data, uint32_t len) {
    uint32_t c = crc;
    for (uint32_t i = 0; i < len; ++i) c = step_crc32(c, data[i]);
    return static_cast<int32_t>(c);
}

}  // extern "C"
