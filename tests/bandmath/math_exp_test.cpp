// AlgoMathExp: tokens, operand order, precedence, functions, every syntax message, evaluation semantics.
#include "algo_math_exp.h"
#include "math_exp_evaluator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

using bandmath::AlgoMathExp;

namespace
{

const double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();

AlgoMathExp parsed(const QByteArray& formula)
{
    AlgoMathExp exp(formula);
    EXPECT_TRUE(exp.parse()) << formula.constData() << ": " << exp.errorText().toStdString();
    return exp;
}

// Evaluates per pixel and by blocks (the formula's operands all hold b[i] in every pixel) and checks that
// both paths agree; returns the per-pixel value.
double valueOf(const QByteArray& formula, std::vector<double> bands)
{
    const AlgoMathExp exp = parsed(formula);
    if (exp.resultSlot() < 0)
        return kNaN;
    bands.resize(exp.bandNumbers().size(), 0.0);
    const double single = exp.evaluate(bands.data());
    bandmath::BlockEvaluator evaluator(exp, 8);
    for (int k = 0; k < evaluator.bandCount(); ++k)
        std::fill(evaluator.bandValues(k), evaluator.bandValues(k) + 8, bands[size_t(k)]);
    const double* block = evaluator.run(5);
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(block[i] == single || (std::isnan(block[i]) && std::isnan(single)))
            << formula.constData() << ": block " << block[i] << " pixel " << single;
    return single;
}

void expectValue(const char* formula, std::vector<double> bands, double expected, double tolerance = 0.0)
{
    const double value = valueOf(formula, std::move(bands));
    if (std::isnan(expected))
        EXPECT_TRUE(std::isnan(value)) << formula << " gave " << value;
    else if (tolerance > 0.0)
        EXPECT_NEAR(value, expected, tolerance) << formula;
    else
        EXPECT_EQ(value, expected) << formula;
}

} // namespace

TEST(MathExpTokens, ClassesCodesAndPositions)
{
    const AlgoMathExp exp = parsed("b12 >= 2.5 AND b12 != B3 or max(b1, 1) <= 0.5");
    const std::vector<bandmath::Token>& t = exp.tokens();
    ASSERT_GE(t.size(), 5u);
    EXPECT_EQ(t[0].tokenClass, bandmath::kBand);
    EXPECT_EQ(t[0].number, 12);
    EXPECT_EQ(t[0].start, 0);
    EXPECT_EQ(t[0].end, 3);
    EXPECT_EQ(t[1].code, bandmath::kCodeGreaterEqual);
    EXPECT_EQ(t[1].end - t[1].start, 2);
    EXPECT_EQ(t[2].tokenClass, bandmath::kNumber);
    EXPECT_EQ(t[2].number, 2.5);
    EXPECT_EQ(t[3].code, '&'); // the word AND stands for the & operator
    int notEqual = 0, lessEqual = 0, commas = 0, functions = 0;
    for (const bandmath::Token& token : t)
    {
        notEqual += token.code == bandmath::kCodeNotEqual;
        lessEqual += token.code == bandmath::kCodeLessEqual;
        commas += token.tokenClass == bandmath::kComma;
        functions += token.tokenClass == bandmath::kFunction;
    }
    EXPECT_EQ(notEqual, 1);
    EXPECT_EQ(lessEqual, 1);
    EXPECT_EQ(commas, 1);
    EXPECT_EQ(functions, 1);
}

TEST(MathExpTokens, BandOperandsListedOnceInAscendingNumber)
{
    EXPECT_EQ(parsed("b1 + B1").bandNumbers(), std::vector<int>({1}));
    EXPECT_EQ(parsed("(b2 - b1) / (b2 + b1)").bandNumbers(), std::vector<int>({1, 2}));
    EXPECT_EQ(parsed("b10 + b2 * B007 - b0000010").bandNumbers(), std::vector<int>({2, 7, 10}));
    EXPECT_EQ(parsed("B9999999").bandNumbers(), std::vector<int>({9999999}));
    // Operands pair by ascending number whatever their order in the formula: b1 gets 10, b2 gets 4.
    expectValue("b2 - b1", {10, 4}, -6);
    // Blanks, line feeds and carriage returns separate tokens.
    expectValue(" b1\n+\r1 ", {1}, 2);
}

