#include "server/handlers/RecordRequests.h"

#include "server/handlers/Conditions.h"

RequestStartWriteFile::RequestStartWriteFile(server_state &state)
    : ProcessRequest(state,
                     {on("startwritefile", &RequestStartWriteFile::startWriting,
                         {{bp::isReading, "startwritefile: Halvin does not in work state"},
                          {bp::isNotWriting, "startwritefile: Halvin is already writing the file"}}),
                      on("stopwritefile", &RequestStartWriteFile::stopWriting,
                         {{bp::isReading, "stopwritefile: Halvin does not in work state"},
                          {bp::isWriting, "stopwritefile: Halvin does not write the file"}})})
{
}

void RequestStartWriteFile::startWriting()
{
    if (askModel("startWritingFlag")) {
        ok(QStringLiteral("startwritefile:Halvin writes a file"));
    }
}

void RequestStartWriteFile::stopWriting()
{
    if (askModel("stopWritingFlag")) {
        ok(QStringLiteral("stopwritefile:Halvin stopped writing the file"));
    }
}

RequestRemoveAllRecords::RequestRemoveAllRecords(server_state &state)
    : ProcessRequest(state, {on("removeallrecords", &RequestRemoveAllRecords::removeRecords)})
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
                     {on("writelabel", &RequestRecordLabel::writeLabel,
                         {{bp::isRecording, "writelabel: no recording is being written"}}),
                      on("getrecordfile", &RequestRecordLabel::getFile)})
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
