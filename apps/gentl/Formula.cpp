#include "gentl/Formula.h"

#include "gentl/Failure.h"
#include "gentl/Numbers.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>

namespace Tool {
namespace {

constexpr int kDeepest = 250;
constexpr std::size_t kMostShown = 80;
constexpr int kUnaryLevel = 11;

/// How deep the thread stands in its formulas: those that are evaluated for each other's variables share the
/// stack.
thread_local int g_depth = 0;

struct Operator
{
    const char* text;
    int level;  ///< a higher one binds closer
};

/// Longer texts stand before those that they begin with.
constexpr Operator kOperators[] = {
    {"||", 1 },
    {"&&", 2 },
    {"<<", 8 },
    {">>", 8 },
    {"<=", 7 },
    {">=", 7 },
    {"<>", 6 },
    {"**", 11},
    {"|",  3 },
    {"^",  4 },
    {"&",  5 },
    {"=",  6 },
    {"<",  7 },
    {">",  7 },
    {"+",  9 },
    {"-",  9 },
    {"*",  10},
    {"/",  10},
    {"%",  10},
};

std::int64_t Wrapped(std::uint64_t value)
{
    return static_cast<std::int64_t>(value);
}

std::int64_t Negated(std::int64_t value)
{
    return Wrapped(0 - static_cast<std::uint64_t>(value));
}

double Negated(double value)
{
    return -value;
}

std::int64_t Complement(std::int64_t value)
{
    return ~value;
}

double Complement(double value)
{
    return static_cast<double>(~Rounded(value));
}

std::int64_t Shifted(std::int64_t value, std::int64_t count, bool left)
{
    if (count < 0 || count > 63) {
        return !left && value < 0 && count > 63 ? -1 : 0;
    }
    return left ? Wrapped(static_cast<std::uint64_t>(value) << count) : value >> count;
}

std::int64_t Power(std::int64_t base, std::int64_t exponent)
{
    if (exponent < 0) {
        return base == 1 ? 1 : (base == -1 ? (exponent % 2 == 0 ? 1 : -1) : 0);
    }
    std::uint64_t result = 1;
    for (std::uint64_t factor = static_cast<std::uint64_t>(base); exponent != 0; exponent >>= 1) {
        if ((exponent & 1) != 0) {
            result *= factor;
        }
        factor *= factor;
    }
    return Wrapped(result);
}

std::int64_t Apply(const char* op, std::int64_t a, std::int64_t b)
{
    const auto is = [op](const char* text) { return std::strcmp(op, text) == 0; };
    const auto ua = static_cast<std::uint64_t>(a);
    const auto ub = static_cast<std::uint64_t>(b);
    if (is("||")) {
        return a != 0 || b != 0;
    }
    if (is("&&")) {
        return a != 0 && b != 0;
    }
    if (is("<<") || is(">>")) {
        return Shifted(a, b, is("<<"));
    }
    if (is("**")) {
        return Power(a, b);
    }
    if (is("/") || is("%")) {
        if (b == 0) {
            throw Failure("division by 0");
        }
        if (b == -1) {  // the one quotient that doesn't fit is this one's
            return is("/") ? Negated(a) : 0;
        }
        return is("/") ? a / b : a % b;
    }
    switch (op[0]) {
        case '|':
            return Wrapped(ua | ub);
        case '^':
            return Wrapped(ua ^ ub);
        case '&':
            return Wrapped(ua & ub);
        case '+':
            return Wrapped(ua + ub);
        case '-':
            return Wrapped(ua - ub);
        case '*':
            return Wrapped(ua * ub);
        case '=':
            return a == b;
        case '<':
            return is("<=") ? a <= b : (is("<>") ? a != b : a < b);
        default:
            return is(">=") ? a >= b : a > b;
    }
}

double Apply(const char* op, double a, double b)
{
    const auto is = [op](const char* text) { return std::strcmp(op, text) == 0; };
    if (is("||")) {
        return a != 0 || b != 0;
    }
    if (is("&&")) {
        return a != 0 && b != 0;
    }
    if (is("**")) {
        return std::pow(a, b);
    }
    if (is("<<") || is(">>") || is("|") || is("^") || is("&")) {
        return static_cast<double>(Apply(op, Rounded(a), Rounded(b)));
    }
    if (is("/") || is("%")) {
        if (b == 0) {
            throw Failure("division by 0");
        }
        return is("/") ? a / b : std::fmod(a, b);
    }
    switch (op[0]) {
        case '+':
            return a + b;
        case '-':
            return a - b;
        case '*':
            return a * b;
        case '=':
            return a == b;
        case '<':
            return is("<=") ? a <= b : (is("<>") ? a != b : a < b);
        default:
            return is(">=") ? a >= b : a > b;
    }
}

struct Function
{
    const char* name;
    double (*call)(double);
};

/// Of real formulas only.
constexpr Function kFunctions[] = {
    {"SIN",   std::sin  },
    {"COS",   std::cos  },
    {"TAN",   std::tan  },
    {"ASIN",  std::asin },
    {"ACOS",  std::acos },
    {"ATAN",  std::atan },
    {"EXP",   std::exp  },
    {"LN",    std::log  },
    {"LG",    std::log10},
    {"SQRT",  std::sqrt },
    {"TRUNC", std::trunc},
    {"FLOOR", std::floor},
    {"CEIL",  std::ceil },
    {"ROUND", std::round},
};

/// Reads from left to right and computes on the way. What stands in a branch not taken is read with active
/// false.
template <typename Number>
class Reader
{
public:
    Reader(const std::string& text, const VariableLookup<Number>& lookup) : m_text(text), m_lookup(lookup) {}

