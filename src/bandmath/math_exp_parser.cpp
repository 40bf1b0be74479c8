// AlgoMathExp parser: recursive descent over the tokens into the compiled operation list, constants folded.
#include "algo_math_exp.h"

#include <map>

namespace bandmath
{

class MathExpParser
{
public:
    explicit MathExpParser(AlgoMathExp& exp) : m_exp(exp), m_tokens(exp.m_tokens) {}

    bool run()
    {
        const int result = binary(0);
        if (result < 0)
            return false;
        if (m_pos < size())
        {
            operatorExpectedError();
            return false;
        }
        m_exp.m_resultSlot = result;
        return true;
    }

private:
    // What the parser consumed last; it chooses the message when an operand is missing.
    enum class Last
    {
        Nothing, Operand, Binary, Prefix, OpenBracket, Comma
    };

    struct Bracket
    {
        int token;
        bool function;
    };

    int size() const { return int(m_tokens.size()); }
    const Token* current() const { return m_pos < size() ? &m_tokens[size_t(m_pos)] : nullptr; }

    static bool isOperator(const Token* t, std::uint16_t code)
    {
        return t && t->tokenClass == kOperator && t->code == code;
    }
    static bool isPrefixOperator(const Token* t)
    {
        return isOperator(t, '!') || isOperator(t, '~');
    }
    static bool isSign(const Token* t)
    {
        return isOperator(t, '+') || isOperator(t, '-');
    }

    const OperatorRow* binaryRow(const Token* t, int precedence) const
    {
        if (!t || t->tokenClass != kOperator)
            return nullptr;
        for (const OperatorRow& row : operatorTable())
            if (row.code == t->code && !row.prefix && row.precedence == precedence)
                return &row;
        return nullptr;
    }

    int fail(const char* message, const Token& token)
    {
        m_exp.failAt(message, token);
        return -1;
    }

    // Levels 0 to 3 of the operator table, each left-associative; level 3's operands may carry a sign.
    int binary(int precedence)
    {
        int left = precedence < 3 ? binary(precedence + 1) : signedTerm();
        while (left >= 0)
        {
            const OperatorRow* row = binaryRow(current(), precedence);
            if (!row)
                break;
            ++m_pos;
            m_last = Last::Binary;
            const int right = precedence < 3 ? binary(precedence + 1) : signedTerm();
            if (right < 0)
                return -1;
            left = emit(row->op, {right, left});
        }
        return left;
    }

    // A leading sign applies to the whole power: -2^2 is -4.
    int signedTerm()
    {
        const Token* t = current();
        if (!isSign(t))
            return power();
        if (enter(*t) < 0)
            return -1;
        ++m_pos;
        m_last = Last::Prefix;
        const int operand = signedTerm();
        --m_depth;
        if (operand < 0 || t->code == '+')
            return operand;
        return emit(Op::Negate, {operand});
    }

    int power()
    {
        int left = unary();
        while (left >= 0 && binaryRow(current(), 4))
        {
            ++m_pos;
            m_last = Last::Binary;
            const int right = unary();
            if (right < 0)
                return -1;
            left = emit(Op::Pow, {right, left});
        }
        return left;
    }

    // Prefix operators (!, NOT, ~, and a sign after ^ or another prefix) bind to the operand after them.
    int unary()
    {
        const Token* t = current();
        if (!isPrefixOperator(t) && !isSign(t))
            return primary();
        if (enter(*t) < 0)
            return -1;
        ++m_pos;
        m_last = Last::Prefix;
        const int operand = unary();
        --m_depth;
        if (operand < 0 || t->code == '+')
            return operand;
        return emit(t->code == '!' ? Op::Not : t->code == '~' ? Op::Complement : Op::Negate, {operand});
    }

    int primary()
    {
        const Token* t = current();
        if (!t)
            return operandExpectedError();
        switch (t->tokenClass)
        {
        case kNumber:
            ++m_pos;
            m_last = Last::Operand;
            return constantSlot(t->number);
        case kBand:
            ++m_pos;
            m_last = Last::Operand;
            return bandSlot(int(t->number));
        case kLeftBracket:
            return bracket();
        case kFunction:
            return function();
        default:
            return operandExpectedError();
        }
    }

    int bracket()
    {
        const Token& open = m_tokens[size_t(m_pos)];
        if (enter(open) < 0)
            return -1;
        m_brackets.push_back({m_pos, false});
        ++m_pos;
        m_last = Last::OpenBracket;
        const int inner = binary(0);
        if (inner < 0)
            return -1;
        if (!current() || current()->tokenClass != kRightBracket)
            return operatorExpectedError();
        ++m_pos;
        m_brackets.pop_back();
        --m_depth;
        m_last = Last::Operand;
        return inner;
    }

    int function()
    {
        const Token& name = m_tokens[size_t(m_pos)];
        const FunctionRow& row = functionTable()[size_t(name.function)];
        if (enter(name) < 0)
            return -1;
        ++m_pos;
        if (!current() || current()->tokenClass != kLeftBracket)
            return fail("Syntax Error: Function parameter(s) required!", name);
        m_brackets.push_back({m_pos, true});
        ++m_pos;
        m_last = Last::OpenBracket;
        if (current() && current()->tokenClass == kRightBracket)
            return fail("Syntax Error: The Function parameter(s) required!", name);
        std::vector<int> parameters;
        while (true)
        {
            const int parameter = binary(0);
            if (parameter < 0)
                return -1;
            parameters.insert(parameters.begin(), parameter); // slot 0 is the last parameter
            const Token* t = current();
            if (t && t->tokenClass == kComma)
            {
                ++m_pos;
                m_last = Last::Comma;
                continue;
            }
            if (t && t->tokenClass == kRightBracket)
                break;
            return operatorExpectedError();
        }
        if (row.parameters >= 0 && int(parameters.size()) != row.parameters)
            return fail("Syntax Error: The number of parameters of the function is wrong!", name);
        ++m_pos;
        m_brackets.pop_back();
        --m_depth;
        m_last = Last::Operand;
        return emit(row.op, parameters);
    }

