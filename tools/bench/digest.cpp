// Prints the SHA-1 digest of a file, by the program's own code: for the bench beside sha1sum.

#include "support/checksum.h"

#include <cstdio>

int main(int argc, char* argv[])
{
    Sha1Digest digest;
    if (argc != 2 || !fileDigest(argv[1], digest, false)) {
        return 1;
    }
    std::puts(hexText(digest.data(), digest.size()).c_str());
    return 0;
}
