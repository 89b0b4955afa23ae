#include "repository/primarytable.h"

#include "repository/textnumbers.h"
#include "support/files.h"
#include "support/logger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

constexpr std::array<char, 8> k_vMagic = {'u', 'p', 'd', 't', 'a', 'b', 'l', 'e'};
constexpr std::uint32_t k_uVersion = 1;
constexpr std::uint32_t k_uByteOrder = 0x01020304;

struct Head {
    std::array<char, 8> magic = k_vMagic;
    std::uint32_t version = k_uVersion;
    std::uint32_t byteOrder = k_uByteOrder;
    std::uint32_t crc = 0;          ///< of all that follows
    std::uint32_t texts = 0;        ///< texts, but for the empty one, which has number 0
    std::array<char, 64> sum = {};  ///< tells the primary file
    std::uint64_t textBytes = 0;
    std::uint64_t dependencies = 0;  ///< entries
    std::uint64_t lists = 0;         ///< entries
    std::uint64_t rows = 0;          ///< entries
    std::uint64_t fileBytes = 0;
    std::uint64_t skippedBytes = 0;
    std::uint64_t architectureBytes = 0;  ///< '+' or '-' in front of each
};
constexpr std::size_t k_uChecked =
    offsetof(Head, texts);  ///< where the part begins that the sum is of

/// As in the arrays, with numbers of texts.
struct StoredDependency {
    std::uint32_t name, version, release;
    std::int32_t epoch, flags;
};
struct StoredRow {
    std::uint32_t name, group, version, release;
    std::int32_t epoch;
    std::uint32_t lists, requireCount, provideCount, obsoleteCount, file;
};
static_assert(sizeof(Head) == 144 && sizeof(StoredDependency) == 20 && sizeof(StoredRow) == 40);

std::string architecturesOf(const PrimaryContents& contents)
{
    std::string sAll;
    for (const auto& [sArchitecture, bCompatible] : contents.architectures) {
        sAll += (bCompatible ? "+" : "-") + sArchitecture + '\0';
    }
    return sAll;
}

std::uint32_t crcOf(std::uint32_t uCrc, const char* pData, std::size_t uLength)
{
    return static_cast<std::uint32_t>(
        crc32_z(uCrc, reinterpret_cast<const unsigned char*>(pData), uLength));
}

/// Writes to a file in blocks, and sums what it writes up.
class Output {
public:
    explicit Output(int iFd) : m_iFd(iFd) {}

    template <typename Value>
    void write(const Value* pValues, std::size_t uCount)
    {
        static_assert(std::is_trivially_copyable_v<Value>);
        const auto* pBytes = reinterpret_cast<const char*>(pValues);
        std::size_t uLeft = uCount * sizeof(Value);
        while (uLeft > 0) {
            const std::size_t uPart = std::min(uLeft, m_vBuffer.size() - m_uUsed);
            std::memcpy(m_vBuffer.data() + m_uUsed, pBytes, uPart);
            m_uUsed += uPart;
            pBytes += uPart;
            uLeft -= uPart;
            if (m_uUsed == m_vBuffer.size()) {
                flush();
            }
        }
    }

    /// @return false, with errno set, if any of it failed.
    bool flush()
    {
        m_uCrc = crcOf(m_uCrc, m_vBuffer.data(), m_uUsed);
        m_bOk = m_bOk && writeAll(m_iFd, m_vBuffer.data(), m_uUsed);
        m_uUsed = 0;
        return m_bOk;
    }

    [[nodiscard]] std::uint32_t crc() const { return m_uCrc; }

private:
    int m_iFd;
    bool m_bOk = true;
    std::array<char, 65536> m_vBuffer;
    std::size_t m_uUsed = 0;
    std::uint32_t m_uCrc = 0;
};

