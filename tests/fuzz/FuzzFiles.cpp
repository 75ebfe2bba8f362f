// Operations on files beside a model of plain bytes. FileOperations.h says what the bytes mean.

#include "FileOperations.h"
#include "TemporaryFolder.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TemporaryFolder folder;
    const std::string difference = RunFileOperations(data, size, folder / "");
    if (difference.empty()) return 0;
    std::fprintf(stderr, "differs: %s\n", difference.c_str());
    std::abort();
}
