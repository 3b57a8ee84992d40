#pragma once

#include "Frame.h"
#include "TimeRange.h"

#include "common/AddressOptions.h"
#include "common/TlsOptions.h"

#include <optional>
#include <string>
#include <vector>

namespace tivra_wire {

enum class Task { Dump, Convert, Check, Map, Slice };

/// Where a dictionary is to be had besides map files.
struct HubOptions {
    std::string host; ///< "address:port", resolved; empty for no hub
    std::string user;
    std::string passwordFile;
    tivra_tools::TlsOptions tls;
    tivra_tools::AddressOptions addresses;
    bool hasCompression = true;
    double timeoutSeconds = 30.0; ///< for the login and the whole list
    std::string logFile;
};

/// Everything that the command line says.
struct Options {
    Task task = Task::Check;
    std::vector<std::string> files; ///< "-" is standard input
    std::vector<std::string> maps;
    HubOptions hub;
    std::optional<Form> from; ///< else told by the first bytes

    std::vector<std::string> tokens; ///< names or numbers
    std::vector<int> sources;
    std::vector<std::string> symbols;
    TimeRange range; ///< of captures

    Form to = Form::Vkvn;
    std::vector<std::string> columns; ///< of CSV, by name or number
    bool hasBlanks = false;           ///< lines with short names and blanks
    std::string output = "-";
    int level = 6; ///< of zlib
};

/// Reads the command line. Throws Failure with ExitCode::Usage, or UsageError, for what is wrong.
/// @return nothing when there is nothing to do but end well (--help, --version).
[[nodiscard]] std::optional<Options> readOptions(int argc, char** argv);

} // namespace tivra_wire
