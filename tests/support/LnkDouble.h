#pragma once

/// A stand-in for the connection managers' client library: a test decides each answer.
/// Writes the answer into `out` (`size` bytes) and returns the status.
using LnkAnswer = int (*)(const char* managerAddr, const char* user, const char* password, char* out,
                          int size);

/// Exported by the stand-in beside the library's own operations.
extern "C" void lnkDoubleAnswerBy(LnkAnswer answer, int initStatus);
