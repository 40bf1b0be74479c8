// Block evaluation of a compiled band-math formula: every value slot holds a run of pixels, so one pass
// over the operation list computes a whole block in tight loops. One evaluator per thread.
#pragma once

#include "algo_math_exp.h"

#include <vector>

namespace bandmath
{

namespace detail
{

// A slot as the evaluator sees it: a run of values, or a constant when values is null.
struct Operand
{
    const double* values = nullptr;
    double constant = 0.0;
};

struct Step
{
    Op op;
    std::vector<Operand> operands; // in compiled order: operands[0] is the right (last) operand
    double* out;
};

} // namespace detail

class BlockEvaluator
{
public:
    // Small enough that the slots of a long formula stay in the first cache levels.
    static constexpr int kDefaultBlockLength = 1024;

    // The formula must have parsed successfully.
    explicit BlockEvaluator(const AlgoMathExp& exp, int blockLength = kDefaultBlockLength);

    int blockLength() const { return m_blockLength; }
    int bandCount() const { return int(m_bandBuffers.size()); }
    // Room for the values of the i-th listed band operand (blockLength doubles).
    double* bandValues(int operandIndex) { return m_bandBuffers[size_t(operandIndex)]; }
    // Evaluates the first `count` pixels of the block; the result stays valid until the next run.
    const double* run(int count);

private:
    int m_blockLength;
    std::vector<double> m_storage;
    std::vector<double*> m_bandBuffers;
    std::vector<detail::Step> m_steps;
    detail::Operand m_result;
    std::vector<double> m_constantResult;
};

} // namespace bandmath
