// Index directories: layout, swap and emptying, and services that fail at each step. KilledRunTest
// has readers of an index whose writer is killed.

#include "FileCase.h"

#include "IDX_Base_Constants.h"
#include "IDX_WT_File.h"
#include "PLMIdxDirectory.h"
#include "PLMIdxDirectoryManager.h"
#include "VEXDirectory.h"
#include "VEXFile.h"
#include "VEXSleep.h"

#include <dlfcn.h>
#include <map>

namespace {

constexpr long int kGenuine = 77;

/// What the services of this program give for each call from the first on: in place of doing their
/// work, unless it is kGenuine.
std::map<std::string, std::vector<long int>> results;
std::vector<int> pauses;

template <class... Arguments>
long int Serve(const std::string& name, const char* mangledName, Arguments... arguments) {
    auto* genuine = reinterpret_cast<long int (*)(Arguments...)>(dlsym(RTLD_NEXT, mangledName));
    std::vector<long int>& planned = results[name];
    if (planned.empty()) return genuine(arguments...);
    const long int result = planned.front();
    planned.erase(planned.begin());
    if (result == kGenuine) return genuine(arguments...);
    if (name.starts_with("close")) genuine(arguments...);  // fails, and is gone all the same
    return result;
}

}  // namespace

// The program's own services, which the library calls in place of those of the contracts.

void VEXSleep(int duration) {
    pauses.push_back(duration);
}

long int VEXOpenDirectory(VEXUnicodeString* path, VEXDIR* directory) {
    return Serve("open", "_Z16VEXOpenDirectoryP16VEXUnicodeStringP6VEXDIR", path, directory);
}

long int VEXCloseDirectory(VEXDIR* directory) {
    return Serve("close", "_Z17VEXCloseDirectoryP6VEXDIR", directory);
}

long int VEXCloseDirectory(VEXDirHandle* handle) {
    return Serve("close handle", "_Z17VEXCloseDirectoryP12VEXDirHandle", handle);
}

long int VEXCreateDirectory(const char* path) {
    return Serve("create", "_Z18VEXCreateDirectoryPKc", path);
}

long int _VEXCreateDirectory(const VEXUnicodeString& path) {
    return Serve<const VEXUnicodeString&>(
        "create sub-directory", "_Z19_VEXCreateDirectoryRK16VEXUnicodeString", path);
}

long int VEXListDirectory(VEXUnicodeString& path, VEXListValVEXUnicodeString& names) {
    return Serve<VEXUnicodeString&, VEXListValVEXUnicodeString&>(
        "list", "_Z16VEXListDirectoryR16VEXUnicodeStringR26VEXListValVEXUnicodeString", path,
        names);
}

long int VEXFileStat(VEXUnicodeString* path, struct stat* file, int flag) {
    return Serve("stat", "_Z11VEXFileStatP16VEXUnicodeStringP4stati", path, file, flag);
}

long int _VEXDeleteFile(const VEXUnicodeString& path) {
    return Serve<const VEXUnicodeString&>("delete", "_Z14_VEXDeleteFileRK16VEXUnicodeString", path);
}

namespace {

using std::string_literals::operator""s;

const std::string kOne = "\1\0\0\0"s;
const std::string kTwo = "\2\0\0\0"s;

/// The index directory is _path. In the transcript an operation that gives a path has it in its
/// line.
class Directories : public FileFailures {
protected:
    Directories() { results.clear(); }
    ~Directories() override { results.clear(); }

    void NotePath(const std::string& operation, long int status) {
        _transcript.Note(operation + " gives " + _given.ConvertToChar(), status);
    }

    /// An index directory whose sub-directory 1 holds two files to be deleted and what has to stay.
    void LayOut() {
        std::filesystem::remove_all(_path);
        std::filesystem::create_directories(_path + "/1/e");
        std::filesystem::create_directory(_path + "/2");
        SetContent(_redirecting, kTwo);
        for (const char* name : {"a", "b", "c.nsf", "d.nsf0", "e/f"})
            SetContent(_path + "/1/" + name, "x");
    }

    std::string Names() const {
        std::string names;
        for (const char* name : {"a", "b", "c.nsf", "d.nsf0", "e/f"}) {
            if (std::filesystem::exists(_path + "/1/" + name)) names += " "s + name;
        }
        return names;
    }

    const std::string _redirecting = _path + "/" + IDX_Base_Constants::IDXBUFFER_FILE_BASE_NAME;
    VEXUnicodeString _given;
};

}  // namespace

