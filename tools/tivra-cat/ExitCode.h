#pragma once

#include "common/ExitCode.h"

namespace tivra_cat {

using tivra_tools::ExitCode;
using tivra_tools::Failure;

} // namespace tivra_cat
