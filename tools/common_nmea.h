// NMEA 0183 output of the tilt solutions, for survey software: per epoch
// with a tilt solution one GGA sentence with the pole tip and one GST
// sentence with its deviations.
//
//   GGA  time is UTC (the GNSS time of week less 18 leap seconds, time of
//        day); latitude and longitude of the tip with 8 decimals of minutes;
//        fix quality from the status class: class 1 (tip within 0.012 m) ->
//        4 (RTK fixed), class 2 (0.06 m) -> 5 (RTK float), class 3 (0.35 m)
//        -> 2 (differential); satellites, HDOP, age and station are empty;
//        the altitude field holds the WGS-84 ELLIPSOIDAL height of the tip and
//        the geoid separation is 0.000, so no geoid model is implied.
//   GST  RMS empty; the error ellipse (the larger and smaller of the north and
//        east deviations, oriented 0 or 90 deg) and the tip's total deviations north (latitude),
//        east (longitude) and down (height), m, as the library reports them.
// Talker GN; checksums as NMEA defines them (XOR of the bytes between $ and *).
#ifndef DRTOOLS_COMMON_NMEA_H
#define DRTOOLS_COMMON_NMEA_H

#include <cstdio>
#include <string>

#include "drlib.h"

namespace drtools {

constexpr int kGpsUtcLeapSeconds = 18;

// The two sentences (each ending in CR LF) of one tilt status; empty without
// a tilt solution (status 0).
std::string nmea_sentences(const TiltStat &s);

// The checksum NMEA appends to a sentence body (the text between $ and *).
unsigned nmea_checksum(const std::string &body);

}  // namespace drtools

#endif
