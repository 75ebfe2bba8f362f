// Index directories: layout, swap and emptying by hand, and services that fail at each step. KilledRunTest kills
// writers.

#include "FileCase.h"
#include "Transcript.h"

#include "IDX_Base_Constants.h"
#include "IDX_WT_File.h"
#include "PLMIdxDirectory.h"
#include "PLMIdxDirectoryManager.h"
#include "VEXDirectory.h"
#include "VEXFile.h"
#include "VEXSleep.h"

#include <cstring>
#include <dlfcn.h>
#include <map>
#include <unistd.h>

namespace {

constexpr long int kFailure = IDX_E_FAIL;
constexpr long int kGenuine = 77;

/// What the services of this program give for each call from the first on: in place of doing their work, unless
/// it is kGenuine.
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

std::string Number(unsigned int number) {
    return {reinterpret_cast<const char*>(&number), sizeof number};
}

class Directories : public FileCase {
protected:
    Directories()
        : _base(_folder / "index"),
          _file(_base + "/" + IDX_Base_Constants::IDXBUFFER_FILE_BASE_NAME) {
        results.clear();
        pauses.clear();
    }
    ~Directories() override { results.clear(); }

    /// Success, with this path behind the base.
    void ExpectPath(long int result, const std::string& end) {
        EXPECT_EQ(result, IDX_S_OK);
        EXPECT_STREQ(_path.ConvertToChar(), (_base + end).c_str());
        EXPECT_EQ(_trace.Take(), Lines{});
    }

    /// Failure, with the trace.
    void Fails(long int result, const Lines& tags) {
        EXPECT_EQ(result, kFailure);
        EXPECT_EQ(_trace.Take(), tags);
    }

    /// An index directory whose sub-directory 1 holds one file to be deleted and what has to stay.
    void LayOut() {
        PLMIdxDirectory(_base.c_str()).BuildIndexPath();
        for (const char* name : {"a", "b", "c.nsf", "d.nsf0"})
            SetContent(_base + "/1/" + name, "x");
        std::filesystem::create_directory(_base + "/1/e");
        SetContent(_base + "/1/e/f", "x");
        _trace.Take();
    }

    std::string Names() const {
        std::string names;
        for (const char* name : {"a", "b", "c.nsf", "d.nsf0", "e/f"}) {
            if (std::filesystem::exists(_base + "/1/" + name)) names += std::string(name) + ' ';
        }
        return names;
    }

    std::string _base;
    std::string _file;
    VEXUnicodeString _path;
};

}  // namespace

TEST_F(Directories, ARebuildGoesFromOneSideToTheOther) {
    PLMIdxDirectory directory;
    directory.SetIndexDirectory(_base.c_str());
    EXPECT_FALSE(directory.IsValidIndexPath());
    EXPECT_EQ(_trace.Take(), Lines{"IDX_WT_File.OpenRead.fopen"});
    EXPECT_EQ(directory.GetCurrentIndexPath(_path), kFailure);
    EXPECT_STREQ(_path.ConvertToChar(), _base.c_str());
    EXPECT_EQ(directory.SwapIndexPath(), kFailure);
    EXPECT_EQ(directory.BuildIndexPath(), IDX_S_OK);
    EXPECT_EQ(ContentOf(_file), Number(2));
    ExpectPath(directory.GetCurrentIndexPath(_path), "/2");
    ExpectPath(directory.GetWritableIndexPath(_path, true, false), "/1");
    EXPECT_EQ(directory.BuildIndexPath(), IDX_S_NOTHING_DONE);

    PLMIdxDirectory other(directory);
    EXPECT_EQ(directory.SwapIndexPath(), IDX_S_OK);
    EXPECT_EQ(ContentOf(_file), Number(1));
    ExpectPath(directory.GetCurrentIndexPath(_path), "/1");
    ExpectPath(directory.GetWritableIndexPath(_path, false, false), "/2");
    ExpectPath(other.GetCurrentIndexPath(_path), "/2");  // what it has read stays
    EXPECT_EQ(directory.SwapIndexPath(), IDX_S_OK);
    EXPECT_EQ(ContentOf(_file), Number(2));
}

