#include "support/childoutput.h"

#include "support/files.h"
#include "support/logger.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <optional>
#include <string_view>

namespace {

constexpr std::size_t k_uMaxChunk = 1023;
constexpr std::chrono::seconds k_patience{10};  // with what the child has left behind

/// Cuts the output into lines and logs them.
class OutputLog {
public:
    explicit OutputLog(const std::string& sProgram) : m_sProgram(sProgram) {}

    void add(std::string_view sOutput)
    {
        for (const char cNext : sOutput) {
            m_sChunk += cNext;
            if (cNext == '\n' || m_sChunk.size() == k_uMaxChunk) {
                endChunk();
            }
        }
    }

    /// Logs what has come so far of a line. Chunks of one byte are not worth it.
    void endChunk()
    {
        std::string sText = m_sChunk.substr(0, m_sChunk.find('\0'));  // a zero byte ends it
        m_sChunk.clear();
        if (sText.size() > 2 && sText.back() == '\n') {
            sText.pop_back();
        }
        if (sText.size() <= 1) {
            return;
        }
        if (!m_bHeading) {
            logMessage(INFO, "%s output:", m_sProgram.c_str());
            m_bHeading = true;
        }
        logMessage(INFO, "  %s", sText.c_str());
    }

private:
    const std::string& m_sProgram;
    std::string m_sChunk;
    bool m_bHeading = false;
};

/// Reads what is there, so that the child is not blocked by a full pipe.
void discardOutput(int iFd)
{
    std::array<char, 1024> vBuffer;
    ssize_t iRead = 0;
    while ((iRead = read(iFd, vBuffer.data(), vBuffer.size())) > 0) {
    }
    if (iRead < 0) {
        logMessage(ERROR, "error reading child output (%s), closing pipe", errnoText().c_str());
    }
}

/// Milliseconds for poll(2), rounded up; 0 if the time has come.
int millisecondsUntil(std::chrono::steady_clock::time_point end)
{
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

}  // namespace

void logChildOutput(int iFd, pid_t iPid, const std::string& sProgram)
{
    OutputLog log(sProgram);
    // On a kernel without it the child is not watched, and its output is read for as long as it goes.
    const FileDescriptor child(static_cast<int>(syscall(SYS_pidfd_open, iPid, 0)));
    std::array<pollfd, 2> vWatched = {{{iFd, POLLIN, 0}, {child.get(), POLLIN, 0}}};
    std::optional<std::chrono::steady_clock::time_point> end;  // known when the child has ended
    while (true) {
        const int iReady =
            poll(vWatched.data(), vWatched.size(), end ? millisecondsUntil(*end) : -1);
        if (iReady < 0 && errno != EINTR) {
            logMessage(ERROR, "cannot read output from child: %s", errnoText().c_str());
            discardOutput(iFd);
            break;
        }
        if (iReady > 0 && vWatched[1].revents != 0) {
            end = std::chrono::steady_clock::now() + k_patience;
            vWatched[1].fd = -1;
        }
        if (iReady > 0 && vWatched[0].revents != 0) {
            std::array<char, 4096> vBuffer;
            const ssize_t iRead = read(iFd, vBuffer.data(), vBuffer.size());
            if (iRead < 0 && errno != EINTR) {
                logMessage(ERROR, "failed reading output from child, closing pipe");
                break;
            }
            if (iRead == 0) {
                break;
            }
            log.add({vBuffer.data(), static_cast<std::size_t>(iRead > 0 ? iRead : 0)});
        }
        if (end && millisecondsUntil(*end) == 0) {
            log.endChunk();
            logMessage(WARNING, "something that '%s' has started still holds its output open",
                       sProgram.c_str());
            break;
        }
    }
    log.endChunk();
}
