#ifndef InputFiles_h
#define InputFiles_h

#include <set>
#include <string>
#include <vector>

/// One mesh file to be read.
struct InputFile {
    std::string path;     ///< where it is
    std::string name;     ///< relative to the folder that was named, '/' between folders
    std::string failure;  ///< why there is nothing to read; empty for a file that is there
};

/// The mesh files that a list of files and folders stands for: a file as it is, a folder with all
/// mesh files below it in byte order of their paths. What can't be used is in the list with its reason.
/// Links to folders are not followed.
std::vector<InputFile> FindInputFiles(const std::vector<std::string>& iPaths);

/// Gives every part a file name of its own: letters, digits, '.', '-' and '_' only, at most 200 bytes.
class PartNames {
public:
    /// @param iFileName  name of the mesh file, with folders
    /// @param iNodeName  name of the part in it; empty when the file holds one part only
    /// @return "folder_file.stl-node", with "-2", "-3", ... behind it when that was given before
    std::string Make(const std::string& iFileName, const std::string& iNodeName);

private:
    std::set<std::string> _given;
};

#endif
