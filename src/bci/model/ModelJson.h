#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QPair>
#include <QString>

#include <utility>
#include <vector>

/// Models as JSON.
///
/// A model is an object with its "kind" (the name of its class) and its "version" (1). Rows of floats are Base64 texts
/// of the little-endian 32-bit IEEE values, so that a value keeps every bit and a classifier of thousands of
/// examples stays small; matrices are arrays of such rows, labels arrays of numbers. A single float is a number, which
/// is exact too: JSON numbers are doubles.
///
/// The functions that read return false and do not change their result when the value is missing or damaged.
namespace bp {

/// Frequency band, low and high edge in Hz.
using Band = std::pair<float, float>;

QJsonObject header(const QString &kind);
/// False, with the reason as one sentence, for another kind or version.
bool checkHeader(const QJsonObject &model, const QString &kind, QString &reason);
/// Sets the reason that goes with a value which could not be read, and returns false.
bool damaged(const QString &kind, const char *key, QString &reason);

QJsonValue fromFloats(const std::vector<float> &values);
bool toFloats(const QJsonValue &json, std::vector<float> &values);

QJsonValue fromRows(const std::vector<std::vector<float>> &rows);
/// Rows may differ in length.
bool toRows(const QJsonValue &json, std::vector<std::vector<float>> &rows);

QJsonValue fromLabels(const std::vector<int> &labels);
bool toLabels(const QJsonValue &json, std::vector<int> &labels);

QJsonValue fromBands(const std::vector<Band> &bands);
bool toBands(const QJsonValue &json, std::vector<Band> &bands);

/// A whole number that an int holds.
bool toInt(const QJsonValue &json, int &value);
/// A finite number.
bool toFloat(const QJsonValue &json, float &value);
bool toBool(const QJsonValue &json, bool &value);

std::vector<Band> plainBands(const std::vector<QPair<float, float>> &bands);
/// The model of a preprocessor that has nothing but its bands.
QJsonObject bandModel(const QString &kind, int fs, const std::vector<Band> &bands);
/// As Preprocessor::setModel().
bool readBandModel(const QJsonObject &model, const QString &kind, int &fs, std::vector<Band> &bands, QString &reason);

} // namespace bp
