// Polynomial mappings between two planes fitted by least squares, and RANSAC over them: the model of
// image-to-image registration.
#pragma once

#include <cstddef>
#include <vector>

namespace optgeo
{

struct TiePoint
{
    double x = 0, y = 0; // in the reference (pixels)
    double u = 0, v = 0; // in the image to register (pixels)
};

// u and v as polynomials of order 1 to 3 in x and y (coordinates centred and scaled for conditioning).
struct Polynomial
{
    int order = 1;
    double cx = 0, cy = 0, scale = 1;
    std::vector<double> cu, cv;
    void map(double x, double y, double* u, double* v) const;
};

// Terms of a polynomial of the order: 3, 6 or 10.
int termCount(int order);

// Least-squares fit over the points; false when they do not determine the terms.
bool fitPolynomial(const std::vector<TiePoint>& points, int order, Polynomial* out);

// RANSAC: minimal samples drawn with a fixed seed, the model with most points within `tolerance`
// pixels refitted on them. inliers: one flag per point. False when no model has enough inliers.
bool ransacPolynomial(const std::vector<TiePoint>& points, int order, double tolerance, int iterations,
                      Polynomial* out, std::vector<char>* inliers);

} // namespace optgeo
