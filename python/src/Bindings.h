#pragma once

#include <nanobind/nanobind.h>

/// @file
/// What the extension module consists of: each function adds the Python classes of one concern.

namespace tivra_python {

void bindErrors(nanobind::module_& module);
void bindHandOver(nanobind::module_& module);
void bindNotifier(nanobind::module_& module);
void bindOptions(nanobind::module_& module);
void bindRecords(nanobind::module_& module);
void bindAnswers(nanobind::module_& module);
void bindEvents(nanobind::module_& module);
void bindStreams(nanobind::module_& module);
void bindBus(nanobind::module_& module);
void bindEngines(nanobind::module_& module);
void bindBoards(nanobind::module_& module);
void bindFeeds(nanobind::module_& module);
void bindEnumerations(nanobind::module_& module);
void bindLog(nanobind::module_& module);
void bindColumns(nanobind::module_& module);
void bindDictionary(nanobind::module_& module);
void bindBatches(nanobind::module_& module);
void bindWriting(nanobind::module_& module);

} // namespace tivra_python
