#include "config/packagelist.h"

#include "support/controls.h"
#include "support/logger.h"
#include "support/xml.h"

#include <string_view>

bool parsePackageList(xmlNode* pElement, std::vector<std::string>& vPackages,
                      std::vector<std::string>* pGroups)
{
    for (xmlNode* pEntry = xmlFirstElementChild(pElement); pEntry != nullptr;
         pEntry = xmlNextElementSibling(pEntry)) {
        const std::string_view sKind = chars(pEntry->name);
        if (sKind != "package" && sKind != "group") {
            continue;
        }
        for (xmlNode* pName = xmlFirstElementChild(pEntry); pName != nullptr;
             pName = xmlNextElementSibling(pName)) {
            if (std::string_view(chars(pName->name)) != "name") {
                continue;
            }
            std::string sText;
            if (!getText(pName, sText)) {
                return false;
            }
            if (sKind == "package") {
                vPackages.push_back(sText);
            } else if (pGroups != nullptr) {
                pGroups->push_back(sText);
            } else {
                logMessage(WARNING, "ignoring package group named '%s' in config file line %hu",
                           printable(sText).c_str(), pEntry->line);
            }
        }
    }
    return true;
}
