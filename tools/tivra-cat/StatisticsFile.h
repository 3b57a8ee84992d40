#pragma once

#include <string>

namespace tivra_cat {

/// A file that always holds one whole text: a new one is written beside it and takes its place at once, so
/// that a collector never reads half of it. Used by the main thread.
class StatisticsFile {
public:
    /// Nothing is written before the first replace.
    explicit StatisticsFile(std::string path) : m_path(std::move(path)), m_beside(m_path + ".tmp") {}

    /// Puts `text` in place of what the file held.
    /// @return false when that failed; error() tells why, and the file is as it was.
    [[nodiscard]] bool replace(const std::string& text);

    [[nodiscard]] bool isWanted() const { return !m_path.empty(); }
    /// "cannot write the statistics to ...: why" of the last replace; empty when it went well.
    [[nodiscard]] const std::string& error() const { return m_error; }

private:
    [[nodiscard]] bool writeBeside(const std::string& text) const;

    const std::string m_path;
    const std::string m_beside;
    std::string m_error;
};

} // namespace tivra_cat
