#include "server/handlers/StateRequests.h"

#include "server/handlers/Conditions.h"
#include "server/handlers/LastValues.h"

#include <cmath>

namespace {

constexpr int kNoState = -1;
constexpr ProcessRequest::Precondition kIsReading{bp::isReading, "Halvin is not in state work"};

/// A state given as a number or as a numeric text; kNoState for anything else.
int stateFrom(const QJsonValue &value)
{
    if (value.isString()) {
        bool isNumber = false;
        const int state = value.toString().trimmed().toInt(&isNumber);
        return isNumber && state >= 0 ? state : kNoState;
    }
    const double number = value.toDouble(kNoState);
    const bool isState = number >= 0.0 && number <= 1e9 && number == std::floor(number);
    return isState ? static_cast<int>(number) : kNoState;
}

} // namespace

RequestGetStates::RequestGetStates(server_state &state, const LastValues &last)
    : ProcessRequest(
        state,
        {on("getstates", &RequestGetStates::getStates, {{bp::isBci, "getstate\r\nthe halvin is not in BCI state"}})})
    , m_last(last)
{
}

void RequestGetStates::getStates()
{
    QJsonArray states;
    for (const LastValues::State &last : m_last.states) {
        states.append(QJsonObject{{QStringLiteral("state"), QString::number(last.state)},
                                  {QStringLiteral("t"), QString::number(last.time)}});
    }
    ok(QJsonObject{{QStringLiteral("result"), true},
                   {QStringLiteral("amount"), QString::number(states.size())},
                   {QStringLiteral("states"), states}});
}

RequestLastState::RequestLastState(server_state &state, const LastValues &last)
    : ProcessRequest(
        state,
        {on("getlaststate", &RequestLastState::getLastState,
            {kIsReading, {bp::isBci, "getlaststate\r\nthe halvin is not in BCI state"}}),
         on("setstate", &RequestLastState::setState, {kIsReading, {bp::isBci, "Halvin is not in BCI state"}})})
    , m_last(last)
{
}

void RequestLastState::getLastState()
{
    const LastValues::State last = m_last.states.empty() ? LastValues::State{0, 0} : m_last.states.back();
    ok(QJsonObject{{QStringLiteral("result"), true},
                   {QStringLiteral("state"), static_cast<int>(last.state)},
                   {QStringLiteral("t"), static_cast<double>(last.time)}});
}

void RequestLastState::setState()
{
    const int wanted = stateFrom(body().value(QLatin1String("state")));
    if (wanted == kNoState) {
        error(QStringLiteral("Wrong content"));
    } else if (wanted > state().processorStates) {
        error(QStringLiteral("Wrong state count"));
    } else {
        m_exchange.state = wanted;
        if (askModel("setState")) {
            ok();
        }
    }
}

RequestWriteStateFile::RequestWriteStateFile(server_state &state)
    : ProcessRequest(state,
                     {on("writestatefile", &RequestWriteStateFile::writeStateFile),
                      on("removestatefile", &RequestWriteStateFile::removeStateFile)})
{
}

void RequestWriteStateFile::writeStateFile()
{
    if (readState() && askServer("writeStateFile")) {
        ok(QJsonObject{{QStringLiteral("time"), state().stateFileSeconds},
                       {QStringLiteral("unit"), QStringLiteral("second, sec")},
                       {QStringLiteral("state"), m_exchange.state}});
    }
}

void RequestWriteStateFile::removeStateFile()
{
    if (readState() && askServer("removeStateFile")) {
        ok();
    }
}

bool RequestWriteStateFile::readState()
{
    bool isNumber = false;
    m_exchange.state = argument().toInt(&isNumber);
    if (!isNumber) {
        error(QString());
    } else if (m_exchange.state < kFirstState || m_exchange.state > kLastState) {
        error(argumentForm("invalid state index"));
    } else if (!state().bciMode) {
        error(command() + QLatin1String("\r\nthe halvin is not in BCI state"));
    } else if (state().writingFile) {
        error(argumentForm("the halvin is busy with the recording"));
    } else {
        return true;
    }
    return false;
}

QString RequestWriteStateFile::argument() const
{
    const int lineEnd = requestText().indexOf(QLatin1Char('\n'));
    const QStringRef line = requestText().leftRef(lineEnd);
    const int start = line.indexOf(command()) + command().size() + 1;
    const int blank = line.indexOf(QLatin1Char(' '), start);
    return blank < 0 ? QString() : line.mid(start, blank - start).toString();
}

QString RequestWriteStateFile::argumentForm(const char *message) const
{
    return QStringLiteral("%1:%2\r\n%3").arg(command()).arg(m_exchange.state).arg(QLatin1String(message));
}

RequestStopStartTraining::RequestStopStartTraining(server_state &state)
    : ProcessRequest(state,
                     {on("starttraining", &RequestStopStartTraining::startTraining,
                         {{bp::isBci, "starttraining\r\nthe halvin is not in BCI state"},
                          {bp::hasRecordedStates, "starttraining: no state files recorded"}}),
                      on("stoptraining", &RequestStopStartTraining::stopTraining,
                         {{bp::isBci, "stoptraining\r\nthe halvin is not in BCI state"}})})
{
}

void RequestStopStartTraining::startTraining()
{
    if (askServer("startTraining")) {
        ok(command() + QLatin1String("\r\n"));
    }
}

void RequestStopStartTraining::stopTraining()
{
    if (askServer("stopTraining")) {
        ok(command() + QLatin1String("\r\n"));
    }
}
