#pragma once

#include <string>

namespace tivra_internal {

/// What the reader of a hub's stream asks of its connection. @thread hub
class HubReaderPort {
public:
    virtual ~HubReaderPort() = default;

    [[nodiscard]] virtual bool isReady() const = 0;
    /// HubReader::readLeftOver is to be called soon.
    virtual void continueSoon() = 0;
    virtual void closeConnection() = 0;
    /// Closes, then takes the client out of use with a reason that the application may see.
    virtual void suspendClient(const std::string& reason) = 0;
    /// A read of the ready hub has failed.
    virtual void leaveAfterReadFailure() = 0;
    /// Closes a connection on which a frame has been cut short. True when it did.
    virtual bool closeIfOutOfStep() = 0;
};

} // namespace tivra_internal
