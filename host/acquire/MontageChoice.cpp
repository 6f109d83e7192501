#include "acquire/MontageChoice.h"

#include "Console.h"
#include "commands/Refusal.h"
#include "devices/Amplifier.h"
#include "devices/AmplifierChannel.h"
#include "montage/BipolarMontage.h"
#include "montage/Montage.h"
#include "montage/MontageXmlReader.h"

#include <QHash>

#include <algorithm>

namespace {

constexpr int kNamedChannels = 4; ///< in a sentence on several; beyond it they are counted

/// The device channel with the largest number that a montage channel reads.
unsigned furthestInput(const AmplifierChannel &channel, Montage_Type type)
{
    const unsigned group2 = channel.getGroup2();
    const unsigned reference = type == Montage_Usual ? group2 : type == Montage_Average && group2 > 2 ? group2 - 2 : 0;
    return std::max(channel.getGroup1(), reference);
}

void checkInputs(const Montage &montage, const QString &origin, int inputs)
{
    for (unsigned i = 0; i < montage.size(); ++i) {
        const unsigned input = furthestInput(*montage[i], montage.getType());
        if (input > static_cast<unsigned>(inputs)) {
            refuse(QStringLiteral("%1: channel \"%2\" reads input %3, and the device has %4.")
                       .arg(origin, montage[i]->getName())
                       .arg(input)
                       .arg(inputs));
        }
    }
}

} // namespace

QSharedPointer<Montage> MontageChoice::choose(Amplifier *device, const QString &path)
{
    QSharedPointer<Montage> montage = device->getMontage();
    if (!path.isEmpty()) {
        MontageXmlReader reader;
        montage = reader.readMontage(path);
        if (!reader.errorText().isEmpty()) {
            refuse(reader.errorText());
        }
    }
    if (path.isEmpty() && (montage.isNull() || montage->empty())) {
        refuse(QStringLiteral("The device brings no montage: choose a montage file."));
    }
    check(montage, path, device);
    return montage;
}

void MontageChoice::check(const QSharedPointer<Montage> &montage, const QString &origin, const Amplifier *device)
{
    if (montage.isNull() || montage->empty()) {
        refuse(QStringLiteral("%1 holds no channels.").arg(origin));
    }
    const auto bipolar = montage.dynamicCast<BipolarMontage>();
    if (!bipolar.isNull() && !bipolar->isReferentsCorrect()) {
        refuse(QStringLiteral("%1 is bipolar, but its left or right referent is no channel of it.").arg(origin));
    }
    if (device != nullptr) {
        checkInputs(*montage, origin, std::max(0, device->getAmplifierInfo().channels()));
    }
    montage->setReferencesByInput(true);
}

void MontageChoice::printFilterNotes(const Montage &montage)
{
    const QStringList names = montage.getChannelNames();
    QStringList sentences; // in the order in which they come up
    QHash<QString, QStringList> channels;
    int channel = 0;
    for (const QString &note : montage.filterNotes()) {
        // A note is "NAME: …"; the channels' notes come in their order.
        while (channel < names.size() && !note.startsWith(names[channel] + QLatin1String(": "))) {
            ++channel;
        }
        const QString name = names.value(channel);
        const QString sentence = note.mid(name.size());
        if (!channels.contains(sentence)) {
            sentences << sentence;
        }
        channels[sentence] << name;
    }
    for (const QString &sentence : qAsConst(sentences)) {
        const QStringList &of = channels[sentence];
        Console::error(
            (of.size() > kNamedChannels ? QStringLiteral("%1 channels").arg(of.size()) : of.join(QStringLiteral(", ")))
            + sentence);
    }
}