    Number ReadAll()
    {
        const Number value = Choice(true);
        SkipBlanks();
        if (m_at != m_text.size()) {
            throw Unreadable();
        }
        if (!std::isfinite(static_cast<double>(value))) {
            throw Failure("the formula " + Beginning() + " gives no finite number");
        }
        return value;
    }

private:
    /// One nested step; deep nesting must not use up the stack.
    class Level
    {
    public:
        explicit Level(const Reader& reader)
        {
            if (g_depth >= kDeepest) {
                throw Failure("the formula is nested too deeply: " + reader.Beginning());
            }
            ++g_depth;
        }
        ~Level() { --g_depth; }
        Level(const Level&) = delete;
        Level& operator=(const Level&) = delete;
    };

    std::string Beginning() const { return m_text.substr(0, kMostShown); }

    Failure Unreadable() const
    {
        return Failure("can't read the formula " + Beginning() + " from its character " +
                       std::to_string(m_at + 1));
    }

    void SkipBlanks()
    {
        while (m_at < m_text.size() && std::isspace(static_cast<unsigned char>(m_text[m_at])) != 0) {
            ++m_at;
        }
    }

    bool Take(const char* text)
    {
        SkipBlanks();
        const std::size_t length = std::strlen(text);
        const bool found = m_text.compare(m_at, length, text) == 0;
        m_at += found ? length : 0;
        return found;
    }

    void Expect(const char* text)
    {
        if (!Take(text)) {
            throw Unreadable();
        }
    }

    /// A chain of conditions, such as A ? 1 : B ? 2 : 3, is one step.
    Number Choice(bool active)
    {
        Number chosen = 0;
        for (;;) {
            const Number condition = Binary(1, active);
            if (!Take("?")) {
                return active ? condition : chosen;
            }
            const bool isMet = condition != 0;
            const Number first = Nested(active && isMet);
            Expect(":");
            if (active && isMet) {
                chosen = first;
                active = false;
            }
        }
    }

    Number Nested(bool active)
    {
        const Level level(*this);
        return Choice(active);
    }

    /// What a sign or the left side of ** stands before.
    Number Signed(bool active)
    {
        const Level level(*this);
        return Binary(kUnaryLevel, active);
    }

    const Operator* TakeOperator(int lowest)
    {
        SkipBlanks();
        for (const Operator& op : kOperators) {
            if (m_text.compare(m_at, std::strlen(op.text), op.text) == 0) {
                return op.level >= lowest && Take(op.text) ? &op : nullptr;
            }
        }
        return nullptr;
    }

