#include "server/handlers/AlgorithmRequests.h"

#include "algorithms/ParamFactory.h"
#include "server/ParamLimits.h"

#include <QJsonDocument>

namespace {

/// A parameter set as this service shows it: its list is called "param_list" here.
QJsonObject describe(const UnitParams &params)
{
    const QJsonObject json = params.toJson();
    return {{QStringLiteral("name"), params.getName()},
            {QStringLiteral("desc"), params.getParamDescriptor()},
            {QStringLiteral("param_list"), json.value(QLatin1String("data"))}};
}

} // namespace

RequestGetAlgorithms::RequestGetAlgorithms(server_state &state)
    : ProcessRequest(state,
                     {on("getalgorithms", &RequestGetAlgorithms::getAlgorithms),
                      on("getalgorithmparams", &RequestGetAlgorithms::getParameters),
                      on("setalgorithmparams", &RequestGetAlgorithms::setParameters),
                      on("removealgorithm", &RequestGetAlgorithms::removeAlgorithm),
                      on("addnewalgorithm", &RequestGetAlgorithms::addAlgorithm)})
{
}

void RequestGetAlgorithms::getAlgorithms()
{
    if (!askServer("getAlgorithms")) {
        return;
    }
    if (m_exchange.algorithms.empty()) {
        error(QStringLiteral("The list of algorithm parameters is empty"));
        return;
    }
    QJsonArray list;
    for (const UnitParams &params : m_exchange.algorithms) {
        list.append(describe(params));
    }
    ok(QString::fromUtf8(QJsonDocument(list).toJson(QJsonDocument::Compact)));
}

bool RequestGetAlgorithms::takeAlgorithm()
{
    const QString name = text("name");
    const bool anyInstance = !body().contains(QLatin1String("desc"));
    const QString descriptor = text("desc");
    for (const UnitParams &params : m_exchange.algorithms) {
        if (params.getName() == name && (anyInstance || params.getParamDescriptor() == descriptor)) {
            m_exchange.name = name;
            m_exchange.descriptor = params.getParamDescriptor();
            m_exchange.params = params;
            return true;
        }
    }
    return false;
}

void RequestGetAlgorithms::getParameters()
{
    if (!askServer("getAlgorithms")) {
        return;
    }
    if (takeAlgorithm()) {
        ok(describe(m_exchange.params));
    } else {
        error(QStringLiteral("Algorythm is not found"));
    }
}

void RequestGetAlgorithms::setParameters()
{
    if (!body().contains(QLatin1String("data"))) {
        error(QStringLiteral("Wrong contant"));
        return;
    }
    if (text("name").isEmpty()) {
        error(QStringLiteral("Algorhythm name is empty"));
        return;
    }
    if (!askServer("getAlgorithms")) {
        return;
    }
    if (m_exchange.algorithms.empty()) { // the list is unknown here: the model decides
        UnitParams params = ParamFactory::makeCustomProperty(text("name"));
        params.setParamDescriptor(text("desc"));
        m_exchange.algorithms = {params};
    }
    const bool isKnown = takeAlgorithm();
    const QJsonValue values = body()[QLatin1String("data")];
    m_exchange.valuesProblem = bp::valuesProblem(m_exchange.params, values.toArray());
    if (!isKnown || !m_exchange.params.fromJson(QJsonObject{{QStringLiteral("data"), values}})) {
        error(isKnown ? QStringLiteral("Wrong contant") : QStringLiteral("Algorythm is not found"));
        return;
    }
    if (askServer("updateParam")) {
        ok(QStringLiteral("Algorhythm is updating"));
    }
}

void RequestGetAlgorithms::removeAlgorithm()
{
    m_exchange.name = text("name");
    m_exchange.descriptor = text("decs");
    if (!body().contains(QLatin1String("name"))) {
        error(QStringLiteral("Wrong algorhythm name"));
        return;
    }
    const bool isBase =
        m_exchange.name == QLatin1String("SpectrumOnline") || m_exchange.name == QLatin1String("DependSpectrumNorm");
    if (isBase || m_exchange.name.isEmpty() || m_exchange.descriptor.isEmpty()) {
        error(QLatin1String("Can not remove ") + m_exchange.name);
    } else if (askServer("removeAlgorithm")) {
        ok();
    }
}

void RequestGetAlgorithms::addAlgorithm()
{
    const QJsonValue list = body().value(QLatin1String("param_list"));
    const bool isSingle = body().contains(QLatin1String("name")) && body().contains(QLatin1String("data"));
    if (!isSingle && !list.isArray()) {
        error(QStringLiteral("Wrong content"));
        return;
    }
    if (!isSingle) {
        addByName(list.toArray());
        return;
    }
    m_exchange.name = text("name");
    m_exchange.descriptor = text("desc");
    m_exchange.params = ParamFactory::makeCustomProperty(m_exchange.name);
    QJsonObject values = body();
    m_exchange.valuesProblem = bp::valuesProblem(m_exchange.params, values[QLatin1String("data")].toArray());
    values.remove(QStringLiteral("param_list"));
    if (!m_exchange.params.fromJson(values)) {
        error(QStringLiteral("Wrong content"));
        return;
    }
    if (askServer("addNewAlgorithm")) {
        ok();
    }
}

void RequestGetAlgorithms::addByName(const QJsonArray &list)
{
    bool isList = !list.isEmpty();
    for (const QJsonValue &entry : list) {
        isList = isList && !entry[QLatin1String("name")].toString().isEmpty();
    }
    if (!isList) {
        error(QStringLiteral("Wrong content"));
        return;
    }
    for (const QJsonValue &entry : list) {
        m_exchange.list.append(
            {entry[QLatin1String("name")].toString(), QString(), entry[QLatin1String("desc")].toString()});
    }
    if (askServerForEach("addNewAlgorithmByName")) {
        ok();
    }
}
