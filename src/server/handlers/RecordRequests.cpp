#include "server/handlers/RecordRequests.h"

RequestStartWriteFile::RequestStartWriteFile(server_state &state)
    : ProcessRequest(state,
                     {{QStringLiteral("startwritefile"), static_cast<Operation>(&RequestStartWriteFile::startWriting)},
                      {QStringLiteral("stopwritefile"), static_cast<Operation>(&RequestStartWriteFile::stopWriting)}})
{
}

void RequestStartWriteFile::startWriting()
{
    if (!state().readMode) {
        error(prefixed(" Halvin does not in work state"));
    } else if (isWriting()) {
        error(prefixed(" Halvin is already writing the file"));
    } else if (askModel("startWritingFlag")) {
        ok(prefixed("Halvin writes a file"));
    }
}

void RequestStartWriteFile::stopWriting()
{
    if (!state().readMode) {
        error(prefixed(" Halvin does not in work state"));
    } else if (!isWriting()) {
        error(prefixed(" Halvin does not write the file"));
    } else if (askModel("stopWritingFlag")) {
        ok(prefixed("Halvin stopped writing the file"));
    }
}

bool RequestStartWriteFile::isWriting() const
{
    return state().writingFile || state().writingStateFile;
}

QString RequestStartWriteFile::prefixed(const char *message) const
{
    return command() + QLatin1Char(':') + QLatin1String(message);
}

RequestRemoveAllRecords::RequestRemoveAllRecords(server_state &state)
    : ProcessRequest(
        state, {{QStringLiteral("removeallrecords"), static_cast<Operation>(&RequestRemoveAllRecords::removeRecords)}})
{
}

void RequestRemoveAllRecords::removeRecords()
{
    if (askModel("removeRecordFile")) {
        ok();
    }
}

RequestRecordLabel::RequestRecordLabel(server_state &state)
    : ProcessRequest(state,
                     {{QStringLiteral("writelabel"), static_cast<Operation>(&RequestRecordLabel::writeLabel)},
                      {QStringLiteral("getrecordfile"), static_cast<Operation>(&RequestRecordLabel::getFile)}})
{
}

void RequestRecordLabel::writeLabel()
{
    m_exchange.label = text("label");
    if (m_exchange.label.trimmed().isEmpty()) {
        error(QStringLiteral("writelabel: the label is missing"));
    } else if (m_exchange.label.toUtf8().size() > kMaxLabelBytes) {
        error(QStringLiteral("writelabel: the label is longer than %1 bytes").arg(kMaxLabelBytes));
    } else if (askModel("writeLabel")) {
        ok(QJsonObject{{QStringLiteral("result"), true}, {QStringLiteral("t"), now()}});
    }
}

void RequestRecordLabel::getFile()
{
    if (!askModel("getRecordFile")) {
        return;
    }
    if (m_exchange.recordPath.isEmpty()) {
        error(QStringLiteral("getrecordfile: no recording is being written"));
    } else {
        ok(QJsonObject{{QStringLiteral("result"), true}, {QStringLiteral("file"), m_exchange.recordPath}});
    }
}
