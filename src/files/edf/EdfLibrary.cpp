#include "files/edf/EdfLibrary.h"

#include <QFile>
#include <QString>

#include <edflib.h>

#include <mutex>

namespace {

std::mutex &tableMutex()
{
    static std::mutex mutex;
    return mutex;
}

struct ErrorText
{
    int code;
    const char *text;
    const char *debugMessage; ///< Compatibility: hosts show these texts; their spelling and line breaks stay
};

constexpr const char *kUnknown = "unknown error";
constexpr ErrorText kErrorTexts[]{
    {EDFLIB_MALLOC_ERROR, "there is not enough memory", "malloc error"},
    {EDFLIB_NO_SUCH_FILE_OR_DIRECTORY, "there is no such file, or this user may not open it",
     "\ncan not open file, no such file or directory"},
    {EDFLIB_FILE_CONTAINS_FORMAT_ERRORS, "it is not a complete EDF(+) or BDF(+) file, or its header has format errors",
     "the file is not EDF(+) or BDF(+) compliant\r\n(it contains format errors)"},
    {EDFLIB_MAXFILES_REACHED, "too many files are open; close one first", "to many files opened"},
    {EDFLIB_FILE_READ_ERROR, "reading failed; the file may be shorter than its header says", "a read error occurred"},
    {EDFLIB_FILE_ALREADY_OPENED, "this program has it open already; close it there first",
     "file has already been opened"},
    {EDFLIB_FILE_WRITE_ERROR, "writing failed", kUnknown},
    {EDFLIB_NUMBER_OF_SIGNALS_INVALID, "the number of signals is not one that the format allows", kUnknown},
    {EDFLIB_FILE_IS_DISCONTINUOUS,
     "it is a discontinuous recording (EDF+D or BDF+D) with gaps; save its parts as continuous files first", kUnknown},
};

const ErrorText *find(int code)
{
    for (const ErrorText &error : kErrorTexts) {
        if (error.code == code) {
            return &error;
        }
    }
    return nullptr;
}

} // namespace

namespace bp {

int EdfLibrary::openForWriting(const QString &path, int fileType, int channels)
{
    const std::lock_guard<std::mutex> lock(tableMutex());
    return edfopen_file_writeonly(path.toLocal8Bit().constData(), fileType, channels);
}

int EdfLibrary::openForReading(const QString &path, edf_hdr_struct &header, int annotationMode)
{
    const std::lock_guard<std::mutex> lock(tableMutex());
    return edfopen_file_readonly(path.toLocal8Bit().constData(), &header, annotationMode) == 0 ? 0 : header.filetype;
}

int EdfLibrary::close(int handle)
{
    const std::lock_guard<std::mutex> lock(tableMutex());
    return edfclose_file(handle);
}

bool EdfLibrary::isFileUsed(const QString &path)
{
    const std::lock_guard<std::mutex> lock(tableMutex());
    return edflib_is_file_used(path.toLocal8Bit().constData()) == 1;
}

QString EdfLibrary::errorText(int code)
{
    const ErrorText *error = find(code);
    return error != nullptr ? QString::fromLatin1(error->text)
                            : QStringLiteral("EDFlib answers with code %1").arg(code);
}

const char *EdfLibrary::debugMessage(int code)
{
    const ErrorText *error = find(code);
    return error != nullptr ? error->debugMessage : kUnknown;
}

} // namespace bp
