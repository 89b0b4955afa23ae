// The part of URLFetcher that all fetchers share: settings, identity and credentials.

#include "net/identity.h"
#include "net/request.h"
#include "net/urlfetcher.h"
#include "support/controls.h"
#include "support/logger.h"

bool URLFetcher::s_bInitialized = false;
ProxyConfig URLFetcher::s_proxy;
std::string URLFetcher::s_sUserAgent;
std::string URLFetcher::s_sSerial;
std::string URLFetcher::s_sRevision;
Board URLFetcher::s_eBoard = BoardOther;
std::string URLFetcher::s_sDefaultUser;
std::string URLFetcher::s_sDefaultPassword;

void URLFetcher::setNetworkDefaults(const ProxyConfig& config)
{
    if (s_bInitialized) {
        return;
    }
    s_proxy = config;
    s_bInitialized = true;
    readCpuInfo();
    s_sUserAgent =
        printable(userAgentText(s_proxy.agentBase, s_proxy.agentProduct, s_sSerial));  // a header
    if (!recoverDefaultCredentials()) {
        logMessage(WARNING, "cannot recover default authentication credentials");
    }
}

void URLFetcher::readCpuInfo()
{
    CpuInfo info;
    readCpuInfoFile("/proc/cpuinfo", info);
    s_sSerial = info.serial;
    s_sRevision = info.revision;
    s_eBoard = info.board;
}

bool URLFetcher::recoverDefaultCredentials()
{
    s_sDefaultUser.clear();
    if (!buildDefaultPassword()) {
        logMessage(ERROR, "cannot recover default password for authentication");
        return false;
    }
    if (!buildDefaultUser()) {
        logMessage(ERROR, "cannot recover default user name for authentication");
        return false;
    }
    logMessage(TRACE, "default user '%s'", s_sDefaultUser.c_str());
    return true;
}

bool URLFetcher::buildDefaultUser()
{
    if (s_sRevision.empty()) {
        logMessage(DEBUG, "no HW Revision");
        return false;
    }
    s_sDefaultUser = s_proxy.agentProduct + "-" + s_sRevision;
    logMessage(DEBUG, "default http user initialized to '%s'", s_sDefaultUser.c_str());
    return true;
}

bool URLFetcher::buildDefaultPassword()
{
    const std::vector<std::string> vPaths = {"/sys/bus/i2c/drivers/Quorax-EEPROM/0-0050/data",
                                             "/sys/bus/i2c/drivers/Quorax-EEPROM/0-0052/data",
                                             "/sys/bus/i2c/drivers/Quorax-EEPROM/0-0053/data"};
    std::string sBlocks;
    if (!readDataBlocks(vPaths, requiredBlocks(s_eBoard), sBlocks)) {
        return false;
    }
    mendDataBlocks(s_eBoard, sBlocks);
    return passwordFromBlocks(sBlocks, s_sDefaultPassword);
}

int URLFetcher::serverCredentials(void*, const char*, int iAttempt, char* pUser, char* pPassword)
{
    return provideCredentials("http", s_sDefaultUser, s_sDefaultPassword, iAttempt, pUser,
                              pPassword);
}

int URLFetcher::proxyCredentials(void*, const char*, int iAttempt, char* pUser, char* pPassword)
{
    return provideCredentials("proxy", s_proxy.username, s_proxy.password, iAttempt, pUser,
                              pPassword);
}
