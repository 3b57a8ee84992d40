#pragma once

namespace tivra_internal {

/// What a StartStop asks of its session. @thread application, unless a line says otherwise
class StartSession {
public:
    virtual ~StartSession() = default;

    /// A start has been asked for: what it is configured with is read. `isRunning`: the hosts are in use.
    virtual void readConfiguration(bool isRunning) = 0;
    /// Why the session can't be started, null when it can.
    [[nodiscard]] virtual const char* reasonAgainstStart() = 0;
    /// The whole life of the master thread, which ends soon after a stop has been requested. @thread master
    virtual void runMaster() = 0;
    /// Ends a pause of the master thread.
    virtual void wakeMaster() = 0;
};

} // namespace tivra_internal
