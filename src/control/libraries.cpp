#include "control/libraries.h"

#include "control/result.h"
#include "rpmdb/database.h"
#include "support/controls.h"
#include "support/logger.h"
#include "support/xml.h"

#include <libxml/xmlversion.h>
#include <ne_alloc.h>
#include <ne_socket.h>
#include <rpm/rpmcli.h>
#include <rpm/rpmlib.h>
#include <rpm/rpmlog.h>

#include <array>
#include <cstdlib>
#include <new>
#include <string>
#include <utility>

namespace {

[[noreturn]] void outOfMemory()
{
    logMessage(FATAL, "out of memory, aborting execution");
    std::exit(ResultFatal);
}

/// Logs a message of rpm. Must not cause another one: rpm's lock is held.
int rpmLogCallback(rpmlogRec pRecord, rpmlogCallbackData /*pData*/)
{
    // By the priorities of syslog, from "emergency" to "debug".
    static constexpr std::array<int, 8> k_vLevels = {FATAL,   FATAL, FATAL, ERROR,
                                                     WARNING, INFO,  INFO,  DEBUG};
    const char* pMessage = rpmlogRecMessage(pRecord);
    std::string sText = pMessage != nullptr ? pMessage : "";
    if (sText.ends_with('\n')) {
        sText.pop_back();
    }
    logMessage(k_vLevels[static_cast<unsigned>(rpmlogRecPriority(pRecord)) & 7U], "rpmlib: %s",
               sText.c_str());
    return 0;  // rpm is to print nothing and to go on
}

/// True if rpm's configuration was read: without it no package would fit the device, or another
/// database would be read. Otherwise logged.
bool isRpmConfigured()
{
    bool bConfigured = true;
    if (rpmMachineScore(RPM_MACHTABLE_INSTARCH, "noarch") == 0) {
        logMessage(ERROR, "rpm does not know the architectures of this system");
        bConfigured = false;
    }
    const std::string sDirectory = databaseDirectory();
    if (!sDirectory.starts_with('/')) {
        logMessage(ERROR, "path '%s' of the rpm database is not absolute",
                   printable(sDirectory).c_str());
        bConfigured = false;
    }
    return bConfigured;
}

}  // namespace

bool Libraries::start(int argc, char* argv[], poptOption* pOptions, NameSet& arguments)
{
    std::set_new_handler(outOfMemory);
    xmlCheckVersion(LIBXML_VERSION);
    refuseExternalEntities();
    markLibraryMessages();
    ne_oom_callback(outOfMemory);
    if (ne_sock_init() != 0) {
        logMessage(ERROR, "failed initializing (neon)");
        return false;
    }
    m_bNeonStarted = true;
    rpmlogSetCallback(rpmLogCallback, nullptr);
    m_pNull = std::fopen("/dev/null", "we");
    if (m_pNull != nullptr) {
        rpmlogSetFile(m_pNull);
    } else {
        logMessage(WARNING, "failed opening /dev/null output");
    }
    m_pContext = rpmcliInit(argc, argv, pOptions);
    if (m_pContext == nullptr || !isRpmConfigured()) {
        logMessage(ERROR, "failed initializing (rpm)");
        return false;
    }
    while (const char* pArgument = poptGetArg(m_pContext)) {
        arguments.insert(pArgument);
    }
    return true;
}

void Libraries::stop()
{
    if (m_pContext != nullptr) {
        m_pContext = rpmcliFini(m_pContext);
    }
    rpmlogSetFile(nullptr);
    if (m_pNull != nullptr) {
        std::fclose(std::exchange(m_pNull, nullptr));
    }
    if (std::exchange(m_bNeonStarted, false)) {
        ne_sock_exit();
    }
}
