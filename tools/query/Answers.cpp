#include "Answers.h"

#include "Console.h"

#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

namespace {

using Json = nlohmann::ordered_json;

std::string Number(double iValue) {
    char text[32];
    std::snprintf(text, sizeof text, "%.7g", iValue);
    return text;
}

/// "0,0,0 to 4,4,4".
std::string BoxText(const Box& iBox) {
    std::string text;
    for (const Point* corner : {&iBox.low, &iBox.high}) {
        if (!text.empty()) text += " to ";
        for (std::size_t axis = 0; axis < corner->size(); ++axis) {
            if (axis != 0) text += ',';
            text += Number((*corner)[axis]);
        }
    }
    return text;
}

Json JsonOf(const Box& iBox) {
    return {
        {"low",  iBox.low },
        {"high", iBox.high}
    };
}

Json JsonOf(const NearPart& iPart, bool iWithDistance) {
    const PartRecord& record = iPart.part.record;
    Json json = {
        {"id",         iPart.part.identifier    },
        {"triangles",  record.nTriangles        },
        {"solidCells", record.CountOccupied()   },
        {"box",        JsonOf(BoxOf(record.box))},
        {"octree",
         {{"piece", record.octreePiece},
          {"offset", record.octreeOffset},
          {"bytes", record.octreeSize}}         },
    };
    if (iWithDistance) json["distance"] = iPart.distance;
    return json;
}

/// An identifier may be no UTF-8: what isn't becomes a replacement character.
void Print(const Json& iJson) {
    std::printf("%s\n", iJson.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

/// Figures of a whole index.
struct Stats {
    unsigned int nParts = 0;
    std::uint64_t nTriangles = 0;
    std::uint64_t nOccupied = 0;
    IDX_Base_BoundingBox box;  ///< of all parts; means nothing when there is none
    std::map<unsigned int, unsigned int> depths;  ///< of the octrees: number of parts by depth
};

Status Collect(const PartIndex& iIndex, Stats& oStats) {
    return iIndex.ForEach([&](const StoredPart& part) {
        const PartRecord& record = part.record;
        if (oStats.nParts++ == 0) oStats.box = record.box;
        oStats.box.Union(record.box);
        oStats.nTriangles += record.nTriangles;
        oStats.nOccupied += record.CountOccupied();
        std::optional<OctreeImage> image;
        Status status = iIndex.ImageOf(part, image);
        if (!status.Failed()) ++oStats.depths[image->Depth()];
        return status;
    });
}

void PrintLine(const char* iName, const std::string& iValue) {
    std::printf("%-12s %s\n", iName, iValue.c_str());
}

std::string DepthsText(const Stats& iStats) {
    std::string text;
    for (const auto& [depth, nParts] : iStats.depths) {
        if (!text.empty()) text += ", ";
        text += std::to_string(depth) + " (" + std::to_string(nParts);
        text += nParts == 1 ? " part)" : " parts)";
    }
    return text;
}

void PrintStatsAsText(const PartIndex& iIndex, const Stats& iStats) {
    PrintLine("index", Printable(iIndex.Folder()));
    PrintLine("parts", std::to_string(iStats.nParts));
    PrintLine("triangles", std::to_string(iStats.nTriangles));
    PrintLine("solid cells", std::to_string(iStats.nOccupied));
    PrintLine("depths", DepthsText(iStats));
    PrintLine("box", iStats.nParts == 0 ? "" : BoxText(BoxOf(iStats.box)));
    PrintLine(
        "octrees", std::to_string(iIndex.OctreeBytes()) + " bytes in " +
                       std::to_string(iIndex.Pieces().size()) +
                       (iIndex.Pieces().size() == 1 ? " file" : " files"));
    PrintLine("boxes", std::to_string(iIndex.BoxesFile().Size()) + " bytes");
    PrintLine("identifiers", std::to_string(iIndex.PartsFile().Size()) + " bytes");
}

Json JsonOf(const PartIndex& iIndex, const Stats& iStats) {
    Json depths = Json::object();
    for (const auto& [depth, nParts] : iStats.depths) depths[std::to_string(depth)] = nParts;
    return {
        {"index",      iIndex.Folder()                                        },
        {"parts",      iStats.nParts                                          },
        {"triangles",  iStats.nTriangles                                      },
        {"solidCells", iStats.nOccupied                                       },
        {"depths",     depths                                                 },
        {"box",        iStats.nParts == 0 ? Json() : JsonOf(BoxOf(iStats.box))},
        {"bytes",
         {{"octrees", iIndex.OctreeBytes()},
          {"boxes", iIndex.BoxesFile().Size()},
          {"identifiers", iIndex.PartsFile().Size()}}                         },
    };
}

}  // namespace

void PrintParts(
    const PartIndex& iIndex, const std::vector<NearPart>& iParts, bool iWithDistance, bool iJson) {
    if (iJson) {
        Json parts = Json::array();
        for (const NearPart& part : iParts) parts.push_back(JsonOf(part, iWithDistance));
        return Print({
            {"index", iIndex.Folder()},
            {"parts", parts          }
        });
    }
    if (iParts.empty()) return;
    std::vector<std::string> heading = {"part", "triangles", "solid cells", "box"};
    if (iWithDistance) heading.insert(heading.begin() + 1, "distance");
    Table table(heading);
    for (const NearPart& part : iParts) {
        const PartRecord& record = part.part.record;
        std::vector<std::string> row = {
            Printable(part.part.identifier), std::to_string(record.nTriangles),
            std::to_string(record.CountOccupied()), BoxText(BoxOf(record.box))};
        if (iWithDistance) row.insert(row.begin() + 1, Number(part.distance));
        table.AddRow(std::move(row));
    }
    table.Print();
}

Status PrintStats(const PartIndex& iIndex, bool iJson) {
    Stats stats;
    Status status = Collect(iIndex, stats);
    if (status.Failed()) return status;
    if (iJson) {
        Print(JsonOf(iIndex, stats));
    } else {
        PrintStatsAsText(iIndex, stats);
    }
    return {};
}

void PrintCheck(const IndexCheckResult& iResult, bool iJson) {
    const bool isSound = iResult.nProblems == 0;
    if (iJson) {
        return Print({
            {"sound",    isSound         },
            {"parts",    iResult.nParts  },
            {"bytes",    iResult.nBytes  },
            {"problems", iResult.problems},
        });
    }
    for (const std::string& problem : iResult.problems)
        std::printf("%s\n", Printable(problem).c_str());
    if (iResult.nProblems > iResult.problems.size()) {
        std::printf(
            "and %llu more\n",
            static_cast<unsigned long long>(iResult.nProblems - iResult.problems.size()));
    }
    std::printf(
        isSound ? "sound: %u parts, %llu bytes\n" : "damaged: %u parts, %llu bytes\n",
        iResult.nParts, static_cast<unsigned long long>(iResult.nBytes));
}