TEST_F(Directories, ARedirectingFileThatLeadsNowhere) {
    PLMIdxDirectory(_base.c_str()).BuildIndexPath();
    _trace.Take();
    for (const unsigned int length : {0u, 3u, 4u, 5u, 8u}) {
        for (unsigned int number = 0; number <= 4; ++number) {
            SCOPED_TRACE(testing::Message() << length << " bytes, number " << number);
            SetContent(_file, (Number(number) + "1234").substr(0, length));
            PLMIdxDirectory directory(_base.c_str());
            const bool valid = length >= 4 && (number == 1 || number == 2);
            EXPECT_EQ(directory.IsValidIndexPath(), valid);
            const Lines tags = _trace.Take();
            if (valid) {
                EXPECT_EQ(tags, Lines());
                continue;
            }
            ASSERT_EQ(tags.size(), length < 4 ? 2u : 1u);
            EXPECT_EQ(tags.back(), "PLMIdxDirectory.Init_Internal.Invalid redirecting file !");
            EXPECT_EQ(directory.GetCurrentIndexPath(_path), kFailure);
            EXPECT_STREQ(_path.ConvertToChar(), _base.c_str());
            EXPECT_EQ(directory.SwapIndexPath(), kFailure);
            EXPECT_EQ(directory.BuildIndexPath(), IDX_S_OK);
            EXPECT_EQ(ContentOf(_file).substr(0, 4), Number(2));
        }
    }
}

TEST_F(Directories, EmptyingKeepsSomeAndTellsTheStepThatFailed) {
    const std::string pass = "PLMIdxDirectory.EmptyDir.";
    const std::string deleteB = "VEXDeleteFile " + _base + "/1/b";
    const struct {
        const char* service;
        std::vector<long int> results;
        Lines tags;         ///< of the pass; none: it succeeds
        const char* names;  ///< that are left
    } cases[] = {
        {"none",   {},                   {},                           "c.nsf d.nsf0 e/f "    },
        {"open",   {1},                  {},                           "a b c.nsf d.nsf0 e/f "},
        {"close",  {kFailure},           {pass + "VEXCloseDirectory"}, "a b c.nsf d.nsf0 e/f "},
        {"list",   {kFailure},           {pass + "VEXListDirectory"},  "a b c.nsf d.nsf0 e/f "},
        {"list",   {1},                  {},                           "a b c.nsf d.nsf0 e/f "},
        {"stat",   {kGenuine, kFailure}, {pass + "VEXFileStat"},       "b c.nsf d.nsf0 e/f "  },
        {"stat",   {1},                  {},                           "a b c.nsf d.nsf0 e/f "},
        {"delete", {kGenuine, kFailure}, {pass + deleteB},             "b c.nsf d.nsf0 e/f "  },
        {"delete", {1},                  {},                           "a b c.nsf d.nsf0 e/f "},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.service);
        std::filesystem::remove_all(_base);
        LayOut();
        results[each.service] = each.results;
        PLMIdxDirectory directory(_base.c_str());
        ExpectPath(directory.GetWritableIndexPath(_path, false, false), "/1");  // as it is
        const long int result = directory.GetWritableIndexPath(_path, true, false);
        EXPECT_EQ(Names(), each.names);
        if (each.tags.empty()) {
            ExpectPath(result, "/1");
            continue;
        }
        Lines tags = each.tags;
        if (each.service != std::string("close")) tags.push_back(pass + "VEXRemoveDirectoryR");
        tags.emplace_back("PLMIdxDirectory.GetWritableIndexPath.EmptyDir");
        Fails(result, tags);
        EXPECT_TRUE(pauses.empty());
    }
    std::filesystem::remove_all(_base + "/1");
    Fails(
        PLMIdxDirectory(_base.c_str()).GetWritableIndexPath(_path, true, false),
        {"PLMIdxDirectory.EmptyDir.VEXCreateDirectoryR",
         "PLMIdxDirectory.GetWritableIndexPath.EmptyDir"});
    EXPECT_STREQ(_path.ConvertToChar(), (_base + "/1").c_str());
}

