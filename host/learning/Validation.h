#pragma once

#include "bci/LearningPair.h"

#include <QJsonObject>
#include <QMap>
#include <QString>

#include <functional>
#include <vector>

class Windows;
struct LabelledWindow;

/// Name of a class, "none" for no answer, or the number of a label that has no name.
QString nameOf(int label, const QMap<int, QString> &classes);

/// How often windows of one class were taken for another.
class Confusion
{
public:
    void add(int truth, int answer);
    int total() const;
    /// Share of right answers, 0 … 1; over all windows, and of one class.
    double accuracy() const;
    double rate(int label) const;
    bool isEmpty() const { return m_counts.isEmpty(); }

    /// Lines of text, with the classes' names.
    QString table(const QMap<int, QString> &classes) const;
    QJsonObject toJson(const QMap<int, QString> &classes) const;

private:
    int count(int truth, int answer) const;
    QList<int> answers() const;

    QMap<QPair<int, int>, int> m_counts; ///< truth and answer → windows
};

/// Cross-validation by the blocks of Windows::split(): everything is fitted anew in each fold.
struct Validation
{
    Confusion confusion;
    std::vector<double> accuracies; ///< per fold, 0 … 1
    int failedFolds = 0; ///< whose training failed; their windows count as wrong

    double mean() const;
    /// Standard deviation over the folds; 0 for one.
    double deviation() const;

    /// @param progress  called before each fold, with its number from 0
    static Validation run(const Windows &windows, int rate, const bp::LearningSettings &settings,
                          const std::function<void(int)> &progress);
};

/// Trains a pair's processor with these windows, rest (label 0) first.
/// @return false when the processor learned nothing from them
bool trainPair(bp::LearningPair &pair, std::vector<const LabelledWindow *> windows);
/// The class of a preprocessed window.
int classify(bp::LearningPair &pair, std::vector<std::vector<float>> &features);
