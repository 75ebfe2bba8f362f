#include "InputFiles.h"

#include "MeshImport.h"
#include "Utf8.h"

#include <algorithm>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLongestName = 190;  // leaves room for a number and an ending

/// Adds all mesh files below a folder, and an entry with its reason for a folder that can't be
/// read.
/// @param iName  goes before the names of its files: empty, or the folder's name with '/' at its
///               end
void ListFolder(
    const std::string& iFolder, const std::string& iName, std::vector<InputFile>& ioFiles) {
    std::error_code error;
    fs::directory_iterator entry(iFolder, error);
    for (; !error && entry != fs::end(entry); entry.increment(error)) {
        const std::string path = entry->path().string();
        const std::string name = iName + entry->path().filename().string();
        std::error_code ignored;
        if (entry->is_directory(ignored) && !entry->is_symlink(ignored)) {
            ListFolder(path, name + "/", ioFiles);
        } else if (entry->is_regular_file(ignored) && IsMeshFileName(path)) {
            ioFiles.push_back({path, name, {}});
        }
    }
    if (error)
        ioFiles.push_back(
            {iFolder, iFolder, Status::PartFailed("can't be listed: " + error.message())});
}

std::vector<InputFile> ListFolder(const std::string& iFolder) {
    std::vector<InputFile> files;
    ListFolder(iFolder, {}, files);
    if (files.empty())
        files.push_back({iFolder, iFolder, Status::PartFailed("holds no mesh file")});
    std::sort(files.begin(), files.end(), [](const InputFile& a, const InputFile& b) {
        return a.name < b.name;
    });
    return files;
}

/// A file that was named itself. One that can't be read keeps its whole path as its name.
InputFile NameFile(const std::string& iPath) {
    InputFile file = {iPath, fs::path(iPath).filename().string(), {}};
    std::error_code error;
    const fs::file_status status = fs::status(iPath, error);
    if (error) {
        file.status = Status::PartFailed(error.message());
    } else if (status.type() != fs::file_type::regular) {
        file.status = Status::PartFailed("is neither a file nor a folder");
    } else if (!IsMeshFileName(iPath)) {
        file.status = Status::PartFailed(
            "isn't a mesh format that can be read (STL, OBJ, PLY, glTF, GLB, OFF, 3MF)");
    }
    if (file.status.Failed()) file.name = iPath;
    return file;
}

std::string WithoutHash(const std::string& iName) {
    std::string name;
    for (const char c : iName) name += c == '#' ? "%23" : std::string(1, c);
    return name;
}

bool IsSafe(char iChar) {
    return (iChar >= 'a' && iChar <= 'z') || (iChar >= 'A' && iChar <= 'Z') ||
           (iChar >= '0' && iChar <= '9') || iChar == '.' || iChar == '-';
}

/// Each run of unsafe characters becomes one '_'. None is kept at either end, and no dot at the
/// start, which would hide the file.
std::string SafeName(const std::string& iText) {
    std::string name;
    for (const char c : iText) {
        if (IsSafe(c) && !(name.empty() && c == '.')) {
            name += c;
        } else if (!name.empty() && name.back() != '_') {
            name += '_';
        }
    }
    while (!name.empty() && name.back() == '_') name.pop_back();
    if (name.size() > kLongestName) name.resize(kLongestName);
    return name;
}

}  // namespace

/// Names are made unique in the order of the input, and files that can't be read use none up.
std::vector<InputFile> FindInputFiles(const std::vector<std::string>& iPaths) {
    std::vector<InputFile> files;
    UniqueNames names("~");
    for (const std::string& path : iPaths) {
        std::error_code ignored;
        if (!fs::is_directory(path, ignored)) {
            files.push_back(NameFile(path));
            continue;
        }
        const std::vector<InputFile> below = ListFolder(path);
        files.insert(files.end(), below.begin(), below.end());
    }
    for (InputFile& file : files) {
        if (!file.status.Failed()) file.name = names.Make(WithoutHash(ValidUtf8(file.name)));
    }
    return files;
}

std::string PartFileNames::Make(const std::string& iIdentifier) {
    const std::string name = SafeName(iIdentifier);
    return _names.Make(name.empty() ? "part" : name);
}
