#pragma once

#include "net/urlfetcher.h"

#include <chrono>

/// Reports the progress of a transfer job: at most one line a minute, and one at the end of a job
/// that took longer. The owner tells each finished item; sessions tell their events.
class ItemNotify : public URLFetcher::Notifier {
public:
    using Clock = std::chrono::steady_clock;

    explicit ItemNotify(int iTotal, Clock::time_point now = Clock::now())
        : total(iTotal), m_lastReport(now)
    {
    }

    /// Looks at neither argument.
    void notify(ne_session_status status, const ne_session_status_info* pInfo) override;

    /// What notify() does, at a given time.
    void report(Clock::time_point now);

    /// Counts one item and reports.
    void itemDone();

    int total;     ///< items of the job
    int done = 0;  ///< items that have gone through so far

private:
    bool m_bProgressShown = false;
    bool m_bFinishedShown = false;
    Clock::time_point m_lastReport;  ///< of the last progress line; at first that of construction
};
