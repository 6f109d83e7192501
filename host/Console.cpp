#include "Console.h"

#include "common/BPCommon.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace {

bool s_progressShown = false;
bool s_complaintsShown = false;
int s_outputError = 0; ///< errno of the first write to standard output that failed

/// Whether standard error is a terminal, as far as the standard library can tell: where devices are no files (Windows)
/// the answer is no.
bool isTerminal()
{
    static const bool terminal = [] {
        std::error_code error;
        const auto target = std::filesystem::canonical("/dev/stderr", error);
        return !error && std::filesystem::is_character_file(target, error) && target != "/dev/null";
    }();
    return terminal;
}

void writeError(const QString &text)
{
    const QByteArray bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stderr);
    std::fflush(stderr);
}

void writeOutput(const QByteArray &bytes)
{
    const bool isWritten = std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stdout)
        == static_cast<std::size_t>(bytes.size());
    if ((!isWritten || std::fflush(stdout) != 0) && s_outputError == 0) {
        s_outputError = errno != 0 ? errno : EIO;
    }
}

void takeMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type == QtDebugMsg) {
        static QSet<QString> told; // every window may have the same complaint
        const bool isComplaint =
            message.startsWith(QLatin1String("ERROR: ")) || message.startsWith(QLatin1String("WARNING: "));
        if (s_complaintsShown && isComplaint && !told.contains(message)) {
            told.insert(message);
            Console::error(message);
        }
        return; // for developers; what a user has to know comes as a result
    }
    static const QRegularExpression stamp(QStringLiteral("^[0-9:.]+ (\\w+): "));
    if (qstrcmp(context.category, "tavrix.console") == 0 && !message.contains(QLatin1String("LogPlugin: "))) {
        writeError(message + QLatin1Char('\n'));
        return;
    }
    QString sentence = message;
    Console::error(sentence.remove(stamp));
}

} // namespace

void Console::print(const QString &line)
{
    writeOutput(line.toLocal8Bit() + '\n');
}

void Console::printJson(const QJsonValue &value)
{
    const QJsonDocument document = value.isArray() ? QJsonDocument(value.toArray()) : QJsonDocument(value.toObject());
    writeOutput(document.toJson());
}

void Console::printJsonLine(const QJsonObject &object)
{
    print(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
}

bool Console::isOutputLost()
{
    return s_outputError != 0;
}

bool Console::isOutputClosed()
{
    return s_outputError == EPIPE;
}

int Console::finish(int status)
{
    if (!isOutputLost() || isOutputClosed()) {
        return status;
    }
    error(QStringLiteral("Standard output took no more (%1): what was printed is incomplete.")
              .arg(QString::fromLocal8Bit(std::generic_category().message(s_outputError).c_str())));
    return Failure;
}

void Console::error(const QString &sentence)
{
    progress(QString());
    writeError(QLatin1String("bioprocessing: ") + sentence.trimmed() + QLatin1Char('\n'));
}

void Console::progress(const QString &text)
{
    if (!isTerminal() || (text.isEmpty() && !s_progressShown)) {
        return;
    }
    s_progressShown = !text.isEmpty();
    writeError(QLatin1String("\r\x1b[K") + text);
}

void Console::installMessageHandler(bool trace)
{
    for (int event = 0; event < BPCommon::kLogEventCount; ++event) {
        BPCommon::setLogMode(static_cast<BPCommon::LogEvent>(event), trace || event == BPCommon::LogPlugin);
    }
    qInstallMessageHandler(takeMessage);
}

void Console::showComplaints(bool shown)
{
    s_complaintsShown = shown;
}

namespace {

/// Options that count each time they are given.
bool isRepeatable(const QString &option)
{
    static const QStringList names{QStringLiteral("set"),  QStringLiteral("label"),       QStringLiteral("algorithms"),
                                   QStringLiteral("data"), QStringLiteral("scale"),       QStringLiteral("rename"),
                                   QStringLiteral("rate"), QStringLiteral("allow-origin")};
    return names.contains(option);
}

/// What is wrong with how options are used, whatever they mean; empty when nothing is.
QString usageFault(const QCommandLineParser &parser)
{
    const QStringList given = parser.optionNames();
    for (const QString &name : given) {
        const QStringList values = parser.values(name);
        if (values.contains(QString()) && given.contains(name)) {
            return QStringLiteral("--%1 needs a value").arg(name);
        }
        if (given.count(name) > 1 && !values.isEmpty() && !isRepeatable(name)) {
            return QStringLiteral("--%1 is given more than once").arg(name);
        }
    }
    return QString();
}

} // namespace

bool Console::parse(QCommandLineParser &parser, const QStringList &arguments, ExitStatus &exitStatus)
{
    // Not the parser's own, which brings an option of the toolkit's along.
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("This text."));
    const QCommandLineOption version(QStringLiteral("version"), QStringLiteral("The version."));
    parser.addOptions({help, version});
    const bool isParsed = parser.parse(arguments);
    if (isParsed && parser.isSet(help)) {
        // The parser's own line has the path of the program and no command.
        const QStringList words = QCoreApplication::arguments();
        QString text = parser.helpText().trimmed();
        print(text.replace(words.constFirst() + QLatin1String(" [options]"),
                           QStringLiteral("bioprocessing %1 [options]").arg(words.value(1))));
        exitStatus = Success;
        return false;
    }
    if (isParsed && parser.isSet(version)) {
        print(QCoreApplication::applicationName() + QLatin1Char(' ') + QCoreApplication::applicationVersion());
        exitStatus = Success;
        return false;
    }
    QString fault = isParsed ? usageFault(parser) : parser.errorText();
    if (!fault.isEmpty()) {
        fault.chop(fault.endsWith(QLatin1Char('.')) ? 1 : 0);
        error(fault + QStringLiteral(" (--help lists the options)."));
        exitStatus = WrongUsage;
        return false;
    }
    return true;
}
