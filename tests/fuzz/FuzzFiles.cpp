// Operations on files beside a model of plain bytes. What the bytes mean stands in FileOperations.h.

#include "FileOperations.h"
#include "TemporaryFolder.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TemporaryFolder folder;
    std::vector<std::uint8_t> bytes(data, data + size);
    if (size > 3) bytes[3] &= 0xFE;  // no kExits: the engine takes an exit for a failure
    const std::string difference = RunFileOperations(bytes.data(), size, folder / "");
    if (difference.empty()) return 0;
    std::fprintf(stderr, "differs: %s\n", difference.c_str());
    std::abort();
}
