#pragma once

#include "algorithms/UnitParams.h"
#include "common/BPExport.h"

#include <vector>

/// Builds the parameter sets of the algorithm types, with their limits and defaults, and those of the usual rhythms.
class BIOPROCESSING_EXPORT ParamFactory
{
public:
    ParamFactory() = delete;

    /// The default set of an algorithm type: "SpectrumOnline", "SpectrumNorm", "DependSpectrumNorm",
    /// "ElectroCardiogram" (or "ECG"), "AsymmetryCoeff", "Math" or "CGN". An empty set for any other name.
    static UnitParams makeCustomProperty(const QString &type);
    /// Dependent rhythms fed by the online spectrum: alpha, beta, delta, gamma, theta.
    static std::vector<UnitParams> makeStandardRhythmList();

    /// A rhythm index with the rhythm's name as descriptor, its band and its thresholds, in percent of the whole power.
    /// @param channels names of the montage channels to read, separated by ";"; empty for all
    static UnitParams makeRhythmAlpha(const QString &channels);
    static UnitParams makeRhythmBeta(const QString &channels);
    static UnitParams makeRhythmDelta(const QString &channels);
    static UnitParams makeRhythmGamma(const QString &channels);
    static UnitParams makeRhythmMu(const QString &channels);
    static UnitParams makeRhythmTheta(const QString &channels);

protected:
    static UnitParams makeSpectrumOnlineParam();
    static UnitParams makeSpectrumNormParam();
    static UnitParams makeDependSpectrumNormParam();
    static UnitParams makeElectroCardiogramParam();
    static UnitParams makeAsymetryCoeff();
    static UnitParams makeMathParam();
    static UnitParams makeCGNProperty();
};
