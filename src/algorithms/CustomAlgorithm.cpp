#include "algorithms/CustomAlgorithm.h"

#include "common/BPCommon.h"

#include <QScopedValueRollback>

#include <algorithm>
#include <utility>

CustomAlgorithm::CustomAlgorithm(const UnitParams &params, const QSharedPointer<Montage> &montage,
                                 const AmplifierInfo &info)
    : m_params(params)
    , m_montage(montage)
    , m_info(info)
{
    bp::registerMetaTypes();
    qRegisterMetaType<UnitParams>("UnitParams");
}

CustomAlgorithm::~CustomAlgorithm()
{
    BPCommon::log(BPCommon::LogAlgorithm, "~CustomAlgorithm::CustomAlgorithm");
}

void CustomAlgorithm::resetAlgorithm()
{
}

void CustomAlgorithm::updateAlgorithm()
{
}

void CustomAlgorithm::setParam(const UnitParams &params)
{
    m_params = params;
    updateAlgorithm();
}

void CustomAlgorithm::setMontage(const QSharedPointer<Montage> &montage)
{
    m_montage = montage;
    updateAlgorithm();
    resetAlgorithm();
}

void CustomAlgorithm::setSenderAlgorithm(CustomAlgorithm *sender)
{
    if (sender == nullptr || sender == this || sender == m_sender) {
        return;
    }
    m_sender = sender;
    const QMetaObject::Connection link = connectFrom(sender);
    if (link) {
        m_senderLinks.emplace_back(sender, link);
    }
}

void CustomAlgorithm::setSigner(CustomAlgorithm *sender)
{
    if (sender == nullptr || sender == this || connectFrom(sender)) {
        return;
    }
    // Linking has made this connection, and would cut it the next time.
    const auto isFromSender = [sender](const SenderLink &link) { return link.first == sender; };
    m_senderLinks.erase(std::remove_if(m_senderLinks.begin(), m_senderLinks.end(), isFromSender), m_senderLinks.end());
}

/// An invalid connection when the two are linked already.
QMetaObject::Connection CustomAlgorithm::connectFrom(CustomAlgorithm *sender)
{
    return connect(sender, &CustomAlgorithm::getData, this, &CustomAlgorithm::takeData, Qt::UniqueConnection);
}

void CustomAlgorithm::clearSenders()
{
    for (const SenderLink &link : std::exchange(m_senderLinks, {})) {
        disconnect(link.second);
    }
    m_sender.clear();
}

void CustomAlgorithm::takeData(const QString &in_type_data, const UnitParams &in_params, unsigned int in_channels,
                               const vector<float> &in_data)
{
    if (m_taking) {
        if (!std::exchange(m_ringReported, true)) {
            BPCommon::log(BPCommon::LogAlgorithm, "CustomAlgorithm::takeData %s %s feeds itself", getAlgorithmName(),
                          getAlgorithmDescriptor());
        }
        return;
    }
    const QScopedValueRollback<bool> taking(m_taking, true);
    m_inputParams = in_params;
    m_inputType = in_type_data;
    appendData(in_channels, in_data, true);
}
