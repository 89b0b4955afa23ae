#include "repository/primarytable.h"

#include "repository/tableformat.h"
#include "support/files.h"
#include "support/logger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace tableformat;

/// Reads the parts of a file, none of which may be longer than the file, and sums them up.
class Input {
public:
    Input(int iFd, std::uint64_t uSize) : m_iFd(iFd), m_uLeft(uSize) {}

    /// @return false if not all of it could be read.
    template <typename Value>
    bool read(FlatArray<Value>& vValues, std::uint64_t uCount)
    {
        if (uCount > std::min<std::uint64_t>(m_uLeft, SIZE_MAX) / sizeof(Value)) {
            return false;
        }
        vValues.assignUndefined(static_cast<std::size_t>(uCount));
        return read(reinterpret_cast<char*>(vValues.data()), vValues.size() * sizeof(Value));
    }

    bool read(char* pData, std::size_t uLength)
    {
        m_uLeft -= std::min<std::uint64_t>(uLength, m_uLeft);
        const char* pBegin = pData;
        const std::size_t uAll = uLength;
        while (uLength > 0) {
            const ssize_t iRead = ::read(m_iFd, pData, uLength);
            if (iRead <= 0) {
                return false;
            }
            pData += iRead;
            uLength -= static_cast<std::size_t>(iRead);
        }
        m_uCrc = crcOf(m_uCrc, pBegin, uAll);
        return true;
    }

    [[nodiscard]] std::uint32_t crc() const { return m_uCrc; }

private:
    int m_iFd;
    std::uint64_t m_uLeft;
    std::uint32_t m_uCrc = 0;
};

bool endsText(const FlatArray<char>& vBytes)
{
    return vBytes.empty() || vBytes.back() == '\0';
}

/// Turns numbers of texts into texts.
class Texts {
public:
    /// @return false if there are not so many.
    bool read(Input& input, const Head& head)
    {
        FlatArray<char> vBytes;
        if (!input.read(vBytes, head.textBytes) || !endsText(vBytes) ||
            head.texts > head.textBytes) {
            return false;
        }
        m_vTexts.reserve(head.texts + std::size_t{1});
        m_vTexts.emplace_back();
        for (const char* p = vBytes.data(); p < vBytes.data() + vBytes.size();) {
            const std::string_view sText = p;
            m_vTexts.emplace_back(sText);
            p += sText.size() + 1;
        }
        return m_vTexts.size() == head.texts + std::size_t{1};
    }

    /// Gives the text of a number. One that is not there is remembered as a fault.
    Text operator()(std::uint32_t uNumber)
    {
        m_bGood = m_bGood && uNumber < m_vTexts.size();
        return m_bGood ? m_vTexts[uNumber] : Text();
    }
    [[nodiscard]] bool isGood() const { return m_bGood; }

private:
    std::vector<Text> m_vTexts;
    bool m_bGood = true;
};

/// True if three texts stand there.
bool holdsFileTexts(const FlatArray<char>& vFiles, std::size_t uBegin)
{
    for (int i = 0; i < 3; ++i) {
        if (uBegin >= vFiles.size()) {
            return false;
        }
        uBegin += std::strlen(vFiles.data() + uBegin) + 1;
    }
    return true;
}

bool readDependencies(Input& input, const Head& head, Texts& texts, PackageTable& table)
{
    FlatArray<StoredDependency> vStored;
    if (!input.read(vStored, head.dependencies) || !input.read(table.lists, head.lists)) {
        return false;
    }
    table.dependencies.assignUndefined(vStored.size());
    std::transform(vStored.begin(), vStored.end(), table.dependencies.begin(),
                   [&](const StoredDependency& entry) -> Dependency {
                       return {texts(entry.name),
                               {entry.epoch, texts(entry.version), texts(entry.release)},
                               entry.flags};
                   });
    return std::none_of(table.lists.begin(), table.lists.end(),
                        [&](std::uint32_t u) { return u >= table.dependencies.size(); });
}

