// Each fault of a hub's certificate as somebody at a shell meets it, by the program that dials the hub.
#include <atomic>
#include <ostream>

#include "ToolFixture.h"
#include "tls/CertificateFaults.h"

using testing::AllOf;
using testing::HasSubstr;

namespace {

/// How a program is told to dial a hub with TLS, and how it ends.
struct Program {
    const char* name;
    const char* before; ///< the hub's address
    const char* after;  ///< it
    const char* tls;    ///< what its TLS options begin with
    int failed;         ///< exit code where no hub could be reached
    int well;           ///< where the hub could
};

void PrintTo(const Program& program, std::ostream* out) {
    *out << program.name;
}

const Program kPrograms[] = {
    {"Cat", "tivra-cat -u demo -H ", " snapshot 100:IBM", " --tls", 3, 0},
    {"Top", "tivra-top --once -u demo -H ", " 100:IBM", " --tls", 3, 0},
    {"Wire", "tivra-wire -u demo --hub ", " map -o dictionary.map", " --tls", 6, 0},
#if TIVRA_HAS_BRIDGE
    // There is no engine, which it dials once the hub is ready.
    {"Bridge", "tivra-bridge -u demo -f symbols --to nats://$CLOSED --partitions 1 -H ", "", " --hub-tls", 3,
     4},
#endif
};

class CertificateOfAHub : public ToolFixture, public testing::WithParamInterface<Program> {
protected:
    CertificateOfAHub() { writeFile("symbols", "100:IBM\n"); }

    /// A hub that shows what the scene says, and the program on its way to it.
    struct Meeting {
        explicit Meeting(const CertificateFault& which) : fault(which) { fault.prepare(scene); }

        const CertificateFault& fault;
        CertificateScene scene;
        std::unique_ptr<tivra_sim::Hub> hub;
        std::unique_ptr<Process> program;
    };

    /// The options have no room for everything that a session may demand.
    static bool canBeDemanded(const tivra_internal::TlsSettings& settings) {
        return settings.crlFile.empty() && settings.minVersion.empty() && settings.certificateFile.empty() &&
               std::filesystem::exists(settings.caFile);
    }

    static std::unique_ptr<tivra_sim::Hub> hubOf(CertificateScene& scene) {
        scene.issue();
        std::string shown = scene.hub->pem();
        for (const Certificate* link : scene.chain)
            shown += link->pem();
        tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
        config.tls.certificateFile = scene.files.write("shown.pem", shown);
        config.tls.keyFile = scene.files.write("shown.key", scene.hub->keyPem());
        auto hub = std::make_unique<tivra_sim::Hub>(config);
        hub->start();
        return hub;
    }

    [[nodiscard]] std::unique_ptr<Process> startProgram(const std::string& address,
                                                        const tivra_internal::TlsSettings& settings) const {
        const std::string tls = GetParam().tls;
        std::string line = GetParam().before + address + tls + "-ca " + settings.caFile;
        if (!settings.serverName.empty())
            line += tls + "-name " + settings.serverName;
        if (!settings.pinnedKeys.empty())
            line += tls + "-pin " + settings.pinnedKeys;
        // Each has a folder for its log.
        static std::atomic<int> count{0};
        const std::string state = directory + "/state" + std::to_string(++count);
        return std::make_unique<Process>(
            directory, "cd && exec env XDG_STATE_HOME=" + state + ' ' + line + GetParam().after,
            Process::Place::Files);
    }
};

/// All at once, since each dials again for seconds.
TEST_P(CertificateOfAHub, IsTheCauseThatTheProgramGivesAndNothingIsSentBefore) {
    std::vector<std::unique_ptr<Meeting>> meetings;
    for (const CertificateFault& fault : certificateFaults()) {
        auto meeting = std::make_unique<Meeting>(fault);
        if (!canBeDemanded(meeting->scene.settings))
            continue;
        meeting->hub = hubOf(meeting->scene);
        meeting->program = startProgram(meeting->hub->hostString(), meeting->scene.settings);
        meetings.push_back(std::move(meeting));
    }
    std::size_t faults = 0;
    for (const auto& meeting : meetings) {
        SCOPED_TRACE(meeting->fault.name);
        const bool isGood = *meeting->fault.text == '\0';
        EXPECT_EQ(meeting->program->waitForEnd(2 * kPatience), isGood ? GetParam().well : GetParam().failed)
            << meeting->program->error();
        if (isGood)
            continue;
        ++faults;
        EXPECT_THAT(meeting->program->error(),
                    AllOf(HasSubstr(meeting->fault.text), HasSubstr(meeting->hub->hostString())));
        EXPECT_TRUE(meeting->hub->requests().empty());
    }
    EXPECT_GE(faults, 20U);
}

INSTANTIATE_TEST_SUITE_P(Tools, CertificateOfAHub, testing::ValuesIn(kPrograms),
                         [](const auto& test) { return std::string(test.param.name); });

} // namespace
