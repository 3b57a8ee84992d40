#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace tivra_wire {

/// The bytes of a file or a pipe, in their order.
class Input {
public:
    /// @param beforeRead  called before each read, which may wait for long where a pipe has nothing more
    /// Throws Failure with ExitCode::InputFailed, as read does.
    explicit Input(
        const std::string& file, std::function<void()> beforeRead = [] {});
    ~Input();
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    /// At most `size` bytes; 0 at the end.
    [[nodiscard]] std::size_t read(char* to, std::size_t size);
    /// What messages call it.
    [[nodiscard]] const std::string& name() const { return m_name; }

private:
    const std::string m_name;
    const bool m_isOwned; ///< and may be descriptor 0 where the program was started without one
    int m_fd;
    const std::function<void()> m_beforeRead;
};

} // namespace tivra_wire
