#include "ImportJob.h"

#include "Bytes.h"
#include "MeshImport.h"

namespace {

/// Sends what the importer finds as it comes.
class MeshSender final : public MeshReceiver {
public:
    explicit MeshSender(const Outlet& iOutlet) : _outlet(iOutlet) {}

    void ReceiveFile(const ImportedFile& iFile) override {
        EndTimeLimit();  // from here on it waits until the parent reads
        ByteWriter message;
        message.PutPartStatus(iFile.status);
        message.Put(iFile.nParts);
        message.Put(std::uint64_t{iFile.notes.size()});
        for (const std::string& note : iFile.notes) message.PutList(note);
        _outlet.Send(message.Bytes());
    }

    void ReceivePart(const MeshPart& iPart) override {
        ByteWriter message;
        message.PutList(iPart.nodePath);
        message.PutList(iPart.points);
        message.PutList(iPart.triangles);
        message.Put(iPart.nSkipped);
        _outlet.Send(message.Bytes());
    }

private:
    const Outlet& _outlet;
};

}  // namespace

ChildProcess::Work ImportWork(const std::vector<std::string>& iPaths, const ImportLimits& iLimits) {
    return [=](const Outlet& iOutlet) {
        LimitMemory(iLimits.memoryMiB);
        MeshSender sender(iOutlet);
        for (const std::string& path : iPaths) {
            LimitTime(iLimits.seconds);
            ImportMeshFile(path, sender);
        }
    };
}

bool DecodeFile(const std::string& iMessage, ImportedFile& oFile) {
    ByteReader message(iMessage);
    std::uint64_t nNotes = 0;
    if (!message.GetPartStatus(oFile.status) || !message.Get(oFile.nParts) ||
        !message.Get(nNotes)) {
        return false;
    }
    for (; nNotes > 0; --nNotes) {
        if (!message.GetList(oFile.notes.emplace_back())) return false;
    }
    return message.IsAtEnd();
}

bool DecodePart(const std::string& iMessage, MeshPart& oPart) {
    ByteReader message(iMessage);
    return message.GetList(oPart.nodePath) && message.GetList(oPart.points) &&
           message.GetList(oPart.triangles) && message.Get(oPart.nSkipped) && message.IsAtEnd();
}