TEST_F(Directories, WaitsTwelveTimesForOtherProcesses) {
    LayOut();
    const std::string tag = "PLMIdxDirectory.EmptyDir.VEXDeleteFile " + _base + "/1/a";
    const std::string message =
        "Directory " + _base + "/1 in use by another process. Will retry in 5 seconds...";
    for (const std::size_t nFailures : {3u, 12u, 13u}) {
        SCOPED_TRACE(nFailures);
        SetContent(_base + "/1/a", "x");
        pauses.clear();
        results["delete"].assign(nFailures, kFailure);
        Lines expected;
        for (std::size_t i = 0; i < nFailures; ++i) {
            expected.push_back(tag);
            if (i < 12) expected.push_back(message);
        }
        if (nFailures > 12) {
            expected.emplace_back("PLMIdxDirectory.EmptyDir.VEXRemoveDirectoryR");
            expected.emplace_back("PLMIdxDirectory.GetWritableIndexPath.EmptyDir");
        }
        PLMIdxDirectory directory(_base.c_str());
        const long int result = directory.GetWritableIndexPath(_path, true, true);
        EXPECT_EQ(result, nFailures > 12 ? kFailure : IDX_S_OK);
        EXPECT_EQ(_trace.Take(), expected);
        EXPECT_EQ(pauses, std::vector<int>(std::min<std::size_t>(nFailures, 12), 10000));
    }
}

TEST_F(Directories, BuildingAndSwappingTellTheStepThatFailed) {
    Transcript all(_folder / "");
    PLMIdxDirectory directory(_base.c_str());
    results["create"] = {kFailure};
    NOTE(all, directory.BuildIndexPath());
    EXPECT_FALSE(std::filesystem::exists(_base));
    std::filesystem::create_directory(_base);
    results["close handle"] = {kFailure};
    NOTE(all, directory.BuildIndexPath());
    all.Title("a folder in the place of the redirecting file");
    std::filesystem::create_directory(_file);
    NOTE(all, directory.BuildIndexPath());
    std::filesystem::remove(_file);
    {
        all.Title("no file may have a byte");
        const FileSizeLimit none(0);
        NOTE(all, directory.BuildIndexPath());
    }
    all.Title("the second sub-directory can't be made");
    results["create sub-directory"] = {kGenuine, kFailure};
    NOTE(all, directory.BuildIndexPath());
    EXPECT_EQ(ContentOf(_file), Number(2));
    NOTE(all, directory.GetCurrentIndexPath(_path));  // what it knows stays
    NOTE(all, directory.BuildIndexPath());
    {
        all.Title("no file may have a byte");
        const FileSizeLimit none(0);
        NOTE(all, directory.SwapIndexPath());
    }
    EXPECT_EQ(ContentOf(_file), Number(2));
    all.Title("a folder in the place of the redirecting file");
    std::filesystem::remove(_file);
    std::filesystem::create_directory(_file);
    NOTE(all, directory.SwapIndexPath());
    ExpectPath(directory.GetCurrentIndexPath(_path), "/2");
}

TEST_F(Directories, ASwapBringsAllFilesToTheDiskFirst) {
    PLMIdxDirectory directory(_base.c_str());
    directory.BuildIndexPath();
    SetContent(_base + "/1/a", std::string(8192, '.'));
    IDX_WT_File file;
    file.OpenWrite((_base + "/1/a").c_str());
    file.WriteAt(0, 2u);
    file.Write(2u);
    EXPECT_EQ(directory.SwapIndexPath(), IDX_S_OK);
    const std::string expected = Number(2) + std::string(8188, '.') + Number(2);
    EXPECT_TRUE(ContentOf(_base + "/1/a") == expected);
    _trace.Take();
    file.WriteAt(0, 3u);
    if (ContentOf(_base + "/1/a") != expected) return;  // nothing is held on this file system
    {
        const FileSizeLimit none(0);
        EXPECT_EQ(directory.SwapIndexPath(), kFailure);
        const Lines tags = _trace.Take();
        EXPECT_EQ(tags.empty() ? "" : tags.back(), "PLMIdxDirectory.Swap3DIndexPath.Flush");
    }
    ExpectPath(directory.GetCurrentIndexPath(_path), "/1");
    EXPECT_EQ(directory.SwapIndexPath(), IDX_S_OK);
    EXPECT_EQ(ContentOf(_base + "/1/a").substr(0, 4), Number(3));
}

