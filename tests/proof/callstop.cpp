// callstop DOING NUMBER CALL OF NOTES PROGRAM [ARGUMENT...]: runs PROGRAM and does something at one of the
// system calls that it makes. Calls are counted from 1, from its entry point on (what the loader does in
// front of it is not the program's), over all threads of it and over all that it forks, up to their exec:
// rpm, hooks and shells are let go there. With OF, a kernel's number of a call, only those are counted;
// with -1 all.
//
//   list 0 0       nothing; NOTES gets the kernel's number of each call, a line each
//   before S CALL  sends signal S to the process that is about to make this call
//   behind S CALL  sends it when the call has been made, ahead of the process seeing what came of it
//   fail E CALL    the call is not made and fails with error E
//   short 0 CALL   the call's third argument, the count of bytes of a read or write, is halved
//
// NOTES gets the kernel's number of that call, nothing if it was never reached. Ends as PROGRAM does,
// with 128 + n if signal n ended it, with 121 if this cannot trace.

#include <elf.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

#ifndef __x86_64__
#error "system calls are changed in the registers of x86-64"
#endif

namespace {

constexpr int k_iFailed = 121;
constexpr long k_lOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                            PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;

enum class Doing { list, before, behind, fail, shorter };

struct Order {
    Doing doing;
    int iNumber;  // of the signal or the error
    long lCall;
    long lOf;
};

enum class Place { outside, inside, insideTheOne };

class Tracer {
public:
    Tracer(const Order& order, std::FILE* pNotes) : m_order(order), m_pNotes(pNotes) {}

    // Follows all there is to follow. How the program ended, as a shell tells it.
    int follow(pid_t iProgram);

private:
    void stopped(pid_t iThread, int iStatus);
    void stopAtEntry();
    void start();
    void entered(pid_t iThread);
    void left(pid_t iThread, Place place);
    void signalProcessOf(pid_t iThread) const;

