#include "files/XLSReader.h"

#include "algorithms/ParamFactory.h"
#include "base/LanguageContext.h"
#include "common/BPCommon.h"
#include "files/workbook/RhythmSheet.h"
#include "files/workbook/WorkbookCheck.h"

#include <QBuffer>
#include <QFile>
#include <QSet>

#include <xlsxcell.h>
#include <xlsxdocument.h>
#include <xlsxworkbook.h>
#include <xlsxworksheet.h>

#include <cmath>
#include <limits>

namespace {

constexpr int kMaxInformationRows = 65536;
constexpr int kMaxHeaderRows = 64; // above the parameter sets
constexpr int kMaxRhythms = bp::sheet::kMaxColumns - bp::sheet::kCountsColumn;

QSet<QString> textsOf(const bp::SheetCaption &caption)
{
    QSet<QString> texts =
        LanguageContext::multilingualTranslate(QStringLiteral("Generic"), QString::fromUtf8(caption.caption));
    for (const QString &fallback : QString::fromUtf8(caption.fallbacks).split(QLatin1Char('|'))) {
        texts.insert(fallback);
    }
    return texts;
}

/// Number and name of "№ 2 SpectrumNorm"; the number is 0 when the text is no caption of a parameter set.
std::pair<int, QString> parseSetCaption(const QString &text, const QSet<QString> &prefixes)
{
    for (const QString &prefix : prefixes) {
        if (text.startsWith(prefix)) {
            const QString rest = text.mid(prefix.size()).trimmed();
            const int blank = rest.indexOf(QLatin1Char(' '));
            return {qMax(0, rest.left(blank).toInt()), blank < 0 ? QString() : rest.mid(blank + 1).trimmed()};
        }
    }
    return {0, QString()};
}

/// Key of the parameter with a title in whatever language; empty when there is none.
QString keyOf(const UnitParams &params, const QString &title)
{
    for (const custom_param &param : params.getParamList()) {
        if (LanguageContext::multilingualTranslate(QStringLiteral("Generic"), param.label).contains(title)) {
            return param.key;
        }
    }
    return QString();
}

int toInt(double value)
{
    return std::isfinite(value)
        ? static_cast<int>(qBound<double>(std::numeric_limits<int>::min(), value, std::numeric_limits<int>::max()))
        : 0;
}

} // namespace

XLSReader::XLSReader(const QString &path)
{
    openFile(path);
}

XLSReader::~XLSReader() = default;

bool XLSReader::openFile(const QString &path)
{
    m_paramsByPosition.clear();
    m_data.clear();
    m_amount = 0;
    m_dataCount = 0;
    m_maximumRow = 0;
    m_averageRow = 0;
    m_lastError.clear();
    m_path = bp::rhythmSheetPath(path);
    removeDocument();
    m_isOpened = readFile(m_lastError) && readInformation(m_lastError) && readRhythmData(m_lastError);
    removeDocument();
    if (!m_isOpened) {
        m_lastError = QStringLiteral("\"%1\" cannot be read as a rhythm spreadsheet: %2.").arg(path, m_lastError);
        BPCommon::log(BPCommon::LogSpreadsheet, "XLSReader::openFile %s", m_lastError);
    }
    return m_isOpened;
}

bool XLSReader::readData(QHash<QString, RhythmData> &data) const
{
    if (m_isOpened) {
        data = m_data;
    }
    return m_isOpened;
}

void XLSReader::getParamList(std::vector<UnitParams> &params) const
{
    params.clear();
    for (auto set = m_paramsByPosition.cbegin(); m_isOpened && set != m_paramsByPosition.cend(); ++set) {
        params.push_back(set.value());
    }
}

bool XLSReader::readFile(QString &error)
{
    if (!m_path.endsWith(QLatin1String(".xls"), Qt::CaseInsensitive)) {
        error = QStringLiteral("its name ends neither in .xls nor in .edf");
        return false;
    }
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = file.errorString();
        return false;
    }
    if (file.size() > bp::kMaxWorkbookBytes) {
        error = QStringLiteral("it is too large");
        return false;
    }
    QByteArray workbook = file.readAll();
    const bp::Outcome sound = bp::checkWorkbook(workbook);
    if (!sound) {
        error = sound.reason();
        return false;
    }
    QBuffer buffer(&workbook);
    buffer.open(QIODevice::ReadOnly);
    m_document = std::make_unique<QXlsx::Document>(&buffer);
    if (!m_document->load()) {
        m_document.reset();
        error = QStringLiteral("it is no workbook");
    }
    return error.isEmpty();
}

/// The sheet that text() reads from.
bool XLSReader::selectSheet(const bp::SheetCaption &caption)
{
    QString error;
    m_sheet = m_document || readFile(error) ? sheetOf(caption) : nullptr;
    return m_sheet != nullptr;
}

