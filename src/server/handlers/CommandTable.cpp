#include "server/handlers/CommandTable.h"

#include <QString>

#include <algorithm>

namespace bp {

namespace {

constexpr const char *kNotReading = "Halvin is not in state mode";
constexpr const char *kNotWorking = "Halvin is not in state work";
constexpr const char *kReading = "Halvin in state read mode";

/// In the order of the handlers' registration. Spellings are the service's own.
constexpr CommandRule kCommands[] = {
    {"getinfo", {{{Condition::Reading, kNotReading}}}},
    {"getdata", {{{Condition::Reading, kNotReading}}}},
    {"getstates", {{{Condition::Bci, "getstate\r\nthe halvin is not in BCI state"}}}},
    {"getlaststate",
     {{{Condition::Reading, kNotWorking}, {Condition::Bci, "getlaststate\r\nthe halvin is not in BCI state"}}}},
    {"setstate", {{{Condition::Reading, kNotWorking}, {Condition::Bci, "Halvin is not in BCI state"}}}},
    {"bci", {{{Condition::Reading, "Device is not open"}}}},
    {"getspectrum", {{{Condition::Reading, kNotReading}}}},
    {"getlastrhythm", {{{Condition::Reading, kNotReading}, {Condition::Rhythms, "Halvin is not in BCI mode"}}}},
    {"writestatefile", {}}, // their argument comes first, see RequestWriteStateFile
    {"removestatefile", {}},
    {"starttraining",
     {{{Condition::Bci, "starttraining\r\nthe halvin is not in BCI state"},
       {Condition::StatesRecorded, "starttraining: no state files recorded"}}}},
    {"stoptraining", {{{Condition::Bci, "stoptraining\r\nthe halvin is not in BCI state"}}}},
    {"gethalvinstatus", {}},
    {"setcurrentprofile", {}},
    {"getprofilelist", {}},
    {"startwritefile", {}}, // theirs carry the command's own word, see RequestStartWriteFile
    {"stopwritefile", {}},
    {"discoverdevices", {{{Condition::Idle, kReading}}}},
    {"getdeviceparametrs", {}},
    {"setdeviceparametrs", {}},
    {"startdevice", {{{Condition::Idle, kReading}}}},
    {"stopdevice", {{{Condition::Reading, "Halvin is not in state read mode"}}}},
    {"getmontagelist", {}},
    {"getmontageinfo", {}},
    {"setmontagename", {}},
    {"addnewprofile", {}},
    {"removeprofile", {}},
    {"getalgorithms", {}},
    {"getalgorithmparams", {}},
    {"setalgorithmparams", {}},
    {"removealgorithm", {}},
    {"addnewalgorithm", {}},
    {"removeallrecords", {}},
    {"writelabel", {{{Condition::Recording, "writelabel: no recording is being written"}}}},
    {"getrecordfile", {}},
};

} // namespace

bool holds(Condition condition, const server_state &state)
{
    switch (condition) {
    case Condition::None:
        return true;
    case Condition::Reading:
        return state.readMode;
    case Condition::Idle:
        return !state.readMode;
    case Condition::Bci:
        return state.bciMode;
    case Condition::Rhythms:
        return !state.bciMode;
    case Condition::Recording:
        return state.writingFile;
    case Condition::StatesRecorded:
        return !state.recordedStates.isEmpty();
    }
    return true;
}

const CommandRule &commandRule(const QString &word)
{
    return *std::find_if(std::begin(kCommands), std::end(kCommands) - 1,
                         [&word](const CommandRule &rule) { return word == QLatin1String(rule.word); });
}

} // namespace bp
