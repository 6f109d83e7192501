#pragma once

#include <QByteArray>
#include <QFile>
#include <QList>

#include <vector>

/// EDF files taken apart byte by byte, so that what the writer makes is judged by something that shares no code with
/// it.
struct EdfParser
{
    struct Signal
    {
        QByteArray label;
        QByteArrayList unitAndRange; ///< dimension, physical minimum and maximum, digital minimum and maximum
        int samplesPerRecord = 0;
        std::vector<double> values{}; ///< physical
    };
    struct Annotation
    {
        double onset;
        double duration; ///< −1: none
        QByteArray text;
    };

    QByteArray bytes;
    int records = -1;
    int headerBytes = 0;
    int recordBytes = 0;
    qint64 excessBytes = 0; ///< in the file, against what the header says; negative when bytes are missing
    QList<Signal> signalList;
    QList<Annotation> annotations;
    QList<double> recordOnsets;

    explicit EdfParser(const QString &path)
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            return;
        }
        bytes = file.readAll();
        records = field(236, 8).toInt();
        headerBytes = field(184, 8).toInt();
        const int count = field(252, 4).toInt();
        if (headerBytes != 256 * (count + 1)) {
            return;
        }
        QList<Signal> all;
        for (int i = 0; i < count; ++i) {
            const auto at = [&](int before, int width) { return field(256 + count * before + i * width, width); };
            all << Signal{at(0, 16), {at(96, 8), at(104, 8), at(112, 8), at(120, 8), at(128, 8)}, at(216, 8).toInt()};
            recordBytes += 2 * all.last().samplesPerRecord;
        }
        parseRecords(all);
        for (const Signal &signal : qAsConst(all)) {
            if (signal.label != "EDF Annotations") {
                signalList << signal;
            }
        }
    }

    /// Without the blanks around it.
    QByteArray field(int position, int width) const { return bytes.mid(position, width).trimmed(); }

private:
    void parseRecords(QList<Signal> &all)
    {
        int position = headerBytes;
        for (int record = 0; record < records; ++record) {
            for (Signal &signal : all) {
                const QByteArray block = bytes.mid(position, 2 * signal.samplesPerRecord);
                position += 2 * signal.samplesPerRecord;
                if (signal.label == "EDF Annotations") {
                    parseAnnotations(block, recordOnsets.size() == record);
                    continue;
                }
                const auto number = [&signal](int i) { return signal.unitAndRange[i].toDouble(); };
                const double step = (number(2) - number(1)) / (number(4) - number(3));
                for (int i = 0; i + 1 < block.size(); i += 2) {
                    const int digital = static_cast<signed char>(block[i + 1]) * 256 + static_cast<uchar>(block[i]);
                    signal.values.push_back(number(1) + (digital - number(3)) * step);
                }
            }
        }
        excessBytes = bytes.size() - qint64{position};
    }

    /// Lists "+onset[\x15duration]\x14text\x14\0"; the first of a record has no text and gives the record's onset.
    void parseAnnotations(const QByteArray &block, bool keepsTime)
    {
        for (const QByteArray &list : block.split('\0')) {
            const QList<QByteArray> parts = list.split('\x14');
            const QList<QByteArray> times = parts[0].split('\x15');
            if (keepsTime) {
                recordOnsets << times[0].toDouble();
            } else if (!list.isEmpty()) {
                annotations << Annotation{times[0].toDouble(), times.value(1, "-1").toDouble(), parts.value(1)};
            }
            keepsTime = false;
        }
    }
};
