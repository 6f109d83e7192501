#include "Console.h"
#include "Interrupt.h"
#include "commands/Commands.h"
#include "common/ExceptionText.h"

#include <QCoreApplication>
#include <QLocale>

#include <array>
#include <clocale>
#include <new>

namespace {

struct Command
{
    const char *name;
    const char *summary;
    int (*run)(const QStringList &arguments);
};

constexpr std::array<Command, 10> kCommands{{
    {"devices", "what the device plug-ins find", runDevices},
    {"acquire", "acquire from a device, and record", runAcquire},
    {"info", "header, channels and annotations of an EDF or BDF file", runInfo},
    {"repair", "a sound copy of a recording that was not closed", runRepair},
    {"convert", "crop, channels or text: an EDF or BDF file made of others", runConvert},
    {"export", "a recording as a spreadsheet or as comma-separated text", runExport},
    {"train", "learn from labelled recordings, and validate", runTrain},
    {"classify", "classify a recording or a device with a trained model", runClassify},
    {"serve", "answer the requests of other programs, with a device behind", runServe},
    {"request", "drive a running command service", runRequest},
}};

QString usage()
{
    QString text =
        QStringLiteral("Usage: bioprocessing COMMAND [options]   (bioprocessing COMMAND --help tells its options)\n");
    for (const Command &command : kCommands) {
        text += QStringLiteral("\n  %1 %2").arg(QLatin1String(command.name), -10).arg(QLatin1String(command.summary));
    }
    return text + QStringLiteral("\n\n  --help     this text\n  --version  the version");
}

/// A command's exit status; what it throws ends it with a sentence.
int runGuarded(const Command &command, const QStringList &arguments)
{
    try {
        return command.run(arguments);
    } catch (const std::bad_alloc &) {
        Console::error(QStringLiteral("There is not enough memory for this: take less at once, fewer channels or a "
                                      "shorter recording."));
    } catch (...) {
        Console::error(QStringLiteral("An unexpected error has ended this: %1.").arg(bp::exceptionText()));
    }
    return Console::Failure;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    Interrupt::ignoreClosedPipes();
    std::setlocale(LC_NUMERIC, "C"); // numbers in files and answers do not follow the user's locale
    QCoreApplication::setApplicationName(QStringLiteral("bioprocessing"));
    QCoreApplication::setApplicationVersion(QStringLiteral(BIOPROCESSING_VERSION));
    Console::installMessageHandler(qEnvironmentVariableIsSet("BIOPROCESSING_TRACE"));

    QStringList arguments = QCoreApplication::arguments();
    const QString word = arguments.value(1);
    if (word == QLatin1String("--help") || word == QLatin1String("-h")) {
        Console::print(usage());
        return Console::finish(Console::Success);
    }
    if (word == QLatin1String("--version")) {
        Console::print(QStringLiteral("bioprocessing " BIOPROCESSING_VERSION));
        return Console::finish(Console::Success);
    }
    for (const Command &command : kCommands) {
        if (word == QLatin1String(command.name)) {
            arguments.removeAt(1);
            return Console::finish(runGuarded(command, arguments));
        }
    }
    Console::error(word.isEmpty()
                       ? QStringLiteral("Say what to do: bioprocessing --help lists the commands.")
                       : QStringLiteral("There is no command \"%1\": bioprocessing --help lists them.").arg(word));
    return Console::WrongUsage;
}
