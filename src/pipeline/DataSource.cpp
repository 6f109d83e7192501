#include "pipeline/DataSource.h"

#include <QMetaMethod>

DataSource::DataSource(QObject *parent)
    : QThread(parent)
{
    bp::registerMetaTypes();
}

DataSource::~DataSource()
{
    // A QThread must not go while it runs.
    quit();
    wait();
}

void DataSource::sendStack(const std::vector<std::vector<double>> &stack, int label)
{
    emit receivedNewStack(stack, label);

    static const QMetaMethod floats =
        QMetaMethod::fromSignal(qOverload<vector<vector<float>>, int>(&DataSource::receivedNewStack));
    if (!isSignalConnected(floats)) {
        return;
    }
    std::vector<std::vector<float>> copy;
    copy.reserve(stack.size());
    for (const auto &row : stack) {
        auto &target = copy.emplace_back();
        target.reserve(row.size());
        for (const double value : row) {
            target.push_back(static_cast<float>(value));
        }
    }
    emit receivedNewStack(copy, label);
}

void DataSource::doMontage(std::vector<std::vector<double>> &stack) const
{
    if (m_channels.empty()) {
        return;
    }
    const auto isInput = [&stack](int index) { return index >= 0 && static_cast<std::size_t>(index) < stack.size(); };
    const std::size_t length = stack.empty() ? 0 : stack.front().size();
    std::vector<std::vector<double>> mounted;
    mounted.reserve(m_channels.size());
    for (const Channel &channel : m_channels) {
        if (!isInput(channel.index)) {
            mounted.emplace_back(length);
            continue;
        }
        auto &row = mounted.emplace_back(stack[static_cast<std::size_t>(channel.index)]);
        if (isInput(channel.reference)) {
            const auto &reference = stack[static_cast<std::size_t>(channel.reference)];
            for (std::size_t i = 0; i < row.size() && i < reference.size(); ++i) {
                row[i] -= reference[i];
            }
        }
        for (double &value : row) {
            value *= static_cast<double>(channel.scale);
        }
    }
    stack.swap(mounted);
}