    /// Calls itself for the operators that bind closer, of which there are few levels.
    Number Binary(int lowest, bool active)
    {
        Number value = Unary(active);
        while (const Operator* pOp = TakeOperator(lowest)) {
            const bool fromTheRight = pOp->level == kUnaryLevel;
            const Number right = fromTheRight ? Signed(active) : Binary(pOp->level + 1, active);
            value = active ? Apply(pOp->text, value, right) : 0;
        }
        return value;
    }

    Number Unary(bool active)
    {
        if (Take("-")) {
            return Negated(Signed(active));
        }
        if (Take("+")) {
            return Signed(active);
        }
        if (Take("~")) {
            return Complement(Signed(active));
        }
        if (Take("(")) {
            const Number value = Nested(active);
            Expect(")");
            return value;
        }
        return Operand(active);
    }

    Number Operand(bool active)
    {
        SkipBlanks();
        const char first = m_at < m_text.size() ? m_text[m_at] : '\0';
        if (std::isdigit(static_cast<unsigned char>(first)) != 0 || first == '.') {
            return Literal();
        }
        if (std::isalpha(static_cast<unsigned char>(first)) == 0 && first != '_') {
            throw Unreadable();
        }
        const std::string name = Word();
        if (Take("(")) {
            const Number argument = Nested(active);
            Expect(")");
            return Call(name, argument, active);
        }
        return active ? m_lookup(name) : 0;
    }

    Number Literal()
    {
        const bool isHex = m_text.compare(m_at, 2, "0x") == 0 || m_text.compare(m_at, 2, "0X") == 0;
        if (isHex) {
            m_at += 2;
            return static_cast<Number>(Wrapped(Digits<std::uint64_t>(16)));
        }
        if constexpr (kIsReal) {
            return Digits<double>(std::chars_format::general);
        } else {
            return Wrapped(Digits<std::uint64_t>(10));
        }
    }

    /// The format is what std::from_chars takes for the kind: a base or a floating point format.
    template <typename Kind, typename Format>
    Kind Digits(Format format)
    {
        Kind value{};
        const char* const textEnd = m_text.data() + m_text.size();
        const auto [end, error] = std::from_chars(m_text.data() + m_at, textEnd, value, format);
        const bool goesOn = end != textEnd && (std::isalnum(static_cast<unsigned char>(*end)) != 0 ||
                                               *end == '.' || *end == '_');
        if (error != std::errc() || goesOn) {
            throw Unreadable();
        }
        m_at = static_cast<std::size_t>(end - m_text.data());
        return value;
    }

    std::string Word()
    {
        const std::size_t begin = m_at;
        while (m_at < m_text.size() && (std::isalnum(static_cast<unsigned char>(m_text[m_at])) != 0 ||
                                        m_text[m_at] == '_' || m_text[m_at] == '.')) {
            ++m_at;
        }
        return m_text.substr(begin, m_at - begin);
    }

    static Number Call(const std::string& name, Number argument, bool active)
    {
        if (name == "ABS") {
            return argument < 0 ? Negated(argument) : argument;
        }
        if (name == "SGN") {
            return static_cast<Number>(argument == 0 ? 0 : (argument < 0 ? -1 : 1));
        }
        if (name == "NEG") {
            return Negated(argument);
        }
        if constexpr (kIsReal) {
            for (const Function& function : kFunctions) {
                if (name == function.name) {
                    return active ? function.call(argument) : 0;
                }
            }
        }
        throw Failure("the function " + name + " isn't understood in this formula");
    }

    static constexpr bool kIsReal = std::is_floating_point_v<Number>;

    const std::string& m_text;
    const VariableLookup<Number>& m_lookup;
    std::size_t m_at = 0;
};

}  // namespace

template <typename Number>
Number EvaluateFormula(const std::string& formula, const VariableLookup<Number>& lookup)
{
    return Reader<Number>(formula, lookup).ReadAll();
}

template std::int64_t EvaluateFormula(const std::string&, const VariableLookup<std::int64_t>&);
template double EvaluateFormula(const std::string&, const VariableLookup<double>&);

}  // namespace Tool
