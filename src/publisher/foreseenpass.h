#pragma once

#include "control/passplan.h"
#include "publisher/devicestate.h"
#include "publisher/finding.h"
#include "publisher/packagefiles.h"

#include <string>

/// A device under way through a run that is only thought.
struct ForeseenDevice {
    const Offer* offer;
    DeviceState* state;         ///< follows what is installed
    const PackageFiles* files;  ///< null: they were not looked at
    bool bRpm;                  ///< rpm itself is asked, in the state's own database
};

/// What stops a pass.
struct Refusal {
    std::string id;    ///< of the finding
    std::string text;  ///< what the log does not tell; may be empty
};

/// The second half of a pass as far as a look ahead can go: are the packages there and whole, do the
/// device's keys fit, does rpm take them? If so, the state has them installed.
///
/// @param refusal  set to what stopped it; else unchanged.
/// @return         as installPackages() does.
[[nodiscard]] int foreseeInstallation(const ForeseenDevice& device, const UpdateSet& updateSet,
                                      Refusal& refusal);
