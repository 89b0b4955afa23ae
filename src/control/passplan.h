#pragma once

#include "config/config.h"
#include "control/result.h"
#include "resolver/selection.h"

#include <cstdint>

/// The plan of passes, decided on values. Use: beginPass(), run the pass, endPass(), again as long
/// as that says so; then passesAddUp() and result().
class PassPlan {
public:
    PassPlan(const Config& config, const NameSet& packageNames);

    /// The settings and rules of the next pass, logged.
    struct Pass {
        Config config;
        SelectionRules rules;
    };
    [[nodiscard]] Pass beginPass();

    /// Takes in how the pass ended.
    ///
    /// @param uPackageCount  what the pass reported.
    /// @return               true if another pass follows.
    [[nodiscard]] bool endPass(const Pass& pass, int iResult, unsigned uPackageCount);

    /// False if all passes went well and yet passed fewer packages than the check announced.
    [[nodiscard]] bool passesAddUp() const;

    /// The result of the run.
    [[nodiscard]] int result() const;

private:
    void setUpPass(Pass& pass);
    void fallBack();

    const Config& m_config;
    NameSet m_packageNames;
    NameSet m_pullNames;
    bool m_bUpdaterOnly = false;  ///< switched to the updater package alone
    bool m_bTwoPass;              ///< the plan of check, pass 1 and pass 2 is still running
    unsigned m_uPass = 0;
    unsigned m_uFirstCount = 0;
    unsigned m_uTotalCount = 0;
    bool m_bRebootDue = false;
    int m_iOutcome = ResultOk;
};

/// The share of a longest wait that a value of rand(3) stands for.
///
/// @param iMaxWaitTime  seconds.
/// @param iRandom       0 to RAND_MAX.
/// @return              0 to iMaxWaitTime, whole seconds.
[[nodiscard]] std::int64_t randomDelay(int iMaxWaitTime, int iRandom);
