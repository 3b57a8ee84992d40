#pragma once

#include <functional>
#include <string>

#include <tivra_sim/HubConfig.h>

/// Gives the messages of a capture for a playback, from the first that came `fromSeconds` after the first of
/// all to the last before `toSeconds`, 0 for the end. Says on standard error when the capture was cut off.
/// Throws tivra_capture::CaptureError, here and when a message is asked for.
std::function<bool(tivra_sim::TimedBody&)> replayOf(const std::string& path, double fromSeconds,
                                                    double toSeconds);
