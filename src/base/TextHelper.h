#pragma once

#include <QMap>
#include <QString>

/// Text helpers of the toolkit.
class TextHelper
{
public:
    /// Split flag used wherever lists are split: empty parts are dropped.
    static constexpr Qt::SplitBehaviorFlags SkipEmptyParts = Qt::SkipEmptyParts;

    /// "hh:mm:ss" of a time in seconds, with ".zzz" behind it when withMilliseconds is set. Hours are not wrapped at
    /// 24; a negative time has a leading "-". What is no number counts as 0, a time beyond 10^12 s as that.
    static QString TimeToText(double seconds, bool withMilliseconds = false);

    /// One "key<separator>value" line per entry in key order, without a trailing line break.
    static QString printLikeTable(const QMap<QString, QString> &rows, const QString &separator = QStringLiteral(": "));
};
