// Bias correction of an RPC model in image space from control points (Grodecki and Dial 2003): a
// shift, or an affine correction with three points or more, folded back into the RPC numerators.
#pragma once

#include "rpc_model.h"

namespace optgeo
{

// Correction added to the model's image position (pixel centres at .5):
// d = c[0] + c[1] * pixel + c[2] * line, one set for pixels, one for lines.
struct ImageBias
{
    double pixel[3] = {0, 0, 0};
    double line[3] = {0, 0, 0};
    bool affine = false;
    void apply(double p, double l, double* outP, double* outL) const
    {
        *outP = p + pixel[0] + pixel[1] * p + pixel[2] * l;
        *outL = l + line[0] + line[1] * p + line[2] * l;
    }
};

struct ImagePoint
{
    double pixel = 0, line = 0;
};

// Least-squares correction taking the predicted positions to the measured ones: a shift for one or
// two points, affine for three or more.
ImageBias fitImageBias(const std::vector<ImagePoint>& predicted, const std::vector<ImagePoint>& measured);

// A model whose numerators are refitted so that it gives the corrected positions over the ground box
// (degrees and metres); the denominators are kept. worstFit: largest refit error in pixels.
RpcModel foldBiasIntoModel(const RpcModel& model, const ImageBias& bias, double lonMin, double lonMax, double latMin,
                           double latMax, double heightMin, double heightMax, double* worstFit);

} // namespace optgeo