bool readRows(Input& input, const Head& head, Texts& texts, PackageTable& table)
{
    FlatArray<StoredRow> vStored;
    if (!input.read(vStored, head.rows) || !input.read(table.files, head.fileBytes) ||
        !endsText(table.files)) {
        return false;
    }
    table.rows.assignUndefined(vStored.size());
    bool bGood = true;
    std::transform(vStored.begin(), vStored.end(), table.rows.begin(),
                   [&](const StoredRow& row) -> PackageTable::Row {
                       const std::uint64_t uEnd = std::uint64_t{row.lists} + row.requireCount +
                                                  row.provideCount + row.obsoleteCount;
                       bGood = bGood && uEnd <= table.lists.size() &&
                               holdsFileTexts(table.files, row.file);
                       return {texts(row.name),
                               texts(row.group),
                               {row.epoch, texts(row.version), texts(row.release)},
                               row.lists,
                               row.requireCount,
                               row.provideCount,
                               row.obsoleteCount,
                               row.file};
                   });
    return bGood;
}

/// Reads what was skipped and the architectures. False if the machine judges these in another way.
bool readMachine(Input& input, const Head& head, PrimaryContents& contents)
{
    FlatArray<char> vSkipped;
    FlatArray<char> vArchitectures;
    if (!input.read(vSkipped, head.skippedBytes) || !endsText(vSkipped) ||
        std::count(vSkipped.begin(), vSkipped.end(), '\0') % 2 != 0 ||
        !input.read(vArchitectures, head.architectureBytes) || !endsText(vArchitectures)) {
        return false;
    }
    contents.skipped.assign(vSkipped.begin(), vSkipped.end());
    const char* const pEnd = vArchitectures.data() + vArchitectures.size();
    for (const char* p = vArchitectures.data(); p < pEnd; p += std::strlen(p) + 1) {
        const bool bCompatible = *p == '+';
        if (*p == '\0' || isCompatible(p + 1) != bCompatible) {
            return false;
        }
        contents.architectures.emplace(p + 1, bCompatible);
    }
    return true;
}

/// Why a file is of no use; null if `contents` has it all. Part by part: what was read of one is let
/// go in front of the next, and all is used only when the sum has been found right.
const char* readTable(int iFd, const std::string& sSum, PrimaryContents& contents)
{
    Head head;
    struct stat info = {};
    if (fstat(iFd, &info) != 0 || !S_ISREG(info.st_mode) ||
        info.st_size < static_cast<off_t>(sizeof(head)) ||
        ::read(iFd, &head, k_uChecked) != static_cast<ssize_t>(k_uChecked)) {
        return "cut";
    }
    if (head.magic != k_vMagic || head.version != k_uVersion || head.byteOrder != k_uByteOrder) {
        return "of another form";
    }
    Input input(iFd, static_cast<std::uint64_t>(info.st_size) - k_uChecked);
    if (!input.read(reinterpret_cast<char*>(&head) + k_uChecked, sizeof(head) - k_uChecked)) {
        return "cut";
    }
    if (std::string_view(head.sum.data(), strnlen(head.sum.data(), head.sum.size())) != sSum) {
        return "of another primary file";
    }
    PrimaryContents read;
    PackageTable table;
    {
        Texts texts;
        if (!texts.read(input, head) || !readDependencies(input, head, texts, table) ||
            !readRows(input, head, texts, table) || !texts.isGood()) {
            return "damaged";
        }
    }
    if (!readMachine(input, head, read)) {
        return "damaged, or of another machine";
    }
    if (sizeOf(head) != static_cast<std::uint64_t>(info.st_size) || input.crc() != head.crc) {
        return "damaged";
    }
    read.packages.adopt(std::move(table));
    contents = std::move(read);
    return nullptr;
}

}  // namespace

bool readPrimaryTable(const std::string& sPath, const std::string& sSum, PrimaryContents& contents)
{
    const FileDescriptor file(open(sPath.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    const std::string sReason = file.isOpen() ? "" : errnoText();
    const char* pFault = file.isOpen() ? readTable(file.get(), sSum, contents) : sReason.c_str();
    if (pFault != nullptr) {
        logMessage(DEBUG, "passing over compiled metadata '%s' (%s)", sPath.c_str(), pFault);
    }
    return pFault == nullptr;
}
