#ifndef TIVRA_WIRE_OPTIONS_H
#define TIVRA_WIRE_OPTIONS_H

#include "Frame.h"

#include <optional>
#include <string>
#include <vector>

namespace tivra_wire {

enum class Task { Dump, Convert, Check };

/// Everything that the command line says.
struct Options {
    Task task = Task::Check;
    std::vector<std::string> files; ///< "-" is standard input
    std::vector<std::string> maps;
    std::optional<Form> from; ///< else told by the first bytes

    std::vector<std::string> tokens; ///< names or numbers
    std::vector<int> sources;
    std::vector<std::string> symbols;

    Form to = Form::Vkvn;
    bool hasBlanks = false; ///< lines with short names and blanks
    std::string output = "-";
    int level = 6; ///< of zlib
};

/// Reads the command line. Throws Failure with ExitCode::Usage for what is wrong.
/// @return nothing when there is nothing to do but end well (--help, --version).
[[nodiscard]] std::optional<Options> readOptions(int argc, char** argv);

} // namespace tivra_wire

#endif
