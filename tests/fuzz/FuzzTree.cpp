// Any bytes as the file of an identifier tree, on the memory store: look-ups, a walk and insertions
// end, and give an offset only when they succeed. The first byte says how many keys are asked for.

#include "OpenTree.h"
#include "TemporaryFolder.h"

#include <cstdint>
#include <cstdlib>

/// Lengths in damaged files ask for gigabytes.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=256";
}

namespace {

void Expect(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TemporaryFolder folder;
    if (size == 0) return 0;
    const unsigned int nKeys = data[0] % 16;
    const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::string path = folder / "tree";
    std::filesystem::remove(path);
    SetContent(path, bytes);
    OpenTree tree(16, 8, true);
    if (!tree.OpenWrite(path.c_str())) return 0;
    std::vector<unsigned int> items;
    (void)tree.Walk(items);
    Expect(items.size() <= bytes.size() + 3);
    for (unsigned int i = 0; i < nKeys; ++i) {
        const std::string id(i % 5, static_cast<char>('a' + i));
        unsigned int item = 1;
        Expect(tree.Find(id, item) == IDX_True || item == 0);
        Expect(tree.Add(std::string(16, 'r'), id, item) == IDX_True || item == 0);
    }
    tree.Close();
    return 0;
}
