#include "server/handlers/ProfileRequests.h"

#include "server/handlers/Conditions.h"

namespace {

bool isProfile(const QJsonObject &profile)
{
    const QString type = profile.value(QLatin1String("type")).toString();
    return !profile.value(QLatin1String("name")).toString().isEmpty()
        && (type == QLatin1String("rt") || type == QLatin1String("bci"));
}

} // namespace

RequestGetHalvinStatus::RequestGetHalvinStatus(server_state &state)
    : ProcessRequest(state, {on("gethalvinstatus", &RequestGetHalvinStatus::getStatus)})
{
}

void RequestGetHalvinStatus::getStatus()
{
    QJsonObject body{{QStringLiteral("result"), true},
                     {QStringLiteral("curr_mode"), state().readMode},
                     {QStringLiteral("current_profile"), state().currentProfile},
                     {QStringLiteral("current_device"), state().currentDevice.name()},
                     {QStringLiteral("write_status"), bp::isWriting(state())},
                     {QStringLiteral("curr_device"), state().currentDevice.getJsonObject()}};
    if (state().bciMode) {
        QString states;
        for (const int recorded : state().recordedStates) {
            states += QString::number(recorded) + QLatin1Char(';');
        }
        body.insert(QStringLiteral("states"), states);
    } else {
        body.insert(QStringLiteral("type_profile"), QStringLiteral("RT"));
    }
    ok(body);
}

RequestSetProfile::RequestSetProfile(server_state &state)
    : ProcessRequest(state, {on("setcurrentprofile", &RequestSetProfile::setProfile)})
{
}

void RequestSetProfile::setProfile()
{
    m_exchange.name = text("name");
    if (!askModel("getProfileList")) {
        return;
    }
    if (!m_exchange.profiles.contains(m_exchange.name)) {
        error(QLatin1String("unknown profile : ") + m_exchange.name);
    } else if (askServer("setProfile")) {
        ok(QLatin1String("set user : ") + m_exchange.name);
    }
}

RequestGetProfileList::RequestGetProfileList(server_state &state)
    : ProcessRequest(state, {on("getprofilelist", &RequestGetProfileList::getList)})
{
}

void RequestGetProfileList::getList()
{
    if (askModel("getProfileList")) {
        ok(QJsonObject{{QStringLiteral("result"), true},
                       {QStringLiteral("list"), QJsonArray::fromStringList(m_exchange.profiles)}});
    }
}

RequestAddNewProfile::RequestAddNewProfile(server_state &state)
    : ProcessRequest(state,
                     {on("addnewprofile", &RequestAddNewProfile::addProfile),
                      on("removeprofile", &RequestAddNewProfile::removeProfile)})
{
}

void RequestAddNewProfile::addProfile()
{
    if (body().contains(QLatin1String("profile_list"))) {
        addProfiles();
        return;
    }
    if (!isProfile(body())) {
        error(QStringLiteral("Wrong name or type"));
        return;
    }
    m_exchange.name = text("name");
    m_exchange.type = text("type");
    if (askServer("addNewProfile")) {
        ok();
    }
}

void RequestAddNewProfile::addProfiles()
{
    const QJsonArray profiles = body().value(QLatin1String("profile_list")).toArray();
    bool isList = !profiles.isEmpty();
    for (const QJsonValue &profile : profiles) {
        isList = isList && isProfile(profile.toObject());
    }
    if (!isList) {
        error(QStringLiteral("Wrong profiles list"));
        return;
    }
    for (const QJsonValue &profile : profiles) {
        m_exchange.list.append(
            {profile[QLatin1String("name")].toString(), profile[QLatin1String("type")].toString(), QString()});
    }
    if (askServerForEach("addNewProfile")) {
        ok();
    }
}

void RequestAddNewProfile::removeProfile()
{
    m_exchange.name = text("name");
    if (!askModel("getProfileList")) {
        return;
    }
    if (m_exchange.name.isEmpty() || !m_exchange.profiles.contains(m_exchange.name)) {
        error(QStringLiteral("Wrong name of profile"));
    } else if (askServer("removeProfile")) {
        ok();
    }
}
