#include "base/Evaluate.h"

#include <muParser.h>

#include <cmath>
#include <map>

namespace {

struct Variable
{
    double value = 0.0;
    bool isSet = false;
};

#if defined(_UNICODE)
mu::string_type toParser(const QString &text)
{
    return text.toStdWString();
}
QString fromParser(const mu::string_type &text)
{
    return QString::fromStdWString(text);
}
#else
mu::string_type toParser(const QString &text)
{
    return text.toStdString();
}
QString fromParser(const mu::string_type &text)
{
    return QString::fromStdString(text);
}
#endif

/// Whether a "=" stands alone, which assigns to a variable, and not in "==", "!=", "<=" or ">=".
bool hasAssignment(const QString &formula)
{
    for (int i = formula.indexOf(QLatin1Char('=')); i >= 0; i = formula.indexOf(QLatin1Char('='), i + 1)) {
        const bool isBehind = i > 0 && QStringLiteral("=!<>").contains(formula[i - 1]);
        const bool isBefore = i + 1 < formula.size() && formula[i + 1] == QLatin1Char('=');
        if (!isBehind && !isBefore) {
            return true;
        }
    }
    return false;
}

} // namespace

struct Evaluate::Formula
{
    mu::Parser parser;
    std::map<QString, Variable> variables;
    bool understood = false;
    QString error;
};

Evaluate::Evaluate()
    : m_formula(std::make_unique<Formula>())
{
}

Evaluate::~Evaluate() = default;

bool Evaluate::makeAnalyzeFormula(const QString &formula, QStringList &variables)
{
    variables.clear();
    m_formula = std::make_unique<Formula>();
    if (hasAssignment(formula)) {
        m_formula->error = QStringLiteral("a formula cannot assign; write == to compare");
        return false;
    }
    try {
        m_formula->parser.SetExpr(toParser(formula));
        const auto usedVariables =
            m_formula->parser.GetUsedVar(); // a copy: defining a variable empties the parser's own
        for (const auto &used : usedVariables) {
            Variable &variable = m_formula->variables[fromParser(used.first)];
            m_formula->parser.DefineVar(used.first, &variable.value);
        }
        m_formula->parser.Eval(); // GetUsedVar() looks at the tokens only; the syntax shows here
        if (m_formula->parser.GetNumResults() != 1) {
            throw mu::Parser::exception_type(mu::ecUNEXPECTED_ARG_SEP); // "1,5" would count as 5
        }
    } catch (const mu::Parser::exception_type &error) {
        m_formula->error = fromParser(error.GetMsg());
        m_formula->variables.clear();
        return false;
    }
    for (const auto &entry : m_formula->variables) {
        variables << entry.first;
    }
    m_formula->understood = true;
    return true;
}

bool Evaluate::setVariablesValue(const QString &name, const QString &value)
{
    bool isNumber = false;
    const double number = value.toDouble(&isNumber);
    const auto found = m_formula->variables.find(name);
    if (!isNumber || found == m_formula->variables.end()) {
        return false;
    }
    found->second.value = number;
    found->second.isSet = true;
    return true;
}

bool Evaluate::isReady() const
{
    if (!m_formula->understood) {
        return false;
    }
    for (const auto &entry : m_formula->variables) {
        if (!entry.second.isSet) {
            return false;
        }
    }
    return true;
}

double Evaluate::makeCalculate(bool &ok)
{
    ok = false;
    if (!isReady()) {
        return 0.0;
    }
    try {
        const double value = m_formula->parser.Eval();
        ok = std::isfinite(value);
        m_formula->error = ok ? QString() : QStringLiteral("the value is not finite");
        return ok ? value : 0.0;
    } catch (const mu::Parser::exception_type &error) {
        m_formula->error = fromParser(error.GetMsg());
        return 0.0;
    }
}

QString Evaluate::errorText() const
{
    return m_formula->error;
}
