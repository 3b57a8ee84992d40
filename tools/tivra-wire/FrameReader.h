#pragma once

#include "FrameSource.h"
#include "Inflater.h"
#include "Input.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace tivra_wire {

/// Cuts an input into its frames or lines. Judges their outside only.
class FrameReader : public FrameSource {
public:
    /// What is longer is a fault: a header of any bytes may tell a length of four gigabytes.
    static constexpr std::size_t kMaxFrame = std::size_t{16} << 20;

    /// Reads the first bytes, which tell the form unless it is given.
    FrameReader(Input& input, std::optional<Form> form);

    [[nodiscard]] Form form() const override { return m_form; }
    [[nodiscard]] bool next(Frame& frame) override;
    [[nodiscard]] std::uint64_t frames() const override { return m_frames; }
    [[nodiscard]] std::uint64_t offset() const override { return m_offset; }
    [[nodiscard]] Surroundings around(std::uint64_t offset) const override;

private:
    [[nodiscard]] bool fill(std::size_t size);
    [[nodiscard]] bool readMore();
    void readCompressed();
    [[nodiscard]] std::size_t frameLength();
    [[nodiscard]] std::size_t lineLength();
    [[nodiscard]] std::string_view held() const { return std::string_view(m_bytes).substr(m_begin); }

    Input& m_input;
    Form m_form = Form::Kvn;
    std::unique_ptr<Inflater> m_inflater; ///< null unless the form is zkvn
    std::string m_compressed;             ///< read and not yet inflated
    std::string m_bytes;
    std::size_t m_begin = 0; ///< of what has not been handed out
    std::uint64_t m_offset = 0;
    std::uint64_t m_frames = 0;
    bool m_inputEnded = false;
    bool m_isEndAdded = false; ///< the last byte held was never read
};

} // namespace tivra_wire
