#include "acquire/MontageChoice.h"

#include "commands/Refusal.h"
#include "devices/Amplifier.h"
#include "montage/BipolarMontage.h"
#include "montage/Montage.h"
#include "montage/MontageXmlReader.h"

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
    check(montage, path);
    return montage;
}

void MontageChoice::check(const QSharedPointer<Montage> &montage, const QString &origin)
{
    if (montage.isNull() || montage->empty()) {
        refuse(QStringLiteral("%1 holds no channels.").arg(origin));
    }
    const auto bipolar = montage.dynamicCast<BipolarMontage>();
    if (!bipolar.isNull() && !bipolar->isReferentsCorrect()) {
        refuse(QStringLiteral("%1 is bipolar, but its left or right referent is no channel of it.").arg(origin));
    }
}
