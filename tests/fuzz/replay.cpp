// Gives the inputs in the files of a directory to a target; takes the place of libFuzzer.

#include "support/files.h"

#include <cstdint>
#include <cstdio>
#include <filesystem>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize);

int main(int iArguments, char* vArguments[])
{
    if (iArguments != 2) {
        return 2;
    }
    LLVMFuzzerTestOneInput(nullptr, 0);
    int iInputs = 1;
    if (std::filesystem::exists(vArguments[1])) {
        for (const auto& entry : std::filesystem::directory_iterator(vArguments[1])) {
            std::string sInput;
            if (!readFile(entry.path(), sInput)) {
                return 1;
            }
            std::printf("%s\n", entry.path().c_str());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(sInput.data()),
                                   sInput.size());
            ++iInputs;
        }
    }
    std::printf("%i inputs\n", iInputs);
}