    Order m_order;
    std::FILE* m_pNotes;
    pid_t m_iProgram = 0;
    unsigned long m_ulEntry = 0;  // the program's first instruction, once it is loaded
    long m_lFirstWord = 0;        // what stands there
    bool m_bStarted = false;      // it has got there
    long m_lCalls = 0;
    std::map<pid_t, Place> m_threads;
};

[[noreturn]] void fail(const char* pWhat)
{
    std::perror(pWhat);
    std::exit(k_iFailed);
}

int Tracer::follow(pid_t iProgram)
{
    m_iProgram = iProgram;
    int iResult = k_iFailed;
    for (;;) {
        int iStatus = 0;
        const pid_t iThread = waitpid(-1, &iStatus, __WALL);
        if (iThread < 0) {
            return iResult;
        }
        if (WIFSTOPPED(iStatus)) {
            stopped(iThread, iStatus);
        } else {
            m_threads.erase(iThread);
            if (iThread == iProgram) {
                iResult = WIFSIGNALED(iStatus) ? 128 + WTERMSIG(iStatus) : WEXITSTATUS(iStatus);
            }
        }
    }
}

void Tracer::stopped(pid_t iThread, int iStatus)
{
    const int iSignal = WSTOPSIG(iStatus);
    const int iEvent = iStatus >> 16;
    const bool bNew = m_threads.emplace(iThread, Place::outside).second;
    long lPassOn = 0;
    if (iSignal == (SIGTRAP | 0x80)) {
        Place& place = m_threads[iThread];
        if (place == Place::outside) {
            entered(iThread);
        } else {
            left(iThread, place);
            place = Place::outside;
        }
    } else if (iEvent == PTRACE_EVENT_EXEC) {
        if (m_bStarted) {
            m_threads.erase(iThread);
            ptrace(PTRACE_DETACH, iThread, nullptr, nullptr);
            return;
        }
        stopAtEntry();
    } else if (iSignal == SIGTRAP && iEvent == 0 && !m_bStarted) {
        start();
    } else if (iEvent == 0 && !(bNew && iSignal == SIGSTOP)) {
        lPassOn = iSignal;  // its own; the first stop of what was forked is not
    }
    ptrace(PTRACE_SYSCALL, iThread, nullptr,
           lPassOn);  // fails if it was killed meanwhile: waitpid() tells
}

// Puts a breakpoint there.
void Tracer::stopAtEntry()
{
    const std::string strPath = "/proc/" + std::to_string(m_iProgram) + "/auxv";
    std::FILE* pFile = std::fopen(strPath.c_str(), "re");
    Elf64_auxv_t value{};
    while (pFile != nullptr && std::fread(&value, sizeof value, 1, pFile) == 1) {
        if (value.a_type == AT_ENTRY) {
            m_ulEntry = value.a_un.a_val;
        }
    }
    if (m_ulEntry == 0) {
        fail("the entry point");
    }
    std::fclose(pFile);
    m_lFirstWord = ptrace(PTRACE_PEEKTEXT, m_iProgram, m_ulEntry, nullptr);
    ptrace(PTRACE_POKETEXT, m_iProgram, m_ulEntry, (m_lFirstWord & ~0xffL) | 0xcc);  // int3
}

// The program stands behind the breakpoint: undoes it, and counting begins.
void Tracer::start()
{
    user_regs_struct registers{};
    ptrace(PTRACE_POKETEXT, m_iProgram, m_ulEntry, m_lFirstWord);
    ptrace(PTRACE_GETREGS, m_iProgram, nullptr, &registers);
    registers.rip = m_ulEntry;
    ptrace(PTRACE_SETREGS, m_iProgram, nullptr, &registers);
    m_bStarted = true;
}

void Tracer::entered(pid_t iThread)
{
    Place& place = m_threads[iThread];
    place = Place::inside;
    user_regs_struct registers{};
    if (!m_bStarted || ptrace(PTRACE_GETREGS, iThread, nullptr, &registers) != 0) {
        return;
    }
    if (m_order.lOf >= 0 && static_cast<long>(registers.orig_rax) != m_order.lOf) {
        return;
    }
    ++m_lCalls;
    if (m_order.doing != Doing::list && m_lCalls != m_order.lCall) {
        return;
    }
    if (m_order.doing == Doing::shorter && registers.orig_rax == SYS_sendto && registers.r8 != 0) {
        return;  // with an address: a message, which goes out whole or not at all
    }
    std::fprintf(m_pNotes, "%lld\n", static_cast<long long>(registers.orig_rax));
    std::fflush(m_pNotes);
    switch (m_order.doing) {
        case Doing::list:
            return;
        case Doing::before:
            signalProcessOf(iThread);
            return;
        case Doing::behind:
            break;
        case Doing::fail:
            registers.orig_rax = static_cast<unsigned long long>(-1);
            break;
        case Doing::shorter:
            registers.rdx = (registers.rdx + 1) / 2;
            break;
    }
    place = Place::insideTheOne;
    ptrace(PTRACE_SETREGS, iThread, nullptr, &registers);
}

void Tracer::left(pid_t iThread, Place place)
{
    if (place != Place::insideTheOne) {
        return;
    }
    if (m_order.doing == Doing::behind) {
        signalProcessOf(iThread);
    } else if (m_order.doing == Doing::fail) {
        user_regs_struct registers{};
        ptrace(PTRACE_GETREGS, iThread, nullptr, &registers);
        registers.rax = static_cast<unsigned long long>(-static_cast<long long>(m_order.iNumber));
        ptrace(PTRACE_SETREGS, iThread, nullptr, &registers);
    }
}

// To the process as a whole, not to the thread that stands still here.
void Tracer::signalProcessOf(pid_t iThread) const
{
    char text[64];
    std::snprintf(text, sizeof text, "/proc/%d/status", static_cast<int>(iThread));
    std::FILE* pFile = std::fopen(text, "r");
    int iProcess = 0;
    while (pFile != nullptr && std::fgets(text, sizeof text, pFile) != nullptr) {
        if (std::sscanf(text, "Tgid: %d", &iProcess) == 1) {
            break;
        }
    }
    if (pFile == nullptr || iProcess == 0) {
        fail("/proc");
    }
    std::fclose(pFile);
    kill(iProcess, m_order.iNumber);
}

Order parse(char** ppArguments)
{
    static const std::map<std::string_view, Doing> doings = {{"list", Doing::list},
                                                             {"before", Doing::before},
                                                             {"behind", Doing::behind},
                                                             {"fail", Doing::fail},
                                                             {"short", Doing::shorter}};
    const auto doing = doings.find(ppArguments[0]);
    if (doing == doings.end()) {
        std::fprintf(stderr, "callstop: nobody can do this: %s\n", ppArguments[0]);
        std::exit(k_iFailed);
    }
    return {doing->second, std::atoi(ppArguments[1]), std::atol(ppArguments[2]),
            std::atol(ppArguments[3])};
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 7) {
        std::fprintf(stderr, "usage: callstop DOING NUMBER CALL OF NOTES PROGRAM [ARGUMENT...]\n");
        return k_iFailed;
    }
    const Order order = parse(argv + 1);
    std::FILE* pNotes = std::fopen(argv[5], "we");
    if (pNotes == nullptr) {
        fail(argv[5]);
    }
    const pid_t iProgram = fork();
    if (iProgram < 0) {
        fail("fork");
    }
    if (iProgram == 0) {
        raise(SIGSTOP);
        execv(argv[6], argv + 6);
        fail(argv[6]);
    }
    int iStatus = 0;
    if (waitpid(iProgram, &iStatus, WUNTRACED) != iProgram || !WIFSTOPPED(iStatus) ||
        ptrace(PTRACE_SEIZE, iProgram, nullptr, k_lOptions) != 0) {
        fail("ptrace");
    }
    kill(iProgram, SIGCONT);
    return Tracer(order, pNotes).follow(iProgram);
}
