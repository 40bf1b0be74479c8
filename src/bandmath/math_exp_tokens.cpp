// AlgoMathExp tables, tokeniser, per-pixel evaluation and error reporting.
#include "algo_math_exp.h"
#include "math_exp_ops.h"

#include <QCoreApplication>

#include <algorithm>
#include <cmath>

namespace bandmath
{

const std::vector<OperatorRow>& operatorTable()
{
    static const std::vector<OperatorRow> rows = {
        {'+', 2, false, 2, Op::Add},
        {'-', 2, false, 2, Op::Sub},
        {'*', 2, false, 3, Op::Mul},
        {'/', 2, false, 3, Op::Div},
        {'^', 2, false, 4, Op::Pow},
        {'>', 2, false, 1, Op::Greater},
        {'<', 2, false, 1, Op::Less},
        {kCodeGreaterEqual, 2, false, 1, Op::GreaterEqual},
        {kCodeLessEqual, 2, false, 1, Op::LessEqual},
        {'=', 2, false, 1, Op::Equal},
        {kCodeNotEqual, 2, false, 1, Op::NotEqual},
        {'&', 2, false, 0, Op::And},
        {'|', 2, false, 0, Op::Or},
        {'@', 2, false, 0, Op::Xor},
        {'!', 1, true, 4, Op::Not},
    };
    return rows;
}

const std::vector<FunctionRow>& functionTable()
{
    static const std::vector<FunctionRow> rows = {
        {"sin", 1, 5, Op::Sin},       {"arcsin", 1, 5, Op::Arcsin}, {"cos", 1, 5, Op::Cos},
        {"arccos", 1, 5, Op::Arccos}, {"tan", 1, 5, Op::Tan},       {"arctan", 1, 5, Op::Arctan},
        {"tg", 1, 5, Op::Tg},         {"arctg", 1, 5, Op::Arctg},   {"ctg", 1, 5, Op::Ctg},
        {"arcctg", 1, 5, Op::Arcctg}, {"cot", 1, 5, Op::Cot},       {"arccot", 1, 5, Op::Arccot},
        {"log", 2, 5, Op::Log},       {"lg", 1, 5, Op::Lg},         {"ln", 1, 5, Op::Ln},
        {"max", -1, 5, Op::Max},      {"min", -1, 5, Op::Min},      {"exp", 1, -5, Op::Exp},
        {"round", 1, 5, Op::Round},   {"sqrt", 1, 5, Op::Sqrt},     {"abs", 1, 5, Op::Abs},
    };
    return rows;
}

double applyScalar(Op op, const double* v, int count)
{
    // Binary operators: v[1] is the left operand, v[0] the right one.
    switch (op)
    {
    case Op::Add: return opAdd(v[1], v[0]);
    case Op::Sub: return opSub(v[1], v[0]);
    case Op::Mul: return opMul(v[1], v[0]);
    case Op::Div: return opDiv(v[1], v[0]);
    case Op::Pow: return opPow(v[1], v[0]);
    case Op::Greater: return opGreater(v[1], v[0]);
    case Op::Less: return opLess(v[1], v[0]);
    case Op::GreaterEqual: return opGreaterEqual(v[1], v[0]);
    case Op::LessEqual: return opLessEqual(v[1], v[0]);
    case Op::Equal: return opEqual(v[1], v[0]);
    case Op::NotEqual: return opNotEqual(v[1], v[0]);
    case Op::And: return opAnd(v[1], v[0]);
    case Op::Or: return opOr(v[1], v[0]);
    case Op::Xor: return opXor(v[1], v[0]);
    case Op::Not: return opNot(v[0]);
    case Op::Complement: return opComplement(v[0]);
    case Op::Negate: return opNegate(v[0]);
    case Op::Sin: return opSin(v[0]);
    case Op::Arcsin: return opArcsin(v[0]);
    case Op::Cos: return opCos(v[0]);
    case Op::Arccos: return opArccos(v[0]);
    case Op::Tan:
    case Op::Tg: return opTan(v[0]);
    case Op::Arctan:
    case Op::Arctg: return opArctan(v[0]);
    case Op::Ctg:
    case Op::Cot: return opCtg(v[0]);
    case Op::Arcctg:
    case Op::Arccot: return opArcctg(v[0]);
    case Op::Log: return opLog(v[0], v[1]);
    case Op::Lg: return opLg(v[0]);
    case Op::Ln: return opLn(v[0]);
    case Op::Exp: return opExp(v[0]);
    case Op::Round: return opRound(v[0]);
    case Op::Sqrt: return opSqrt(v[0]);
    case Op::Abs: return opAbs(v[0]);
    case Op::Max:
    case Op::Min:
    {
        double best = v[0];
        for (int i = 1; i < count; ++i)
            best = op == Op::Max ? opMax(best, v[i]) : opMin(best, v[i]);
        return best;
    }
    }
    return std::nan("");
}

namespace
{

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Operator words, compared without regard to case, and the operator each stands for.
std::uint16_t operatorWordCode(const QByteArray& word)
{
    const QByteArray upper = word.toUpper();
    if (upper == "AND")
        return '&';
    if (upper == "OR")
        return '|';
    if (upper == "XOR")
        return '@';
    if (upper == "NOT")
        return '!';
    return 0;
}

} // namespace

AlgoMathExp::AlgoMathExp(const QByteArray& formula) : m_formula(formula)
{
}

void AlgoMathExp::setFormula(const QByteArray& formula)
{
    m_formula = formula;
}

bool AlgoMathExp::fail(const char* message, int start, int end)
{
    m_error = QCoreApplication::translate("CMathExp", message);
    m_errorStart = start;
    m_errorEnd = end;
    return false;
}

bool AlgoMathExp::tokenize()
{
    m_tokens.clear();
    const int length = m_formula.size();
    const char* text = m_formula.constData();
    int i = 0;
    while (i < length)
    {
        const char c = text[i];
        if (c == ' ' || c == '\n' || c == '\r')
        {
            ++i;
            continue;
        }
        Token token;
        token.start = i;
        const char next = i + 1 < length ? text[i + 1] : '\0';

        // 1. Operator characters and brackets.
        int width = 0;
        switch (c)
        {
        case '!':
            token.code = next == '=' ? kCodeNotEqual : '!';
            width = next == '=' ? 2 : 1;
            break;
        case '<':
            token.code = next == '=' ? kCodeLessEqual : '<';
            width = next == '=' ? 2 : 1;
            break;
        case '>':
            token.code = next == '=' ? kCodeGreaterEqual : '>';
            width = next == '=' ? 2 : 1;
            break;
        case '=':
            if (next != '=')
                return fail("Syntax Error: Error in entering the equality sign!", i, i + 1);
            token.code = '=';
            width = 2;
            break;
        case '*': case '+': case '-': case '/': case '^': case '~': case '(': case ')': case ',':
            token.code = std::uint16_t(c);
            width = 1;
            break;
        default:
            break;
        }
        if (width > 0)
        {
            token.tokenClass = c == '(' ? kLeftBracket : c == ')' ? kRightBracket : c == ',' ? kComma : kOperator;
            token.text = m_formula.mid(i, width);
            token.end = i + width;
            m_tokens.push_back(token);
            i += width;
            continue;
        }

        // 2. A number: digits with at most one dot.
        if (isDigit(c) || c == '.')
        {
            int j = i;
            int dot = -1;
            for (; j < length && (isDigit(text[j]) || text[j] == '.'); ++j)
            {
                if (text[j] != '.')
                    continue;
                if (dot >= 0)
                    return fail("Syntax Error: Unexpected dot!", j, j + 1);
                dot = j;
            }
            if (j - i == 1 && dot == i)
                return fail("Syntax Error: Unexpected dot!", i, i + 1);
            token.text = m_formula.mid(i, j - i);
            bool ok = false;
            token.number = token.text.toDouble(&ok);
            if (!ok || !std::isfinite(token.number))
                return fail("Syntax Error: Illegal input!", i, j);
            token.tokenClass = kNumber;
            token.code = std::uint16_t(c);
            token.end = j;
            m_tokens.push_back(token);
            i = j;
            continue;
        }

        if (isLetter(c))
        {
            int j = i;
            while (j < length && isLetter(text[j]))
                ++j;
            const QByteArray word = m_formula.mid(i, j - i);
            token.code = std::uint16_t(c);
            // 3. A function name.
            const std::vector<FunctionRow>& functions = functionTable();
            for (size_t f = 0; f < functions.size(); ++f)
                if (word == functions[f].name)
                    token.function = int(f);
            if (token.function >= 0)
            {
                token.tokenClass = kFunction;
                token.text = word;
                token.end = j;
                m_tokens.push_back(token);
                i = j;
                continue;
            }
            // 4. An operator word.
            if (const std::uint16_t code = operatorWordCode(word))
            {
                token.tokenClass = kOperator;
                token.code = code;
                token.text = word;
                token.end = j;
                m_tokens.push_back(token);
                i = j;
                continue;
            }
            // 5. A band operand: B or b, 1 to 7 digits, no letter after them.
            if (j == i + 1 && (c == 'B' || c == 'b'))
            {
                int k = j;
                while (k < length && isDigit(text[k]))
                    ++k;
                const int digits = k - j;
                if (digits >= 1 && digits <= 7 && !(k < length && isLetter(text[k])))
                {
                    token.tokenClass = kBand;
                    token.text = m_formula.mid(i, k - i);
                    token.number = m_formula.mid(j, digits).toInt();
                    token.end = k;
                    m_tokens.push_back(token);
                    i = k;
                    continue;
                }
            }
        }
        return fail("Syntax Error: Invalid input!", i, i + 1);
    }
    if (m_tokens.empty())
        return fail("Syntax Error: Null expression!", 0, length);
    if (std::none_of(m_tokens.begin(), m_tokens.end(), [](const Token& t) { return t.tokenClass == kBand; }))
        return fail("Syntax Error: Input band to compute!", 0, length);
    return true;
}

std::vector<int> AlgoMathExp::bandNumbers() const
{
    std::vector<int> numbers;
    for (const Slot& slot : m_slots)
        if (slot.kind == kBand)
            numbers.push_back(slot.band);
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

double AlgoMathExp::evaluate(const double* bandValues) const
{
    const std::vector<int> numbers = bandNumbers();
    std::vector<double> values(m_slots.size(), 0.0);
    for (size_t s = 0; s < m_slots.size(); ++s)
    {
        if (m_slots[s].kind == kNumber)
            values[s] = m_slots[s].constant;
        else if (m_slots[s].kind == kBand)
            values[s] = bandValues[std::lower_bound(numbers.begin(), numbers.end(), m_slots[s].band) - numbers.begin()];
    }
    std::vector<double> operands;
    for (const Operation& operation : m_operations)
    {
        operands.clear();
        for (int slot : operation.operands)
            operands.push_back(values[size_t(slot)]);
        values[size_t(operation.result)] = applyScalar(operation.op, operands.data(), int(operands.size()));
    }
    return m_resultSlot >= 0 ? values[size_t(m_resultSlot)] : std::nan("");
}

} // namespace bandmath
