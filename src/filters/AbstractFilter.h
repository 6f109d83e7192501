#pragma once

#include "common/BPExport.h"

#include <QObject>
#include <QString>

#include <cstddef>
#include <vector>

namespace bp {
struct CascadeStage;
}

/// Turns one input sample into one output sample and keeps its own history.
///
/// One filter object serves one channel: running it over several channels mixes their histories. The coefficients are
/// fixed at construction. Not synchronised: one thread at a time.
class BIOPROCESSING_EXPORT AbstractFilter : public QObject
{
    Q_OBJECT
public:
    enum FilterTypeEnum : int { LowPass = 0, HighPass = 1, BandPass = 2, BandStop = 3 };
    Q_ENUM(FilterTypeEnum)
    enum ImpulseResponseEnum : int { FiniteResponse = 0, RecursiveResponse = 1 };
    Q_ENUM(ImpulseResponseEnum)

    AbstractFilter(FilterTypeEnum type, ImpulseResponseEnum response, const QString &name, QObject *parent = nullptr);

    FilterTypeEnum getFilterType() const { return m_type; }
    ImpulseResponseEnum getImpulseResponse() const { return m_response; }
    QString getName() const { return m_name; }

    /// Filters count samples of in into out, which are the same array or don't overlap. A count below 1 does nothing,
    /// here and in the other overloads over arrays. The samples do not depend on how a signal is divided into calls.
    void Process(const float *in, float *out, int count);
    /// In place.
    void Process(float *data, int count);
    /// In place, count samples from index first on.
    void Process(float *data, int first, int count);
    /// A negative count means the whole input; out, which may be in itself, is resized to the count. Samples beyond the
    /// end of the input are taken as zeros.
    void Process(const std::vector<float> &in, std::vector<float> &out, int count = -1);
    /// In place. A count that is negative or beyond the end means the whole vector, whose size stays.
    void Process(std::vector<float> &data, int count = -1);

    /// Clears the history and keeps the coefficients (FIRfilter differs).
    virtual void Reset() = 0;

protected:
    /// Filters one sample and updates the history.
    virtual float InternalProcess(float sample) = 0;

public:
    /// Appends views of the filter's second-order sections in running order and returns true, or appends nothing and
    /// returns false when the filter isn't a plain cascade of such sections. The views are valid as long as the filter.
    virtual bool appendStages(std::vector<bp::CascadeStage> &stages);

protected:
    /// Filters count samples in place, bit for bit as InternalProcess would one by one; allocates nothing. The filters
    /// of this library override it with faster loops. A class derived from one of them may change InternalProcess, so
    /// its samples are filtered one by one.
    virtual void processBlock(float *samples, std::size_t count);

private:
    FilterTypeEnum m_type;
    ImpulseResponseEnum m_response;
    QString m_name;
};
