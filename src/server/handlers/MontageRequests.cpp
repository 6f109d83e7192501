#include "server/handlers/MontageRequests.h"

#include "montage/AverageMontage.h"
#include "montage/BipolarMontage.h"
#include "server/handlers/MontageFolder.h"

#include <algorithm>

namespace {

/// Whether all entries are channels with a name, and there is at least one.
bool isChannelList(const QJsonArray &list)
{
    return !list.isEmpty() && std::all_of(list.begin(), list.end(), [](const QJsonValue &channel) {
        return !channel[QLatin1String("name")].toString().isEmpty();
    });
}

} // namespace

RequestMontageEdit::RequestMontageEdit(server_state &state)
    : ProcessRequest(state,
                     {on("getmontagelist", &RequestMontageEdit::getList),
                      on("getmontageinfo", &RequestMontageEdit::getInfo),
                      on("setmontagename", &RequestMontageEdit::setMontage)})
{
}

void RequestMontageEdit::getList()
{
    QJsonArray list;
    for (const QString &file : bp::MontageFolder(state().montageFolder).files()) {
        list.append(QJsonObject{{QStringLiteral("name_file"), file}});
    }
    ok(QJsonObject{
        {QStringLiteral("result"), true}, {QStringLiteral("montage_list"), list}, {QStringLiteral("t"), now()}});
}

void RequestMontageEdit::getInfo()
{
    const QString name = text("name");
    if (name.isEmpty()) {
        error(QStringLiteral("Wrong montage file name"));
        return;
    }
    if (!bp::MontageFolder::isPlainName(name)) {
        error(QStringLiteral("Wrong file name"));
        return;
    }
    const QSharedPointer<Montage> montage = bp::MontageFolder(state().montageFolder).read(name);
    if (!montage) {
        error(QStringLiteral("Cannot open file"));
        return;
    }
    QJsonObject body = montage->toJson();
    body.insert(QStringLiteral("result"), true);
    body.insert(QStringLiteral("t"), now());
    ok(body);
}

void RequestMontageEdit::setMontage()
{
    const bool isMontage = body().contains(QLatin1String("chan_list")) ? readDescription() : readFile();
    if (!isMontage) {
        error(QStringLiteral("Wrong montage file name"));
    } else if (askServer("setCurrentMontage")) {
        ok(QStringLiteral("Montage installed successfully"));
    }
}

bool RequestMontageEdit::readDescription()
{
    if (!isChannelList(body().value(QLatin1String("chan_list")).toArray())) {
        return false;
    }
    const auto usual = QSharedPointer<Montage>::create(body());
    if (body().contains(QLatin1String("Montage_Bipolar"))) {
        m_exchange.montage = QSharedPointer<BipolarMontage>::create(body());
    } else if (body().contains(QLatin1String("Montage_Average"))) {
        m_exchange.montage = QSharedPointer<AverageMontage>::create(*usual);
    } else {
        m_exchange.montage = usual;
    }
    m_exchange.montageName = text("name");
    return true;
}

bool RequestMontageEdit::readFile()
{
    const bp::MontageFolder folder(state().montageFolder);
    m_exchange.montageName = text("name");
    if (!folder.contains(m_exchange.montageName)) {
        return false;
    }
    m_exchange.montageName = folder.fileName(m_exchange.montageName);
    m_exchange.montage = folder.read(m_exchange.montageName);
    return m_exchange.montage != nullptr;
}
