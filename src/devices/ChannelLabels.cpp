#include "devices/ChannelLabels.h"

#include <QRegularExpression>
#include <QStringList>

#include <array>

namespace {

enum class Match { Whole, Begin, End };

struct Word
{
    const char *text; ///< lower case
    Match match;
    BPCommon::ChannelType type;
};

/// The first word of a label that matches a row decides. Digits behind a word don't count for Whole, unless the row has
/// them. "Begin" and "End" rows are no part of any electrode's name.
constexpr std::array<Word, 40> kWords{{
    {"eeg", Match::Begin, BPCommon::EEG},      {"ecg", Match::Begin, BPCommon::ECG},
    {"ekg", Match::Begin, BPCommon::ECG},      {"mli", Match::Whole, BPCommon::ECG},
    {"mlii", Match::Whole, BPCommon::ECG},     {"mliii", Match::Whole, BPCommon::ECG},
    {"avr", Match::Whole, BPCommon::ECG},      {"avl", Match::Whole, BPCommon::ECG},
    {"avf", Match::Whole, BPCommon::ECG},      {"v1", Match::Whole, BPCommon::ECG},
    {"v2", Match::Whole, BPCommon::ECG},       {"v3", Match::Whole, BPCommon::ECG},
    {"v4", Match::Whole, BPCommon::ECG},       {"v5", Match::Whole, BPCommon::ECG},
    {"v6", Match::Whole, BPCommon::ECG},       {"emg", Match::Begin, BPCommon::EMG},
    {"chin", Match::Whole, BPCommon::EMG},     {"submental", Match::Whole, BPCommon::EMG},
    {"tibialis", Match::Whole, BPCommon::EMG}, {"eog", Match::Begin, BPCommon::EOG},
    {"eog", Match::End, BPCommon::EOG},        {"loc", Match::Whole, BPCommon::EOG},
    {"roc", Match::Whole, BPCommon::EOG},      {"resp", Match::Begin, BPCommon::Resp},
    {"airflow", Match::Whole, BPCommon::Resp}, {"flow", Match::Whole, BPCommon::Resp},
    {"thorax", Match::Begin, BPCommon::Resp},  {"thoracic", Match::Begin, BPCommon::Resp},
    {"abdo", Match::Begin, BPCommon::Resp},    {"gsr", Match::Begin, BPCommon::GSR},
    {"eda", Match::Begin, BPCommon::GSR},      {"galvanic", Match::Whole, BPCommon::GSR},
    {"ppg", Match::Begin, BPCommon::PPG},      {"pleth", Match::Begin, BPCommon::PPG},
    {"bvp", Match::Whole, BPCommon::PPG},      {"sao2", Match::Whole, BPCommon::PPG},
    {"spo2", Match::Whole, BPCommon::PPG},     {"pulse", Match::Whole, BPCommon::PPG},
    {"temp", Match::Whole, BPCommon::Temp},    {"temperature", Match::Whole, BPCommon::Temp},
}};

bool isMatch(const QString &word, const Word &row)
{
    const QLatin1String text(row.text);
    switch (row.match) {
    case Match::Begin:
        return word.startsWith(text);
    case Match::End:
        return word.endsWith(text);
    case Match::Whole:
        break;
    }
    static const QRegularExpression trailingDigits(QStringLiteral("\\d+$"));
    return word == text || QString(word).remove(trailingDigits) == text;
}

} // namespace

BPCommon::ChannelType bp::channelTypeFromLabel(const QString &label)
{
    static const QRegularExpression separators(QStringLiteral("[^a-z0-9]+"));
    const QStringList words = label.toLower().split(separators, Qt::SkipEmptyParts);
    for (const QString &word : words) {
        for (const Word &row : kWords) {
            if (isMatch(word, row)) {
                return row.type;
            }
        }
    }
    return BPCommon::EEG;
}
