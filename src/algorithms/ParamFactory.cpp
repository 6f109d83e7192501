#include "algorithms/ParamFactory.h"

#include "common/Rhythms.h"

#include <array>
#include <cstddef>

namespace {

using P = custom_param;

struct Kind
{
    P::CONTROL_TYPE control;
    P::EDIT_TYPE edit = P::EditUser;
};

constexpr Kind kReal{P::ControlReal};
constexpr Kind kFlag{P::ControlCheckBox};
constexpr Kind kChoice{P::ControlChoice};
constexpr Kind kColorField{P::ControlColor};
constexpr Kind kChannels{P::ControlChannels};
constexpr Kind kOneChannel{P::ControlInteger, P::EditSelection};
constexpr Kind kFormula{P::ControlText, P::EditFormula};
constexpr Kind kUsedRhythms{P::ControlText, P::EditSelection};

struct ParamRow
{
    const char *key;
    const char *label;
    Kind kind;
    const char *standard;
    const char *minimum = "";
    const char *maximum = "";
    const char *step = "0.1";
    const char *visibility = "";
    const char *choices = "";
};

// With "calc_mode" set, hosts show the thresholds in percent, otherwise those in µV.
constexpr const char *kMicrovoltRule = "calc_mode?show:hide";
constexpr const char *kPercentRule = "calc_mode?hide:show";

constexpr ParamRow kColor{"r_color", QT_TRANSLATE_NOOP("Generic", "Display color"), kColorField,
                          Rhythms::kDefaultColor};
constexpr ParamRow kVisible{"visible", QT_TRANSLATE_NOOP("Generic", "Show"), kFlag, "1"};
constexpr ParamRow kHann{"hann", QT_TRANSLATE_NOOP("Generic", "Henning Window"), kReal, "50", "0", "50"};
constexpr ParamRow kStep{"step", QT_TRANSLATE_NOOP("Generic", "Update time, sec"), kReal, "0.5", "0.1", "2"};
constexpr ParamRow kArtefact{"artefact", QT_TRANSLATE_NOOP("Generic", "Find artefacts"), kFlag, "0"};
constexpr ParamRow kLfzsfz{"lfzsfz", QT_TRANSLATE_NOOP("Generic", "lfzsfz threshold"), kReal, "3.5", "0.1", "250"};
constexpr ParamRow kHfzifz{"hfzifz", QT_TRANSLATE_NOOP("Generic", "hfzifz threshold"), kReal, "0.7", "0.1", "250"};

constexpr ParamRow time(const char *standard)
{
    return {"time", QT_TRANSLATE_NOOP("Generic", "Accumulation time, sec"), kReal, standard, "1", "10"};
}

constexpr ParamRow maxFrequency(const char *minimum)
{
    return {"max_freq", QT_TRANSLATE_NOOP("Generic", "Maximum frequency, Hz"), kReal, "14", minimum, "1000"};
}

constexpr ParamRow minFrequency(const char *minimum)
{
    return {"min_freq", QT_TRANSLATE_NOOP("Generic", "Minimum frequency, Hz"), kReal, "8", minimum, "1000"};
}

constexpr ParamRow average(const char *standard)
{
    return {"average", QT_TRANSLATE_NOOP("Generic", "Use average"), kFlag, standard};
}

constexpr ParamRow square(const char *standard)
{
    return {"square", QT_TRANSLATE_NOOP("Generic", "Use power square"), kFlag, standard};
}

constexpr ParamRow kSpectrumOnline[]{
    {"enable", QT_TRANSLATE_NOOP("Generic", "Enable"), kFlag, "1"},
    time("2"),
    kStep,
    kHann,
    kArtefact,
    kLfzsfz,
    kHfzifz,
    {"smooth", QT_TRANSLATE_NOOP("Generic", "Use smoothing"), kFlag, "1"},
    square("1"),
};

constexpr ParamRow kSpectrumNorm[]{
    {"channel", QT_TRANSLATE_NOOP("Generic", "Read channels"), kChannels, ""},
    time("3"),
    kStep,
    kHann,
    maxFrequency("0.1"),
    minFrequency("0.1"),
    {"min_thres", QT_TRANSLATE_NOOP("Generic", "Minimum threshold, µV"), kReal, "1", "0.01", "2500", "0.01",
     kMicrovoltRule},
    {"max_thres", QT_TRANSLATE_NOOP("Generic", "Maximum threshold, µV"), kReal, "100", "1", "2500", "0.1",
     kMicrovoltRule},
    {"p_min_thres", QT_TRANSLATE_NOOP("Generic", "Minimum threshold, %"), kReal, "1", "0.01", "100", "0.01",
     kPercentRule},
    {"p_max_thres", QT_TRANSLATE_NOOP("Generic", "Maximum threshold, %"), kReal, "100", "1", "100", "0.1",
     kPercentRule},
    kColor,
    average("0"),
    kArtefact,
    kLfzsfz,
    kHfzifz,
    square("0"),
    {"calc_mode", QT_TRANSLATE_NOOP("Generic", "Relative power of rhythm"), kFlag, "0"},
    kVisible,
};

constexpr ParamRow kDependSpectrumNorm[]{
    maxFrequency("1"),
    minFrequency("1"),
    {"min_thres", QT_TRANSLATE_NOOP("Generic", "Minimum threshold"), kReal, "1", "0.1", "250"},
    {"max_thres", QT_TRANSLATE_NOOP("Generic", "Maximum threshold"), kReal, "100", "1", "250"},
    kColor,
    average("1"),
    {"calc_mode", QT_TRANSLATE_NOOP("Generic", "Calculation mode"), kChoice, "0", "0", "4", "0.1", "",
     QT_TRANSLATE_NOOP("Generic", "Average;Integration;Max;Summa;Power")},
    {"frequency_calc", QT_TRANSLATE_NOOP("Generic", "Frequency calculation mode"), kChoice, "0", "0", "1", "0.1", "",
     QT_TRANSLATE_NOOP("Generic", "Average;Max")},
};

constexpr ParamRow kElectroCardiogram[]{
    {"channel", QT_TRANSLATE_NOOP("Generic", "Use channel"), kOneChannel, "1", "1", "1000", "1"},
    {"hp_freq", QT_TRANSLATE_NOOP("Generic", "High pass filter, Hz"), kReal, "0.2", "0", "50"},
    {"lp_freq", QT_TRANSLATE_NOOP("Generic", "Low pass filter, Hz"), kReal, "40", "0", "70"},
    {"bpmMax", QT_TRANSLATE_NOOP("Generic", "Maximum bpm"), kReal, "150", "0.1", "1000"},
    {"bpmMin", QT_TRANSLATE_NOOP("Generic", "Minimum bpm"), kReal, "30", "0.1", "1000"},
    {"ampMax", QT_TRANSLATE_NOOP("Generic", "Maximum amplitude"), kReal, "4", "0.01", "1000", "0.01"},
    {"ampMin", QT_TRANSLATE_NOOP("Generic", "Minimum amplitude"), kReal, "0.25", "0.01", "1000", "0.01"},
};

constexpr ParamRow kAsymmetryCoeff[]{
    {"channel1", QT_TRANSLATE_NOOP("Generic", "Read channels 1"), kChannels, ""},
    {"channel2", QT_TRANSLATE_NOOP("Generic", "Read channels 2"), kChannels, ""},
    maxFrequency("0.1"),
    minFrequency("0.1"),
    kColor,
    kVisible,
};

constexpr ParamRow kMath[]{
    kColor,
    kVisible,
    {"formula", QT_TRANSLATE_NOOP("Generic", "Calculation formula"), kFormula, ""},
    {"depend", QT_TRANSLATE_NOOP("Generic", "Used rhythms"), kUsedRhythms, ""},
};

/// The thresholds of a rhythm index: µV, and percent of the whole power.
struct RhythmThresholds
{
    const RhythmBand &band;
    float minimum;
    float maximum;
    float minimumPercent;
    float maximumPercent;
};

constexpr RhythmThresholds kDeltaIndex{Rhythms::kDelta, 20.0f, 200.0f, 1.0f, 100.0f};
constexpr RhythmThresholds kThetaIndex{Rhythms::kTheta, 10.0f, 100.0f, 1.0f, 100.0f};
constexpr RhythmThresholds kAlphaIndex{Rhythms::kAlpha, 30.0f, 70.0f, 1.0f, 100.0f};
constexpr RhythmThresholds kMuIndex{Rhythms::kMu, 50.0f, 70.0f, 1.0f, 100.0f};
constexpr RhythmThresholds kBetaIndex{Rhythms::kBeta, 5.0f, 30.0f, 1.0f, 100.0f};
constexpr RhythmThresholds kGammaIndex{Rhythms::kGamma, 30.0f, 70.0f, 1.0f, 100.0f};

constexpr std::array<const RhythmBand *, 5> kStandardRhythms{&Rhythms::kAlpha, &Rhythms::kBeta, &Rhythms::kDelta,
                                                             &Rhythms::kGamma, &Rhythms::kTheta};

constexpr P::TYPE_VAL valueTypeOf(P::CONTROL_TYPE control)
{
    switch (control) {
    case P::ControlReal:
        return P::ValueReal;
    case P::ControlInteger:
    case P::ControlChoice:
    case P::ControlCheckBox:
        return P::ValueInteger;
    case P::ControlColor:
    case P::ControlText:
    case P::ControlChannels:
        break;
    }
    return P::ValueText;
}

custom_param makeParam(const ParamRow &row)
{
    custom_param param;
    param.editType = row.kind.edit;
    param.valueType = valueTypeOf(row.kind.control);
    param.controlType = row.kind.control;
    param.key = QString::fromLatin1(row.key);
    param.label = QString::fromUtf8(row.label);
    param.choices = QString::fromLatin1(row.choices);
    param.defaultValue = QString::fromLatin1(row.standard);
    param.visibility = QString::fromLatin1(row.visibility);
    param.minimum = QString::fromLatin1(row.minimum);
    param.maximum = QString::fromLatin1(row.maximum);
    param.step = QString::fromLatin1(row.step);
    return param;
}

template <std::size_t N> UnitParams makeSet(const QString &name, const ParamRow (&rows)[N])
{
    UnitParams params;
    params.setParamName(name);
    for (const ParamRow &row : rows) {
        params.push_back(makeParam(row));
    }
    return params;
}

void setNumber(UnitParams &params, const QString &key, float value)
{
    params.setParamValue(key, QString::number(static_cast<double>(value), 'g', 6));
}

void setBand(UnitParams &params, const RhythmBand &band)
{
    params.setParamDescriptor(QString::fromLatin1(band.name));
    setNumber(params, QStringLiteral("min_freq"), band.minFrequency);
    setNumber(params, QStringLiteral("max_freq"), band.maxFrequency);
    params.setParamValue(QStringLiteral("r_color"), QString::fromLatin1(band.color));
}

UnitParams makeRhythmIndex(UnitParams params, const RhythmThresholds &rhythm, const QString &channels)
{
    setBand(params, rhythm.band);
    params.setParamValue(QStringLiteral("channel"), channels);
    setNumber(params, QStringLiteral("min_thres"), rhythm.minimum);
    setNumber(params, QStringLiteral("max_thres"), rhythm.maximum);
    setNumber(params, QStringLiteral("p_min_thres"), rhythm.minimumPercent);
    setNumber(params, QStringLiteral("p_max_thres"), rhythm.maximumPercent);
    params.setParamValue(QStringLiteral("calc_mode"), QStringLiteral("1"));
    return params;
}

} // namespace

