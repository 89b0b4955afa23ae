#pragma once

#include "control/passplan.h"
#include "publisher/devicestate.h"
#include "publisher/finding.h"

#include <string>

/// A device under way through a run that is only thought.
struct ForeseenDevice {
    const Offer* offer;
    DeviceState* state;  ///< follows what is installed
    bool bPackages;      ///< the files of the packages are looked at
    bool bRpm;           ///< rpm itself is asked, in the state's own database
};

/// The second half of a pass as far as a look ahead can go: are the packages there and whole, do the
/// device's keys fit, does rpm take them? If so, the state has them installed.
///
/// @param sReason  set to the id of the finding that stopped it; else unchanged.
/// @return         as installPackages() does.
[[nodiscard]] int foreseeInstallation(const ForeseenDevice& device, const UpdateSet& updateSet,
                                      std::string& sReason);
