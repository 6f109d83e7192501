#pragma once

#include <cstddef>
#include <vector>

namespace bp {

/// Rows of features with a class each, and the vote of the rows nearest to a vector.
///
/// The rows lie one after another in one block, which a vote reads once from start to end: the speed of the memory is
/// the limit. Distances are Euclidean, in float, in 32 partial sums. Of rows at the same distance the first counts, so
/// that two runs give the same class. Votes after the first one allocate nothing.
class NearestRows
{
public:
    /// The votes for a class.
    struct Vote
    {
        int count = 0;
        float meanDistance = 0.0f; ///< 0 without votes
    };

    /// @param rows     of one length, not empty
    /// @param classes  one per row, 0 … classCount − 1
    void assign(const std::vector<std::vector<float>> &rows, const std::vector<std::size_t> &classes,
                std::size_t classCount);

    std::size_t rowCount() const { return m_classes.size(); }
    /// Features per row.
    std::size_t width() const { return m_width; }
    const float *row(std::size_t index) const { return m_values.data() + index * m_width; }
    std::size_t classOf(std::size_t index) const { return m_classes[index]; }

    /// The class with the most votes of the nearest rows, the first of several.
    /// @param features  width() of them
    /// @param nearest   how many rows vote, at least 1; all when there are fewer
    std::size_t winner(const float *features, std::size_t nearest);
    /// The votes of the last call of winner(), by class.
    const std::vector<Vote> &votes() const { return m_votes; }

private:
    struct Neighbour
    {
        float distance; ///< squared
        std::size_t row;
    };

    void collect(const float *features, std::size_t nearest);

    std::vector<float> m_values;
    std::size_t m_width = 0;
    std::vector<std::size_t> m_classes;
    std::vector<Neighbour> m_neighbours; ///< the nearest
    std::vector<Vote> m_votes;
};

} // namespace bp