bool XLSReader::readInformation(QString &error)
{
    if (!selectSheet(bp::sheet::kInformation)) {
        error = QStringLiteral("it has no sheet with information");
        return false;
    }
    m_setPrefixes = textsOf(bp::sheet::kNumber);
    const QSet<QString> captions = textsOf(bp::sheet::kRhythmsAmount);
    for (int row = 1; row <= kMaxHeaderRows; ++row) {
        if (captions.contains(text(row, bp::sheet::kCaptionColumn))) {
            m_amount = toInt(text(row, bp::sheet::kValueColumn).toDouble());
            if (m_amount < 0 || m_amount > kMaxRhythms) {
                break;
            }
            readRhythmsParam(row + 1);
            return true;
        }
    }
    error = QStringLiteral("it does not say how many rhythms it has");
    return false;
}

void XLSReader::readRhythmsParam(int firstRow)
{
    selectSheet(bp::sheet::kInformation);
    for (int row = qMax(1, firstRow); row <= kMaxInformationRows; ++row) {
        const auto [position, name] = parseSetCaption(text(row, bp::sheet::kCaptionColumn), m_setPrefixes);
        if (position >= 1 && position <= m_amount) {
            m_paramsByPosition.insert(position, makeParametrs(name, row));
        }
    }
}

UnitParams XLSReader::makeParametrs(const QString &name, int row)
{
    selectSheet(bp::sheet::kInformation);
    UnitParams params = ParamFactory::makeCustomProperty(name);
    params.setParamName(name);
    params.setParamDescriptor(text(row, bp::sheet::kValueColumn));
    for (++row; row <= kMaxInformationRows; ++row) {
        const QString caption = text(row, bp::sheet::kCaptionColumn);
        if (caption.isEmpty() || parseSetCaption(caption, m_setPrefixes).first > 0) {
            break;
        }
        const QString key = text(row, bp::sheet::kKeyColumn);
        params.setParamValue(key.isEmpty() ? keyOf(params, caption) : key, text(row, bp::sheet::kValueColumn));
    }
    return params;
}

bool XLSReader::readRhythmData(QString &error)
{
    if (!selectSheet(bp::sheet::kData)
        || !textsOf(bp::sheet::kTime).contains(text(bp::sheet::kHeaderRow, bp::sheet::kTimeColumn))) {
        error = QStringLiteral("it has no sheet with data");
        return false;
    }
    m_data.clear();
    findDataRows();
    for (int position = 1; position <= m_amount; ++position) {
        const int column = bp::sheet::kCountsColumn + position;
        RhythmData data;
        data.descriptor = text(bp::sheet::kHeaderRow, column);
        data.params = m_paramsByPosition.value(position);
        fillDataConteiner(data, column);
        // Where a rhythm was chosen twice, only one of its columns has values.
        const auto known = m_data.constFind(data.descriptor);
        if (!data.descriptor.isEmpty() && (known == m_data.cend() || known->values.isEmpty())) {
            m_data.insert(data.descriptor, data);
        }
    }
    return true;
}

void XLSReader::findDataRows()
{
    const QSet<QString> maximum = textsOf(bp::sheet::kMaximum);
    const QSet<QString> average = textsOf(bp::sheet::kAverage);
    int row = bp::sheet::kHeaderRow + 1;
    m_dataCount = 0;
    for (; row <= bp::sheet::kMaxRows; ++row) {
        const QString caption = text(row, bp::sheet::kTimeColumn);
        if (caption.isEmpty() || maximum.contains(caption)) {
            break;
        }
        ++m_dataCount;
    }
    m_maximumRow = maximum.contains(text(row, bp::sheet::kTimeColumn)) ? row : 0;
    m_averageRow = average.contains(text(row + 1, bp::sheet::kTimeColumn)) ? row + 1 : 0;
}

void XLSReader::fillDataConteiner(RhythmData &data, int column)
{
    selectSheet(bp::sheet::kData);
    data.times.clear();
    data.values.clear();
    for (int row = bp::sheet::kHeaderRow + 1; row <= bp::sheet::kHeaderRow + m_dataCount; ++row) {
        bool hasTime = false;
        bool hasValue = false;
        const qint64 time = text(row, bp::sheet::kCountsColumn).toLongLong(&hasTime);
        const double value = text(row, column).toDouble(&hasValue);
        if (hasTime && hasValue) {
            data.times << time;
            data.values << toInt(value);
        }
    }
    data.maximum = m_maximumRow > 0 ? toInt(text(m_maximumRow, column).toDouble()) : 0;
    data.average = m_averageRow > 0 ? text(m_averageRow, column).toDouble() : 0.0;
}

void XLSReader::removeDocument()
{
    m_sheet = nullptr;
    m_document.reset();
}

/// Null when there is none.
QXlsx::Worksheet *XLSReader::sheetOf(const bp::SheetCaption &caption) const
{
    const QSet<QString> names = textsOf(caption);
    for (const QString &name : m_document->sheetNames()) {
        QXlsx::AbstractSheet *sheet = m_document->sheet(name);
        if (names.contains(name) && sheet != nullptr && sheet->sheetType() == QXlsx::AbstractSheet::ST_WorkSheet) {
            return static_cast<QXlsx::Worksheet *>(sheet);
        }
    }
    return nullptr;
}

/// Empty when there is no such cell.
QString XLSReader::text(int row, int column) const
{
    const QXlsx::Cell *cell = m_sheet == nullptr ? nullptr : m_sheet->cellAt(row, column);
    return cell == nullptr ? QString() : cell->value().toString();
}
