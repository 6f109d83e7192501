#include "files/XLSWriter.h"

#include "common/BPCommon.h"
#include "common/SaveFile.h"
#include "files/edf/OpenFile.h"
#include "files/workbook/RhythmSheet.h"

#include <QBuffer>
#include <QElapsedTimer>
#include <QFile>

#include <xlsxdocument.h>
#include <xlsxworkbook.h>
#include <xlsxworksheet.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

namespace {

constexpr int kInformationSheet = 0;
constexpr int kDataSheet = 1;
constexpr int kFirstSetRow = 3; // of the information
constexpr int kLastDataRow = bp::sheet::kMaxRows - 2; // the maximum and the average follow

bool isVisible(const UnitParams &params)
{
    return params.getParamValue(QStringLiteral("visible")) == QLatin1String("1");
}

bool isSwitchedOff(const UnitParams &params)
{
    const QVector<custom_param> &list = params.getParamList();
    return !list.isEmpty() && list.constFirst().getValue() == QLatin1String("0");
}

/// Truncates towards zero after adding a half: the artefact mark −1 becomes 0, and −2.7 becomes −2.
int rounded(float value)
{
    const double raised = static_cast<double>(value) + 0.5;
    if (std::isnan(raised)) {
        return 0;
    }
    return static_cast<int>(qBound<double>(std::numeric_limits<int>::min(), raised, std::numeric_limits<int>::max()));
}

/// Steps of the system's clock are not followed, so that no rows are missing or double.
XLSWriter::Clock steadyClockFromNow()
{
    QElapsedTimer timer;
    timer.start();
    return [timer, start = QDateTime::currentMSecsSinceEpoch()] { return start + timer.elapsed(); };
}

/// Always as text: a formula or a name that looks like one must not be calculated.
bool writeText(QXlsx::Worksheet *sheet, int row, int column, const QString &text)
{
    return sheet->writeInlineString(row, column, bp::cellText(text));
}

/// Whether a file is there that is no workbook, most likely the recording itself, which is empty in its first second.
bool isForeignFile(const QString &path)
{
    QFile file(path);
    return bp::OpenFile::isOpen(path)
        || (file.open(QIODevice::ReadOnly) && file.size() > 0 && !file.read(2).startsWith("PK"));
}

} // namespace

XLSWriter::XLSWriter(QObject *parent)
    : XLSWriter(Clock(), parent)
{
}

XLSWriter::XLSWriter(Clock clock, QObject *parent)
    : QObject(parent)
    , m_timer(this)
    , m_clock(std::move(clock))
    , m_ownClock(!m_clock)
{
    bp::registerMetaTypes();
    qRegisterMetaType<UnitParams>("UnitParams");
    m_timer.setInterval(static_cast<int>(m_interval));
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &XLSWriter::poll);
}

XLSWriter::~XLSWriter()
{
    if (m_running) {
        stopWrite();
    }
}

void XLSWriter::setPath(const QString &path)
{
    m_path = bp::rhythmSheetPath(path);
}

void XLSWriter::setParamList(const std::vector<UnitParams> &params)
{
    // The list is not emptied first: a host may hand its rhythms over in several calls before it records.
    std::copy_if(params.begin(), params.end(), std::back_inserter(m_params), isVisible);
    m_rhythms.clear();
    for (const UnitParams &set : m_params) {
        m_rhythms.insert(set.getParamDescriptor(), Rhythm());
    }
    if (m_running) {
        if (m_document) {
            writeHeaders();
        }
        beginBlock();
    }
}

bool XLSWriter::hasRows() const
{
    return m_running && m_row > bp::sheet::kHeaderRow;
}

void XLSWriter::startWrite()
{
    if (hasRows() || m_params.empty()) {
        return;
    }
    if (m_ownClock) {
        m_clock = steadyClockFromNow();
    }
    const qint64 now = m_clock();
    m_startDate = QDateTime::fromMSecsSinceEpoch(now);
    m_nextTick = now + m_interval;
    m_unsaved.clear();
    m_lastError.clear();
    createDocument();
    m_blocks.clear();
    beginBlock();
    m_row = bp::sheet::kHeaderRow;
    m_running = true;
    if (m_timerEnabled) {
        QMetaObject::invokeMethod(&m_timer, "start"); // at once on the writer's thread, otherwise when that gets to it
    }
}

