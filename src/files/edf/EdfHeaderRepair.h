#pragma once

#include "common/detail/Outcome.h"

#include <QByteArray>

namespace bp {

struct EdfLayout;

/// Mends headers that EDFlib rejects although they leave no doubt about the data.
///
/// Common faults are: annotation signals that name a transducer or a prefilter, which the format wants blank (much used
/// collections of motor imagery have them), or other ranges than the format's; files that call themselves EDF+ but have
/// no annotation signal, or whose patient and recording do not consist of the fields that EDF+ wants; letters beyond
/// ASCII, such as that of "µV"; decimal commas, and numbers that do not begin at the left; dates with "/" or "-".
class EdfHeaderRepair
{
public:
    /// The header with such faults mended.
    static QByteArray mended(const EdfLayout &layout);
    /// Fails with the first fault that the mended header still has.
    static Outcome check(const EdfLayout &layout);
};

} // namespace bp
