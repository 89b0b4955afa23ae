#include "support/files.h"

#include "support/checksum.h"
#include "support/controls.h"
#include "support/sha1instructions.h"
#include "testing/cases.h"

#include <sys/time.h>

#include <csignal>
#include <cstdlib>

TEST(FileDigest, isThatOfTheStandard)
{
    TempDir dir;
    std::string sData;
    Sha1Digest digest = {};
    Sha1Context all;  // takes the digests in pieces that lie across the ends of blocks
    sha1Init(all);
    for (int i = 0; i < 1100; ++i) {
        ASSERT_TRUE(fileDigest(dir.write("file", sData), digest, false));
        sha1Update(all, digest.data(), digest.size());
        sData += static_cast<char>(i % 251);
    }
    digest = sha1Final(all);
    EXPECT_EQ(hexText(digest.data(), digest.size()), "4c4a9119e0cbee24741110a1275fcac347d0f5b8");

    Sha1Context inOne;  // may take the processor's instructions, sha1Transform() never does
    Sha1Context byBlocks;
    sha1Init(inOne);
    sha1Init(byBlocks);
    sData.resize(sData.size() / 64 * 64);
    const auto* pData = reinterpret_cast<const unsigned char*>(sData.data());
    sha1Update(inOne, pData, sData.size());
    for (std::size_t u = 0; u < sData.size(); u += 64) {
        sha1Transform(byBlocks.state, pData + u);
    }
    EXPECT_EQ(inOne.state, byBlocks.state);
    if (const char* const pHas = std::getenv("SHA1_INSTRUCTIONS")) {  // tools/cross knows
        EXPECT_EQ(sha1TransformByInstructions(inOne.state, pData, 0), *pHas == '1');
    }

    sha1Init(all);
    all.count = {0xfffffe00, 1};  // the length is counted in 64 bits
    sha1Update(all, std::array<unsigned char, 64>{}.data(), 64);
    EXPECT_EQ(all.count, (std::array<std::uint32_t, 2>{0, 2}));
    EXPECT_FALSE(fileDigest(dir.file("none"), digest, false));
}

TEST(Checksum, judgesFiles)
{
    const TempDir dir;
    const std::string sGzip =
        std::string("\x1f\x8b\x08\0\0\0\0\0\x02\x03\xcb\x48\xcd\xc9\xc9\xe7\x02\0", 18) +
        std::string("\x20\x30\x3a\x36\x06\0\0\0", 8);
    dir.write("plain", "hello\n");
    dir.write("gzip", sGzip);
    const std::string sBad = dir.write("bad", replaced(sGzip, "\x20\x30\x3a\x36", "xxxx"));
    const std::string sHello = "f572d396fae9206628714fb2ce00f72e94f2258f";
    const std::tuple<Checksum, const char*, bool, std::string> vCases[] = {
        {{sHello, "sha"}, "plain", true, ""},
        {{sHello, "sha"}, "gzip", true, ""},
        {{sHello, "sha"}, "gzip", false, "FAILS against " + sHello + "\n"},
        {{sHello + " ", "sha"}, "plain", false, "FAILS against " + sHello + " \n"},
        {{"", "md5"}, "", false, "ERROR: attempted to check an empty checksum\n"},
        {{sHello, "SHA"}, "", false, "ERROR: unsupported checksum type 'SHA'\n"},
        {{sHello, "sha"}, "bad", true, "reading from '" + sBad + "'\n"},
        {{sHello, "sha"}, "", false, "ERROR: failed while reading from '" + dir.file("") + "'\n"}};
    for (const auto& [sum, pFile, bContents, sLog] : vCases) {
        const LogCapture log;
        const std::string sPath = dir.file(pFile);
        EXPECT_EQ(bContents ? sum.checkContents(sPath) : sum.checkFile(sPath), sLog.empty());
        EXPECT_THAT(log.text(), testing::EndsWith(sLog));
    }
}

TEST(Files, areWrittenOnFromWhereASignalInterrupted)
{
    const TempDir dir;
    std::string sText;
    for (int i = 0; i < 50000; ++i) {  // more than a pipe takes
        sText += std::to_string(i);
    }
    std::FILE* pReader = popen(("sleep 0.05; cat >" + dir.file("read")).c_str(), "we");
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval every = {{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &every, nullptr);
    EXPECT_TRUE(writeAll(fileno(pReader), sText.data(), sText.size()));
    const itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_EQ(pclose(pReader), 0);
    EXPECT_EQ(dir.read("read"), sText);
}

TEST(Files, helpWithPathsAndTexts)
{
    expectEach<const char*>(
        {{"a/b/", "b"}, {"b", "b"}, {"/a/b.c", "b.c"}, {"a//", "a"}, {"//", ""}}, baseName);
    expectEach<const char*>(
        {{"a b\xc3\xa9", "a b\xc3\xa9"}, {"a\n", "a?"}, {"\x1f", "?"}, {"\x7f", "?"}}, printable);
    for (const std::string sText : {"a b\xc3\xa9", "a\n", "\x1f", "\x7f"}) {
        EXPECT_EQ(hasControlCharacter(sText), printable(sText) != sText);
    }
}
