#pragma once

#include "common/BPExport.h"

#include <stdexcept>
#include <string>

/// Thrown by the numerical code only. The text is "Class::function code: NNNN" with a four-digit code.
class BIOPROCESSING_EXPORT HalvinException : public std::runtime_error
{
public:
    HalvinException(const std::string &function, int code)
        : std::runtime_error(function + " code: " + digits(code))
        , m_code(code)
    {
    }

    int code() const noexcept { return m_code; }

private:
    static std::string digits(int code)
    {
        const std::string text = std::to_string(code);
        return std::string(text.size() < 4 ? 4 - text.size() : 0, '0') + text;
    }

    int m_code;
};