TEST_F(Directories, APathThatIsTooLongIsNeverCut) {
    std::string path = (_folder / "").c_str();
    path += std::string(2048 - path.size() - 10, '/');  // one too long with "/IDXBuffer" behind it
    PLMIdxDirectory directory(path.c_str());
    EXPECT_FALSE(directory.IsValidIndexPath());
    EXPECT_EQ(_trace.Take(), Lines{"PLMIdxDirectory.Init_Internal.snprintf"});
    Fails(directory.BuildIndexPath(), {"PLMIdxDirectory.BuildIndexPath.snprintf"});
    directory.SetIndexDirectory(path.substr(0, path.size() - 1).c_str());
    EXPECT_EQ(directory.BuildIndexPath(), IDX_S_OK);
}

TEST_F(Directories, TheManagerKnowsTheKindsUnderOneBase) {
    PLMIdxDirectoryManager& manager = PLMIdxDirectoryManager::GetIndexDirectoryManager();
    manager.GetReportPath(_path);
    EXPECT_STREQ(_path.ConvertToChar(), "");
    manager.SetIndexBaseDirectory(_base.c_str());
    results["create sub-directory"] = {kFailure};
    Fails(manager.PrepareIndexDirectories(), {"Error : Failed to build report directory."});
    EXPECT_EQ(manager.PrepareIndexDirectories(), IDX_S_OK);
    manager.GetReportPath(_path);
    EXPECT_STREQ(_path.ConvertToChar(), (_base + "/BBDMonitor").c_str());
    results["close"] = {5};
    EXPECT_EQ(manager.PrepareIndexDirectories(), 5) << "the status of the close";

    const std::pair<Index_Type, const char*> kinds[] = {
        {Index_Security, "/Security"},
        {Index_UrlMap,   "/UrlMap"  },
        {Index_Dwh,      "/Dwh"     }
    };
    for (const auto& [type, folder] : kinds) {
        EXPECT_EQ(manager.BuildDirectoryIfNeeded(type), IDX_S_OK);
        EXPECT_EQ(manager.BuildDirectoryIfNeeded(type), IDX_S_OK);
        _trace.Take();
        ExpectPath(manager.GetCurrentPath(type, _path), std::string(folder) + "/2");
        ExpectPath(manager.GetWritablePath(type, _path, true, true), std::string(folder) + "/1");
    }
    for (const Index_Type other :
         {Index_Type{0}, Index_Type{4}}) {  // no operation gives them a path
        EXPECT_EQ(manager.GetCurrentPath(other, _path), kFailure);
        EXPECT_STREQ(_path.ConvertToChar(), "");
    }
    _trace.Take();
    EXPECT_EQ(manager.SwapIndex(Index_Dwh), IDX_S_OK);
    ExpectPath(manager.GetCurrentPath(Index_Dwh, _path), "/Dwh/1");

    // A swap by another process.
    SetContent(_base + "/Dwh/IDXBuffer", Number(2));
    ExpectPath(manager.GetCurrentPath(Index_Dwh, _path), "/Dwh/1");
    manager.ForceInit(Index_Dwh);
    ExpectPath(manager.GetCurrentPath(Index_Dwh, _path), "/Dwh/2");

    const std::string other = _folder / "other";
    manager.SetIndexBaseDirectory(other.c_str());
    EXPECT_EQ(manager.GetCurrentPath(Index_Dwh, _path), kFailure) << "read anew";
    EXPECT_STREQ(_path.ConvertToChar(), (other + "/Dwh").c_str());
}
