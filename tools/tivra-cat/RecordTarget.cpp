#include "RecordTarget.h"

#include <capture/CaptureFile.h>
#include <capture/CaptureWriter.h>

namespace tivra_cat {

namespace {

class CaptureTarget : public RecordTarget {
public:
    explicit CaptureTarget(const std::string& path) : m_writer(path) {}

    void add(const tivra_capture::Message& message) override { m_writer.add(message); }
    void flush() override { m_writer.flush(); }
    void finish() override { m_writer.finish(); }

private:
    tivra_capture::CaptureWriter m_writer;
};

class WireTarget : public RecordTarget {
public:
    explicit WireTarget(const std::string& path) : m_file(path, tivra_capture::CaptureFile::Mode::Replace) {}

    void add(const tivra_capture::Message& message) override {
        m_waiting += "\x04 ";
        tivra_capture::appendNumber(m_waiting, message.body.size(), 4);
        m_waiting += message.body;
        m_waiting += '\x03';
        if (m_waiting.size() >= tivra_capture::kBlockSize)
            flush();
    }
    void flush() override {
        m_file.write(m_waiting);
        m_waiting.clear();
    }
    void finish() override {
        flush();
        m_file.close();
    }

private:
    tivra_capture::CaptureFile m_file;
    std::string m_waiting;
};

} // namespace

std::unique_ptr<RecordTarget> RecordTarget::open(const std::string& path, Form form) {
    if (form == Form::Capture)
        return std::make_unique<CaptureTarget>(path);
    return std::make_unique<WireTarget>(path);
}

} // namespace tivra_cat
