// What encryption costs: not to use it beside not having it, and to use it beside a plain connection and
// beside stunnel at both ends. usage: tivra_tls_bench [ROUNDS] [--quick] [--json FILE]
#include "Interleave.h"
#include "Report.h"
#include "Road.h"
#include "RoadHub.h"
#include "Stunnel.h"
#include "TlsPapers.h"

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

using namespace tivra_bench;

namespace {

constexpr std::size_t kEvents = 40000;
constexpr std::size_t kPasses = 3;
constexpr unsigned kRepeat = 15;

/// The figures of one way, one for each round: nanoseconds of processor time a message.
using Figures = std::vector<double>;

RoadLoad loadOf(const std::string& certificate) {
    RoadLoad load;
    load.events = kEvents;
    load.repeat = kRepeat;
    load.certificate = certificate;
    return load;
}

double runRoad(RoadTask task) {
    task.messages = kEvents * kRepeat;
    task.passes = kPasses;
    return runLibrary(task).cpuSeconds * 1e9 / static_cast<double>(task.messages);
}

double runPlain(bool isInline) {
    RoadHub hub(loadOf(""));
    RoadTask task{hub};
    task.isInline = isInline;
    return runRoad(task);
}

double runEncrypted(const TlsPapers& papers, bool isInline) {
    RoadHub hub(loadOf(papers.hub()));
    RoadTask task{hub};
    task.isInline = isInline;
    task.issuer = papers.issuer();
    return runRoad(task);
}

/// The reader's end of stunnel counts, as the library's encryption does.
double runTunnelled(const TlsPapers& papers) {
    RoadHub hub(loadOf(""));
    const Stunnel stunnel(papers, hub.port());
    RoadTask task{hub};
    task.isTunnelled = true;
    task.beside = [&stunnel] { return stunnel.processorSeconds(); };
    return runRoad(task);
}

/// The figure that another program prints.
double runProgram(const char* program) {
    FILE* const pipe = popen(program, "r");
    double figure = 0.0;
    const bool isRead = pipe != nullptr && std::fscanf(pipe, "%lf", &figure) == 1;
    if (pipe == nullptr || pclose(pipe) != 0 || !isRead)
        throw std::runtime_error(std::string(program) + " prints no figure");
    return figure;
}

int run(const Options& options) {
    const TlsPapers papers;
    Figures without;
    Figures off;
    Figures plain;
    Figures encrypted;
    Figures plainInline;
    Figures encryptedInline;
    Figures tunnelled;
    if (!Stunnel::isThere())
        std::printf("stunnel4 is not installed and is left out.\n");
    for (int round = 0; round < options.rounds; ++round) {
        without.push_back(runProgram(TIVRA_ROAD_WITHOUT_TLS));
        off.push_back(runProgram(TIVRA_ROAD_WITH_TLS));
        plain.push_back(runPlain(false));
        encrypted.push_back(runEncrypted(papers, false));
        plainInline.push_back(runPlain(true));
        encryptedInline.push_back(runEncrypted(papers, true));
        if (Stunnel::isThere())
            tunnelled.push_back(runTunnelled(papers));
    }
    Report& report = Report::get();
    report.setSection("TLS");
    std::printf("\nThe road at full speed, processor time of the reading process\n");
    report.print("without TLS in the library", without, "ns/message");
    report.print("with TLS in the library, not used", off, "ns/message");
    report.print("plain", plain, "ns/message");
    report.print("encrypted", encrypted, "ns/message");
    report.print("plain, inline", plainInline, "ns/message");
    report.print("encrypted, inline", encryptedInline, "ns/message");
    if (!tunnelled.empty())
        report.print("stunnel at both ends, the reader's counted", tunnelled, "ns/message");
    std::printf("\nRatios, round by round\n");
    printAim("processor time, TLS not used to not there", ratios(off, without), "about 1, within the noise");
    printAim("processor time, encrypted to plain", ratios(encrypted, plain), "at most 1.35");
    printAim("processor time, encrypted to plain, both inline", ratios(encryptedInline, plainInline), "none");
    if (!tunnelled.empty())
        printAim("processor time, encrypted to stunnel", ratios(encrypted, tunnelled), "below 1");
    report.finish();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(Options(argc, argv, 5));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tls: %s\n", error.what());
        return 1;
    }
}