bool XLSWriter::stopWrite()
{
    if (m_running) {
        m_running = false;
        if (!m_document) { // a host has removed it
            createDocument();
        }
        writeRows();
        writeMaxAvgValues();
        m_blocks.clear();
        m_blocks.shrink_to_fit();
        m_params.clear();
        m_lastClock = 0;
        m_totalClock = 0;
        m_row = bp::sheet::kHeaderRow;
        if (m_timerEnabled) {
            QMetaObject::invokeMethod(&m_timer, "stop");
        }
        QBuffer workbook(&m_unsaved);
        workbook.open(QIODevice::WriteOnly);
        const bool isMade = m_document->saveAs(&workbook);
        removeDocument();
        if (!isMade) {
            m_unsaved.clear();
            return fail(m_path, QStringLiteral("the workbook could not be made"));
        }
    }
    return m_unsaved.isEmpty() || save();
}

void XLSWriter::poll()
{
    if (!m_running) {
        return;
    }
    const qint64 now = m_clock();
    for (; m_nextTick <= now; m_nextTick += m_interval) {
        writeRow(m_nextTick);
    }
}

void XLSWriter::slotWriteData()
{
    if (m_running) {
        writeRow(m_clock());
    }
}

void XLSWriter::addData(const QString & /*in_type_data*/, const UnitParams &in_param, unsigned int /*in_channel*/,
                        const vector<float> &in_data)
{
    const auto rhythm = m_rhythms.find(in_param.getParamDescriptor());
    if (rhythm == m_rhythms.end() || in_data.empty()) {
        return;
    }
    const int value = rounded(in_data.front());
    rhythm->maximum = rhythm->count == 0 ? value : qMax(rhythm->maximum, value);
    rhythm->sum += value;
    ++rhythm->count;
    rhythm->current = value;
}

/// The columns of the rows that follow.
void XLSWriter::beginBlock()
{
    Block block;
    for (const UnitParams &set : m_params) {
        const QString &descriptor = set.getParamDescriptor();
        const int column = columnOf(descriptor);
        if (m_rhythms.contains(descriptor) && (block.columns.empty() || block.columns.back() < column)) {
            block.descriptors.push_back(descriptor);
            block.columns.push_back(column);
        }
    }
    m_blocks.push_back(std::move(block));
}

void XLSWriter::writeRow(qint64 time)
{
    if (m_row == kLastDataRow) {
        return;
    }
    Block &block = m_blocks.back();
    block.times.push_back(time);
    block.counts.push_back(countUntil(time));
    for (const QString &descriptor : block.descriptors) {
        block.values.push_back(m_rhythms.value(descriptor).current);
    }
    if (++m_row == kLastDataRow) {
        BPCommon::log(BPCommon::LogSpreadsheet, "XLSWriter::writeRow the sheet is full at row %i", m_row);
    }
}

long long XLSWriter::calclastClock()
{
    return countUntil(m_clock ? m_clock() : QDateTime::currentMSecsSinceEpoch());
}

long long XLSWriter::countUntil(qint64 now)
{
    if (m_lastClock != 0) {
        m_totalClock += now - m_lastClock;
    }
    m_lastClock = now;
    return m_totalClock;
}

int XLSWriter::columnOf(const QString &descriptor) const
{
    int column = bp::sheet::kCountsColumn;
    for (const UnitParams &set : m_params) {
        ++column;
        if (set.getParamDescriptor() == descriptor) {
            return column;
        }
    }
    return 0;
}

/// Null without a document.
QXlsx::Worksheet *XLSWriter::sheet(int index) const
{
    return m_document == nullptr ? nullptr : static_cast<QXlsx::Worksheet *>(m_document->workbook()->sheet(index));
}

void XLSWriter::createDocument()
{
    m_document = std::make_unique<QXlsx::Document>();
    const QString information = bp::sheetName(bp::sheet::kInformation);
    const QString data = bp::sheetName(bp::sheet::kData);
    m_document->addSheet(information);
    // No two sheets may have one name; no translation of ours does that.
    m_document->addSheet(data.compare(information, Qt::CaseInsensitive) == 0 ? QStringLiteral("Data 2") : data);
    m_document->workbook()->setActiveSheet(kInformationSheet);
    writeHeaders();
}

void XLSWriter::removeDocument()
{
    m_document.reset();
}

