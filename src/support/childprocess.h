#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// Runs another program, without a shell. Needs descriptors 0 to 2 to be open. A local object of
/// the function that runs it: make one, add the arguments, start it, read the outcome from the
/// fields.
///
/// How to read the outcome of run(): false means that no child was started; then `exited` with
/// `exitCode` 0 is success, `exited` with another code the program's failure, and `exited` false
/// means that the child was interrupted. A program that cannot be found or executed looks like one
/// that ended with exit code 1.
class ChildProcess {
public:
    /// @param sProgram  a path, or a bare name that is looked up in PATH.
    explicit ChildProcess(const std::string& sProgram);

    /// Appends an argument of the program.
    void addArgument(const std::string& sText) { m_vArguments.push_back(sText); }

    /// Runs the program to its end, with standard input from /dev/null, and logs its output line by
    /// line at INFO. The child stays in our session and process group. No time-out for the program
    /// itself; what it leaves running on its output is listened to for 10 seconds more.
    ///
    /// @return false if the pipe or the fork failed (logged at ERROR); never tells the outcome.
    [[nodiscard]] bool run();

    /// Starts the program detached: in a session of its own, on /dev/null, waited for by nobody.
    ///
    /// @return false if the fork failed (logged at ERROR).
    [[nodiscard]] bool spawn();

    int exitCode = -1;       ///< exit code, or the number of the signal that ended it; -1 unknown
    bool exited = false;     ///< the child ended through exit
    bool signalled = false;  ///< a signal ended the child

private:
    void start();
    void wait();
    [[noreturn]] void execute() const;

    std::string m_sProgram;
    std::vector<std::string> m_vArguments;  ///< the whole argument vector, first entry included
    pid_t m_iPid = 0;                       ///< 0 while no child is recorded
};
