// Earth model and gravity: conversions, radii, Earth rate and the three
// gravity models against published values and round trips.
#include <gtest/gtest.h>
#include <math.h>

#include "drlib_toolkit.h"

namespace {

constexpr double kPi = 3.141592653589793;

TEST(EarthConversions, EcefGeodeticRoundTripAndAxisCases) {
    // On the polar axis the longitude is undefined: nothing is written.
    double untouched[3] = {1.0, 2.0, 3.0};
    const double pole[3] = {0.0, 0.0, 6356752.314245179};
    ecef2llh(untouched, pole);
    EXPECT_TRUE(untouched[0] == 1.0 && untouched[1] == 2.0 && untouched[2] == 3.0);
    for (double lat : {0.0, 0.3, 0.8, 1.4, -1.0}) {
        const double in[3] = {lat, -2.5, 1000.0};
        double r_e[3], out[3];
        llh2ecef(r_e, in);
        ecef2llh(out, r_e);
        EXPECT_NEAR(out[0], lat, 1e-14);
        EXPECT_NEAR(out[1], -2.5, 1e-15);
        EXPECT_NEAR(out[2], 1000.0, 1e-7);
    }
    const double north_pole[3] = {kPi / 2.0, 0.0, 0.0};  // on the ellipsoid: the semi-minor axis
    double r_e[3];
    llh2ecef(r_e, north_pole);
    EXPECT_NEAR(r_e[2], 6356752.314245179, 1e-8);
}

TEST(EarthConversions, NavigationFrameOrientation) {
    for (double lat = -1.5; lat < 1.55; lat += 0.25) {
        for (double lon = -3.0; lon <= kPi; lon += 0.5) {
            const double llh[3] = {lat, lon, 0.0};
            double q[4], from_q[9], m[9], back[3] = {0.0, 0.0, 55.0};
            llh2qne(q, llh);
            quat2dcm(from_q, q);
            llh2cne(m, llh);
            for (int i = 0; i < 9; ++i) EXPECT_NEAR(from_q[i], m[i], 1e-15);
            cne2llh(back, m);
            EXPECT_NEAR(back[0], lat, 1e-14);
            EXPECT_NEAR(back[1], lon, 1e-14);
            EXPECT_EQ(back[2], 55.0);
            // The down axis is minus the ellipsoid normal.
            const double normal[3] = {cos(lat) * cos(lon), cos(lat) * sin(lon), sin(lat)};
            for (int i = 0; i < 3; ++i) EXPECT_NEAR(m[3 * i + 2], -normal[i], 1e-15);
        }
    }
}

TEST(EarthModel, RadiiAndEarthRate) {
    double rm, rn;
    calc_radius(&rm, &rn, 0.0);
    EXPECT_EQ(rm, 6335439.3272928195);
    EXPECT_EQ(rn, 6378137.0);
    // At 45 degrees rn / rm = (1 - e^2 s^2) / (1 - e^2).
    calc_radius(&rm, &rn, sin(kPi / 4.0));
    EXPECT_NEAR(rn / rm, (1.0 - 0.006694379990141317 / 2.0) / 0.9933056200098587, 1e-15);
    double w[3];
    calc_wie_n(w, 0.7);  // Earth rate: north and up components, down negative
    EXPECT_NEAR(w[0], 7.2921151467e-5 * cos(0.7), 1e-19);
    EXPECT_NEAR(w[2], -7.2921151467e-5 * sin(0.7), 1e-19);
}

TEST(EarthGravity, NormalGravityModels) {
    EXPECT_EQ(local_gravity_v2(0.0, 0.0), 9.7803267714);
    EXPECT_NEAR(local_gravity_v1(1.0, 0.0), 9.832185127240837, 1e-14);
    // Free-air gradient about -3.086e-6 (m/s^2)/m in both.
    for (double s : {0.0, 0.6, 1.0}) {
        EXPECT_NEAR((local_gravity_v1(s, 1000.0) - local_gravity_v1(s, 0.0)) / 1000.0, -3.086e-6, 5e-9);
        EXPECT_NEAR((local_gravity_v2(s, 1000.0) - local_gravity_v2(s, 0.0)) / 1000.0, -3.086e-6, 5e-9);
        EXPECT_NEAR(local_gravity_v1(s, 0.0), local_gravity_v2(s, 0.0), 2e-6);
    }
}

TEST(EarthGravity, ZonalModelAgreesWithNormalGravity) {
    struct Case { double lat, north; } cases[] = {{0.0, -3.72e-5}, {0.7, 3.38e-5}};
    for (const auto &c : cases) {
        const double llh[3] = {c.lat, 0.4, 0.0};
        double r_e[3], cne[9], rm, rn, g[3];
        llh2ecef(r_e, llh);
        llh2cne(cne, llh);
        calc_radius(&rm, &rn, sin(c.lat));
        gravity_model_1971(g, r_e, cne, rn, 0.0);
        EXPECT_NEAR(g[0], c.north, 0.01e-5);
        EXPECT_NEAR(g[1], 0.0, 1e-12);
        EXPECT_NEAR(g[2], local_gravity_v2(sin(c.lat), 0.0), 2e-4);
    }
}

}  // namespace
