#pragma once

#include <QSharedPointer>
#include <QString>

class Amplifier;
class Montage;

/// The montage that a device is acquired with.
namespace MontageChoice {

/// From the file, or the device's own when the path is empty. Throws a Refusal when that gives no usable montage.
QSharedPointer<Montage> choose(Amplifier *device, const QString &path);
/// Throws a Refusal for a montage that cannot be acquired with. Its references are then by input.
/// @param origin  where it comes from, for the refusal
/// @param device  whose inputs it has to do with; null when that is not known yet
void check(const QSharedPointer<Montage> &montage, const QString &origin, const Amplifier *device);
/// What a user should know of the filters, on standard error: one sentence for all channels of which it is true.
void printFilterNotes(const Montage &montage);

} // namespace MontageChoice
