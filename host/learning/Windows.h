#pragma once

#include "learning/Recording.h"

#include <QMap>

#include <vector>

class Preprocessor;

/// A stretch of a recording of one class: a whole file, or a trial.
struct Segment
{
    std::size_t recording = 0;
    std::size_t begin = 0; ///< samples
    std::size_t end = 0;
    int label = 0;
    bool isTrial = false; ///< its windows stay together
};

/// A window as a processor learns it.
struct LabelledWindow
{
    std::size_t segment = 0;
    std::size_t recording = 0;
    std::size_t begin = 0; ///< samples
    int label = 0;
    int fold = -1;
    std::vector<std::vector<float>> features; ///< what the preprocessor made of it
};

/// The windows of a set of labelled recordings.
class Windows
{
public:
    /// @param window, step  samples
    Windows(std::size_t window, std::size_t step);

    /// Cuts every segment into windows that lie wholly inside it, and preprocesses them.
    void cut(const std::vector<Recording> &recordings, const std::vector<Segment> &segments,
             Preprocessor &preprocessor);
    /// Splits every class, recording after recording in the order of time, into contiguous blocks: fold i tests on the
    /// i-th of each. The blocks of a class of several recordings consist of whole recordings; trials are not split.
    /// @param folds  at most; fewer where a class has fewer recordings or trials
    void split(int folds);
    int folds() const { return m_folds; }
    /// Whether a class was split by its recordings.
    bool followsRecordings() const { return m_followsRecordings; }

    const std::vector<LabelledWindow> &all() const { return m_windows; }
    std::vector<const LabelledWindow *> test(int fold) const;
    /// Those of the other folds that share no sample with a test window.
    std::vector<const LabelledWindow *> training(int fold) const;
    /// Number of windows per label.
    QMap<int, int> counts() const;

private:
    std::vector<std::vector<LabelledWindow *>> unitsOf(int label);
    bool touchesTest(const LabelledWindow &window, int fold) const;

    std::size_t m_window;
    std::size_t m_step;
    int m_folds = 0;
    bool m_followsRecordings = false;
    std::vector<bool> m_isTrial; ///< per segment
    std::vector<LabelledWindow> m_windows; ///< in the order of their segments
};