TEST(MathExpPrecedence, LevelsAssociativityAndSigns)
{
    struct Row
    {
        const char* formula;
        double b1;
        double expected;
    } rows[] = {
        {"b1 + 2 * 3", 1, 7},
        {"b1 - 2 - 3", 10, 5},
        {"b1 / 2 / 5", 100, 10},
        {"2 ^ 3 ^ b1", 2, 64},  // left to right: (2^3)^2
        {"b1 ^ 2 * 3", 2, 12},
        {"-b1 ^ 2", 3, -9},     // a leading sign applies to the power
        {"b1 ^ -1", 4, 0.25},
        {"2 * -b1", 3, -6},
        {"b1 - -1", 3, 4},
        {"- - b1", 3, 3},
        {"+b1", 3, 3},
        {"b1 > 1 + 1", 3, 1},   // comparisons bind looser than arithmetic
        {"b1 > 2 == 1", 3, 1},
        {"b1 + 1 > 2 AND b1 < 5", 3, 1},
        {"b1 < 2 or b1 > 2.5", 3, 1},
        {"!b1 + 1", 0, 2},      // prefix operators bind tightest
        {"NOT b1 * 5", 0, 5},
        {"~b1 + 1", 0, 0},
        {"(b1 + 2) * 3", 1, 9},
        {"((((b1))))", 7, 7},
    };
    for (const Row& row : rows)
        expectValue(row.formula, {row.b1}, row.expected);
}

TEST(MathExpFunctions, TableValuesInDegreesAndArities)
{
    struct Row
    {
        const char* formula;
        double b1;
        double expected;
        double tolerance;
    } rows[] = {
        {"sin(b1)", 90, 1, 0},
        {"arcsin(b1)", 1, 90, 0},
        {"cos(b1)", 60, 0.5, 1e-12},
        {"arccos(b1)", 0.5, 60, 1e-12},
        {"tan(b1)", 45, 1, 1e-12},
        {"tg(b1)", 45, 1, 1e-12},
        {"arctan(b1)", 1, 45, 1e-12},
        {"arctg(b1)", 1, 45, 1e-12},
        {"ctg(b1)", 30, std::sqrt(3.0), 1e-12},
        {"cot(b1)", 30, std::sqrt(3.0), 1e-12},
        {"arcctg(b1)", std::sqrt(3.0), 30, 1e-12},
        {"arccot(b1)", 0, 90, 1e-12},
        {"log(2, b1)", 8, 3, 1e-12},  // slot 0 is the last parameter: ln(8) / ln(2)
        {"log(b1, 8)", 2, 3, 1e-12},
        {"lg(b1)", 1000, 3, 1e-12},
        {"ln(b1)", std::exp(2.0), 2, 1e-12},
        {"exp(b1)", 1, std::exp(1.0), 0},
        {"round(b1)", 2.5, 3, 0},
        {"round(b1)", -2.5, -3, 0},
        {"round(b1)", 2.49, 2, 0},
        {"sqrt(b1)", 16, 4, 0},
        {"abs(b1)", -3, 3, 0},
        {"max(b1, 7, -2)", 3, 7, 0},
        {"min(b1, 7, -2)", 3, -2, 0},
        {"max(b1)", 3, 3, 0},
        {"max(b1, 1, 2, 9, 4, b1 * 4)", 3, 12, 0},
        {"min(b1 * 2, b1 + 1)", 3, 4, 0},
        {"max(2, 3, b1)", 1, 3, 0},        // constants first: the block path must start from the band
        {"min(2, b1, 3, b1 * 2)", 5, 2, 0},
        {"sqrt(max(b1, 4) + min(b1, 9))", 5, std::sqrt(10.0), 0},
    };
    for (const Row& row : rows)
        expectValue(row.formula, {row.b1}, row.expected, row.tolerance);
    expectValue("max(b1, b2, 1)", {2, kNaN}, kNaN);
    expectValue("min(b2, b1)", {2, kNaN}, kNaN);
}

