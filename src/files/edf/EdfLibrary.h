#pragma once

class QString;
struct edf_hdr_struct;

namespace bp {

/// EDFlib's operations on its process-wide table of open files. Any thread.
///
/// The table is shared by everybody who opens or closes a file, and EDFlib does not guard it. A lock is right here:
/// these calls are rare and touch the disk anyway, and nothing in EDFlib could be handed over to another thread
/// instead. Reading and writing work on one file only and stay outside. Paths go to EDFlib in the local 8-bit encoding.
class EdfLibrary
{
public:
    /// @return a handle, or EDFlib's negative code
    static int openForWriting(const QString &path, int fileType, int channels);
    /// @return 0, or EDFlib's negative code, which EDFlib leaves in the header's file type
    static int openForReading(const QString &path, edf_hdr_struct &header, int annotationMode);
    static int close(int handle);
    /// Whether this process has the file open under the same path.
    static bool isFileUsed(const QString &path);
    /// What an error code of EDFlib means, as part of a sentence.
    static QString errorText(int code);
    /// The message for the debug output when a file could not be opened for reading.
    static const char *debugMessage(int code);
};

} // namespace bp
