// Writes docs/algorithms.md from the tables that the library itself uses: algorithm_reference [--check] FILE
#include "algorithms/AlgorithmManager.h"
#include "algorithms/CustomAlgorithm.h"
#include "algorithms/ParamFactory.h"
#include "common/Rhythms.h"

#include <QCoreApplication>
#include <QFile>
#include <QLoggingCategory>
#include <QTextStream>

namespace {

/// What no table knows: what the algorithm is for, and what its results are.
struct Purpose
{
    const char *type;
    const char *text;
};

constexpr Purpose kPurposes[]{
    {"SpectrumOnline",
     "Sliding amplitude spectrum of every channel, from 0 Hz to half the rate in even steps, for the host and for "
     "other\n"
     "algorithms. Each step gives two results: the amplitudes as they are, of the type \"raw\", and processed, of the\n"
     "empty type. While it searches artefacts there is the first alone, with a flag behind the last channel."},
    {"SpectrumNorm",
     "A rhythm of the EEG from spectra of its own, of the signal before the channel filters. A result begins with the\n"
     "index, its running maximum and its running average; from the fifth value on, one per channel. The index is from "
     "0 to\n"
     "100 with \"calc_mode\" 1 (percent), and from 0 to 1 otherwise; a negative one is an artefact."},
    {"DependSpectrumNorm",
     "The same from the spectra of another algorithm, its depend name, mostly a SpectrumOnline. The choices of\n"
     "\"calc_mode\" stand for the numbers that `DependSpectrumNorm::RhythmCalculationMode` tells, not for their "
     "texts."},
    {"ElectroCardiogram",
     "Heart rate from the R peaks of one channel, of the signal before the channel filters. A result has the beats "
     "per\n"
     "minute, the interval in milliseconds, and where the peak lies, in samples. R peaks must be negative in the "
     "blocks.\n"
     "\"ampMin\" is the least rise and fall of a beat, within 20 ms before and 25 ms after its peak, in units of 70.7 "
     "µV: the\n"
     "default stands for 18 µV, which P and T waves reach too, and 2.5 suits R peaks of 1 mV. `acquire --heart-rate` "
     "leaves\n"
     "the default alone: it takes 35 % of what the beats of the first 6 seconds rise and fall (the median of the "
     "steepest\n"
     "peaks of each 2 seconds, at least the default), and measures again when no beat has come for 5 seconds; "
     "`--heart-amp` gives another.\n"
     "\"ampMax\" is not used."},
    {"AsymmetryCoeff",
     "Asymmetry of the power that two channels have in a band: |A − B| / max(A, B) · 100, a single value, from the\n"
     "spectra of a SpectrumOnline, its depend name. Of a list of channels the first that the montage has counts."},
    {"Math",
     "A formula over rhythms, which are its variables by the names in \"depend\" (separated by \";\"), each from 0 to "
     "1.\n"
     "The result times 100, from 0 to 100, comes with every block, with its running maximum and its running average."},
};

constexpr const char *kHead =
    "# Algorithms and their parameters\n"
    "\n"
    "Written by `algorithm_reference docs/algorithms.md` from the tables of the library; a test compares them.\n"
    "\n"
    "A parameter set has a type name, an instance name (\"descriptor\") and, where it listens to another algorithm, "
    "the\n"
    "name of that one (\"depend name\"). A host makes one with `ParamFactory::makeCustomProperty(TYPE)`, changes "
    "values by\n"
    "key with `UnitParams::setParamValue()` and gives a list of them to `DataCompound::setAlgorithmParams()`; a "
    "program\n"
    "sends them to the command service (`addnewalgorithm`, `setalgorithmparams`); `acquire --algorithms FILE` reads "
    "one\n"
    "saved by `UnitParams::writeParamToFile()`.\n"
    "\n"
    "All values are texts: numbers with a point, flags \"0\" and \"1\", choices by their number from 0, channels by "
    "their\n"
    "montage names separated by \";\" (none: all). \"Set by\" says who sets a value: the user, the user as a formula, "
    "or the\n"
    "user's pick from what there is; only the first is editable through the command service. "
    "`UnitParams::problemOf()`\n"
    "says in a sentence why a value is outside its limits or no choice; setting one does not check.\n";

constexpr const char *kRhythmsHead =
    "\n## Rhythms\n\n"
    "The bands, and what `ParamFactory::makeRhythmAlpha()` and its sisters set in a SpectrumNorm (`acquire "
    "--rhythms`),\n"
    "with \"calc_mode\" 1; `makeStandardRhythmList()` makes a DependSpectrumNorm of each but mu.\n\n"
    "| rhythm | band, Hz | thresholds, µV | thresholds, % | colour |\n| --- | --- | --- | --- | --- |\n";

QString escaped(QString text)
{
    return text.isEmpty() ? QStringLiteral("–") : text.replace(QLatin1Char('|'), QLatin1String("\\|"));
}

QString code(const QString &value)
{
    return value.isEmpty() ? escaped(value) : QLatin1Char('`') + value + QLatin1Char('`');
}

QString limits(const custom_param &param)
{
    return param.minimum.isEmpty() ? QString() : QStringLiteral("%1 … %2").arg(param.minimum, param.maximum);
}

QString choices(const custom_param &param)
{
    if (param.controlType == custom_param::ControlCheckBox) {
        return QStringLiteral("0, 1");
    }
    QStringList numbered;
    const QStringList texts = param.choices.split(QLatin1Char(';'), Qt::SkipEmptyParts);
    for (const QString &text : texts) {
        numbered << QStringLiteral("%1 %2").arg(numbered.size()).arg(text);
    }
    return numbered.join(QStringLiteral(", "));
}

QString setBy(const custom_param &param)
{
    switch (param.editType) {
    case custom_param::EditFormula:
        return QStringLiteral("formula");
    case custom_param::EditSelection:
        return QStringLiteral("pick");
    case custom_param::EditUser:
        break;
    }
    return QStringLiteral("user");
}

void writeParams(QTextStream &out, const UnitParams &params)
{
    out << "\n| key | title | default | limits | choices | set by |\n| --- | --- | --- | --- | --- | --- |\n";
    for (const custom_param &param : params.getParamList()) {
        out << "| `" << param.key << "` | " << escaped(param.label) << " | " << code(param.defaultValue) << " | "
            << escaped(limits(param)) << " | " << escaped(choices(param)) << " | " << setBy(param) << " |\n";
    }
}

void writeRhythms(QTextStream &out)
{
    out << QString::fromUtf8(kRhythmsHead);
    using Maker = UnitParams (*)(const QString &);
    constexpr Maker kMakers[]{ParamFactory::makeRhythmDelta, ParamFactory::makeRhythmTheta,
                              ParamFactory::makeRhythmAlpha, ParamFactory::makeRhythmMu,
                              ParamFactory::makeRhythmBeta,  ParamFactory::makeRhythmGamma};
    for (const Maker make : kMakers) {
        const UnitParams set = make(QString());
        const auto range = [&set](const char *from, const char *to) {
            return QStringLiteral("%1 … %2").arg(set[QLatin1String(from)], set[QLatin1String(to)]);
        };
        out << "| " << set.getParamDescriptor() << " | " << range("min_freq", "max_freq") << " | "
            << range("min_thres", "max_thres") << " | " << range("p_min_thres", "p_max_thres") << " | "
            << code(set[QStringLiteral("r_color")]) << " |\n";
    }
}

bool isKnown(const UnitParams &params)
{
    AlgorithmManager manager;
    manager.setMontage(AmplifierInfo(), {});
    manager.setAlgorithmParams(nullptr, {params});
    manager.updateProperties();
    return manager.findAlgorithm(params.getName(), QString()) != nullptr;
}

QByteArray makeReference(QStringList &unknown)
{
    QByteArray text;
    QTextStream out(&text);
    out.setCodec("UTF-8");
    out << kHead;
    for (const Purpose &purpose : kPurposes) {
        const UnitParams params = ParamFactory::makeCustomProperty(QLatin1String(purpose.type));
        if (!isKnown(params)) {
            unknown << QLatin1String(purpose.type);
        }
        out << "\n## " << purpose.type << "\n\n" << QString::fromUtf8(purpose.text) << '\n';
        writeParams(out, params);
    }
    writeRhythms(out);
    out.flush();
    return text;
}

int fail(const QString &sentence)
{
    QTextStream(stderr) << sentence << '\n';
    return 1;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("tavrix.console=false"));
    const QStringList arguments = QCoreApplication::arguments();
    const bool isCheck = arguments.value(1) == QLatin1String("--check");
    QFile file(arguments.value(isCheck ? 2 : 1));
    QStringList unknown;
    const QByteArray text = makeReference(unknown);
    if (!unknown.isEmpty()) {
        return fail(QStringLiteral("No algorithm of the type %1.").arg(unknown.join(QStringLiteral(", "))));
    }
    if (!file.open(isCheck ? QIODevice::ReadOnly | QIODevice::Text : QIODevice::WriteOnly | QIODevice::Truncate)) {
        return fail(QStringLiteral("%1: %2").arg(file.fileName(), file.errorString()));
    }
    if (isCheck && file.readAll() != text) {
        return fail(
            QStringLiteral("%1 is not what the library has: run algorithm_reference on it.").arg(file.fileName()));
    }
    return isCheck || file.write(text) == text.size() ? 0 : 1;
}
