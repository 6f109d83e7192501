#include "learning/Windows.h"

#include "bci/Preprocessor.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

Windows::Windows(std::size_t window, std::size_t step)
    : m_window(window)
    , m_step(step)
{
}

void Windows::cut(const std::vector<Recording> &recordings, const std::vector<Segment> &segments,
                  Preprocessor &preprocessor)
{
    std::vector<std::vector<float>> samples;
    for (std::size_t s = 0; s < segments.size(); ++s) {
        const Segment &segment = segments[s];
        const Recording &recording = recordings[segment.recording];
        m_isTrial.push_back(segment.isTrial);
        for (std::size_t at = segment.begin; at + m_window <= segment.end; at += m_step) {
            samples.clear();
            for (const std::vector<float> &row : recording.rows) {
                const auto first = row.begin() + static_cast<std::ptrdiff_t>(at);
                samples.emplace_back(first, first + static_cast<std::ptrdiff_t>(m_window));
            }
            LabelledWindow window{s, segment.recording, at, segment.label, -1, {}};
            preprocessor.doPreprocess(&samples, &window.features);
            m_windows.push_back(std::move(window));
        }
    }
}

/// The parts of one class that must not be torn apart: its recordings where it has several, as windows of one recording
/// know each other; otherwise its trials where it has several, otherwise its windows.
std::vector<std::vector<LabelledWindow *>> Windows::unitsOf(int label)
{
    std::set<std::size_t> recordings;
    std::set<std::size_t> trials;
    for (const LabelledWindow &window : m_windows) {
        if (window.label == label) {
            recordings.insert(window.recording);
            trials.insert(m_isTrial[window.segment] ? window.segment : m_isTrial.size());
        }
    }
    m_followsRecordings = m_followsRecordings || recordings.size() > 1;
    std::map<std::size_t, std::vector<LabelledWindow *>> units;
    for (std::size_t i = 0; i < m_windows.size(); ++i) {
        LabelledWindow &window = m_windows[i];
        if (window.label == label) {
            const std::size_t unit = recordings.size() > 1 ? window.recording : trials.size() > 1 ? window.segment : i;
            units[unit].push_back(&window);
        }
    }
    std::vector<std::vector<LabelledWindow *>> ordered;
    for (auto &[number, unit] : units) {
        ordered.push_back(std::move(unit));
    }
    return ordered;
}

void Windows::split(int folds)
{
    std::vector<std::vector<std::vector<LabelledWindow *>>> classes;
    m_folds = folds;
    const QMap<int, int> labels = counts();
    for (auto it = labels.cbegin(); it != labels.cend(); ++it) {
        classes.push_back(unitsOf(it.key()));
        m_folds = std::min(m_folds, static_cast<int>(classes.back().size()));
    }
    for (const auto &units : classes) {
        for (std::size_t i = 0; i < units.size(); ++i) {
            for (LabelledWindow *window : units[i]) {
                window->fold = static_cast<int>(i * static_cast<std::size_t>(m_folds) / units.size());
            }
        }
    }
}

std::vector<const LabelledWindow *> Windows::test(int fold) const
{
    std::vector<const LabelledWindow *> windows;
    for (const LabelledWindow &window : m_windows) {
        if (window.fold == fold) {
            windows.push_back(&window);
        }
    }
    return windows;
}

std::vector<const LabelledWindow *> Windows::training(int fold) const
{
    std::vector<const LabelledWindow *> windows;
    for (const LabelledWindow &window : m_windows) {
        if (window.fold != fold && !touchesTest(window, fold)) {
            windows.push_back(&window);
        }
    }
    return windows;
}

bool Windows::touchesTest(const LabelledWindow &window, int fold) const
{
    return std::any_of(m_windows.begin(), m_windows.end(), [&](const LabelledWindow &other) {
        return other.fold == fold && other.recording == window.recording && other.begin < window.begin + m_window
            && window.begin < other.begin + m_window;
    });
}

QMap<int, int> Windows::counts() const
{
    QMap<int, int> counts;
    for (const LabelledWindow &window : m_windows) {
        ++counts[window.label];
    }
    return counts;
}
