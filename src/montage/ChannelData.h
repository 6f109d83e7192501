#pragma once

#include "common/BPCommon.h"

#include <QString>

/// What a display needs of a montage channel.
struct ChannelData
{
    int index = 0; ///< position in the montage, from 0
    QString name;
    BPCommon::ChannelType type = BPCommon::EEG;
};