TEST(MathExpEvaluation, IeeeResultsAndIntegerTruncation)
{
    struct Row
    {
        const char* formula;
        double b1;
        double expected;
    } rows[] = {
        {"b1 / 0", 7, kInf},
        {"-b1 / 0", 7, -kInf},
        {"b1 / b1", 0, kNaN},
        {"ln(b1)", 0, -kInf},
        {"sqrt(b1)", -1, kNaN},
        {"lg(b1)", -1, kNaN},
        {"b1 xor 5", 3, 6},
        {"b1 XoR 1", -1, -2},
        {"b1 xor 1", 2.9, 3},      // 2.9 truncates to 2
        {"NOT b1", 0, 1},
        {"!b1", 0, 1},
        {"!b1", 0.7, 1},           // 0.7 truncates to 0
        {"!b1", -1.2, 0},
        {"b1 AND 1", 2.7, 1},
        {"b1 and 1", 0.5, 0},
        {"b1 or 0", -0.9, 0},
        {"b1 Or 0", -1, 1},
        {"~b1", 0, -1},
        {"~b1", 2.9, -3},
        {"~b1", -1.5, 0},
        {"b1 == 1", 1, 1},
        {"b1 == 1", 1.0000001, 0},
        {"b1 != 1", 1, 0},
        {"b1 >= 1", 1, 1},
        {"b1 <= 0.5", 1, 0},
        {"b1 > 1", 1, 0},
        {"b1 < 1.5", 1, 1},
        {"b1 == b1", kNaN, 0},     // NaN is never equal
        {"b1 != b1", kNaN, 1},
        {"b1 and 1", kNaN, 0},     // NaN truncates to 0
        {"b1 xor 0", 1e12, 2147483647}, // saturates
        {"~b1", -1e12, 2147483647},
    };
    for (const Row& row : rows)
        expectValue(row.formula, {row.b1}, row.expected);
}

