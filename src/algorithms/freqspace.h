#pragma once

#include "common/BPExport.h"

#include <array>
#include <cstddef>
#include <vector>

class Spectrum;

/// Spectra with their frequencies, and the search for artefacts in them.
namespace freqspace {

/// Frequencies of a spectrum's bins, Hz: evenly from 0 to half the rate, bin k at k · (rate / 2) / (bins − 1). A single
/// bin lies at 0.
BIOPROCESSING_EXPORT void getSpectrumFrequencies(float rate, std::size_t bins, std::vector<float> &frequencies);

/// Amplitude spectrum of one channel's window.
/// @param window     samples, count of them
/// @param windowType a Spectrum::SmoothingWindowType; the size of the taper is the one set in the spectrum
/// @param out        room for Spectrum::binCount(count) values
/// @return the bin count, 0 for an empty window
BIOPROCESSING_EXPORT std::size_t getSpectrum(Spectrum &spectrum, const float *window, std::size_t count, int windowType,
                                             float *out);

/// Spectra of all channels, judged together.
///
/// A window is an artefact when slow waves (1.5–5 Hz against 1.5–40 Hz) or muscle tension (20–40 Hz against 6–18 Hz)
/// stand out: mean amplitudes of the bands, averaged over the channels. Without signal in the bands that the others are
/// compared with it is none.
/// @param window      the channels' samples one after another, all of the same count
/// @param spectra     gets the channels' spectra one after another and a last value, 1 for an artefact and 0 otherwise
/// @param frequencies gets the frequencies of the bins
/// @return the bin count, 0 (and nothing is changed) without channels or samples
BIOPROCESSING_EXPORT std::size_t getSpectrumWithArtefact(Spectrum &spectrum, std::size_t channels,
                                                         const std::vector<float> &window, float rate, int windowType,
                                                         std::vector<float> &spectra, std::vector<float> &frequencies,
                                                         float lfzsfz, float hfzifz);

/// Mean amplitudes of the bands 1.5–5, 20–40, 1.5–40 and 6–18 Hz, each from its lower limit up to below its upper one.
/// @param spectrum one value per frequency
/// @return false, and nothing is written, when a band holds no bin
BIOPROCESSING_EXPORT bool findArtifact(const std::vector<float> &frequencies, const float *spectrum,
                                       std::array<float, 4> &means);

} // namespace freqspace
