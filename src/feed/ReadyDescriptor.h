#pragma once

namespace tivra_internal {

/// A descriptor that can be read as long as something is there, made when somebody first asks for it.
/// @thread one at a time
class ReadyDescriptor {
public:
    ReadyDescriptor() = default;
    ~ReadyDescriptor();
    ReadyDescriptor(const ReadyDescriptor&) = delete;
    ReadyDescriptor& operator=(const ReadyDescriptor&) = delete;

    /// @throws tivra::Error (System)
    [[nodiscard]] int get(bool isReady);
    void set(bool isReady) noexcept {
        if (m_descriptor >= 0 && isReady != m_isReady)
            change(isReady);
    }

private:
    void change(bool isReady) noexcept;

    int m_descriptor = -1;
    bool m_isReady = false;
};

} // namespace tivra_internal
