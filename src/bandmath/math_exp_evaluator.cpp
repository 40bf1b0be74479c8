// Block evaluation of a compiled band-math formula: one loop per operation over a run of pixels.
#include "math_exp_evaluator.h"
#include "math_exp_ops.h"

#include <algorithm>
#include <stdexcept>

namespace bandmath
{

namespace
{

using detail::Operand;
using detail::Step;

// Function pointers as template arguments, so that each loop inlines its operation.
template <double (*F)(double, double)> struct Binary
{
    double operator()(double l, double r) const { return F(l, r); }
};

// Forced inline: the loops must be compiled inside each target clone of run() to use its vector width.
#define BANDMATH_KERNEL inline __attribute__((always_inline))

template <typename F> BANDMATH_KERNEL void binaryLoop(double* out, const double* l, const double* r, double lc, double rc, int n, F f)
{
    if (l && r)
        for (int i = 0; i < n; ++i)
            out[i] = f(l[i], r[i]);
    else if (l)
        for (int i = 0; i < n; ++i)
            out[i] = f(l[i], rc);
    else
        for (int i = 0; i < n; ++i)
            out[i] = f(lc, r[i]);
}

template <double (*F)(double, double)>
BANDMATH_KERNEL void binary(double* out, const Operand& left, const Operand& right, int n)
{
    binaryLoop(out, left.values, right.values, left.constant, right.constant, n, Binary<F>());
}

template <double (*F)(double)> BANDMATH_KERNEL void unary(double* out, const double* in, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] = F(in[i]);
}

// Internal linkage keeps the clones and their resolver inside each module that compiles this file. Also built
// for AVX2 and chosen at load time: four lanes per loop and a vector trunc for round().
__attribute__((target_clones("avx2", "default"))) void runSteps(const std::vector<Step>& steps, int n)
{
    for (const Step& step : steps)
    {
        double* out = step.out;
        // Binary operators: operands[1] is the left operand.
        const Operand& a = step.operands[0];
        const Operand* b = step.operands.size() > 1 ? &step.operands[1] : nullptr;
        switch (step.op)
        {
        case Op::Add: binary<opAdd>(out, *b, a, n); break;
        case Op::Sub: binary<opSub>(out, *b, a, n); break;
        case Op::Mul: binary<opMul>(out, *b, a, n); break;
        case Op::Div: binary<opDiv>(out, *b, a, n); break;
        case Op::Pow: binary<opPow>(out, *b, a, n); break;
        case Op::Greater: binary<opGreater>(out, *b, a, n); break;
        case Op::Less: binary<opLess>(out, *b, a, n); break;
        case Op::GreaterEqual: binary<opGreaterEqual>(out, *b, a, n); break;
        case Op::LessEqual: binary<opLessEqual>(out, *b, a, n); break;
        case Op::Equal: binary<opEqual>(out, *b, a, n); break;
        case Op::NotEqual: binary<opNotEqual>(out, *b, a, n); break;
        case Op::And: binary<opAnd>(out, *b, a, n); break;
        case Op::Or: binary<opOr>(out, *b, a, n); break;
        case Op::Xor: binary<opXor>(out, *b, a, n); break;
        case Op::Log: binary<opLog>(out, a, *b, n); break; // ln(slot 0) / ln(slot 1)
        case Op::Not: unary<opNot>(out, a.values, n); break;
        case Op::Complement: unary<opComplement>(out, a.values, n); break;
        case Op::Negate: unary<opNegate>(out, a.values, n); break;
        case Op::Sin: unary<opSin>(out, a.values, n); break;
        case Op::Arcsin: unary<opArcsin>(out, a.values, n); break;
        case Op::Cos: unary<opCos>(out, a.values, n); break;
        case Op::Arccos: unary<opArccos>(out, a.values, n); break;
        case Op::Tan:
        case Op::Tg: unary<opTan>(out, a.values, n); break;
        case Op::Arctan:
        case Op::Arctg: unary<opArctan>(out, a.values, n); break;
        case Op::Ctg:
        case Op::Cot: unary<opCtg>(out, a.values, n); break;
        case Op::Arcctg:
        case Op::Arccot: unary<opArcctg>(out, a.values, n); break;
        case Op::Lg: unary<opLg>(out, a.values, n); break;
        case Op::Ln: unary<opLn>(out, a.values, n); break;
        case Op::Exp: unary<opExp>(out, a.values, n); break;
        case Op::Round: unary<opRound>(out, a.values, n); break;
        case Op::Sqrt: unary<opSqrt>(out, a.values, n); break;
        case Op::Abs: unary<opAbs>(out, a.values, n); break;
        case Op::Max:
        case Op::Min:
        {
            // max and min are symmetric, so operands are taken in any order: the one that shares the result slot
            // first (read before written), else a vector operand and a neighbour straight into the result.
            const std::vector<Operand>& operands = step.operands;
            const int count = int(operands.size());
            const Operand accumulated{out, 0.0};
            int lead = -1, partner = -1;
            for (int j = 0; j < count; ++j)
                if (operands[size_t(j)].values == out)
                    lead = j;
            if (lead < 0)
            {
                for (int j = 0; j < count && lead < 0; ++j)
                    if (operands[size_t(j)].values)
                        lead = j;
                partner = lead == 0 ? 1 : 0;
                if (partner >= count)
                    std::copy(operands[size_t(lead)].values, operands[size_t(lead)].values + n, out);
                else if (step.op == Op::Max)
                    binary<opMax>(out, operands[size_t(lead)], operands[size_t(partner)], n);
                else
                    binary<opMin>(out, operands[size_t(lead)], operands[size_t(partner)], n);
            }
            for (int j = 0; j < count; ++j)
            {
                if (j == lead || j == partner)
                    continue;
                if (step.op == Op::Max)
                    binary<opMax>(out, accumulated, operands[size_t(j)], n);
                else
                    binary<opMin>(out, accumulated, operands[size_t(j)], n);
            }
            break;
        }
        }
    }
}

} // namespace

