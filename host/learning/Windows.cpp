#include "learning/Windows.h"

#include "bci/Preprocessor.h"

#include <algorithm>
#include <map>
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

void Windows::split(int folds)
{
    // Units that must not be torn apart, per class: trials, or single windows.
    std::map<int, std::vector<std::vector<LabelledWindow *>>> groups;
    std::size_t lastSegment = m_isTrial.size();
    for (LabelledWindow &window : m_windows) {
        auto &units = groups[window.label];
        if (units.empty() || !m_isTrial[window.segment] || window.segment != lastSegment) {
            units.emplace_back();
        }
        units.back().push_back(&window);
        lastSegment = window.segment;
    }
    for (auto &[label, units] : groups) {
        for (std::size_t i = 0; i < units.size(); ++i) {
            for (LabelledWindow *window : units[i]) {
                window->fold = static_cast<int>(i * static_cast<std::size_t>(folds) / units.size());
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
