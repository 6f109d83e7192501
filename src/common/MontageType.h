#pragma once

/// How a montage re-references the device's channels. The numbers are part of the file and plug-in interface.
enum Montage_Type {
    Montage_Usual = 0, ///< active input minus an optional reference input
    Montage_Bipolar = 1, ///< minus one or both ear referents
    Montage_Average = 2 ///< minus the mean of the referenced channels
};
