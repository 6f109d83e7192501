#include "files/EDFReader.h"
#include "files/EDFRescue.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

/// In memory where the system has such a folder: the reader takes paths, and each input is written to a file.
QString workFolder()
{
    const QString memory = QStringLiteral("/dev/shm");
    return QDir(memory).exists() ? memory : QDir::tempPath();
}

/// Everything a host can ask of a file.
void readAll(EDFReader &reader)
{
    constexpr unsigned kCount = 300;
    std::vector<double> values(static_cast<std::size_t>(reader.getChannelCount()) * kCount + 1);
    for (const unsigned offset : {0u, 17u, 100000u}) {
        if (reader.getBuffData(offset, kCount, values.data()) == -2) {
            std::abort(); // it is open
        }
    }
    for (int channel = 0; channel < reader.getChannelCount(); ++channel) {
        const auto number = static_cast<unsigned>(channel);
        const std::vector<float> samples = reader.getChannelDataFloat(number, 0, 100000);
        if (static_cast<long long>(samples.size()) > reader.getChannelSampleCount(channel)) {
            std::abort();
        }
        reader.getChannelName(channel);
        reader.getChannelSampleRate(channel);
        reader.getPhysicalDimension(channel);
    }
    for (const AnnotationStrct &annotation : reader.annotations()) {
        reader.signalTime(annotation.onset);
    }
    PatientInfo patient{};
    reader.getPatientInfo(patient);
    reader.infoFull();
    reader.infoShort();
    reader.takeCurrentAnnotations();
}

} // namespace

/// The bytes are a file: it is opened, read and repaired. A repaired file has to be sound.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const bool isSilent = [] {
        QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
        return true;
    }();
    static const QTemporaryDir folder(workFolder() + QStringLiteral("/fuzz_edf_XXXXXX"));
    const QString path = folder.filePath(QStringLiteral("input.edf"));
    const QString repaired = folder.filePath(QStringLiteral("repaired.edf"));
    QFile file(path);
    if (!isSilent || !file.open(QIODevice::WriteOnly)
        || file.write(reinterpret_cast<const char *>(data), static_cast<qint64>(size)) != static_cast<qint64>(size)) {
        std::abort();
    }
    file.close();
    {
        EDFReader reader(path);
        if (reader.open()) {
            readAll(reader);
        } else if (reader.lastError().isEmpty()) {
            std::abort();
        }
    }
    QFile::remove(repaired);
    if (EDFRescue::repair(path, repaired).done && QFile::exists(repaired)) {
        EDFReader reader(repaired);
        if (!reader.open()) {
            std::abort();
        }
    }
    return 0;
}
