// Earth model and gravity: conversions, radii, Earth rate and the three
// gravity models against published values and round trips.
#include <gtest/gtest.h>
#include <math.h>

#include "drlib_toolkit.h"

namespace {

// Geodetic round trips; on the polar axis the longitude is undefined and
// nothing is written; the pole on the ellipsoid is the semi-minor axis. The
// n frame from the quaternion and directly agree, give the position back, and
// their down axis is minus the ellipsoid normal.
TEST(EarthConversions, RoundTripsAxisCasesAndFrameOrientation) {
    double untouched[3] = {1.0, 2.0, 3.0}, r_e[3];
    const double pole[3] = {0.0, 0.0, 6356752.314245179}, north_pole[3] = {M_PI / 2.0, 0.0, 0.0};
    ecef2llh(untouched, pole);
    EXPECT_TRUE(untouched[0] == 1.0 && untouched[1] == 2.0 && untouched[2] == 3.0);
    llh2ecef(r_e, north_pole);
    EXPECT_NEAR(r_e[2], 6356752.314245179, 1e-8);
    for (double lat = -1.5; lat < 1.55; lat += 0.25) {
        for (double lon = -3.0; lon <= M_PI; lon += 0.5) {
            const double llh[3] = {lat, lon, 1000.0};
            double out[3], q[4], from_q[9], m[9], back[3] = {0.0, 0.0, 55.0};
            llh2ecef(r_e, llh);
            ecef2llh(out, r_e);
            EXPECT_TRUE(fabs(out[0] - lat) < 1e-14 && fabs(out[1] - lon) < 1e-14 && fabs(out[2] - 1000.0) < 1e-7);
            llh2qne(q, llh);
            quat2dcm(from_q, q);
            llh2cne(m, llh);
            for (int i = 0; i < 9; ++i) EXPECT_NEAR(from_q[i], m[i], 1e-15);
            cne2llh(back, m);
            EXPECT_TRUE(fabs(back[0] - lat) < 1e-14 && fabs(back[1] - lon) < 1e-14 && back[2] == 55.0);
            const double normal[3] = {cos(lat) * cos(lon), cos(lat) * sin(lon), sin(lat)};
            for (int i = 0; i < 3; ++i) EXPECT_NEAR(m[3 * i + 2], -normal[i], 1e-15);
        }
    }
}

TEST(EarthModel, RadiiEarthRateAndGravity) {
    double rm, rn, w[3];
    calc_radius(&rm, &rn, 0.0);
    EXPECT_TRUE(rm == 6335439.3272928195 && rn == 6378137.0);
    // At 45 degrees rn / rm = (1 - e^2 s^2) / (1 - e^2).
    calc_radius(&rm, &rn, sin(M_PI / 4.0));
    EXPECT_NEAR(rn / rm, (1.0 - 0.006694379990141317 / 2.0) / 0.9933056200098587, 1e-15);
    calc_wie_n(w, 0.7);  // Earth rate: north and up components, down negative
    EXPECT_NEAR(w[0], 7.2921151467e-5 * cos(0.7), 1e-19);
    EXPECT_NEAR(w[2], -7.2921151467e-5 * sin(0.7), 1e-19);
    // Published normal gravity, a free-air gradient of about -3.086e-6 s^-2 in
    // both normal models, and the zonal model's north component (the deflection
    // of the geocentric direction) and its agreement with normal gravity.
    EXPECT_EQ(local_gravity_v2(0.0, 0.0), 9.7803267714);
    EXPECT_NEAR(local_gravity_v1(1.0, 0.0), 9.832185127240837, 1e-14);
    for (double s : {0.0, 0.6, 1.0}) {
        EXPECT_NEAR((local_gravity_v1(s, 1000.0) - local_gravity_v1(s, 0.0)) / 1000.0, -3.086e-6, 5e-9);
        EXPECT_NEAR((local_gravity_v2(s, 1000.0) - local_gravity_v2(s, 0.0)) / 1000.0, -3.086e-6, 5e-9);
        EXPECT_NEAR(local_gravity_v1(s, 0.0), local_gravity_v2(s, 0.0), 2e-6);
    }
    for (const auto &c : {std::pair<double, double>{0.0, -3.72e-5}, {0.7, 3.38e-5}}) {
        const double llh[3] = {c.first, 0.4, 0.0};
        double r_e[3], cne[9], g[3];
        llh2ecef(r_e, llh);
        llh2cne(cne, llh);
        calc_radius(&rm, &rn, sin(c.first));
        gravity_model_1971(g, r_e, cne, rn, 0.0);
        EXPECT_NEAR(g[0], c.second, 0.01e-5);
        EXPECT_NEAR(g[1], 0.0, 1e-12);
        EXPECT_NEAR(g[2], local_gravity_v2(sin(c.first), 0.0), 2e-4);
    }
}

}  // namespace
