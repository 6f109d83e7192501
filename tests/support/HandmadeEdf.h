#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

#include <functional>
#include <vector>

/// Small EDF(+) and BDF files of several signals, rates and units, built field by field as the format's description has
/// them.
///
/// EDF's digital −32768…32767 is physical −3276.8…3276.7: a tenth of the unit per step. BDF has that range in 24 bits.
struct HandmadeEdf
{
    struct Signal
    {
        QByteArray label;
        QByteArray dimension = "uV";
        int samplesPerRecord = 100;
        std::function<int(int)> digital = [](int i) { return i; }; ///< by sample index
    };
    struct Annotation
    {
        QByteArray onset; ///< "1.5"
        QByteArray text;
    };

    std::vector<Signal> signalList{};
    int records = 1;
    QByteArray recordDuration = "1"; ///< seconds
    std::vector<Annotation> annotations{}; ///< in the first record; any makes the file an EDF+ one
    bool bdf = false;
    std::vector<QByteArray> onsets{}; ///< of the records; any makes the file a discontinuous one

    QByteArray make() const
    {
        const bool plus = !annotations.empty() || !onsets.empty();
        const int count = static_cast<int>(signalList.size()) + (plus ? 1 : 0);
        QByteArray bytes = (bdf ? QByteArray("\377BIOSEMI") : field("0", 8)) + field(plus ? "X X X X" : "nobody", 80)
            + field(plus ? "Startdate 02-JAN-2020 X X X" : "nothing", 80) + "02.01.2003.04.05"
            + field(256 * (count + 1), 8) + field(type(plus), 44) + field(records, 8) + field(recordDuration, 8)
            + field(count, 4);
        const auto column = [&](int width, const QByteArray &ofAnnotations, auto &&text) {
            for (const Signal &signal : signalList) {
                bytes += field(text(signal), width);
            }
            bytes += plus ? field(ofAnnotations, width) : QByteArray();
        };
        const auto same = [](const char *text) { return [text](const Signal &) { return QByteArray(text); }; };
        column(16, bdf ? "BDF Annotations" : "EDF Annotations", [](const Signal &signal) { return signal.label; });
        column(80, "", same(""));
        column(8, "", [](const Signal &signal) { return signal.dimension; });
        column(8, "-1", same("-3276.8"));
        column(8, "1", same("3276.7"));
        column(8, bdf ? "-8388608" : "-32768", same(bdf ? "-8388608" : "-32768"));
        column(8, bdf ? "8388607" : "32767", same(bdf ? "8388607" : "32767"));
        column(80, "", same(""));
        column(8, QByteArray::number(kAnnotationBytes / (bdf ? 3 : 2)),
               [](const Signal &signal) { return QByteArray::number(signal.samplesPerRecord); });
        column(32, "", same(""));
        for (int record = 0; record < records; ++record) {
            for (const Signal &signal : signalList) {
                for (int i = 0; i < signal.samplesPerRecord; ++i) {
                    const int value = signal.digital(record * signal.samplesPerRecord + i);
                    for (int bits = 0; bits < (bdf ? 24 : 16); bits += 8) {
                        bytes += static_cast<char>((static_cast<unsigned>(value) >> bits) & 0xFF);
                    }
                }
            }
            bytes += plus ? annotationLists(record) : QByteArray();
        }
        return bytes;
    }

    /// Returns the path.
    static QString write(const QByteArray &bytes, const QString &path)
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
            qFatal("no %s", qPrintable(path));
        }
        return path;
    }
    /// With other bytes in one place.
    static QByteArray changed(QByteArray bytes, int at, const QByteArray &field)
    {
        return bytes.replace(at, field.size(), field);
    }
    QString writeTo(const QString &path) const { return write(make(), path); }

private:
    static constexpr int kAnnotationBytes = 120;

    static QByteArray field(const QByteArray &text, int width) { return text.leftJustified(width, ' ', true); }
    static QByteArray field(int number, int width) { return field(QByteArray::number(number), width); }

    QByteArray type(bool plus) const
    {
        if (!plus) {
            return bdf ? "24BIT" : "";
        }
        return QByteArray(bdf ? "BDF+" : "EDF+") + (onsets.empty() ? 'C' : 'D');
    }

    QByteArray annotationLists(int record) const
    {
        const QByteArray onset = onsets.empty() ? QByteArray::number(record * recordDuration.toDouble())
                                                : onsets.at(static_cast<std::size_t>(record));
        QByteArray lists = '+' + onset + "\x14\x14" + '\0';
        for (const Annotation &annotation : annotations) {
            lists += record > 0 ? QByteArray() : '+' + annotation.onset + '\x14' + annotation.text + '\x14' + '\0';
        }
        return lists.leftJustified(kAnnotationBytes, '\0', true);
    }
};
