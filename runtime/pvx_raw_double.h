// The library's own double-precision elementary functions. They are not the
// C library's: sqrt is exp2(0.5 * log2(v)), with the error of the two
// polynomial approximations, and every radius the engine measures carries it.
#pragma once

double pvx_RawDouble_hypot(double x, double y);
double pvx_RawDouble_sqrt(double v);
double pvx_RawDouble_exp2(double x);
double pvx_RawDouble_log2(double v);
