#pragma once

#include "algorithms/CustomParam.h"
#include "common/BPExport.h"

#include <QJsonObject>
#include <QMap>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QVector>

class QXmlStreamReader;
class QXmlStreamWriter;

/// The parameter set of one algorithm instance or device: a type name, an instance name (descriptor), the name of the
/// algorithm that feeds it, and an ordered list of parameters.
///
/// A value; a copy goes with every result of an algorithm, so copies share their list until one of them is changed.
/// Where a key occurs twice, the first counts.
class BIOPROCESSING_EXPORT UnitParams
{
public:
    UnitParams() = default;

    void push_back(const custom_param &param);
    /// The current value for assignment (empty until set; a set that is not const is read with its value by
    /// getParamValue()). An unknown key gives a scratch text whose assignment changes nothing.
    QString &operator[](const QString &key);
    /// As getParamValue().
    QString operator[](const QString &key) const { return getParamValue(key); }
    /// The value, or the default while there is none; empty for an unknown key.
    QString getParamValue(const QString &key) const;
    bool contain(const QString &key) const;
    const QVector<custom_param> &getParamList() const { return m_params; }
    /// The keys, in list order.
    QStringList getParamNames() const;
    /// The translated label; empty for an unknown key.
    QString getParamTitle(const QString &key) const;

    const QString &getName() const { return m_name; }
    void setParamName(const QString &name) { m_name = name; }
    const QString &getParamDescriptor() const { return m_descriptor; }
    void setParamDescriptor(const QString &descriptor) { m_descriptor = descriptor; }
    const QString &getDependName() const { return m_dependName; }
    void setDependName(const QString &name) { m_dependName = name; }

    /// Unknown keys are ignored; an empty value brings the default back.
    void setParamValue(const QString &key, const QString &value);
    /// Whether no current value is set; true for an unknown key.
    bool isCurrentValEmpty(const QString &key) const;
    /// Whether there are no parameters; a set may carry a name nevertheless.
    bool isEmpty() const { return m_params.isEmpty(); }
    /// Copies every default into the current value.
    void initDefaultValues();
    /// Whether a value of the other set differs, or a parameter is missing in one of them. Names are not compared.
    bool isChangedParam(const UnitParams &other) const;

    /// Whether a value may be set, by what the set knows of the parameter: limits, choices, flags, whole numbers.
    /// Numbers are in the C locale. An empty value (the default) and the one that is set always may, a text may be any.
    /// Nothing here keeps setParamValue() from setting a value that may not: whoever takes values from outside asks
    /// first.
    /// @return empty, or one sentence on what is wrong with the key or the value
    QString problemOf(const QString &key, const QString &value) const;
    /// The same for the first entry of "data" that has a problem, a key that the set does not know included.
    QString problemOf(const QJsonObject &json) const;
    /// The same for a set saved with writeParamToFile(); also says when the file cannot be read or holds no set.
    QString problemOfFile(const QString &path) const;

    /// Keeps the current values; returnLastParamValue() brings them back, any number of times.
    void saveLastProperty();
    /// Does nothing when no values were kept.
    void returnLastParamValue();
    /// Forgets the values kept by saveLastProperty().
    void zeroAllPointers();

    /// "name", "desc" and "data": per parameter "description" (the key), "title", "min_val", "max_val", "vals_list",
    /// "curr_val", "editable".
    QJsonObject toJson() const;
    /// Takes over "name" and "desc" where they are given, and the values of the keys it knows; numbers and booleans are
    /// accepted as values too. Entries without a key or a value are skipped.
    /// Without "data" the names alone are taken over.
    /// @return false, and nothing is changed, when "data" is something else than an array, or a name is no text
    bool fromJson(const QJsonObject &json);
    /// An element "prop" with one text element per parameter, named by its key. Characters that XML cannot carry become
    /// a blank, halves of surrogate pairs the replacement character; a key that is no XML name is logged and skipped.
    void writeSetting(QXmlStreamWriter &writer) const;
    /// Reads the same back by element name; unknown elements are skipped. The reader stands at "prop", or before it
    /// inside the element that holds it, and afterwards at its end.
    /// @return false, and nothing is changed, when there is no "prop" or the XML is malformed
    bool readSetting(QXmlStreamReader &reader);
    /// XML: "algo" with "name", "depn", "desc" and "prop", UTF-8. False when the file cannot be written.
    bool writeParamToFile(const QString &path) const;
    /// False, and nothing is changed, when the file cannot be opened or is malformed.
    bool loadParamFromFile(const QString &path);

private:
    int indexOf(const QString &key) const;
    bool readDocument(QXmlStreamReader &reader, QMap<QString, QString> &values);
    static bool readValues(QXmlStreamReader &reader, QMap<QString, QString> &values);

    QString m_name;
    QString m_descriptor;
    QString m_dependName;
    QVector<custom_param> m_params;
    QStringList m_saved; ///< current values in list order; empty when none were kept
    QString m_scratch;
};

Q_DECLARE_METATYPE(UnitParams)
