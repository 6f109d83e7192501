#include "algorithms/MathAlgorithm.h"

#include "algorithms/engine/ValueHistory.h"

#include "algorithms/ParamFactory.h"
#include "base/Evaluate.h"
#include "base/TextHelper.h"
#include "common/BPCommon.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr float kPercent = 100.0f;
constexpr int kSignificantDigits = 6;

} // namespace

MathAlgorithm::MathAlgorithm(const UnitParams &params, const QSharedPointer<Montage> &montage,
                             const AmplifierInfo &info)
    : CustomAlgorithm(params, montage, info)
    , m_evaluate(std::make_unique<Evaluate>())
    , m_history(std::make_unique<bp::ValueHistory>())
{
    if (m_params.isEmpty()) {
        MathAlgorithm::fillPropertyList();
    }
    MathAlgorithm::updateAlgorithm();
}

MathAlgorithm::~MathAlgorithm() = default;

void MathAlgorithm::fillPropertyList()
{
    m_params = ParamFactory::makeCustomProperty(QStringLiteral("Math"));
}

void MathAlgorithm::updateAlgorithm()
{
    const QString depend = m_params.getParamValue(QStringLiteral("depend"));
    m_params.setDependName(depend);
    m_variables = depend.split(QLatin1Char(';'), TextHelper::SkipEmptyParts);
    if (!depend.isEmpty() && !depend.contains(QLatin1Char(';'))) {
        BPCommon::log(BPCommon::LogAlgorithm, "MathAlgorithm::updateAlgorithm a single rhythm is written \"%s;\"",
                      depend);
    }
    setFormula(m_params.getParamValue(QStringLiteral("formula")));
}

void MathAlgorithm::setFormula(const QString &formula)
{
    if (formula != m_formula) {
        m_formula = formula;
        MathAlgorithm::resetAlgorithm();
    }
    m_ready = false;
    m_failing = false;
    QStringList used;
    if (m_evaluate->makeAnalyzeFormula(formula, used)) {
        traceUnknownVariables(used);
    } else {
        BPCommon::log(BPCommon::LogAlgorithm, "MathAlgorithm::setFormula \"%s\" is not understood: %s", formula,
                      m_evaluate->errorText());
    }
}

void MathAlgorithm::traceUnknownVariables(const QStringList &used) const
{
    QStringList unknown;
    std::copy_if(used.cbegin(), used.cend(), std::back_inserter(unknown),
                 [this](const QString &name) { return !m_variables.contains(name); });
    if (!unknown.isEmpty()) {
        BPCommon::log(BPCommon::LogAlgorithm, "MathAlgorithm::setFormula \"%s\" uses %s, not among the rhythms %s",
                      m_formula, unknown.join(QLatin1Char(';')), m_variables.join(QLatin1Char(';')));
    }
}

void MathAlgorithm::resetAlgorithm()
{
    m_history->clear();
}

void MathAlgorithm::appendData(unsigned int count, const std::vector<float> &data, bool fromSender)
{
    Q_UNUSED(count)
    if (fromSender) {
        takeVariable(data);
    } else if (m_ready) {
        calculate();
    }
}

void MathAlgorithm::takeVariable(const std::vector<float> &data)
{
    const QString &name = inputParams().getParamDescriptor();
    if (data.empty() || !m_variables.contains(name)) {
        return;
    }
    const auto value = static_cast<double>(data.front() / kPercent);
    m_evaluate->setVariablesValue(name, QString::number(value, 'g', kSignificantDigits));
    m_ready = m_evaluate->isReady();
}

void MathAlgorithm::calculate()
{
    bool ok = false;
    const double value = m_evaluate->makeCalculate(ok);
    if (!ok && !m_failing) {
        BPCommon::log(BPCommon::LogAlgorithm, "MathAlgorithm::calculate \"%s\" has no value: %s", m_formula,
                      m_evaluate->errorText());
    }
    m_failing = !ok;
    if (ok) {
        processValue(value * static_cast<double>(kPercent));
        emit getData(QString(), m_params, 0, m_output);
    }
}

void MathAlgorithm::processValue(double value)
{
    const auto clamped = static_cast<float>(std::clamp(value, 0.0, static_cast<double>(kPercent)));
    m_history->append(clamped);
    m_output = {clamped, m_history->maximum(), m_history->average()};
}