    // Brackets, functions and prefix operators nest; deep nesting is refused before the stack runs out.
    int enter(const Token& token)
    {
        if (++m_depth > AlgoMathExp::kMaxNesting)
            return fail("Syntax Error: Context error!", token);
        return 0;
    }

    // The current token (or the end) stands where an operand must be.
    int operandExpectedError()
    {
        const Token* t = current();
        if (!t)
            return fail("Syntax Error: The expression is not complete!", m_tokens.back());
        if (t->tokenClass == kRightBracket)
        {
            if (m_brackets.empty())
                return fail("Syntax Error: Unmatched right bracket detected!", *t);
            switch (m_last)
            {
            case Last::OpenBracket:
                return fail("Syntax Error: Empty Brackets!", *t);
            case Last::Comma:
                return fail("Syntax Error: A parameter is required here!", *t);
            case Last::Binary:
                return fail("Syntax Error: The sub-expression is not complete!", *t);
            default:
                return fail("Syntax Error: Operator cannot be followed with this!", *t);
            }
        }
        if (t->tokenClass == kComma)
        {
            if (m_brackets.empty() || !m_brackets.back().function)
                return fail("Syntax Error: A parameter is required here!", *t);
            switch (m_last)
            {
            case Last::OpenBracket:
            case Last::Comma:
                return fail("Syntax Error: A parameter is required here!", *t);
            case Last::Binary:
                return fail("Syntax Error: The sub-expression is not complete!", *t);
            default:
                return fail("Syntax Error: Operator cannot be followed with this!", *t);
            }
        }
        if (t->tokenClass == kOperator)
        {
            switch (m_last)
            {
            case Last::Nothing:
            case Last::OpenBracket:
            case Last::Comma:
                return fail("Syntax Error: Left operand is required here!", *t);
            case Last::Binary:
                return fail("Syntax Error: Right operand is required here!", *t);
            default:
                return fail("Syntax Error: Operator cannot be followed with this!", *t);
            }
        }
        return fail("Syntax Error: Invalid input!", *t);
    }

    // The current token (or the end) follows a complete operand but is no binary operator.
    int operatorExpectedError()
    {
        const Token* t = current();
        if (!t)
            return fail("Syntax Error: Unmatched left bracket detected!", m_tokens[size_t(m_brackets.back().token)]);
        switch (t->tokenClass)
        {
        case kRightBracket:
            return fail("Syntax Error: Unmatched right bracket detected!", *t);
        case kComma:
            return fail("Syntax Error: A parameter is required here!", *t);
        case kOperator:
            return fail("Syntax Error: Operand cannot be followed with this!", *t);
        case kNumber:
        case kBand:
        case kFunction:
        case kLeftBracket:
            return fail("Syntax Error: Input error, possibly due to missing of an operator!", *t);
        default:
            return fail("Syntax Error: Invalid input!", *t);
        }
    }

    int constantSlot(double value)
    {
        Slot slot;
        slot.kind = kNumber;
        slot.constant = value;
        m_exp.m_slots.push_back(slot);
        return int(m_exp.m_slots.size()) - 1;
    }

    int bandSlot(int number)
    {
        auto found = m_bandSlots.find(number);
        if (found != m_bandSlots.end())
            return found->second;
        Slot slot;
        slot.kind = kBand;
        slot.band = number;
        m_exp.m_slots.push_back(slot);
        const int index = int(m_exp.m_slots.size()) - 1;
        m_bandSlots[number] = index;
        return index;
    }

    // Appends one operation; all-constant operations are folded, and intermediate slots are reused
    // once consumed, so the value array stays as small as the deepest sub-expression needs.
    int emit(Op op, const std::vector<int>& operands)
    {
        std::vector<Slot>& slots = m_exp.m_slots;
        bool constant = true;
        std::vector<double> values;
        for (int s : operands)
        {
            constant = constant && slots[size_t(s)].kind == kNumber;
            values.push_back(slots[size_t(s)].constant);
        }
        if (constant)
            return constantSlot(applyScalar(op, values.data(), int(values.size())));
        for (int s : operands)
            if (slots[size_t(s)].kind == kResult)
                m_freeResults.push_back(s);
        int result;
        if (!m_freeResults.empty())
        {
            // Prefer an operand's own slot: the operation then runs in place.
            result = m_freeResults.back();
            m_freeResults.pop_back();
        }
        else
        {
            slots.push_back(Slot());
            result = int(slots.size()) - 1;
        }
        m_exp.m_operations.push_back({op, operands, result});
        return result;
    }

    AlgoMathExp& m_exp;
    const std::vector<Token>& m_tokens;
    int m_pos = 0;
    int m_depth = 0;
    Last m_last = Last::Nothing;
    std::vector<Bracket> m_brackets;
    std::map<int, int> m_bandSlots;
    std::vector<int> m_freeResults;
};

bool AlgoMathExp::parse()
{
    m_error.clear();
    m_errorStart = m_errorEnd = -1;
    m_slots.clear();
    m_operations.clear();
    m_resultSlot = -1;
    if (!tokenize())
        return false;
    MathExpParser parser(*this);
    if (parser.run())
        return true;
    m_slots.clear();
    m_operations.clear();
    return false;
}

} // namespace bandmath
