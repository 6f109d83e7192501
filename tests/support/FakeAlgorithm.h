#pragma once

#include "algorithms/CustomAlgorithm.h"

#include <QThread>

#include <atomic>
#include <utility>

/// Records what it is given. On acquisition data it publishes the block's first sample, on a sender's data nothing,
/// unless its parameter "relay" is set. Its parameter "raw" asks for unfiltered blocks.
class FakeAlgorithm : public CustomAlgorithm
{
public:
    FakeAlgorithm(const UnitParams &params, const QSharedPointer<Montage> &montage, const AmplifierInfo &info)
        : CustomAlgorithm(params, montage, info)
    {
        ++s_alive;
        FakeAlgorithm::updateAlgorithm();
    }
    ~FakeAlgorithm() override { --s_alive; }

    static CustomAlgorithm *create(const UnitParams &params, const QSharedPointer<Montage> &montage,
                                   const AmplifierInfo &info)
    {
        return new FakeAlgorithm(params, montage, info);
    }

    bool isNeedRawData() const override { return isSet("raw"); }
    void resetAlgorithm() override { ++resets; }
    void appendData(unsigned int count, const std::vector<float> &data, bool fromSender) override
    {
        if (fromSender) {
            received << inputParams().getParamDescriptor() + inputType();
            lastThread = QThread::currentThread();
        } else {
            acquired.push_back(data.front());
        }
        if (!fromSender || isSet("relay")) {
            emit getData(QStringLiteral("!"), m_params, count, data);
        }
    }
    /// Descriptors and types of the senders' results since the last call.
    QString takeReceived() { return std::exchange(received, {}).join(QLatin1Char(' ')); }

    using CustomAlgorithm::amplifierInfo;
    using CustomAlgorithm::montage;

    QStringList values; ///< "value" as read at the construction and after each change
    int resets = 0;
    std::vector<float> acquired; ///< first samples of the blocks
    QStringList received;
    QThread *lastThread = nullptr;
    static inline std::atomic<int> s_alive{0};

protected:
    void updateAlgorithm() override { values << m_params.getParamValue(QStringLiteral("value")); }
    void fillPropertyList() override { }

private:
    bool isSet(const char *key) const { return m_params.getParamValue(QLatin1String(key)) == QLatin1String("1"); }
};
