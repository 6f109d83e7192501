#pragma once

#include <QString>

namespace bp {

/// How an operation went: good, or failed for a reason. The one way to fail below the published interface.
///
/// The reason is part of a sentence, so that the caller can say what failed: "Cannot write %1: %2.". It has no capital
/// and no full stop. Operations whose reason is a whole sentence say so.
class [[nodiscard]] Outcome
{
public:
    static Outcome good() { return Outcome(false, QString()); }
    static Outcome failure(const QString &reason) { return Outcome(true, reason); }

    explicit operator bool() const { return !m_hasFailed; }
    /// Empty when the outcome is good.
    const QString &reason() const { return m_reason; }

private:
    Outcome(bool hasFailed, const QString &reason)
        : m_hasFailed(hasFailed)
        , m_reason(reason)
    {
    }

    bool m_hasFailed;
    QString m_reason;
};

} // namespace bp
