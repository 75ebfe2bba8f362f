#include "BuildJob.h"

#include "Bytes.h"
#include "OctreePicture.h"

#include <new>

namespace {

void AddNote(std::string& ioNote, const std::string& iNote) {
    ioNote += ioNote.empty() ? iNote : "; " + iNote;
}

/// What follows on the last '/' or '#': of a long path it says the most.
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
    const Status status = DrawSheet(*iBuilt.octree, facts, ioResult.picture);
    if (status.Failed()) AddNote(ioResult.note, status.In("no picture").Text());
}

void NoteShortfall(const BuiltPart& iBuilt, std::string& ioNote) {
    if (iBuilt.isLessDeep) {
        AddNote(ioNote, "less deep than asked for: its cells don't fit into the memory");
    }
    if (iBuilt.isSurfaceAlone) {
        AddNote(ioNote, "the surface alone: the cells are too many to tell inside from outside");
    }
}

/// Builds one part and draws its picture. A part that needs more memory than there is fails by
/// itself.
PartResult Build(const PartToBuild& iPart, const BuildSettings& iSettings) {
    PartResult result;
    try {
        BuiltPart built;
        result.status = BuildPart(*iPart.mesh, iSettings.parameters, built);
        if (result.status.Failed()) return result;
        result.facts = built.facts;
        NoteShortfall(built, result.note);
        result.image.assign(
            reinterpret_cast<const char*>(built.image.get()), built.facts.imageSize);
        if (iSettings.pictures) DrawPicture(iPart, built, result);
    } catch (const std::bad_alloc&) {
        result = {};
        result.status = Status::PartFailed("out of memory");
    }
    return result;
}

std::string Encode(const PartResult& iResult) {
    ByteWriter message;
    message.PutPartStatus(iResult.status);
    message.Put(iResult.facts);
    message.PutList(iResult.image);
    message.PutList(iResult.picture);
    message.PutList(iResult.note);
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
    return message.GetPartStatus(oResult.status) && message.Get(oResult.facts) &&
           message.GetList(oResult.image) && message.GetList(oResult.picture) &&
           message.GetList(oResult.note) && message.IsAtEnd() &&
           oResult.image.size() == oResult.facts.imageSize &&
           oResult.facts.depth < oResult.facts.cellsByLevel.size();
}
