#include "control/rpmsignal.h"

#include <cstdlib>
#include <map>

namespace rpmsignal {

namespace {

struct Slot {
    int references = 0;
    struct sigaction before = {};
};

std::map<int, Slot> g_slots = {
    {SIGHUP, {}}, {SIGINT, {}}, {SIGQUIT, {}}, {SIGTERM, {}}, {SIGPIPE, {}}};

void doNothing(int /*iSignal*/, siginfo_t* /*pInfo*/, void* /*pContext*/) {}

int release(int iSignal, Slot& slot)
{
    if (slot.references > 1) {
        return --slot.references;
    }
    if (slot.references == 1 && sigaction(iSignal, &slot.before, nullptr) != 0) {
        return -1;
    }
    slot.references = 0;
    return 0;
}

}  // namespace

int enable(int iSignal, Handler pHandler)
{
    const auto it = g_slots.find(std::abs(iSignal));
    if (it == g_slots.end()) {
        return -1;
    }
    Slot& slot = it->second;
    if (iSignal < 0) {
        return release(it->first, slot);
    }
    if (slot.references > 0) {
        return ++slot.references;
    }
    if (sigaction(iSignal, nullptr, &slot.before) != 0) {
        return -1;
    }
    if (slot.before.sa_handler != SIG_IGN) {
        struct sigaction action = {};
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_SIGINFO;
        action.sa_sigaction = pHandler != nullptr ? pHandler : doNothing;
        if (sigaction(iSignal, &action, nullptr) != 0) {
            return -1;
        }
    }
    return slot.references = 1;
}

}  // namespace rpmsignal
