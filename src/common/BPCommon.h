#pragma once

#include "common/BPExport.h"

#include <QObject>
#include <QString>

#include <array>
#include <atomic>
#include <string>
#include <type_traits>

/// Process-wide trace, channel types and colours, reached through Instance() or the static members.
class BIOPROCESSING_EXPORT BPCommon : public QObject
{
    Q_OBJECT
public:
    /// Kind of bio-signal. The numbers travel in JSON, the texts of channelTypeText() in montage files.
    enum ChannelType { EEG = 0, ECG = 1, EMG = 2, EOG = 3, Resp = 4, GSR = 5, PPG = 6, Temp = 7 };
    Q_ENUM(ChannelType)

    /// Classes of trace lines, each of which can be silenced on its own.
    enum LogEvent {
        LogGeneral = 0,
        LogDevice = 1,
        LogPlugin = 2, ///< only failures: a plug-in that does not load
        LogReader = 3,
        LogServer = 4,
        LogMontage = 5,
        LogAlgorithm = 6,
        LogEdfWriter = 7,
        LogEdfReader = 8,
        LogProcessor = 9,
        LogSpreadsheet = 10,
        LogSolverModel = 11,
        LogOutlet = 12,
        LogClient = 13,
        LogDataSource = 14
    };
    Q_ENUM(LogEvent)
    static constexpr int kLogEventCount = 15;

    static BPCommon *Instance();

    /// Writes one trace line through the base library's console.
    ///
    /// The format is that of printf, in the C locale: flags, width and precision (also as "*"), length, and the
    /// conversions d i u x X o c e E f F g G s p. Length is taken from the argument; only "h" and "hh" cut a whole
    /// number. Every conversion is rendered from the real type of its argument, so that one which does not fit ("%d"
    /// with a double, "%c" with a path, "%u" with −1) is harmless: it gives the value as that type is usually written.
    /// Texts are UTF-8, and their width and precision count characters. Conversions without an argument stay as they
    /// stand. A silenced class costs one relaxed atomic load and formats nothing. Any thread.
    template <class... Args> static void log(LogEvent event, const char *format, const Args &...args)
    {
        if (!isLogged(event)) {
            return;
        }
        const std::array<LogArgument, sizeof...(Args)> arguments{LogArgument(args)...};
        writeFormatted(event, format, arguments.data(), static_cast<int>(arguments.size()));
    }
    /// Writes a line as it stands, under a source text of the caller's. Never silenced.
    static void log(const QString &source, const QString &message);

    /// Enables or silences one class of trace lines; all are enabled at first. Any thread.
    static void setLogMode(LogEvent event, bool enabled);
    static bool isLogged(LogEvent event)
    {
        return s_enabled[static_cast<unsigned>(event) % kLogEventCount].load(std::memory_order_relaxed);
    }
    /// Name of a class of trace lines, "LogReader" for example; empty for a number outside the enumeration.
    static QString logEventName(LogEvent event);
    /// Number of lines written so far, in all classes together.
    static qint64 logCount();

    /// Colour of mental state n, 0 to 8; empty outside.
    static QString psychoStateColor(int state);

    /// "EEG", "ECG", … as used in montage files; empty for a value outside the enumeration.
    static QString channelTypeText(ChannelType type);

private:
    BPCommon() = default;

    struct LogArgument
    {
        enum Kind { Signed, Unsigned, Real, Text, Pointer };

        template <class T, std::enable_if_t<std::is_integral_v<T> || std::is_enum_v<T>, int> = 0>
        explicit LogArgument(T value)
            : kind(std::is_signed_v<T> || std::is_enum_v<T> ? Signed : Unsigned)
            , bytes(static_cast<int>(sizeof(T)))
            , integer(static_cast<qint64>(value))
        {
        }
        template <class T, std::enable_if_t<std::is_floating_point_v<T>, int> = 0>
        explicit LogArgument(T value)
            : kind(Real)
            , real(static_cast<double>(value))
        {
        }
        explicit LogArgument(const QString &value)
            : kind(Text)
            , text(value)
        {
        }
        explicit LogArgument(const std::string &value)
            : kind(Text)
            , text(QString::fromStdString(value))
        {
        }
        explicit LogArgument(const char *value)
            : kind(Text)
            , text(QString::fromUtf8(value))
        {
        }
        explicit LogArgument(const void *value)
            : kind(Pointer)
            , bytes(static_cast<int>(sizeof value))
            , integer(static_cast<qint64>(reinterpret_cast<quintptr>(value)))
        {
        }

        Kind kind;
        int bytes = 0; ///< of a whole number
        qint64 integer = 0;
        double real = 0.0;
        QString text;
    };

    struct LogConversion;
    static QString render(LogConversion conversion, const LogArgument &argument);
    static QString renderWhole(const LogConversion &conversion, const LogArgument &argument);
    static QString renderReal(const LogConversion &conversion, double value);
    static void writeFormatted(LogEvent event, const char *format, const LogArgument *arguments, int count);

    static std::array<std::atomic<bool>, kLogEventCount> s_enabled;
    static std::atomic<qint64> s_count;
};
