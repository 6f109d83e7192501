#pragma once

#include "bci/numerics/NearestRows.h"

#include <vector>

class QJsonObject;
class QString;

namespace bp {

/// The trained state of PortalProcessor.
struct PortalModel
{
    std::vector<int> labels; ///< distinct, ascending; the classes of the rows are indices into them
    std::vector<float> means; ///< of each feature over the examples
    std::vector<float> deviations; ///< 0: the feature is not used
    std::vector<std::vector<float>> projection; ///< a row per coordinate; empty: the normalised features themselves
    NearestRows rows; ///< the examples

    /// Normalises the features of a window and projects them as the rows were.
    /// @param features    one per mean
    /// @param normalised  work memory, kept by the caller
    void place(const std::vector<float> &features, std::vector<float> &normalised, std::vector<float> &out) const;
    /// The coordinates of normalised features along the projection.
    void project(const std::vector<float> &normalised, std::vector<float> &out) const;

    void write(QJsonObject &json) const;
    /// @param damaged  the name of the value that is missing or does not fit the others
    /// @return false when there is such a value; no member may be used then
    bool read(const QJsonObject &json, const char *&damaged);

private:
    bool readRows(const QJsonObject &json);
};

} // namespace bp
