#include "learning/Validation.h"

#include "bci/Preprocessor.h"
#include "bci/Processor.h"
#include "learning/Windows.h"

#include <QJsonArray>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <set>

namespace {

constexpr int kNoAnswer = -1; ///< rejected, or no classifier
constexpr int kColumn = 10;

} // namespace

QString nameOf(int label, const QMap<int, QString> &classes)
{
    return label == kNoAnswer && !classes.contains(label) ? QStringLiteral("none")
                                                          : classes.value(label, QString::number(label));
}

void Confusion::add(int truth, int answer)
{
    ++m_counts[{truth, answer}];
}

int Confusion::count(int truth, int answer) const
{
    return m_counts.value({truth, answer});
}

int Confusion::total() const
{
    return std::accumulate(m_counts.cbegin(), m_counts.cend(), 0);
}

double Confusion::accuracy() const
{
    int right = 0;
    for (auto it = m_counts.cbegin(); it != m_counts.cend(); ++it) {
        right += it.key().first == it.key().second ? it.value() : 0;
    }
    return isEmpty() ? 0.0 : static_cast<double>(right) / total();
}

double Confusion::rate(int label) const
{
    int all = 0;
    for (auto it = m_counts.cbegin(); it != m_counts.cend(); ++it) {
        all += it.key().first == label ? it.value() : 0;
    }
    return all == 0 ? 0.0 : static_cast<double>(count(label, label)) / all;
}

QList<int> Confusion::answers() const
{
    std::set<int> labels;
    for (auto it = m_counts.cbegin(); it != m_counts.cend(); ++it) {
        labels.insert(it.key().first);
        labels.insert(it.key().second);
    }
    return QList<int>(labels.begin(), labels.end());
}

QString Confusion::table(const QMap<int, QString> &classes) const
{
    const QList<int> columns = answers();
    QString text = QStringLiteral("%1").arg(QStringLiteral("class"), -kColumn);
    for (const int answer : columns) {
        text += QStringLiteral("%1").arg(QLatin1String("as ") + nameOf(answer, classes), kColumn);
    }
    text += QStringLiteral("%1").arg(QStringLiteral("rate"), kColumn);
    for (auto it = classes.cbegin(); it != classes.cend(); ++it) {
        text += QStringLiteral("\n%1").arg(it.value(), -kColumn);
        for (const int answer : columns) {
            text += QStringLiteral("%1").arg(count(it.key(), answer), kColumn);
        }
        text += QStringLiteral("%1 %").arg(100.0 * rate(it.key()), kColumn - 2, 'f', 1);
    }
    return text;
}

QJsonObject Confusion::toJson(const QMap<int, QString> &classes) const
{
    QJsonObject rows;
    for (auto it = classes.cbegin(); it != classes.cend(); ++it) {
        QJsonObject row{{QStringLiteral("rate"), rate(it.key())}};
        QJsonObject counts;
        for (const int answer : answers()) {
            counts.insert(nameOf(answer, classes), count(it.key(), answer));
        }
        row.insert(QStringLiteral("answers"), counts);
        rows.insert(it.value(), row);
    }
    return rows;
}

double Validation::mean() const
{
    return accuracies.empty()
        ? 0.0
        : std::accumulate(accuracies.begin(), accuracies.end(), 0.0) / static_cast<double>(accuracies.size());
}

double Validation::deviation() const
{
    if (accuracies.size() < 2) {
        return 0.0;
    }
    double squares = 0.0;
    for (const double accuracy : accuracies) {
        squares += (accuracy - mean()) * (accuracy - mean());
    }
    return std::sqrt(squares / static_cast<double>(accuracies.size() - 1));
}

Validation Validation::run(const Windows &windows, int rate, const bp::LearningSettings &settings,
                           const std::function<void(int)> &progress)
{
    Validation validation;
    for (int fold = 0; fold < windows.folds(); ++fold) {
        progress(fold);
        bp::LearningPair pair = bp::makeLearningPair(settings);
        pair.processor->setFs(rate);
        const bool isTrained = trainPair(pair, windows.training(fold));
        validation.failedFolds += isTrained ? 0 : 1;
        Confusion confusion;
        for (const LabelledWindow *window : windows.test(fold)) {
            std::vector<std::vector<float>> features = window->features;
            const int answer = isTrained ? classify(pair, features) : kNoAnswer;
            confusion.add(window->label, answer);
            validation.confusion.add(window->label, answer);
        }
        if (!confusion.isEmpty()) {
            validation.accuracies.push_back(confusion.accuracy());
        }
    }
    return validation;
}

bool trainPair(bp::LearningPair &pair, std::vector<const LabelledWindow *> windows)
{
    // Movements are judged against rest, which therefore comes first.
    std::stable_partition(windows.begin(), windows.end(), [](const LabelledWindow *w) { return w->label == 0; });
    try {
        for (const LabelledWindow *window : windows) {
            std::vector<std::vector<float>> features = window->features;
            pair.processor->preTrain(features, window->label);
        }
        pair.processor->postTrain();
    } catch (...) { // the library throws texts, too
        return false;
    }
    return !pair.processor->model().isEmpty();
}

int classify(bp::LearningPair &pair, std::vector<std::vector<float>> &features)
{
    std::vector<std::vector<float>> output;
    try {
        pair.processor->passThrough(&features, &output);
    } catch (...) {
        return kNoAnswer;
    }
    const ProcessResult &results = pair.processor->getResults();
    return results.contains(pair.resultName) ? static_cast<int>(std::lround(results.value(pair.resultName)))
                                             : kNoAnswer;
}