UnitParams ParamFactory::makeCustomProperty(const QString &type)
{
    struct Builder
    {
        const char *type;
        UnitParams (*make)();
    };
    static constexpr Builder kBuilders[]{
        {"Math", makeMathParam},
        {"SpectrumOnline", makeSpectrumOnlineParam},
        {"SpectrumNorm", makeSpectrumNormParam},
        {"DependSpectrumNorm", makeDependSpectrumNormParam},
        {"ElectroCardiogram", makeElectroCardiogramParam},
        {"ECG", makeElectroCardiogramParam},
        {"AsymmetryCoeff", makeAsymetryCoeff},
        {"CGN", makeCGNProperty},
    };
    for (const Builder &builder : kBuilders) {
        if (type == QLatin1String(builder.type)) {
            return builder.make();
        }
    }
    return {};
}

std::vector<UnitParams> ParamFactory::makeStandardRhythmList()
{
    std::vector<UnitParams> rhythms;
    for (const RhythmBand *band : kStandardRhythms) {
        UnitParams params = makeDependSpectrumNormParam();
        params.setDependName(QStringLiteral("SpectrumOnline"));
        params.setParamValue(QStringLiteral("average"), QStringLiteral("0"));
        setBand(params, *band);
        rhythms.push_back(params);
    }
    return rhythms;
}

