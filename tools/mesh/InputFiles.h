#ifndef InputFiles_h
#define InputFiles_h

#include "Status.h"
#include "UniqueNames.h"

#include <string>
#include <vector>

/// One mesh file to be read.
struct InputFile {
    std::string path;  ///< where it is
    std::string name;  ///< below the folder that was named; unique among the files that are there
    Status status;     ///< success for a file that is there, else why there is nothing to read
};

/// The mesh files that a list of files and folders stands for: a file as it is, a folder with all
/// mesh files below it in byte order of their paths. What can't be used is in the list with its
/// reason. Links to folders are not followed.
///
/// Names are UTF-8, with '/' between folders and "%23" for '#', so that the name of a part in a
/// file may follow after a '#'. A name that comes again ends with "~2", "~3", ...
std::vector<InputFile> FindInputFiles(const std::vector<std::string>& iPaths);

/// Gives every part a file name of its own: letters, digits, '.', '-' and '_' only, at most 200
/// bytes.
class PartFileNames {
public:
    /// @return "folder_file.stl_root_arm", and "-2", "-3", ... at its end when that was given
    ///         before
    std::string Make(const std::string& iIdentifier);

private:
    UniqueNames _names{"-"};
};

#endif
