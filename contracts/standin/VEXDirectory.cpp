#include "VEXDirectory.h"

#include "IDX_Base_Constants.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

using Text = std::basic_string<char, std::char_traits<char>, VEXAllocator<char>>;

long int Open(const char* iPath, VEXDirHandle& oHandle) {
    oHandle.stream = opendir(iPath);
    return oHandle.stream != nullptr ? IDX_S_OK : IDX_E_FAIL;
}

long int Close(VEXDirHandle& ioHandle) {
    if (ioHandle.stream == nullptr) return IDX_E_FAIL;
    const int result = closedir(static_cast<DIR*>(ioHandle.stream));
    ioHandle.stream = nullptr;
    return result == 0 ? IDX_S_OK : IDX_E_FAIL;
}

bool IsDirectory(const char* iPath) {
    struct stat found;
    return stat(iPath, &found) == 0 && S_ISDIR(found.st_mode);
}

/// Creates one directory. Succeeds, too, when another process creates it at the same time.
bool CreateOne(const char* iPath) {
    return mkdir(iPath, 0777) == 0 || IsDirectory(iPath);
}

/// Creates the directories of a path from the top down. Each round takes the path up to its next
/// separator; the last round takes all of it.
long int Create(const char* iPath) {
    Text path(iPath);
    for (std::size_t end = 0; end != Text::npos;) {
        end = path.find(IDX_Base_Constants::PATH_SEPARATOR, end + 1);
        if (!CreateOne(path.substr(0, end).c_str())) return IDX_E_FAIL;
    }
    return IDX_S_OK;
}

bool IsOwnOrParent(const char* iName) {
    return std::strcmp(iName, ".") == 0 || std::strcmp(iName, "..") == 0;
}

/// Reads all names; false on an error of the system. readdir() gives null at the end and on an
/// error; only errno says which.
bool ReadNames(DIR* iStream, std::vector<Text, VEXAllocator<Text>>& oNames) {
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(iStream);
        if (entry == nullptr) return errno == 0;
        if (!IsOwnOrParent(entry->d_name)) oNames.emplace_back(entry->d_name);
    }
}

}  // namespace

VEXDIR::VEXDIR() : handle{nullptr} {}

VEXDIR::~VEXDIR() {
    if (handle.stream != nullptr) (void)Close(handle);
}

long int VEXOpenDirectory(const char* iPath, VEXDirHandle* oHandle) {
    return Open(iPath, *oHandle);
}

long int VEXOpenDirectory(VEXUnicodeString* iPath, VEXDIR* ioDirectory) {
    if (ioDirectory->handle.stream != nullptr) (void)Close(ioDirectory->handle);
    return Open(iPath->ConvertToChar(), ioDirectory->handle);
}

long int VEXCloseDirectory(VEXDirHandle* ioHandle) {
    return Close(*ioHandle);
}

long int VEXCloseDirectory(VEXDIR* ioDirectory) {
    return Close(ioDirectory->handle);
}

long int VEXCreateDirectory(const char* iPath) {
    return Create(iPath);
}

long int _VEXCreateDirectory(const VEXUnicodeString& iPath) {
    return Create(iPath.ConvertToChar());
}

long int VEXListDirectory(VEXUnicodeString& iPath, VEXListValVEXUnicodeString& oNames) {
    oNames.RemoveAll(VEXCollec::KeepMemory);
    VEXDirHandle directory;
    if (IDX_Failed(Open(iPath.ConvertToChar(), directory))) return IDX_E_FAIL;
    std::vector<Text, VEXAllocator<Text>> names;
    const bool complete = ReadNames(static_cast<DIR*>(directory.stream), names);
    (void)Close(directory);
    if (!complete) return IDX_E_FAIL;
    // The system lists names in any order; users get one order on every machine.
    std::sort(names.begin(), names.end());
    for (const Text& name : names) oNames.Append(name.c_str());
    return IDX_S_OK;
}

long int VEXMakePath(VEXUnicodeString* ioPath, VEXUnicodeString* iName) {
    const VEXUnicodeString name(*iName);  // a copy, since both arguments may be one string
    ioPath->Append(IDX_Base_Constants::PATH_SEPARATOR_STR).Append(name);
    return IDX_S_OK;
}