BlockEvaluator::BlockEvaluator(const AlgoMathExp& exp, int blockLength) : m_blockLength(std::max(1, blockLength))
{
    const std::vector<Slot>& slots = exp.valueSlots();
    if (exp.resultSlot() < 0)
        throw std::logic_error("BlockEvaluator needs a parsed formula");
    const std::vector<int> numbers = exp.bandNumbers();
    size_t buffers = 0;
    for (const Slot& slot : slots)
        buffers += slot.kind == kNumber ? 0 : 1;
    m_storage.assign(buffers * size_t(m_blockLength), 0.0);

    std::vector<Operand> values(slots.size());
    m_bandBuffers.assign(numbers.size(), nullptr);
    double* next = m_storage.data();
    for (size_t s = 0; s < slots.size(); ++s)
    {
        if (slots[s].kind == kNumber)
        {
            values[s].constant = slots[s].constant;
            continue;
        }
        values[s].values = next;
        if (slots[s].kind == kBand)
        {
            const size_t order = size_t(std::lower_bound(numbers.begin(), numbers.end(), slots[s].band) - numbers.begin());
            m_bandBuffers[order] = next;
        }
        next += m_blockLength;
    }
    for (const Operation& operation : exp.operations())
    {
        Step step{operation.op, {}, const_cast<double*>(values[size_t(operation.result)].values)};
        for (int slot : operation.operands)
            step.operands.push_back(values[size_t(slot)]);
        m_steps.push_back(std::move(step));
    }
    m_result = values[size_t(exp.resultSlot())];
}

const double* BlockEvaluator::run(int count)
{
    runSteps(m_steps, std::min(count, m_blockLength));
    if (m_result.values)
        return m_result.values;
    m_constantResult.assign(size_t(m_blockLength), m_result.constant);
    return m_constantResult.data();
}

} // namespace bandmath
