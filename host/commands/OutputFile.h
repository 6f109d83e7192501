#pragma once

#include <QString>
#include <QStringList>

class QCommandLineParser;

/// Adds --force to a command that writes files.
void addForceOption(QCommandLineParser &parser);

/// Throws a Refusal when the file exists and --force was not given. A recording that was not closed, and one whose
/// labels still stand in their journal, is not replaced by --force either: nothing else has what it holds.
void refuseToReplace(const QCommandLineParser &parser, const QString &path);

/// Throws a Refusal when the path is one of the files that the command reads, under whatever name; --force does not
/// help.
void refuseInput(const QString &path, const QStringList &inputs);

/// Throws a Refusal unless the name ends with one of the suffixes, which tell the format.
/// @param what      writes the file: "--record" or "export"
/// @param suffixes  ".edf" for example, any case
void requireSuffix(const QString &path, const QString &what, const QStringList &suffixes);
