#pragma once

#include "packages/packageset.h"
#include "rpmdb/snapshot.h"
#include "support/verdict.h"

#include <rpm/rpmtypes.h>

#include <memory>
#include <string>
#include <string_view>

/// Reads the rpm database of the device, the one that rpm's macros name, and verifies package
/// files against its keys. Needs rpm's configuration to be loaded (rpmcliInit). Never writes the
/// database. A local object of one operation; one that is not open must not be asked anything.
class RpmDB {
public:
    RpmDB() = default;

    /// Closes the database as well.
    ~RpmDB();
    RpmDB(const RpmDB&) = delete;
    RpmDB& operator=(const RpmDB&) = delete;

    /// Makes the transaction set. The database itself is opened by the first operation.
    ///
    /// @param bNoHeaderCheck  do not check each header that is read: much faster.
    /// @return                false if it is open already, and stays so, or on failure (logged).
    [[nodiscard]] bool open(bool bNoHeaderCheck);

    /// Whether the database holds a public key; unknown (logged) if that cannot be told for sure.
    [[nodiscard]] PublicKeys publicKeys();

    /// True if all of a package file, its payload included, is as a key of the database signed it.
    /// Every other outcome is logged at ERROR.
    [[nodiscard]] bool verifyPackage(const std::string& sPath);

    /// Tests bytes against a detached signature, see rpmdb/detachedsignature.h.
    [[nodiscard]] SignatureVerdict verifyDetached(std::string_view sData, std::string_view sArmour);

    /// All installed packages, several versions of a name and the public keys among them.
    ///
    /// @return null if the list could not be read in full (logged); an incomplete one is never
    ///         returned.
    [[nodiscard]] std::unique_ptr<InstalledPackageSet> installedPackages();

private:
    rpmts m_ts = nullptr;  ///< null while closed
};
