#include "net/tlstrust.h"

#include "support/files.h"
#include "support/logger.h"

#include <ne_ssl.h>

#include <memory>
#include <string_view>

namespace {

constexpr std::string_view k_sBegin = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view k_sEnd = "-----END CERTIFICATE-----";

struct CertificateDeleter {
    void operator()(ne_ssl_certificate* pCertificate) const { ne_ssl_cert_free(pCertificate); }
};
using Certificate = std::unique_ptr<ne_ssl_certificate, CertificateDeleter>;

}  // namespace

std::vector<std::string> pemCertificates(const std::string& sText)
{
    std::vector<std::string> vCertificates;
    std::size_t uBegin = 0;
    while ((uBegin = sText.find(k_sBegin, uBegin)) != std::string::npos) {
        const std::size_t uEnd = sText.find(k_sEnd, uBegin + k_sBegin.size());
        if (uEnd == std::string::npos) {
            break;
        }
        // Begin at the last mark in front of the end: one before it belongs to a cut certificate.
        uBegin = sText.rfind(k_sBegin, uEnd) + k_sBegin.size();
        std::string sBase64 = sText.substr(uBegin, uEnd - uBegin);
        std::erase_if(sBase64, [](char c) {
            return std::string_view(" \t\r\n\v\f").find(c) != std::string_view::npos;
        });
        vCertificates.push_back(sBase64);
        uBegin = uEnd + k_sEnd.size();
    }
    return vCertificates;
}

void trustServers(ne_session* pSession, const std::string& sTrust)
{
    if (sTrust == "system") {
        ne_ssl_trust_default_ca(pSession);
        return;
    }
    std::string sText;
    if (!readFile(sTrust, sText)) {
        logMessage(ERROR, "cannot read TLS certificates '%s' (%s)", sTrust.c_str(),
                   errnoText().c_str());
        return;
    }
    bool bFound = false;
    for (const std::string& sBase64 : pemCertificates(sText)) {
        const Certificate certificate(ne_ssl_cert_import(sBase64.c_str()));
        if (certificate == nullptr) {
            logMessage(WARNING, "ignored a malformed certificate in '%s'", sTrust.c_str());
            continue;
        }
        ne_ssl_trust_cert(pSession, certificate.get());
        bFound = true;
    }
    if (!bFound) {
        logMessage(ERROR, "no certificate in '%s', no server is trusted", sTrust.c_str());
    }
}
