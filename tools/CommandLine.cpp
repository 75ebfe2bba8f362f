#include "CommandLine.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>

namespace {

constexpr int kShallowest = 2;
constexpr int kDeepest = 19;
constexpr int kMostMemoryMiB = 1 << 20;
constexpr int kMostSeconds = 24 * 3600;

constexpr char kUsage[] = R"(usage: gridloom-index [options] FILE_OR_FOLDER...

Turns every part of the given meshes (STL, OBJ, PLY, glTF, GLB, OFF, 3MF) into a voxel
octree: an octree image and a picture for each part, and a table of all. A folder stands
for all meshes below it.

  -o, --output FOLDER      where the images and pictures go (default: gridloom-out)
  -d, --depth LEVELS       levels of the octree, 2 to 19 (default: 7)
  -c, --cell-size LENGTH   stop when the cells are no longer than this, in model units
                           (default: only the depth counts)
      --no-pictures        octree images and table only
      --up AXIS            y or z: the axis that points upwards in pictures
                           (default: z for STL and 3MF, else y)
      --import-memory MIB  what the import of one file may use (default: 4096)
      --import-seconds S   processor time for the import of one file (default: 120)
  -h, --help               this text
  -V, --version            the version

Exit code: 0 all parts are done, 1 some failed (each is named with its reason),
2 wrong usage.
)";

enum LongOption { NoPictures = 256, Up, ImportMemory, ImportSeconds };

const option kOptions[] = {
    {"output",         required_argument, nullptr, 'o'          },
    {"depth",          required_argument, nullptr, 'd'          },
    {"cell-size",      required_argument, nullptr, 'c'          },
    {"no-pictures",    no_argument,       nullptr, NoPictures   },
    {"up",             required_argument, nullptr, Up           },
    {"import-memory",  required_argument, nullptr, ImportMemory },
    {"import-seconds", required_argument, nullptr, ImportSeconds},
    {"help",           no_argument,       nullptr, 'h'          },
    {"version",        no_argument,       nullptr, 'V'          },
    {nullptr,          0,                 nullptr, 0            },
};

CommandLineResult Wrong(const std::string& iReason) {
    std::fprintf(stderr, "gridloom-index: %s\nTry 'gridloom-index --help'.\n", iReason.c_str());
    return CommandLineResult::Wrong;
}

/// A whole number from iLowest to iHighest, and nothing behind it.
bool ReadNumber(const char* iText, int iLowest, int iHighest, int& oNumber) {
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(iText, &end, 10);
    if (errno != 0 || end == iText || *end != '\0') return false;
    if (number < iLowest || number > iHighest) return false;
    oNumber = static_cast<int>(number);
    return true;
}

bool ReadNumber(const char* iText, int iLowest, int iHighest, unsigned int& oNumber) {
    int number = 0;
    if (!ReadNumber(iText, iLowest, iHighest, number)) return false;
    oNumber = static_cast<unsigned int>(number);
    return true;
}

bool ReadLength(const char* iText, float& oLength) {
    char* end = nullptr;
    oLength = std::strtof(iText, &end);
    return end != iText && *end == '\0' && std::isfinite(oLength) && oLength > 0.0F;
}

bool ReadAxis(const std::string& iText, std::optional<UpAxis>& oAxis) {
    if (iText != "y" && iText != "z") return false;
    oAxis = iText == "y" ? UpAxis::Y : UpAxis::Z;
    return true;
}

/// Takes one option over. Gives what the option wants when its value is wrong, else nothing.
const char* TakeOption(int iOption, const char* iValue, Options& ioOptions) {
    switch (iOption) {
        case 'o':
            ioOptions.outputFolder = iValue;
            return ioOptions.outputFolder.empty() ? "--output wants a folder" : nullptr;
        case 'd':
            return ReadNumber(iValue, kShallowest, kDeepest, ioOptions.build.depth)
                       ? nullptr
                       : "--depth wants a whole number from 2 to 19";
        case 'c':
            return ReadLength(iValue, ioOptions.build.cellSize)
                       ? nullptr
                       : "--cell-size wants a length above 0";
        case NoPictures:
            ioOptions.pictures = false;
            return nullptr;
        case Up:
            return ReadAxis(iValue, ioOptions.up) ? nullptr : "--up wants y or z";
        case ImportMemory:
            return ReadNumber(iValue, 1, kMostMemoryMiB, ioOptions.limits.memoryMiB)
                       ? nullptr
                       : "--import-memory wants a number of MiB";
        default:
            return ReadNumber(iValue, 1, kMostSeconds, ioOptions.limits.seconds)
                       ? nullptr
                       : "--import-seconds wants a number of seconds";
    }
}

}  // namespace

CommandLineResult ReadCommandLine(int iCount, char** iArguments, Options& oOptions) {
    opterr = 0;
    int found = 0;
    while ((found = getopt_long(iCount, iArguments, "o:d:c:hV", kOptions, nullptr)) != -1) {
        if (found == 'h' || found == 'V') {
            std::fputs(found == 'h' ? kUsage : "gridloom-index " GRIDLOOM_VERSION "\n", stdout);
            return CommandLineResult::Done;
        }
        if (found == '?') {
            return Wrong(std::string("unknown or incomplete option: ") + iArguments[optind - 1]);
        }
        const char* complaint = TakeOption(found, optarg, oOptions);
        if (complaint != nullptr) return Wrong(complaint);
    }
    oOptions.inputs.assign(iArguments + optind, iArguments + iCount);
    return oOptions.inputs.empty() ? Wrong("no mesh file or folder is named")
                                   : CommandLineResult::Run;
}
