/* Linked into a copy of the example host with -rdynamic: functions named like
 * the library's toolkit, as geodesy code often has them, each computing
 * something else. The library's own calls must not reach them, so this host
 * prints the same tilt-status stream as the plain example. */
#include <stdint.h>

void ecef2llh(double *llh, const double *r_e) { llh[0] = llh[1] = llh[2] = r_e[0] * 0.0; }
void cross_prod(double *r, const double *a, const double *b) { r[0] = r[1] = r[2] = a[0] + b[0]; }
void quat_prod(double *r, const double *p, const double *q) { r[0] = p[0] * q[0]; r[1] = r[2] = r[3] = 0.0; }
uint32_t isNaN(double x) { return x == x; }
int32_t crc32_calc(uint32_t crc, const uint8_t *data, uint32_t len) { return (int32_t)(crc + len + data[0]); }
double absvect3d(const double *v) { return v[0]; }
void mtx_mul_vect_3d(double *out, const double *m, const double *v) { out[0] = out[1] = out[2] = m[0] * v[0]; }
