// A hub for the consumers that consumers.sh builds: prints its port, serves until standard input ends.
#include <iostream>
#include <string>

#include <tivra_sim/Hub.h>

int main() {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    tivra_sim::Hub hub(config);
    hub.start();
    std::cout << hub.port() << std::endl;
    std::string line;
    while (std::getline(std::cin, line)) {
    }
    return 0;
}
