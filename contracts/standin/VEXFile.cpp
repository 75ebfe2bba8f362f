#include "VEXFile.h"

#include <unistd.h>

namespace {

/// Deletes a file by unlink(). remove() would delete an empty directory, too.
long int Delete(const char* iPath) {
    return unlink(iPath) == 0 ? IDX_S_OK : IDX_E_FAIL;
}

}  // namespace

long int VEXFileStat(VEXUnicodeString* iPath, struct stat* oStat, int) {
    return stat(iPath->ConvertToChar(), oStat) == 0 ? IDX_S_OK : IDX_E_FAIL;
}

long int VEXFlushInodeCache() {
    return IDX_S_OK;
}

long int VEXDeleteFile(const char* iPath) {
    return Delete(iPath);
}

long int _VEXDeleteFile(const VEXUnicodeString& iPath) {
    return Delete(iPath.ConvertToChar());
}
