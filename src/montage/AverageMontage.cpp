#include "montage/AverageMontage.h"

#include "devices/AmplifierChannel.h"

AverageMontage::AverageMontage(const Montage &other)
    : Montage(other)
{
    parseChannels(other.getType());
}

AverageMontage::AverageMontage(const QSharedPointer<Montage> &other)
{
    if (!other.isNull()) {
        Montage::operator=(*other);
        parseChannels(other->getType());
    }
}

AverageMontage::AverageMontage(const AverageMontage &other) = default;

Montage_Type AverageMontage::getType() const
{
    return Montage_Average;
}

void AverageMontage::parseChannels(Montage_Type sourceType)
{
    for (AmplifierChannel *channel : channels()) {
        if (channel->getChannelType() != BPCommon::EEG || channel->getName().toLower().contains(QLatin1String("aux"))) {
            channel->setGroup2(1);
        } else if (sourceType == Montage_Bipolar) {
            channel->setGroup2(0);
        }
    }
}
