#pragma once

#include "common/ExitCode.h"

namespace tivra_top {

using tivra_tools::ExitCode;
using tivra_tools::Failure;

} // namespace tivra_top
