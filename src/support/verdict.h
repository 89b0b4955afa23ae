#pragma once

#include <string>

/// What the test of a detached signature against the keys of the device gave, the best first: with
/// several signatures the best one counts.
struct SignatureVerdict {
    enum Kind {
        GOOD,         ///< a key of the device has signed these very bytes
        BAD,          ///< by a key of the device, but of other bytes, or changed
        UNKNOWN_KEY,  ///< by a key that the device does not have
        NONE,         ///< no signature, or none of a usable kind
        NO_KEYS,      ///< the device has no key at all
        NO_DATABASE   ///< the keys could not be read (logged)
    };
    Kind kind = NO_DATABASE;
    std::string key;  ///< id in 16 hexadecimal digits, for GOOD, BAD and UNKNOWN_KEY
};
