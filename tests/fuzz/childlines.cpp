// The output of a child, which becomes lines of the log.

#include "support/childoutput.h"
#include "support/files.h"

#include "target.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace {

/// The log of some output: what fgets() with a buffer of 1024 bytes and strlen() would make of it.
std::string logOf(std::string_view sOutput)
{
    std::string sLog;
    while (!sOutput.empty()) {
        const std::size_t uLength =
            std::min({sOutput.find('\n') + 1 - 1, sOutput.size() - 1, std::size_t{1022}}) + 1;
        std::string sText(sOutput.substr(0, uLength).data(), uLength);
        sText.resize(std::min(sText.find('\0'), sText.size()));
        sOutput.remove_prefix(uLength);
        if (sText.size() > 2 && sText.ends_with('\n')) {
            sText.pop_back();
        }
        if (sText.size() > 1) {
            sLog += (sLog.empty() ? "INFO: child output:\n" : "") + ("INFO:   " + sText) + "\n";
        }
    }
    return sLog;
}

}  // namespace

void fuzz(std::string_view sInput)
{
    std::array<int, 2> vPipe = {};
    require(pipe2(vPipe.data(), O_CLOEXEC) == 0, "there are pipes");
    const FileDescriptor from(vPipe[0]);
    FileDescriptor to(vPipe[1]);
    require(
        sInput.size() <= 65536 && writeAll(to.get(), sInput.data(), sInput.size()) && to.close(),
        "a pipe takes 64 KiB");
    logChildOutput(from.get(), getpid(), "child");
    require(takeLog() == logOf(sInput), "the log holds what the child has written");
}
