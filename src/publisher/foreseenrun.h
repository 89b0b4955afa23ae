#pragma once

#include "publisher/devicelog.h"
#include "publisher/foreseenpass.h"
#include "publisher/report.h"

/// Goes through the whole run of a device: the check, the passes and what comes of them.
///
/// @param device  its state is what the run leaves, afterwards.
[[nodiscard]] RunReport foreseeRun(const Config& config, const ForeseenDevice& device,
                                   DeviceLog& log, Findings& findings);