bool writeParts(int iFd, Head head, const PackageTable& table, const TextNumbers& numbers,
                const PrimaryContents& contents, const std::string& sArchitectures)
{
    if (lseek(iFd, static_cast<off_t>(k_uChecked), SEEK_SET) < 0) {
        return false;
    }
    Output output(iFd);
    output.write(reinterpret_cast<const char*>(&head) + k_uChecked, sizeof(head) - k_uChecked);
    numbers.visit([&](Text sText) { output.write(sText.c_str(), sText.view().size() + 1); });
    for (const Dependency& entry : table.dependencies) {
        const StoredDependency stored = {numbers.of(entry.name), numbers.of(entry.evr.version),
                                         numbers.of(entry.evr.release), entry.evr.epoch,
                                         entry.flags};
        output.write(&stored, 1);
    }
    output.write(table.lists.data(), table.lists.size());
    for (const PackageTable::Row& row : table.rows) {
        const StoredRow stored = {numbers.of(row.name),
                                  numbers.of(row.group),
                                  numbers.of(row.evr.version),
                                  numbers.of(row.evr.release),
                                  row.evr.epoch,
                                  row.lists,
                                  row.requireCount,
                                  row.provideCount,
                                  row.obsoleteCount,
                                  row.file};
        output.write(&stored, 1);
    }
    output.write(table.files.data(), table.files.size());
    output.write(contents.skipped.data(), contents.skipped.size());
    output.write(sArchitectures.data(), sArchitectures.size());
    if (!output.flush() || lseek(iFd, 0, SEEK_SET) < 0) {
        return false;
    }
    head.crc = output.crc();
    return writeAll(iFd, reinterpret_cast<const char*>(&head), k_uChecked);
}

Head headFor(const std::string& sSum, const PackageTable& table, const TextNumbers& numbers,
             const PrimaryContents& contents, const std::string& sArchitectures)
{
    Head head;
    sSum.copy(head.sum.data(), head.sum.size() - 1);
    head.texts = numbers.count();
    head.textBytes = numbers.bytes();
    head.dependencies = table.dependencies.size();
    head.lists = table.lists.size();
    head.rows = table.rows.size();
    head.fileBytes = table.files.size();
    head.skippedBytes = contents.skipped.size();
    head.architectureBytes = sArchitectures.size();
    return head;
}

std::uint64_t sizeOf(const Head& head)
{
    return sizeof(Head) + head.textBytes + head.dependencies * sizeof(StoredDependency) +
           head.lists * sizeof(std::uint32_t) + head.rows * sizeof(StoredRow) + head.fileBytes +
           head.skippedBytes + head.architectureBytes;
}

bool hasRoom(const std::string& sDirectory, std::uint64_t uSize)
{
    struct statvfs info = {};
    return statvfs(sDirectory.c_str(), &info) == 0 &&
           static_cast<std::uint64_t>(info.f_bavail) * info.f_frsize >= 2 * uSize;
}

/// Reads the parts of a file, none of which may be longer than the file, and sums them up.
class Input {
public:
    Input(int iFd, std::uint64_t uSize) : m_iFd(iFd), m_uLeft(uSize) {}

    /// @return false if not all of it could be read.
    template <typename Value>
    bool read(FlatArray<Value>& vValues, std::uint64_t uCount)
    {
        if (uCount > m_uLeft / sizeof(Value)) {
            return false;
        }
        vValues.assignUndefined(uCount);
        return read(reinterpret_cast<char*>(vValues.data()), uCount * sizeof(Value));
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

bool writePrimaryTable(const std::string& sPath, const std::string& sSum,
                       const PrimaryContents& contents)
{
    const PackageTable& table = contents.packages.table();
    const TextNumbers numbers(table);
    const std::string sArchitectures = architecturesOf(contents);
    const Head head = headFor(sSum, table, numbers, contents, sArchitectures);
    if (!hasRoom(sPath.substr(0, sPath.rfind('/') + 1), sizeOf(head))) {
        logMessage(DEBUG, "no room for compiled metadata '%s'", sPath.c_str());
        return false;
    }
    const std::string sTemporary = sPath + ".tmp";
    unlink(sTemporary.c_str());
    FileDescriptor file(
        open(sTemporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file.isOpen() || !writeParts(file.get(), head, table, numbers, contents, sArchitectures) ||
        !file.close() || rename(sTemporary.c_str(), sPath.c_str()) != 0) {
        logMessage(DEBUG, "failed writing compiled metadata '%s' (%s)", sPath.c_str(),
                   errnoText().c_str());
        unlink(sTemporary.c_str());
        return false;
    }
    return true;
}
