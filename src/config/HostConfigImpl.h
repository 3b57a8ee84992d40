#pragma once

#include <atomic>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <session/HostConfig.h>
#include <tp/Mutex.h>
#include <tp/Process.h>

#include "LockOrder.h"

namespace tivra {
class ConnectionConfig;
}

namespace tivra_internal {

/// The value of one parameter of one host; hosts that inherit from each other share it.
struct ParameterValue {
    std::atomic<bool> boolValue{false};
    std::atomic<long> longValue{0};
    mutable tp::Mutex text_mutex{kLockParameterTexts};
    std::string text TP_GUARDED_BY(text_mutex);
};

/// One host: where it is, and its deviations from the settings of all connections. The application writes it
/// before the start, hub threads read it; the host table owns it through its handle.
class HostConfigImpl : public tp::OfOneProcess {
public:
    /// @param ip    address or name as the application or a hub has given it, not checked here
    /// @param port  TCP port as given; 0 and above 65535 make every attempt to connect fail
    HostConfigImpl(std::string ip, std::size_t port, tivra::ConnectionConfig* connectionConfig,
                   std::size_t index);
    HostConfigImpl(const HostConfigImpl&) = delete;
    HostConfigImpl& operator=(const HostConfigImpl&) = delete;

    void set(tivra::HostConfig::Parameters parameter, long value);
    void set(tivra::HostConfig::Parameters parameter, bool value);
    void set(tivra::HostConfig::Parameters parameter, std::string value);

    /// This host's value, else that of all connections, as it was set.
    [[nodiscard]] long getLong(tivra::HostConfig::Parameters parameter, long defaultValue) const;
    /// This host's value, else that of all connections.
    [[nodiscard]] bool getBoolean(tivra::HostConfig::Parameters parameter, bool defaultValue) const;
    /// This host's value, else that of all connections.
    [[nodiscard]] std::string getString(tivra::HostConfig::Parameters parameter) const;
    /// getLong() with the parameter's default, brought into the limits in which the value can be used.
    [[nodiscard]] long getUsableLong(tivra::HostConfig::Parameters parameter) const;

    /// Unique per session; the key of the session's hub clients.
    [[nodiscard]] std::size_t getIndex() const { return index; }
    [[nodiscard]] std::string getAddr() const;
    void setAddr(const std::string& addr);
    [[nodiscard]] std::size_t getPort() const { return port; }
    /// The address that the host was made with, or the first one of its name, whatever setAddr() has done
    /// since.
    [[nodiscard]] std::string getOriginalAddr() const;
    /// True for that address and the host's port.
    [[nodiscard]] bool isOriginally(const std::string& addr, std::size_t wantedPort) const {
        return port == wantedPort && getOriginalAddr() == addr;
    }

    /// The address or the name that it was made with.
    [[nodiscard]] const std::string& getGiven() const { return m_given; }
    /// Asks the resolver for the addresses of the host's name, and takes the first. Those of before stay when
    /// there are none now.
    /// @return why there are none, in words for an error; empty when there are some
    std::string lookUp();
    /// lookUp() has found some.
    [[nodiscard]] bool hasAddressesOfName() const;
    /// What it has found.
    [[nodiscard]] std::vector<std::string> getAddresses() const;
    [[nodiscard]] tivra::ConnectionConfig* getConnectionConfig() const;
    /// True when the application has named this host, false when the library has added it.
    [[nodiscard]] bool isExternal() const { return isExternallyGenerated; }
    void setIsExternal(bool isExternal) { isExternallyGenerated = isExternal; }

    /// NAT look-ups of this host's connection settings; empty when no pair matches.
    [[nodiscard]] std::string getLocalIp(const std::string& hubIp) const;
    [[nodiscard]] std::string getHubIp(const std::string& localIp) const;

    /// Inherits the settings of another host: what that host changes later shows here too, what is set here
    /// doesn't show there.
    void copyParameters(const HostConfigImpl& other);

    /// The enumerator's name, "UNKNOWN_PARAMETER_NAME" for any other value.
    [[nodiscard]] static const char* getParameterName(tivra::HostConfig::Parameters parameter);

private:
    struct Entry {
        std::shared_ptr<ParameterValue> value;
        /// The value was set on another host, so it is read but never written here.
        bool isInherited = false;
    };
    using ParameterValueMapType = std::map<tivra::HostConfig::Parameters, Entry>;

    /// The value to write to, and whether it is the first one of this host itself.
    struct WritableValue {
        ParameterValue& value;
        bool isFirst;
    };
    WritableValue writableValue(tivra::HostConfig::Parameters parameter) TP_REQUIRES(m_parameters_mutex);
    [[nodiscard]] std::shared_ptr<const ParameterValue>
    findValue(tivra::HostConfig::Parameters parameter) const;

    const std::string m_given; ///< an address, or a name
    const std::size_t port;
    const std::size_t index;
    std::atomic<bool> isExternallyGenerated{false};

    mutable tp::Mutex m_parameters_mutex{kLockParameters};
    std::string ipAddr TP_GUARDED_BY(m_parameters_mutex);
    std::vector<std::string> m_addresses TP_GUARDED_BY(m_parameters_mutex); ///< of the name
    tivra::ConnectionConfig* connectionConfig TP_GUARDED_BY(m_parameters_mutex);
    ParameterValueMapType parameterValueMap TP_GUARDED_BY(m_parameters_mutex);
};

} // namespace tivra_internal
