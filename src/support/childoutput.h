#pragma once

#include <sys/types.h>

#include <string>

/// Logs what a child writes, line by line at INFO, until end of file. Lines of more than 1023 bytes
/// are logged in pieces of that length. What the child has started and left running may hold the
/// pipe open for good: once the child has ended, reading goes on for at most 10 seconds, and a
/// WARNING then tells of it.
///
/// @param iFd       the read end of the pipe; stays open. A failure to read it is logged at ERROR.
/// @param iPid      the child, not yet waited for.
/// @param sProgram  its name for the log.
void logChildOutput(int iFd, pid_t iPid, const std::string& sProgram);
