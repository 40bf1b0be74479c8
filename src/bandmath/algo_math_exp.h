// AlgoMathExp: band-math formulas tokenised, parsed into a compiled operation list, evaluated by blocks.
#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <vector>

namespace bandmath
{

// Token classes as bit values, so that a set of classes is one mask.
enum TokenClass : int
{
    kOperandChar = 0,
    kNumber = 1,
    kOperator = 2,
    kComma = 4,
    kLeftBracket = 8,
    kRightBracket = 16,
    kFunction = 32,
    kBand = 64,
    kResult = 128, // an intermediate value of the compiled list
};

// Codes of the two-character comparisons, in the local two-byte encoding.
constexpr std::uint16_t kCodeNotEqual = 0xA1D9;
constexpr std::uint16_t kCodeLessEqual = 0xA1DC;
constexpr std::uint16_t kCodeGreaterEqual = 0xA1DD;

struct Token
{
    QByteArray text;
    std::uint16_t code = 0; // the character, or one of the comparison codes above
    int tokenClass = kOperandChar;
    int start = 0;          // first character
    int end = 0;            // one past the last character
    double number = 0.0;    // value of a number, number of a band operand
    int function = -1;      // index in the function table
};

// Every operation the compiled list can hold: the operators, the sign, then the functions in table order.
enum class Op : std::uint8_t
{
    Add, Sub, Mul, Div, Pow, Greater, Less, GreaterEqual, LessEqual, Equal, NotEqual, And, Or, Xor, Not,
    Complement, Negate,
    Sin, Arcsin, Cos, Arccos, Tan, Arctan, Tg, Arctg, Ctg, Arcctg, Cot, Arccot, Log, Lg, Ln, Max, Min, Exp, Round,
    Sqrt, Abs,
};

struct OperatorRow
{
    std::uint16_t code;
    int operands;
    bool prefix;
    int precedence;
    Op op;
};

struct FunctionRow
{
    const char* name;
    int parameters; // -1: any number
    int classValue; // 5, except -5 for "exp"
    Op op;
};

const std::vector<OperatorRow>& operatorTable();
const std::vector<FunctionRow>& functionTable();

// One entry of the value array: a constant, a band operand or an intermediate result.
struct Slot
{
    int kind = kResult; // kNumber, kBand or kResult
    double constant = 0.0;
    int band = 0;       // the operand's number (B3 -> 3)
};

// One compiled operation: operands[0] is the right (last) operand, operands[1] the one before it.
struct Operation
{
    Op op = Op::Add;
    std::vector<int> operands;
    int result = 0;
};

// Applies one operation to scalars; the block evaluator and constant folding share its meaning.
double applyScalar(Op op, const double* operands, int count);

class AlgoMathExp
{
public:
    explicit AlgoMathExp(const QByteArray& formula = QByteArray());

    void setFormula(const QByteArray& formula);
    // Tokenises, parses and compiles; on a syntax error keeps the message and the range at fault.
    bool parse();

    const QString& errorText() const { return m_error; }
    int errorStart() const { return m_errorStart; }
    int errorEnd() const { return m_errorEnd; }

    const std::vector<Token>& tokens() const { return m_tokens; }
    // Band operand numbers in ascending order; the N-th pairs with the N-th image and band.
    std::vector<int> bandNumbers() const;
    const std::vector<Slot>& valueSlots() const { return m_slots; }
    const std::vector<Operation>& operations() const { return m_operations; }
    int resultSlot() const { return m_resultSlot; }

    // Evaluates one pixel: bandValues[i] is the value of the i-th listed band operand.
    double evaluate(const double* bandValues) const;

    // Formulas nest brackets, functions and prefix operators at most this deep.
    static constexpr int kMaxNesting = 256;

private:
    friend class MathExpParser;

    bool tokenize();
    bool fail(const char* message, int start, int end);
    bool failAt(const char* message, const Token& token) { return fail(message, token.start, token.end); }

    QByteArray m_formula;
    std::vector<Token> m_tokens;
    std::vector<Slot> m_slots;
    std::vector<Operation> m_operations;
    int m_resultSlot = -1;
    QString m_error;
    int m_errorStart = -1;
    int m_errorEnd = -1;
};

} // namespace bandmath
