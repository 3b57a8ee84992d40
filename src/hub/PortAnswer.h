#pragma once

#include <cstdint>
#include <string>

#include "config/HostTable.h"
#include "hub/MessageReading.h"

namespace tivra_internal {

/// The answer to GetPort or GetAllPorts: hosts, each of which applies to the ports that follow it.
struct PortAnswer {
    MessageField host;
    MessageField port;
    MessageField status;

    PortAnswer(const KVNAPI::DataMap& dictionary, const KVNAPI::Message& msg)
        : host(dictionary, msg, "HOST.SERVER.IP")
        , port(dictionary, msg, "CLIENT.PORT")
        , status(dictionary, msg, "ENUM.QUERY.STATUS") {}

    /// False, with the log line of the operation, when a field is not there to be read.
    [[nodiscard]] bool isReadable(const char* operation, bool wantsHost = true) const;

    [[nodiscard]] static bool isPort(int64_t number) {
        return number >= 1 && number <= int64_t{kHighestPort};
    }

    /// Calls `visit(host, number)` for each port as the message has it, in order, until that returns false.
    /// A host is cut to what a log line holds: no address is longer.
    template<class Visit>
    void walk(const KVNAPI::Message& msg, const Visit& visit) const {
        std::string currentHost;
        for (int i = 0; i < msg.pairCount(); ++i) {
            const KVNAPI::TVPair& pair = *msg.pair(i);
            if (host.isIn(pair))
                currentHost = loggable(pairText(pair));
            else if (port.isIn(pair) && !visit(currentHost, integerOf(pair)))
                return;
        }
    }

    /// Calls `visit(host, port)` for each usable port, in the order of the message.
    template<class Visit>
    void forEachPort(const KVNAPI::Message& msg, const Visit& visit) const {
        walk(msg, [&visit](const std::string& named, int64_t number) {
            if (isPort(number))
                visit(named, static_cast<uint16_t>(number));
            else
                noteInvalidPort(number, named);
            return true;
        });
    }

private:
    static void noteInvalidPort(int64_t number, const std::string& host);
};

} // namespace tivra_internal
