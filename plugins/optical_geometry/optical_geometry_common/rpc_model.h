// Rational polynomial camera model: the coefficients read from RPC text files (.RPB, _RPC.TXT and the
// key lists of the GF/ZY products), evaluation from ground to image, and ground control point lists.
// Plain structures, no GDAL or Qt.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace optgeo
{

struct RpcModel
{
    double lineOff = 0, sampOff = 0, latOff = 0, longOff = 0, heightOff = 0;
    double lineScale = 0, sampScale = 0, latScale = 0, longScale = 0, heightScale = 0;
    std::array<double, 20> lineNum{}, lineDen{}, sampNum{}, sampDen{};
    double errBias = -1, errRand = -1;
};

// Parses an RPC text: "key = value;" lists with "( a, b, ... )" coefficient groups (.RPB and the GF/ZY
// .rpc files: lineOffset, sampScale, lineNumCoef, ...) or "KEY: value" lines (_RPC.TXT: LINE_OFF,
// LINE_NUM_COEFF_1, ...). Keys are matched without case. False, with a reason, when a key is missing,
// a list is not 20 numbers long or a scale is zero.
bool parseRpcText(const std::string& text, RpcModel* model, std::string* error);

// The 20 terms of the RPC00B polynomial at normalised longitude L, latitude P and height H.
std::array<double, 20> rpcTerms(double L, double P, double H);

// Image position (sample, line; pixel centres at whole numbers, as the model defines them) of a
// ground point (degrees, metres above the ellipsoid).
void rpcGroundToImage(const RpcModel& model, double lon, double lat, double height, double* sample, double* line);

struct ControlPoint
{
    // Image position with pixel centres at .5 (the first pixel's centre at 0.5, 0.5).
    double pixel = 0, line = 0;
    double lon = 0, lat = 0;
    double height = 0;
    bool hasHeight = false;
};

// Parses a control point list: one point a line, "pixel, line, longitude, latitude[, height]",
// separated by commas or blanks; blank lines and lines starting with '#' are skipped. False, with a
// reason naming the line, on anything else.
bool parseControlPoints(const std::string& text, std::vector<ControlPoint>* points, std::string* error);

} // namespace optgeo
