// Continuum removal: a spectrum divided by its upper convex hull (Clark and Roush, 1984).
#pragma once

namespace hysa
{

// x: n increasing abscissae (wavelengths; equal neighbours allowed). y: the spectrum; NaN samples are left out
// of the hull and come back NaN, as do samples under a continuum of zero. hull: scratch room for n indices.
// The hull is built by the monotone chain, so one spectrum costs O(n).
void removeContinuum(const double* x, const double* y, int n, double* out, int* hull);

} // namespace hysa
