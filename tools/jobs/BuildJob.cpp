#include "BuildJob.h"

#include "Bytes.h"
#include "OctreePicture.h"

#include <new>

namespace {

void AddNote(std::string& ioNote, const std::string& iNote) {
    ioNote += ioNote.empty() ? iNote : "; " + iNote;
}

/// What stands behind the last '/' or '#': of a long path it says the most.
std::string LastName(const std::string& iIdentifier) {
    return iIdentifier.substr(iIdentifier.find_last_of("/#") + 1);
}

void DrawPicture(const PartToBuild& iPart, const BuiltPart& iBuilt, PartResult& ioResult) {
    SheetFacts facts;
    facts.name = LastName(iPart.identifier);
    facts.source = iPart.identifier;
    facts.nTriangles = iBuilt.facts.nTriangles;
    facts.nSolid = iBuilt.facts.nSolid;
    facts.nInside = iBuilt.facts.nInside;
    facts.up = iPart.up;
    const std::string failure = DrawSheet(*iBuilt.octree, facts, ioResult.picture);
    if (!failure.empty()) AddNote(ioResult.note, "no picture: " + failure);
}

PartResult Build(const PartToBuild& iPart, const BuildSettings& iSettings) {
    PartResult result;
    try {
        const BuiltPart built = BuildPart(*iPart.mesh, iSettings.parameters);
        result.facts = built.facts;
        result.failure = built.failure;
        result.note = built.note;
        if (!built.failure.empty()) return result;
        result.image.assign(
            reinterpret_cast<const char*>(built.image.get()), built.facts.imageSize);
        if (iSettings.pictures) DrawPicture(iPart, built, result);
    } catch (const std::bad_alloc&) {
        result = {};
        result.failure = "out of memory";
    }
    return result;
}

std::string Encode(const PartResult& iResult) {
    ByteWriter message;
    message.Put(iResult.facts);
    message.PutList(iResult.image);
    message.PutList(iResult.picture);
    message.PutList(iResult.note);
    message.PutList(iResult.failure);
    return message.Bytes();
}

}  // namespace

ChildProcess::Work BuildWork(
    const std::vector<PartToBuild>& iParts, const BuildSettings& iSettings) {
    return [&](const Outlet& iOutlet) {
        for (const PartToBuild& part : iParts) {
            LimitTime(iSettings.seconds);
            const PartResult result = Build(part, iSettings);
            EndTimeLimit();
            iOutlet.Send(Encode(result));
        }
    };
}

bool DecodeResult(const std::string& iMessage, PartResult& oResult) {
    ByteReader message(iMessage);
    return message.Get(oResult.facts) && message.GetList(oResult.image) &&
           message.GetList(oResult.picture) && message.GetList(oResult.note) &&
           message.GetList(oResult.failure) && message.IsAtEnd() &&
           oResult.image.size() == oResult.facts.imageSize &&
           oResult.facts.depth < oResult.facts.cellsByLevel.size();
}
