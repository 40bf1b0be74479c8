// Fuzz target: band-math formulas through the tokeniser, the parser, the scalar and the block evaluators.
#include "algo_math_exp.h"
#include "math_exp_evaluator.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    bandmath::AlgoMathExp exp(QByteArray(reinterpret_cast<const char*>(data), int(size)));
    if (!exp.parse())
    {
        // A refusal names a range inside the formula.
        if (exp.errorText().isEmpty() || exp.errorStart() > exp.errorEnd() || exp.errorEnd() > int(size) + 1)
            __builtin_trap();
        return 0;
    }
    const std::vector<int> bands = exp.bandNumbers();
    std::vector<double> values(bands.size());
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = double(i) * 1.5 - 2.0;
    const double scalar = exp.evaluate(values.data());

    // The block evaluator computes the same value as the scalar one for every pixel of a block.
    bandmath::BlockEvaluator block(exp, 4);
    for (int b = 0; b < block.bandCount(); ++b)
        for (int i = 0; i < 4; ++i)
            block.bandValues(b)[i] = values[size_t(b)];
    const double* out = block.run(4);
    for (int i = 0; i < 4; ++i)
    {
        const bool bothNan = std::isnan(out[i]) && std::isnan(scalar);
        if (!bothNan && out[i] != scalar && std::fabs(out[i] - scalar) > 1e-9 * std::fabs(scalar))
            __builtin_trap();
    }
    return 0;
}