TEST(MathExpMessages, EveryMessageWithItsRange)
{
    const std::string bigNumber = "b1 + 1" + std::string(400, '0');
    const std::string deep = std::string(300, '(') + "b1" + std::string(300, ')');
    struct Row
    {
        std::string formula;
        const char* message;
        int start;
        int end;
    } rows[] = {
        {"", "Null expression!", 0, 0},
        {" \n\r ", "Null expression!", 0, 4},
        {"1 + 2", "Input band to compute!", 0, 5},
        {"b1 = 1", "Error in entering the equality sign!", 3, 4},
        {"1.2.3 + b1", "Unexpected dot!", 3, 4},
        {"b1 + .", "Unexpected dot!", 5, 6},
        {"3 & b1", "Invalid input!", 2, 3},
        {"b1 | 3", "Invalid input!", 3, 4},
        {"b1 @ 3", "Invalid input!", 3, 4},
        {"b1\t+ 1", "Invalid input!", 2, 3},
        {"b1 + SIN(2)", "Invalid input!", 5, 6}, // function names keep their case
        {"b1x + 1", "Invalid input!", 0, 1},
        {"B12345678", "Invalid input!", 0, 1},
        {"b1 + band", "Invalid input!", 5, 6},
        {bigNumber, "Illegal input!", 5, 406},
        {"*b1", "Left operand is required here!", 0, 1},
        {"(/b1)", "Left operand is required here!", 1, 2},
        {"b1 * / 2", "Right operand is required here!", 5, 6},
        {"!*b1", "Operator cannot be followed with this!", 1, 2},
        {"b1 + (-)", "Operator cannot be followed with this!", 7, 8},
        {"b1 ! 2", "Operand cannot be followed with this!", 3, 4},
        {"b1 NOT b1", "Operand cannot be followed with this!", 3, 6},
        {"b1 b2", "Input error, possibly due to missing of an operator!", 3, 5},
        {"2(b1)", "Input error, possibly due to missing of an operator!", 1, 2},
        {"(b1)sqrt(4)", "Input error, possibly due to missing of an operator!", 4, 8},
        {"b1)", "Unmatched right bracket detected!", 2, 3},
        {")b1", "Unmatched right bracket detected!", 0, 1},
        {"((b1)", "Unmatched left bracket detected!", 0, 1},
        {"max(b1, 2", "Unmatched left bracket detected!", 3, 4},
        {"b1 + ()", "Empty Brackets!", 6, 7},
        {"sin b1", "Function parameter(s) required!", 0, 3},
        {"b1 + sqrt", "Function parameter(s) required!", 5, 9},
        {"b1 + max()", "The Function parameter(s) required!", 5, 8},
        {"max(b1,)", "A parameter is required here!", 7, 8},
        {"max(, b1)", "A parameter is required here!", 4, 5},
        {"b1, 2", "A parameter is required here!", 2, 3},
        {"max((b1, 2))", "A parameter is required here!", 7, 8},
        {"sin(b1, 2)", "The number of parameters of the function is wrong!", 0, 3},
        {"log(b1)", "The number of parameters of the function is wrong!", 0, 3},
        {"(b1 + )", "The sub-expression is not complete!", 6, 7},
        {"max(b1 -, 2)", "The sub-expression is not complete!", 8, 9},
        {"b1 +", "The expression is not complete!", 3, 4},
        {"b1 + sin(", "The expression is not complete!", 8, 9},
        {deep, "Context error!", AlgoMathExp::kMaxNesting, AlgoMathExp::kMaxNesting + 1},
    };
    for (const Row& row : rows)
    {
        AlgoMathExp exp(QByteArray::fromStdString(row.formula));
        EXPECT_FALSE(exp.parse()) << row.formula;
        EXPECT_EQ(exp.errorText().toStdString(), std::string("Syntax Error: ") + row.message) << row.formula;
        EXPECT_EQ(exp.errorStart(), row.start) << row.formula;
        EXPECT_EQ(exp.errorEnd(), row.end) << row.formula;
        EXPECT_TRUE(exp.operations().empty());
    }
}

TEST(MathExpBadInput, RefusedOrComputedWithoutCrashing)
{
    // 10 000 levels of brackets and of prefix operators are refused before the stack runs out.
    for (const std::string& deep : {std::string(10000, '(') + "b1" + std::string(10000, ')'),
                                    std::string(10000, '-') + "b1", "b1" + std::string(10000, '!')})
    {
        AlgoMathExp exp(QByteArray::fromStdString(deep));
        EXPECT_FALSE(exp.parse());
        EXPECT_FALSE(exp.errorText().isEmpty());
    }
    AlgoMathExp withNul(QByteArray("b1\0+1", 5));
    EXPECT_FALSE(withNul.parse());
    EXPECT_EQ(withNul.errorText(), "Syntax Error: Invalid input!");
    EXPECT_EQ(withNul.errorStart(), 2);
    AlgoMathExp nonAscii(QByteArray("b1 + \xc3\xa9"));
    EXPECT_FALSE(nonAscii.parse());
    EXPECT_EQ(nonAscii.errorStart(), 5);
    AlgoMathExp overLong("B99999999");
    EXPECT_FALSE(overLong.parse());

    // A 100 000-character formula is an ordinary formula; constants fold and intermediate slots are reused.
    std::string sum = "b1";
    while (sum.size() < 100000)
        sum += "+b1*2";
    const AlgoMathExp big = parsed(QByteArray::fromStdString(sum));
    const double terms = double((sum.size() - 2) / 5);
    EXPECT_EQ(big.evaluate(std::vector<double>{1.5}.data()), 1.5 + terms * 3.0);
    int intermediates = 0;
    for (const bandmath::Slot& slot : big.valueSlots())
        intermediates += slot.kind == bandmath::kResult;
    EXPECT_LE(intermediates, 2);
    EXPECT_EQ(parsed("b1 + 2 * 3 - sqrt(16)").operations().size(), 2u);
}
