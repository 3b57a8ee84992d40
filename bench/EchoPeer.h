#pragma once

#include "ChildProcess.h"

#include <cstdint>

namespace tivra_bench {

/// A process that answers over TCP and does nothing else: the least that a question and its answer take.
class EchoPeer {
public:
    EchoPeer();
    ~EchoPeer();
    EchoPeer(const EchoPeer&) = delete;
    EchoPeer& operator=(const EchoPeer&) = delete;

    /// Sends a request of the usual length and waits for an answer of the usual length.
    void ask();

private:
    ChildProcess m_process;
    int m_fd;
};

} // namespace tivra_bench
