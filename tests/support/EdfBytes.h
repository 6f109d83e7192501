#pragma once

#include <QByteArray>
#include <QString>

/// Bytes of a plain EDF or BDF file with one signal "ECG MLII" in mV, −5 … 5 over the whole digital range, whose
/// samples count up from 0.
struct EdfBytes
{
    bool bdf = false;
    int records = 1;
    QByteArray recordDuration = "1"; ///< seconds
    int samplesPerRecord = 4;
    QByteArray reserved{}; ///< "EDF+C" for example

    QByteArray make() const
    {
        QByteArray bytes = bdf ? QByteArray("\xff"
                                            "BIOSEMI")
                               : field("0", 8);
        bytes += field("Jane Doe", 80) + field("test", 80) + "02.03.21" + "04.05.06" + field("512", 8);
        bytes += field(bdf ? "24BIT" : reserved, 44) + field(QByteArray::number(records), 8) + field(recordDuration, 8);
        bytes +=
            field("1", 4) + field("ECG MLII", 16) + field("", 80) + field("mV", 8) + field("-5", 8) + field("5", 8);
        bytes += field(bdf ? "-8388608" : "-32768", 8) + field(bdf ? "8388607" : "32767", 8) + field("", 80);
        bytes += field(QByteArray::number(samplesPerRecord), 8) + field("", 32);
        for (int i = 0; i < records * samplesPerRecord; ++i) {
            bytes += static_cast<char>(i & 0xff);
            bytes += static_cast<char>(i >> 8 & 0xff);
            bytes += bdf ? QByteArray(1, static_cast<char>(i >> 16)) : QByteArray();
        }
        return bytes;
    }

private:
    static QByteArray field(const QByteArray &text, int width) { return text.leftJustified(width, ' ', true); }
};
