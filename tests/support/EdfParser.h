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
        QByteArray label, dimension, physicalMinimum, physicalMaximum, digitalMinimum, digitalMaximum, prefilter;
        int samplesPerRecord = 0;
        std::vector<int> digital;

        double physicalAt(std::size_t i) const
        {
            const double low = physicalMinimum.toDouble();
            const double step = (physicalMaximum.toDouble() - low) / (digitalMaximum.toInt() - digitalMinimum.toInt());
            return low + (digital.at(i) - digitalMinimum.toInt()) * step;
        }
    };
    struct Annotation
    {
        double onset;
        double duration; ///< −1: none
        QByteArray text;
    };

    QByteArray header; ///< all of it, with the fields of the signals
    QByteArray patient, recording, startDate, startTime, reserved, recordDuration;
    int records = -1;
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
        const QByteArray bytes = file.readAll();
        patient = field(bytes, 8, 80);
        recording = field(bytes, 88, 80);
        startDate = field(bytes, 168, 8);
        startTime = field(bytes, 176, 8);
        reserved = field(bytes, 192, 44);
        records = field(bytes, 236, 8).toInt();
        recordDuration = field(bytes, 244, 8);
        const int count = field(bytes, 252, 4).toInt();
        header = bytes.left(field(bytes, 184, 8).toInt());
        if (header.size() != 256 * (count + 1)) {
            return;
        }
        QList<Signal> all = parseSignals(count);
        parseRecords(bytes, all);
        for (const Signal &signal : qAsConst(all)) {
            if (signal.label != "EDF Annotations") {
                signalList << signal;
            }
        }
    }

private:
    static QByteArray field(const QByteArray &bytes, int position, int width)
    {
        return bytes.mid(position, width).trimmed();
    }

    QList<Signal> parseSignals(int count)
    {
        QList<Signal> all;
        for (int i = 0; i < count; ++i) {
            const auto at = [&](int before, int width) {
                return field(header, 256 + count * before + i * width, width);
            };
            Signal signal;
            signal.label = at(0, 16);
            signal.dimension = at(96, 8);
            signal.physicalMinimum = at(104, 8);
            signal.physicalMaximum = at(112, 8);
            signal.digitalMinimum = at(120, 8);
            signal.digitalMaximum = at(128, 8);
            signal.prefilter = at(136, 80);
            signal.samplesPerRecord = at(216, 8).toInt();
            recordBytes += 2 * signal.samplesPerRecord;
            all << signal;
        }
        return all;
    }

    void parseRecords(const QByteArray &bytes, QList<Signal> &all)
    {
        int position = header.size();
        for (int record = 0; record < records; ++record) {
            bool first = true;
            for (Signal &signal : all) {
                const QByteArray block = bytes.mid(position, 2 * signal.samplesPerRecord);
                position += 2 * signal.samplesPerRecord;
                if (signal.label == "EDF Annotations") {
                    parseAnnotations(block, first);
                    first = false;
                    continue;
                }
                for (int i = 0; i + 1 < block.size(); i += 2) {
                    const int low = static_cast<unsigned char>(block[i]);
                    signal.digital.push_back(static_cast<signed char>(block[i + 1]) * 256 + low);
                }
            }
        }
        excessBytes = bytes.size() - qint64{position};
    }

    /// Lists "+onset[\x15duration]\x14text\x14\0"; the first of a record has no text and gives the record's onset.
    void parseAnnotations(const QByteArray &block, bool keepsTime)
    {
        for (const QByteArray &list : block.split('\0')) {
            if (list.isEmpty()) {
                continue;
            }
            const QList<QByteArray> parts = list.split('\x14');
            const QList<QByteArray> times = parts[0].split('\x15');
            if (keepsTime) {
                recordOnsets << times[0].toDouble();
                keepsTime = false;
                continue;
            }
            annotations << Annotation{times[0].toDouble(), times.size() > 1 ? times[1].toDouble() : -1.0,
                                      parts.value(1)};
        }
    }
};
