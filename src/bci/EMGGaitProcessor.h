#pragma once

#include "bci/Processor.h"

/// Finds the phases of gait in the envelopes of several muscles.
///
/// Every sample becomes a binary code whose bit c is set while muscle c is active. A segment of one code that is
/// shorter than the shortest phase is added to the segment before it. The sequence of codes that recurs most in
/// training is the gait cycle. It begins where activity follows the quietest of its phases (the smallest code).
///
/// Results of passThrough, and its output row in the same order: "code", now (at the window's end); "phase", index in
/// the cycle, −1 outside it; "steps", the complete cycles in the window; "cadence", cycles per minute between the steps
/// that follow each other, 0 with fewer than two.
class BIOPROCESSING_EXPORT EMGGaitProcessor : public Processor
{
    Q_OBJECT
public:
    /// @param minPhaseMs       the shortest phase, ms
    /// @param maxStepMs        the longest step, ms; a slower cycle is not a step
    /// @param thresholdFactor  a muscle is active above this part, 0 … 1, of the way from its resting to its active
    /// level
    EMGGaitProcessor(int minPhaseMs, int maxStepMs, float thresholdFactor, QObject *parent = nullptr);
    /// Further muscles are ignored: a float cannot represent longer codes.
    static constexpr std::size_t kMaxMuscles = 24;

    /// A window with another number of muscles than the first one, or with an invalid number, is ignored with a trace
    /// line. All labels from 0 on train alike: standing gives the resting level, walking the active one and the cycle.
    /// A label below 0 is ignored.
    /// @param window  envelopes, one row per muscle
    void preTrain(vector<vector<float>> &window, int label) override;
    using Processor::preTrain;
    void postTrain() override;
    /// Stores "thresh_" + muscle and "phases", the number in the cycle. True when there is a cycle.
    bool doValidate() override;
    /// A window with an invalid number leaves a trace line, no row and none of the results above.
    void passThrough(vector<vector<float>> *in, vector<vector<float>> *out) override;
    QJsonObject model() const override;
    bool setModel(const QJsonObject &model, QString &reason) override;

private:
    /// A segment of one code, in samples.
    struct Step
    {
        int code;
        std::size_t first;
        std::size_t length;
    };
    /// A sequence of codes that follows itself.
    struct ComboData
    {
        std::vector<int> codes;
        int repeats;
    };

    static Step newStep(int code, std::size_t first);
    /// The same sequence from its canonical beginning on.
    static ComboData newComboData(const std::vector<int> &codes, int repeats);
    static int GetFromBinaryCode(const std::vector<bool> &active);
    /// "10" for a code in which muscle 0 of two is active.
    static QString CodeToString(int code, std::size_t muscles);
    static std::vector<int> SubArray(const std::vector<int> &values, std::size_t first, std::size_t count);
    static bool allTrue(const std::vector<bool> &values, std::size_t first, std::size_t count);

    /// Part of the way between resting and active level, which are the two levels of N. Otsu's method (1979).
    float findThresh(std::vector<float> envelope) const;
    void findCycle();
    /// The sequence with the most steps in one window; no codes when none recurs.
    ComboData FindPatterns(const std::vector<Step> &segments) const;
    ComboData findPattern(const std::vector<Step> &segments, const std::vector<int> &codes, std::size_t length) const;

    std::vector<Step> segmentsOf(const vector<vector<float>> &window) const;
    void dropFlickers(std::vector<Step> &segments) const;
    bool isStep(const std::vector<Step> &segments, std::size_t first, std::size_t phases) const;
    int phaseOf(const std::vector<Step> &segments) const;
    void countSteps(const std::vector<Step> &segments, int &steps, float &cadence) const;
    void publish(const std::vector<Step> &segments, vector<vector<float>> *out);
    std::size_t samplesOf(int milliseconds) const;

    int m_minPhaseMs;
    int m_maxStepMs;
    float m_thresholdFactor;
    std::size_t m_muscles = 0; ///< of the training windows
    std::vector<float> m_thresholds; ///< a muscle without contrast between rest and activity has the largest float
    std::vector<int> m_cycle; ///< codes of the phases; empty: no gait found
    bool m_complained = false;
};
