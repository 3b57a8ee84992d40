#ifndef TIVRA_CAT_HOSTADDRESS_H
#define TIVRA_CAT_HOSTADDRESS_H

#include <string>

namespace tivra_cat {

/// Turns "name:port" or "address:port" into the "IPv4 address:port" that the library takes. Throws Failure
/// for a wrong form, a port outside 1 to 65535 and a name that has no IPv4 address.
[[nodiscard]] std::string resolveHost(const std::string& text);

} // namespace tivra_cat

#endif
