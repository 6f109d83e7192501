#pragma once

#include "common/BPExport.h"
#include "montage/Montage.h"

#include <QSharedPointer>

/// References channels to the mean of the EEG channels, sample by sample.
class BIOPROCESSING_EXPORT AverageMontage : public Montage
{
public:
    /// Copies; channels that are no EEG or whose name contains "aux" are kept out of the average, and the EEG channels
    /// of a bipolar montage are referenced to it.
    explicit AverageMontage(const Montage &other);
    explicit AverageMontage(const QSharedPointer<Montage> &other);
    AverageMontage(const AverageMontage &other);
    AverageMontage &operator=(const AverageMontage &other) = default;

    Montage_Type getType() const override;

private:
    void parseChannels(Montage_Type sourceType);
};
