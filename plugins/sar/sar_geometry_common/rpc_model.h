// Rational polynomial camera models (RPC00B term order): evaluation, regularised least-squares fitting to
// ground/image correspondences (Tao and Hu 2001) and the two text layouts they are stored in.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace sargeo
{

struct RpcModel
{
    double lineOffset = 0, sampOffset = 0, latOffset = 0, lonOffset = 0, heightOffset = 0;
    double lineScale = 1, sampScale = 1, latScale = 1, lonScale = 1, heightScale = 1;
    std::array<double, 20> lineNum{}, lineDen{}, sampNum{}, sampDen{};
    double errBias = -1.0, errRand = -1.0;

    // Image position (line, sample) of a geodetic point (degrees, metres).
    void project(double latitude, double longitude, double height, double* line, double* sample) const;
};

// The 20 cubic terms of normalised longitude L, latitude P and height H in RPC00B order.
std::array<double, 20> rpcTerms(double L, double P, double H);

struct RpcPoint
{
    double latitude, longitude, height, line, sample;
};

struct RpcResiduals
{
    double rms = 0.0;  // pixels, over line and sample together
    double max = 0.0;  // largest distance, pixels
};

// Fits the model to the points: offsets at the means, scales at the largest deviation, numerators and
// denominators by iteratively reweighted least squares with Tikhonov regularisation `lambda` (on normalised
// coordinates). Throws std::runtime_error for fewer than 39 points or a singular system.
RpcModel fitRpc(const std::vector<RpcPoint>& points, double lambda = 1e-12);

RpcResiduals rpcResiduals(const RpcModel& model, const std::vector<RpcPoint>& points);

// "key = value;" layout with IMAGE group (as the .rpc files of GF-3 products and .RPB files).
std::string formatRpcGroupText(const RpcModel& model, const std::string& satelliteId);
// Reads the "key = value;" layout back (.rpc of GF-3 products, .RPB); keys are matched without regard to case.
// Throws std::runtime_error naming the first missing or malformed key.
RpcModel parseRpcGroupText(const std::string& text);
// "KEY: value" lines that GDAL reads from <image>_RPC.TXT.
std::string formatRpcTxt(const RpcModel& model);

} // namespace sargeo
