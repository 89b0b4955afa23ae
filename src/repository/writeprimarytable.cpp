#include "repository/primarytable.h"

#include "repository/tableformat.h"
#include "repository/textnumbers.h"
#include "support/files.h"
#include "support/logger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace {

using namespace tableformat;

std::string architecturesOf(const PrimaryContents& contents)
{
    std::string sAll;
    for (const auto& [sArchitecture, bCompatible] : contents.architectures) {
        sAll += (bCompatible ? "+" : "-") + sArchitecture + '\0';
    }
    return sAll;
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

bool hasRoom(const std::string& sDirectory, std::uint64_t uSize)
{
    struct statvfs info = {};
    return statvfs(sDirectory.c_str(), &info) == 0 &&
           static_cast<std::uint64_t>(info.f_bavail) * info.f_frsize >= 2 * uSize;
}

}  // namespace

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
