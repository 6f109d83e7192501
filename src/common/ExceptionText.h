#pragma once

#include <QString>

#include <exception>
#include <string>

namespace bp {

/// What the exception says that is being handled: the text of a standard exception, or the text that was thrown itself.
/// Only inside a catch block.
inline QString exceptionText()
{
    try {
        throw;
    } catch (const std::exception &error) {
        return QString::fromUtf8(error.what());
    } catch (const char *text) {
        return QString::fromUtf8(text);
    } catch (const std::string &text) {
        return QString::fromStdString(text);
    } catch (const QString &text) {
        return text;
    } catch (...) {
        return QStringLiteral("an exception without a text");
    }
}

} // namespace bp
