#include "truth.h"

#include <cmath>

#include "jet.h"

namespace drsim {

constexpr double Truth::kImuFromAntennaB[3];

template <typename T>
struct Truth::Points {
    Vec3T<T> tip_t, ant_t, imu_t;  // tangent frame, m
    QuatT<T> q_pt, q_bt;
};

namespace {

template <typename T>
QuatT<T> lift(const Quat &q) { return {T(q.w), T(q.x), T(q.y), T(q.z)}; }
template <typename T>
Vec3T<T> lift(const Vec3 &v) { return {T(v.x), T(v.y), T(v.z)}; }

Vec3 first(const Vec3T<Jet> &v) { return {v.x.d1, v.y.d1, v.z.d1}; }
Vec3 second(const Vec3T<Jet> &v) { return {v.x.d2, v.y.d2, v.z.d2}; }
Quat first(const QuatT<Jet> &q) { return {q.w.d1, q.x.d1, q.y.d1, q.z.d1}; }

}  // namespace

Truth::Truth(const Scenario &scenario)
    : scenario_(scenario),
      point_e_(ecef_from_geodetic(scenario.options().point)),
      c_te_(dcm_ne(scenario.options().point.lat, scenario.options().point.lon)),
      q_pb_(quat_from_dcm(dcm_from_euler(scenario.mount_rph()))) {}

template <typename T>
Truth::Points<T> Truth::points(const T &t) const {
    const PoleMotion<T> m = scenario_.motion(t);
    Points<T> p;
    p.tip_t = m.tip_t;
    p.q_pt = m.q_pt;
    p.q_bt = m.q_pt * conj(lift<T>(q_pb_));
    const Vec3T<T> pole_p{T(0.0), T(0.0), T(scenario_.options().pole_length_m)};
    const Vec3 lever{kImuFromAntennaB[0], kImuFromAntennaB[1], kImuFromAntennaB[2]};
    p.ant_t = p.tip_t + rotate(p.q_pt, pole_p);
    p.imu_t = p.ant_t + rotate(p.q_bt, lift<T>(lever));
    return p;
}

TruthState Truth::state(double t_s) const {
    const Points<Jet> p = points(Jet::time(t_s));
    TruthState s;
    s.t_s = t_s;
    s.tip_e = point_e_ + c_te_ * vec_value(p.tip_t);
    s.ant_e = point_e_ + c_te_ * vec_value(p.ant_t);
    s.ant_v_e = c_te_ * first(p.ant_t);
    s.imu_e = point_e_ + c_te_ * vec_value(p.imu_t);
    s.imu_v_e = c_te_ * first(p.imu_t);
    s.imu_llh = geodetic_from_ecef(s.imu_e);
    const Mat3 c_ne = dcm_ne(s.imu_llh.lat, s.imu_llh.lon);
    s.imu_v_n = transpose(c_ne) * s.imu_v_e;
    s.c_bn = transpose(c_ne) * c_te_ * dcm_from_quat(quat_value(p.q_bt));
    s.rph = euler_from_dcm(s.c_bn);
    const Geodetic tip = geodetic_from_ecef(s.tip_e);
    const Vec3 up_e = c_te_ * rotate(quat_value(p.q_pt), Vec3{0.0, 0.0, 1.0});
    const Vec3 up_n = transpose(dcm_ne(tip.lat, tip.lon)) * up_e;
    s.tilt_rad = std::atan2(std::hypot(up_n.x, up_n.y), -up_n.z);
    return s;
}

ImuRates Truth::imu_rates(double t_s) const {
    const Points<Jet> p = points(Jet::time(t_s));
    const Quat q_bt = quat_value(p.q_bt);
    // q_bt' = q_bt * (0, w_tb_b) / 2 for a body turning at w_tb_b in the tangent frame.
    const Vec3 w_tb_b = 2.0 * (conj(q_bt) * first(p.q_bt)).vec();
    const Mat3 c_eb = transpose(c_te_ * dcm_from_quat(q_bt));
    const Vec3 w_ie_e = earth_rate_ecef();
    const Vec3 r_e = point_e_ + c_te_ * vec_value(p.imu_t);
    const Vec3 v_e = c_te_ * first(p.imu_t);
    const Vec3 a_e = c_te_ * second(p.imu_t);
    // Specific force in the rotating Earth frame: relative acceleration plus
    // Coriolis, less gravity (whose centrifugal part covers w x (w x r)).
    const Vec3 f_e = a_e + 2.0 * cross(w_ie_e, v_e) - gravity_ecef(r_e);
    ImuRates r;
    r.w_ib_b = w_tb_b + c_eb * w_ie_e;
    r.f_b = c_eb * f_e;
    return r;
}

}  // namespace drsim
