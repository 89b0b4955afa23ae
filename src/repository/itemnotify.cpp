#include "repository/itemnotify.h"

#include "support/logger.h"

void ItemNotify::notify(ne_session_status /*status*/, const ne_session_status_info* /*pInfo*/)
{
    report(Clock::now());
}

void ItemNotify::itemDone()
{
    ++done;
    report(Clock::now());
}

void ItemNotify::report(Clock::time_point now)
{
    if (m_bFinishedShown) {
        return;
    }
    if (done == total && m_bProgressShown) {
        m_bFinishedShown = true;
        logMessage(INFO, "downloaded (%i/%i)", done, total);
        return;
    }
    if (now - m_lastReport >= std::chrono::seconds(60)) {
        logMessage(INFO, "downloading... (%i/%i)", done, total);
        m_lastReport = now;
        m_bProgressShown = true;
    }
}
