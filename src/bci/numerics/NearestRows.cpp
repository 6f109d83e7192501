#include "bci/numerics/NearestRows.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>

namespace {

constexpr float kFarthest = std::numeric_limits<float>::max();

/// In 32 partial sums, which compilers keep in vector registers. An Eigen array takes 2 to 13 % longer here.
float squaredDistance(const float *a, const float *b, std::size_t count)
{
    std::array<float, 32> sums{};
    const std::size_t whole = count - count % sums.size();
    for (std::size_t i = 0; i < whole; i += sums.size()) {
        for (std::size_t j = 0; j < sums.size(); ++j) {
            const float difference = a[i + j] - b[i + j];
            sums[j] += difference * difference;
        }
    }
    float sum = 0.0f;
    for (std::size_t i = whole; i < count; ++i) {
        sum += (a[i] - b[i]) * (a[i] - b[i]);
    }
    for (const float part : sums) {
        sum += part;
    }
    return sum <= kFarthest ? sum : kFarthest; // NaN has no place in an order
}

} // namespace

namespace bp {

void NearestRows::assign(const std::vector<std::vector<float>> &rows, const std::vector<std::size_t> &classes,
                         std::size_t classCount)
{
    m_width = rows.front().size();
    m_values.clear();
    m_values.reserve(rows.size() * m_width);
    for (const std::vector<float> &row : rows) {
        m_values.insert(m_values.end(), row.begin(), row.end());
    }
    m_classes = classes;
    m_neighbours.reserve(rows.size());
    m_votes.assign(classCount, Vote());
}

/// The nearest rows so far are a heap with the farthest of them in front, so that most rows cost one comparison. Of
/// rows at the same distance the first stays.
void NearestRows::collect(const float *features, std::size_t nearest)
{
    const auto isNearer = [](const Neighbour &a, const Neighbour &b) {
        return a.distance < b.distance || (!(b.distance < a.distance) && a.row < b.row);
    };
    m_neighbours.clear();
    for (std::size_t i = 0; i < m_classes.size(); ++i) {
        const float distance = squaredDistance(row(i), features, m_width);
        if (m_neighbours.size() == nearest) {
            if (!(distance < m_neighbours.front().distance)) {
                continue;
            }
            std::pop_heap(m_neighbours.begin(), m_neighbours.end(), isNearer);
            m_neighbours.pop_back();
        }
        m_neighbours.push_back({distance, i});
        std::push_heap(m_neighbours.begin(), m_neighbours.end(), isNearer);
    }
}

std::size_t NearestRows::winner(const float *features, std::size_t nearest)
{
    collect(features, nearest);
    std::fill(m_votes.begin(), m_votes.end(), Vote());
    for (const Neighbour &neighbour : m_neighbours) {
        Vote &vote = m_votes[m_classes[neighbour.row]];
        ++vote.count;
        vote.meanDistance += std::sqrt(neighbour.distance);
    }
    for (Vote &vote : m_votes) {
        vote.meanDistance /= static_cast<float>(std::max(vote.count, 1));
    }
    const auto winner = std::max_element(m_votes.begin(), m_votes.end(),
                                         [](const Vote &a, const Vote &b) { return a.count < b.count; });
    return static_cast<std::size_t>(std::distance(m_votes.begin(), winner));
}

} // namespace bp
