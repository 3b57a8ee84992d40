#pragma once

#include <map>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>

#include "config/NameResolver.h"

/// Names and their addresses, in the place of the system's resolver for as long as it lives.
class FakeResolver : public tivra_internal::NameResolver {
public:
    FakeResolver() { replace(this); }
    ~FakeResolver() override { replace(nullptr); }
    FakeResolver(const FakeResolver&) = delete;
    FakeResolver& operator=(const FakeResolver&) = delete;

    std::map<std::string, std::vector<std::string>> names; ///< set while nobody asks

    tivra_internal::NameLookup lookUp(const std::string& name) override {
        tivra_internal::NameLookup found;
        if (const auto known = names.find(name); known != names.end())
            for (const std::string& address : known->second)
                found.addresses.push_back(ntohl(::inet_addr(address.c_str())));
        if (found.addresses.empty())
            found.fault = "nobody has such a name";
        return found;
    }
};