UnitParams ParamFactory::makeRhythmAlpha(const QString &channels)
{
    return makeRhythmIndex(makeSpectrumNormParam(), kAlphaIndex, channels);
}

UnitParams ParamFactory::makeRhythmBeta(const QString &channels)
{
    return makeRhythmIndex(makeSpectrumNormParam(), kBetaIndex, channels);
}

UnitParams ParamFactory::makeRhythmDelta(const QString &channels)
{
    return makeRhythmIndex(makeSpectrumNormParam(), kDeltaIndex, channels);
}

UnitParams ParamFactory::makeRhythmGamma(const QString &channels)
{
    return makeRhythmIndex(makeSpectrumNormParam(), kGammaIndex, channels);
}

UnitParams ParamFactory::makeRhythmMu(const QString &channels)
{
    return makeRhythmIndex(makeSpectrumNormParam(), kMuIndex, channels);
}

UnitParams ParamFactory::makeRhythmTheta(const QString &channels)
{
    return makeRhythmIndex(makeSpectrumNormParam(), kThetaIndex, channels);
}

UnitParams ParamFactory::makeSpectrumOnlineParam()
{
    return makeSet(QStringLiteral("SpectrumOnline"), kSpectrumOnline);
}

UnitParams ParamFactory::makeSpectrumNormParam()
{
    return makeSet(QStringLiteral("SpectrumNorm"), kSpectrumNorm);
}

UnitParams ParamFactory::makeDependSpectrumNormParam()
{
    return makeSet(QStringLiteral("DependSpectrumNorm"), kDependSpectrumNorm);
}

UnitParams ParamFactory::makeElectroCardiogramParam()
{
    return makeSet(QStringLiteral("ElectroCardiogram"), kElectroCardiogram);
}

UnitParams ParamFactory::makeAsymetryCoeff()
{
    UnitParams params = makeSet(QStringLiteral("AsymmetryCoeff"), kAsymmetryCoeff);
    params.setDependName(QStringLiteral("SpectrumOnline"));
    return params;
}

UnitParams ParamFactory::makeMathParam()
{
    return makeSet(QStringLiteral("Math"), kMath);
}

UnitParams ParamFactory::makeCGNProperty()
{
    UnitParams params;
    params.setParamName(QStringLiteral("CGN"));
    return params;
}