TEST_F(Directories, ARebuildGoesFromOneSideToTheOther) {
    PLMIdxDirectory directory;
    directory.SetIndexDirectory(_path.c_str());
    NotePath("current", directory.GetCurrentIndexPath(_given));
    NOTE(_transcript, directory.SwapIndexPath());
    NOTE(_transcript, directory.BuildIndexPath());
    EXPECT_EQ(ContentOf(_redirecting), kTwo);
    NotePath("current", directory.GetCurrentIndexPath(_given));
    NotePath("writable", directory.GetWritableIndexPath(_given, true, false));
    NOTE(_transcript, directory.BuildIndexPath());

    PLMIdxDirectory other(directory);
    NOTE(_transcript, directory.SwapIndexPath());
    EXPECT_EQ(ContentOf(_redirecting), kOne);
    NotePath("current", directory.GetCurrentIndexPath(_given));
    NotePath("writable", directory.GetWritableIndexPath(_given, false, false));
    NotePath("current of another object", other.GetCurrentIndexPath(_given));  // as it was read
    NOTE(_transcript, directory.SwapIndexPath());
    EXPECT_EQ(ContentOf(_redirecting), kTwo);
}

TEST_F(Directories, RedirectingFiles) {
    LayOut();
    for (const std::string& content :
         {""s, "\1\0\0"s, "\0\0\0\0"s, kOne, kTwo, "\3\0\0\0"s, "\1\0\1\0"s, kOne + "more"}) {
        SetContent(_redirecting, content);
        PLMIdxDirectory directory(_path.c_str());
        _transcript.Title(testing::PrintToString(content));
        const bool isValid = directory.IsValidIndexPath();
        NotePath(isValid ? "valid" : "not valid", directory.GetCurrentIndexPath(_given));
        NOTE(_transcript, directory.BuildIndexPath());
        EXPECT_EQ(ContentOf(_redirecting).substr(0, 4), isValid ? content.substr(0, 4) : kTwo);
    }
}

TEST_F(Directories, EmptyingKeepsSomeAndNamesTheStepThatFailed) {
    const std::pair<const char*, std::vector<long int>> cases[] = {
        {"none",   {}                    },
        {"open",   {1}                   },
        {"close",  {IDX_E_FAIL}          },
        {"list",   {IDX_E_FAIL}          },
        {"list",   {1}                   },
        {"stat",   {kGenuine, IDX_E_FAIL}},
        {"stat",   {1}                   },
        {"delete", {kGenuine, IDX_E_FAIL}},
        {"delete", {1}                   },
    };
    for (const auto& [service, planned] : cases) {
        LayOut();
        PLMIdxDirectory directory(_path.c_str());
        results[service] = planned;
        const std::string result = planned.empty() ? "works" : planned.back() == 1 ? "1" : "fails";
        _transcript.Title(service + ": "s + result);
        NotePath("as it is", directory.GetWritableIndexPath(_given, false, false));
        NotePath("emptied", directory.GetWritableIndexPath(_given, true, false));
        _transcript.Title("left:" + Names());
    }
    std::filesystem::remove_all(_path + "/1");
    NotePath("lost", PLMIdxDirectory(_path.c_str()).GetWritableIndexPath(_given, true, false));
}

TEST_F(Directories, WaitsTwelveTimesForOtherProcesses) {
    for (const std::size_t nFailures : {3u, 12u, 13u}) {
        LayOut();
        pauses.clear();
        results["delete"].assign(nFailures, IDX_E_FAIL);
        PLMIdxDirectory directory(_path.c_str());
        NotePath(std::to_string(nFailures), directory.GetWritableIndexPath(_given, true, true));
        EXPECT_EQ(pauses, std::vector<int>(std::min<std::size_t>(nFailures, 12), 10000));
    }
}

TEST_F(Directories, BuildingAndSwappingNameTheStepThatFailed) {
    PLMIdxDirectory directory(_path.c_str());
    results["create"] = {IDX_E_FAIL};
    NOTE(_transcript, directory.BuildIndexPath());
    EXPECT_FALSE(std::filesystem::exists(_path));
    std::filesystem::create_directory(_path);
    results["close handle"] = {IDX_E_FAIL};
    NOTE(_transcript, directory.BuildIndexPath());
    const auto block = [this] {  // a directory in the place of the redirecting file
        std::filesystem::remove(_redirecting);
        std::filesystem::create_directory(_redirecting);
    };
    block();
    NOTE(_transcript, directory.BuildIndexPath());
    std::filesystem::remove(_redirecting);
    {
        const FileSizeLimit none(0);
        NOTE(_transcript, directory.BuildIndexPath());
    }
    results["create sub-directory"] = {kGenuine, IDX_E_FAIL};
    NOTE(_transcript, directory.BuildIndexPath());
    EXPECT_EQ(ContentOf(_redirecting), kTwo);
    NotePath("current", directory.GetCurrentIndexPath(_given));
    NOTE(_transcript, directory.BuildIndexPath());
    {
        const FileSizeLimit none(0);
        NOTE(_transcript, directory.SwapIndexPath());
    }
    EXPECT_EQ(ContentOf(_redirecting), kTwo);
    block();
    NOTE(_transcript, directory.SwapIndexPath());
    NotePath("current", directory.GetCurrentIndexPath(_given));
}