void XLSWriter::writeHeaders()
{
    QXlsx::Worksheet *information = sheet(kInformationSheet);
    writeText(information, 1, 1, bp::translated(bp::sheet::kStartDate));
    const QDateTime start = m_startDate.isValid() ? m_startDate : QDateTime::currentDateTime();
    writeText(information, 1, 2, start.toString(QStringLiteral("yyyy/MM/dd hh:mm:ss")));
    writeText(information, 2, 1, bp::translated(bp::sheet::kRhythmsAmount));
    information->writeNumeric(2, 2, static_cast<double>(m_params.size()));
    paramListToFile();

    setDataToFile(bp::sheet::kHeaderRow, bp::sheet::kTimeColumn, bp::translated(bp::sheet::kTime),
                  bp::translated(bp::sheet::kCounts));
    int column = bp::sheet::kCountsColumn;
    for (const UnitParams &set : m_params) {
        writeText(sheet(kDataSheet), bp::sheet::kHeaderRow, ++column, set.getParamDescriptor());
    }
}

/// The number in a set's caption is that of its column, which it keeps when a set before it is left out.
void XLSWriter::paramListToFile()
{
    QXlsx::Worksheet *information = sheet(kInformationSheet);
    int row = kFirstSetRow;
    int position = 0;
    if (information == nullptr) {
        return;
    }
    for (const UnitParams &set : m_params) {
        ++position;
        if (isSwitchedOff(set)) {
            continue;
        }
        const QString caption =
            bp::translated(bp::sheet::kNumber) + QString::number(position) + QLatin1Char(' ') + set.getName();
        writeText(information, row, bp::sheet::kCaptionColumn, caption);
        writeText(information, row, bp::sheet::kValueColumn, set.getParamDescriptor());
        for (const custom_param &param : set.getParamList()) {
            writeAlgorithmParametrs(++row, param);
        }
        ++row;
    }
}

void XLSWriter::writeAlgorithmParametrs(int row, const custom_param &param)
{
    QXlsx::Worksheet *information = sheet(kInformationSheet);
    if (information == nullptr) {
        return;
    }
    writeText(information, row, bp::sheet::kCaptionColumn, param.getTitle());
    writeText(information, row, bp::sheet::kValueColumn, param.getValue());
    writeText(information, row, bp::sheet::kKeyColumn, param.key);
}

bool XLSWriter::setDataToFile(int row, int column, const QString &first, const QString &second)
{
    QXlsx::Worksheet *data = sheet(kDataSheet);
    return data != nullptr && writeText(data, row, column, first) && writeText(data, row, column + 1, second);
}

/// Cells of the document take fifty times the memory of the rows as they are kept, so they are made only now.
void XLSWriter::writeRows()
{
    QXlsx::Worksheet *data = sheet(kDataSheet);
    int row = bp::sheet::kHeaderRow;
    for (const Block &block : m_blocks) {
        auto value = block.values.cbegin();
        for (std::size_t i = 0; i < block.times.size(); ++i) {
            const QTime time = QDateTime::fromMSecsSinceEpoch(block.times[i]).time();
            setDataToFile(++row, bp::sheet::kTimeColumn, time.toString(QStringLiteral("hh:mm:ss.zzz")),
                          QString::number(block.counts[i]));
            for (const int column : block.columns) {
                data->writeNumeric(row, column, *value++);
            }
        }
    }
}

void XLSWriter::writeMaxAvgValues()
{
    QXlsx::Worksheet *data = sheet(kDataSheet);
    if (data == nullptr) {
        return;
    }
    const int maximumRow = m_row + 1;
    const int averageRow = m_row + 2;
    writeText(data, maximumRow, bp::sheet::kTimeColumn, bp::translated(bp::sheet::kMaximum));
    writeText(data, averageRow, bp::sheet::kTimeColumn, bp::translated(bp::sheet::kAverage));
    for (auto rhythm = m_rhythms.cbegin(); rhythm != m_rhythms.cend(); ++rhythm) {
        const int column = columnOf(rhythm.key());
        const double count = qMax<double>(1.0, static_cast<double>(rhythm->count));
        data->writeNumeric(maximumRow, column, rhythm->maximum);
        data->writeNumeric(averageRow, column, static_cast<double>(rhythm->sum) / count);
    }
}

bool XLSWriter::save()
{
    // A recording without ".edf" in its name has the very path that the spreadsheet would get.
    const QString path = isForeignFile(m_path) ? m_path + QStringLiteral("_rt.xls") : m_path;
    const QString fault = bp::saveFile(path, m_unsaved);
    if (!fault.isEmpty()) {
        return fail(path, fault);
    }
    m_unsaved.clear();
    m_lastError.clear();
    return true;
}

bool XLSWriter::fail(const QString &path, const QString &reason)
{
    m_lastError =
        QStringLiteral("The rhythms could not be saved to \"%1\" (%2); free some space or choose another folder.")
            .arg(path, reason);
    BPCommon::log(BPCommon::LogSpreadsheet, "XLSWriter::stopWrite %s", m_lastError);
    return false;
}
