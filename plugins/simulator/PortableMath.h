#pragma once

/// Sine and exponential built from additions, multiplications and exact scalings only.
///
/// The mathematics libraries of the platforms differ in the last bit; these give the same bits everywhere, to about
/// 1e-13.
namespace portable {

/// sin(2π·turns).
double sine(double turns);

/// e^x; 0 below x = -700. Meant for x up to 700.
double exponential(double x);

/// exp(-(x - centre)² / (2·width²)); exactly 0 beyond eight widths.
double bell(double x, double centre, double width);

} // namespace portable
