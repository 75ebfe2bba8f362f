// Any bytes as a serial form: the object is reset, or gives the same bytes back.

#include "IDXWorkingID.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

void Expect(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    IDX_Base_Buffer given;
    given.Resize(static_cast<unsigned int>(size));
    if (size > 0) std::memcpy(given.GetDataForWriting(), data, size);
    IDXWorkingID id;
    id.ConvertFromBuffer(given);
    IDX_Base_Buffer written;
    id.ConvertToBuffer(written);
    if (id.GetObjectID().GetSize() == 0) {
        Expect(written.GetSize() == 8 && id.GetLogicalID().GetSize() == 0);
        return 0;
    }
    Expect(written.GetSize() == size && std::memcmp(written.GetData(), data, size) == 0);
    Expect(std::memcmp(id.GetObjectAndLogicalID().GetData(), data, 32) == 0);
    return 0;
}