TEST_F(Directories, ASwapBringsAllFilesToTheDiskFirst) {
    LayOut();
    PLMIdxDirectory directory(_path.c_str());
    const std::string path = _path + "/1/a";
    SetContent(path, std::string(12000, '.'));
    IDX_WT_File file;
    file.OpenWrite(path.c_str());
    for (unsigned int i = 0; i < 3000; ++i) file.WriteAt(i * 4, "swap", 4);
    file.Write("tail", 4);
    NOTE(_transcript, directory.SwapIndexPath());
    std::string expected;
    for (int i = 0; i < 3000; ++i) expected += "swap";
    EXPECT_TRUE(ContentOf(path) == expected + "tail");
    file.WriteAt(0, "late", 4);
    if (ContentOf(path)[0] == 'l') return;  // nothing is held on this file system
    {
        const FileSizeLimit none(0);
        TraceRecorder trace;
        EXPECT_EQ(directory.SwapIndexPath(), IDX_E_FAIL);
        EXPECT_EQ(trace.Take(), Lines{"PLMIdxDirectory.Swap3DIndexPath.Flush"});
    }
    EXPECT_EQ(ContentOf(_redirecting), kOne);
    EXPECT_EQ(directory.SwapIndexPath(), IDX_S_OK);
    EXPECT_EQ(ContentOf(path).substr(0, 4), "late");
}

TEST_F(Directories, APathThatIsTooLongIsNeverCut) {
    std::string path = _folder / "";
    path += std::string(2048 - path.size() - 10, '/');  // one too long with "/IDXBuffer" after it
    PLMIdxDirectory directory(path.c_str());
    NOTE(_transcript, directory.BuildIndexPath());
    directory.SetIndexDirectory(path.substr(0, path.size() - 1).c_str());
    NOTE(_transcript, directory.BuildIndexPath());
}

TEST_F(Directories, TheManagerKnowsTheKindsUnderOneBase) {
    PLMIdxDirectoryManager& manager = PLMIdxDirectoryManager::GetIndexDirectoryManager();
    manager.GetReportPath(_given);
    EXPECT_STREQ(_given.ConvertToChar(), "");
    manager.SetIndexBaseDirectory(_path.c_str());
    results["create sub-directory"] = {IDX_E_FAIL};
    NOTE(_transcript, manager.PrepareIndexDirectories());
    NOTE(_transcript, manager.PrepareIndexDirectories());
    manager.GetReportPath(_given);
    EXPECT_EQ(_given.ConvertToChar(), _path + "/BBDMonitor");
    results["close"] = {5};
    NOTE(_transcript, manager.PrepareIndexDirectories());
    for (const Index_Type type : {Index_Security, Index_UrlMap, Index_Dwh}) {
        NOTE(_transcript, manager.BuildDirectoryIfNeeded(type));
        NOTE(_transcript, manager.BuildDirectoryIfNeeded(type));
        NotePath("current", manager.GetCurrentPath(type, _given));
        NotePath("writable", manager.GetWritablePath(type, _given, true, true));
    }
    for (const int other : {0, 4}) {  // no operation gives them a path
        NotePath("current of another kind", manager.GetCurrentPath(Index_Type(other), _given));
    }
    NOTE(_transcript, manager.SwapIndex(Index_Dwh));
    NotePath("current", manager.GetCurrentPath(Index_Dwh, _given));
    SetContent(_path + "/Dwh/IDXBuffer", kTwo);  // a swap by another process
    NotePath("current", manager.GetCurrentPath(Index_Dwh, _given));
    manager.ForceInit(Index_Dwh);
    NotePath("current", manager.GetCurrentPath(Index_Dwh, _given));
    manager.SetIndexBaseDirectory((_path + "2").c_str());
    NotePath("current", manager.GetCurrentPath(Index_Dwh, _given));
}
