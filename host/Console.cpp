#include "Console.h"

#include "common/BPCommon.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>

#include <cstdio>
#include <filesystem>

namespace {

bool s_progressShown = false;
bool s_complaintsShown = false;

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
    const QByteArray bytes = line.toLocal8Bit() + '\n';
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}

void Console::printJson(const QJsonValue &value)
{
    const QJsonDocument document = value.isArray() ? QJsonDocument(value.toArray()) : QJsonDocument(value.toObject());
    const QByteArray bytes = document.toJson();
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}

void Console::printJsonLine(const QJsonObject &object)
{
    print(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
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

bool Console::parse(QCommandLineParser &parser, const QStringList &arguments, ExitStatus &exitStatus)
{
    const QCommandLineOption help = parser.addHelpOption();
    if (!parser.parse(arguments)) {
        error(parser.errorText() + QStringLiteral(" (--help lists the options)"));
        exitStatus = WrongUsage;
        return false;
    }
    if (parser.isSet(help)) {
        // The parser's own line has the path of the program and no command.
        const QStringList words = QCoreApplication::arguments();
        QString text = parser.helpText().trimmed();
        print(text.replace(words.constFirst() + QLatin1String(" [options]"),
                           QStringLiteral("bioprocessing %1 [options]").arg(words.value(1))));
        exitStatus = Success;
        return false;
    }
    return true;
}
