#pragma once

#include <QString>

class QCommandLineParser;
class QJsonObject;
class QJsonValue;

/// What the program says, and how it ends.
namespace Console {

enum ExitStatus { Success = 0, Failure = 1, WrongUsage = 2 };

/// A line on standard output. What it does not take is remembered: see isOutputLost().
void print(const QString &line);
/// A JSON value on standard output, indented.
void printJson(const QJsonValue &value);
/// A JSON object on one line of standard output.
void printJsonLine(const QJsonObject &object);
/// Whether standard output has not taken something: it is closed, or its device is full.
bool isOutputLost();
/// Whether it is because nobody reads it any more: a pipe that was closed.
bool isOutputClosed();
/// The program's exit status: that of its command, or Failure with a sentence when the output is lost. That nobody
/// reads the output any more (a pipe that was closed) is no failure.
int finish(int status);
/// One sentence on standard error, after "bioprocessing: ". Ends a progress line that stands there.
void error(const QString &sentence);
/// Replaces the progress line on standard error; silent unless standard error is a terminal. An empty text ends it.
void progress(const QString &text);

/// Sends Qt's messages to standard error, and of the library's trace only what `trace` asks for: everything, or just
/// the plug-ins that did not load.
void installMessageHandler(bool trace);

/// Whether complaints of a training ("ERROR: …", "WARNING: …") are shown; they are not at first.
void showComplaints(bool shown);

/// Parses a command's own arguments and answers --help and --version.
/// @param exitStatus what to end with when the result is false
bool parse(QCommandLineParser &parser, const QStringList &arguments, ExitStatus &exitStatus);

} // namespace Console
