#pragma once

#include "bci/numerics/NearestRows.h"

#include <vector>

class QJsonObject;
class QString;

namespace bp {

/// What PortalProcessor knows after a training.
struct PortalModel
{
    std::vector<int> labels; ///< distinct, ascending; their places are the classes of the rows
    std::vector<float> means; ///< of each feature over the examples
    std::vector<float> deviations; ///< 0: the feature is not used
    std::vector<std::vector<float>> projection; ///< a row per coordinate; empty: the normalised features themselves
    NearestRows rows; ///< the examples

    /// Brings the features of a window to where the rows are.
    /// @param features    one per mean
    /// @param normalised  work memory, kept by the caller
    void place(const std::vector<float> &features, std::vector<float> &normalised, std::vector<float> &out) const;
    /// The coordinates of normalised features along the projection.
    void project(const std::vector<float> &normalised, std::vector<float> &out) const;

    void write(QJsonObject &json) const;
    /// False, with the name of the value that is missing or does not fit the others; nothing may be used then.
    bool read(const QJsonObject &json, const char *&damaged);

private:
    bool readRows(const QJsonObject &json);
};

} // namespace bp
