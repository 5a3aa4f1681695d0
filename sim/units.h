// Angle units shared by the simulator and the tools.
#pragma once

namespace drsim {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDeg = kPi / 180.0;  // radians per degree

}  // namespace drsim
