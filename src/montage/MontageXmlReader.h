#pragma once

#include "common/BPExport.h"
#include "montage/XMLChannel.h"

#include <QFile>
#include <QSharedPointer>
#include <QString>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

class Montage;

/// Stores montages in XML files and reads them back.
class BIOPROCESSING_EXPORT MontageXmlReader
{
public:
    /// Larger files are refused.
    static constexpr qint64 kMaxFileSize = qint64{16} * 1024 * 1024;

    MontageXmlReader();
    ~MontageXmlReader();

    /// Replaces the file only when everything could be written and readMontage() would read it; otherwise returns false
    /// and says why in errorText().
    /// A bipolar montage without a referent is written with an empty name.
    bool writeMontageToFile(const QString &path, const QSharedPointer<Montage> &montage);
    /// A BipolarMontage, AverageMontage or Montage as the file says. Null, with the reason in errorText(), when the
    /// file cannot be read, is malformed or no montage. Group 2 of a bipolar montage follows from the names, not the
    /// file.
    QSharedPointer<Montage> readMontage(const QString &path);
    /// What went wrong in the last operation, as one sentence with the path; empty when nothing did.
    QString errorText() const { return m_error; }

    /// The steps of readMontage(), for the file that it has open; outside of it they find nothing.
    /// @return whether the elements before the first channel could be read
    bool readFile();
    /// The channels, each as one line in the text form of AmplifierChannel.
    QString readChannel();
    /// Advances over an element's end and the whitespace behind it, to the next start or end of an element.
    void doubleNext();

private:
    bool openFile(const QString &path);
    void readHeaderText();
    QSharedPointer<Montage> makeMontage(const QString &lines) const;
    void writeFile();
    void setError(const char *operation, const QString &path, const QString &reason);

    QFile m_file;
    QXmlStreamReader m_reader;
    QXmlStreamWriter m_writer;
    XMLChannel m_channels; ///< has read the channels
    QSharedPointer<Montage> m_montage; ///< being written
    QString m_typeText;
    QString m_leftName;
    QString m_rightName;
    QString m_montageName;
    QString m_error;
};
