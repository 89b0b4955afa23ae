// The compiled form of a primary file, with a head and a sum that are right, as no input would get
// past them otherwise.

#include "contents.h"

#include "repository/tableformat.h"

#include <cstring>

using namespace tableformat;

void fuzz(std::string_view sInput)
{
    std::string sFile(sInput);
    Head head;
    if (sFile.size() >= sizeof(head)) {
        std::memcpy(reinterpret_cast<char*>(&head) + k_uChecked, sFile.data() + k_uChecked,
                    sizeof(head) - k_uChecked);
        head.sum = {'5'};
        head.architectureBytes = 0;
        head.architectureBytes = sFile.size() - sizeOf(head);
        std::memcpy(sFile.data(), &head, sizeof(head));
        head.crc = crcOf(0, sFile.data() + k_uChecked, sFile.size() - k_uChecked);
        std::memcpy(sFile.data(), &head, sizeof(head));
    }
    PrimaryContents contents;
    if (readPrimaryTable(fileOf(sFile), "5", contents)) {
        requireCompiled(contents);
    } else {
        require(
            contents.packages.empty() && contents.skipped.empty() && contents.architectures.empty(),
            "what cannot be read changes nothing");
    }
}
