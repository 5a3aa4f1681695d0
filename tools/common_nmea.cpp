#include "common_nmea.h"

#include <cmath>

#include "earth.h"
#include "units.h"

namespace drtools {
namespace {

using drsim::kPi;

// ddmm.mmmmmmmm (or dddmm...) and the hemisphere letter.
std::string angle_field(double deg, int degree_digits, char pos, char neg) {
    const char hemi = deg < 0.0 ? neg : pos;
    double a = std::fabs(deg);
    int whole = static_cast<int>(a);
    double minutes = (a - whole) * 60.0;
    if (minutes >= 59.999999995) {  // would print as 60.00000000
        minutes = 0.0;
        ++whole;
    }
    char buf[48];
    std::snprintf(buf, sizeof buf, "%0*d%011.8f,%c", degree_digits, whole, minutes, hemi);
    return buf;
}

std::string utc_field(uint32_t tow_ms) {
    const long long day_ms = 86400000LL;
    long long t = (static_cast<long long>(tow_ms) - kGpsUtcLeapSeconds * 1000LL) % day_ms;
    if (t < 0) t += day_ms;
    char buf[16];
    std::snprintf(buf, sizeof buf, "%02lld%02lld%02lld.%02lld", t / 3600000, t / 60000 % 60, t / 1000 % 60,
                  t % 1000 / 10);
    return buf;
}

std::string sentence(const std::string &body) {
    char tail[8];
    std::snprintf(tail, sizeof tail, "*%02X\r\n", nmea_checksum(body));
    return "$" + body + tail;
}

}  // namespace

unsigned nmea_checksum(const std::string &body) {
    unsigned c = 0;
    for (char ch : body) c ^= static_cast<unsigned char>(ch);
    return c;
}

std::string nmea_sentences(const TiltStat &s) {
    if (s.status < 1 || s.status > 3) return "";
    const drsim::Geodetic g = drsim::geodetic_from_ecef({s.tip_pos[0], s.tip_pos[1], s.tip_pos[2]});
    const double llh[3] = {g.lat, g.lon, g.h};
    if (!(std::isfinite(g.lat) && std::isfinite(g.lon) && std::isfinite(g.h))) return "";
    const int quality = s.status == 1 ? 4 : s.status == 2 ? 5 : 2;
    const std::string time = utc_field(s.tow_ms);
    char buf[160];
    std::snprintf(buf, sizeof buf, ",%d,,,%.4f,M,0.000,M,,", quality, llh[2]);
    const std::string gga = "GNGGA," + time + "," + angle_field(llh[0] * 180.0 / kPi, 2, 'N', 'S') + "," +
                            angle_field(llh[1] * 180.0 / kPi, 3, 'E', 'W') + buf;
    const double n = static_cast<double>(s.tip_std_total[0]), e = static_cast<double>(s.tip_std_total[1]),
                 d = static_cast<double>(s.tip_std_total[2]);
    std::snprintf(buf, sizeof buf, ",,%.4f,%.4f,%.1f,%.4f,%.4f,%.4f", std::fmax(n, e), std::fmin(n, e), n >= e ? 0.0 : 90.0, n, e, d);
    const std::string gst = "GNGST," + time + buf;
    return sentence(gga) + sentence(gst);
}

}  // namespace drtools
