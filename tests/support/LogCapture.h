#pragma once

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tp/eprintf.h>

/// Collects all that the library logs, unpaced, from construction on, as lines of "LEVEL: text".
class LogCapture {
public:
    LogCapture() {
        static_cast<void>(tp::eprintf_init(EPF_STDERR, EPF_DBUG, "%s", "test"));
        tp::eprintf_ctrl(EPF_DISABLE, EPF_TIMESTAMP | EPF_FILEINFO | EPF_SUPPRESS);
        tp::eprintf_set_pacing(false);
        testing::internal::CaptureStderr();
    }
    ~LogCapture() {
        static_cast<void>(testing::internal::GetCapturedStderr());
        static_cast<void>(tp::eprintf_init(EPF_STDERR, EPF_WARN, "%s", "test"));
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// Everything so far.
    const std::vector<std::string>& lines() {
        std::istringstream text(testing::internal::GetCapturedStderr());
        for (std::string line; std::getline(text, line);)
            m_lines.push_back(line);
        testing::internal::CaptureStderr();
        return m_lines;
    }
    /// Everything so far but the debug level.
    std::vector<std::string> linesAboveDebug() {
        std::vector<std::string> kept;
        for (const std::string& line : lines()) {
            if (line.rfind("DBUG: ", 0) != 0)
                kept.push_back(line);
        }
        return kept;
    }
    bool has(const std::string& line) {
        lines();
        return std::count(m_lines.begin(), m_lines.end(), line) != 0;
    }
    void forget() {
        static_cast<void>(lines());
        m_lines.clear();
    }

private:
    std::vector<std::string> m_lines;
};
