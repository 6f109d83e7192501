#pragma once

#include "devices/AmplifierInfo.h"

#include <QList>
#include <QSharedPointer>
#include <QString>

class Montage;

/// The host's state as the command service sees it. The host owns and fills it. The server and its handlers read it,
/// and write only clientActive, currentDevice and currentMontage. Used on the host's thread only.
struct server_state
{
    bool clientActive = false; ///< a known command has arrived since the settings were applied: samples are kept
    bool readMode = false; ///< a device is open and streaming
    bool writingFile = false; ///< a recording is being written
    bool writingStateFile = false; ///< a state file, for training, is being written
    QList<int> recordedStates; ///< indices of the states that have a state file
    bool bciMode = false; ///< the current profile is a BCI profile; otherwise it is a rhythm ("RT") profile
    quint32 spectrumNormalLength = 0; ///< points per channel of the spectra to come, while none has arrived
    QString montageFolder;
    AmplifierInfo currentDevice; ///< the device last started
    QString currentProfile;
    QSharedPointer<Montage> currentMontage;
    int stateFileSeconds = 10; ///< length of a state file
    int processorStates = 8; ///< states that the current processor knows
};
