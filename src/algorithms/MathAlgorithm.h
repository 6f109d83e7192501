#pragma once

#include "algorithms/CustomAlgorithm.h"

#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class Evaluate;
namespace bp {
class ValueHistory;
}

/// Combines the values of rhythm indices, or of other formulas, by the user's formula.
///
/// "depend" names the senders by their descriptors, separated by ";", which are the variables of the formula. A
/// variable is the first value of the sender's last result, divided by 100. Once all of them have values, every
/// acquisition block publishes with an empty type and a channel count of 0: the formula's value times 100, clamped to 0
/// … 100, its running maximum and its running average (see bp::ValueHistory). A formula that uses no rhythm is never
/// calculated.
///
/// A formula that is not understood, or uses what "depend" does not name, is logged and publishes nothing; one that
/// fails for some values (a division by zero) is logged once and publishes nothing until it succeeds again.
///
/// The container links a formula by a list: a single rhythm is written with a ";" behind it.
class BIOPROCESSING_EXPORT MathAlgorithm : public CustomAlgorithm
{
    Q_OBJECT
public:
    MathAlgorithm(const UnitParams &params, const QSharedPointer<Montage> &montage, const AmplifierInfo &info);
    ~MathAlgorithm() override;

    /// Forgets the running maximum and average, not the values of the rhythms.
    void resetAlgorithm() override;
    void appendData(unsigned int count, const std::vector<float> &data, bool fromSender) override;

protected:
    /// Another formula starts its maximum and average anew.
    void updateAlgorithm() override;
    void fillPropertyList() override;

private:
    void setFormula(const QString &formula);
    void traceUnknownVariables(const QStringList &used) const;
    void takeVariable(const std::vector<float> &data);
    void calculate();
    void processValue(double value);

    std::unique_ptr<Evaluate> m_evaluate;
    QString m_formula;
    QStringList m_variables;
    bool m_ready = false;
    bool m_failing = false; ///< the last calculation failed, which was logged
    std::unique_ptr<bp::ValueHistory> m_history;
    std::vector<float> m_output;
};
