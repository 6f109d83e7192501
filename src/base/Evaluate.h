#pragma once

#include <QString>
#include <QStringList>

#include <memory>

/// Evaluates a formula over named variables. One thread at a time.
class Evaluate
{
public:
    Evaluate();
    ~Evaluate();
    Evaluate(const Evaluate &) = delete;
    Evaluate &operator=(const Evaluate &) = delete;

    /// Takes a formula and forgets the variables of the one before. A formula gives a value and changes nothing: one
    /// that assigns ("a = 1") is not understood.
    /// @param variables receives the names that the formula uses, in alphabetical order
    /// @return whether the formula was understood; afterwards isReady() is false until every variable has a value
    bool makeAnalyzeFormula(const QString &formula, QStringList &variables);
    /// Sets one variable from a number in the C locale. False when the formula does not use the name or the text is no
    /// number; the variable then keeps its value.
    bool setVariablesValue(const QString &name, const QString &value);
    /// Whether the formula was understood and all its variables have values.
    bool isReady() const;
    /// The formula's value. ok is false, and the value 0, when the formula is not ready, fails, or its value is not
    /// finite (a division by zero for example).
    double makeCalculate(bool &ok);
    /// What was wrong with the last formula or calculation; empty when nothing was.
    QString errorText() const;

private:
    struct Formula;
    std::unique_ptr<Formula> m_formula;
};
