#include "MeshImport.h"

#include "MeshBytes.h"
#include "UniqueNames.h"
#include "Utf8.h"
#include "VertexJoiner.h"

#include "formats/FinitePoint.h"

#include <algorithm>
#include <array>
#include <assimp/DefaultLogger.hpp>
#include <assimp/Importer.hpp>
#include <assimp/LogStream.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <cstring>
#include <new>
#include <string_view>

namespace {

using WorldTransform = aiMatrix4x4t<double>;

constexpr std::array<std::string_view, 7> kMeshEndings = {".stl", ".obj", ".ply", ".gltf",
                                                          ".glb", ".off", ".3mf"};
constexpr std::string_view kPackedEnding = ".gz";
constexpr std::size_t kLongestMessage = 160;
constexpr std::size_t kLongestPath = 4096;  // bytes of a node's path; the rest is cut off

/// A warning by which the importer tells that it has changed what the file says.
struct Repair {
    std::string_view words;   ///< what the warning holds
    std::string_view reason;  ///< why the file is refused
};
constexpr Repair kRepairs[] = {
    {"out of range",         "index out of range: "                           },
    {"out-of-range",         "index out of range: "                           },
    {"resulted in overflow", "a number is too large, or has too many digits: "},
};

/// Words that tell a message about geometry from one about materials, textures and the like.
constexpr std::array<std::string_view, 5> kGeometryWords = {
    "face", "vert", "triang", "polygon", "indices"};
constexpr std::array<std::string_view, 2> kOtherWords = {"material", "texture"};

std::string LowerCase(std::string_view iText) {
    std::string lower(iText);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return lower;
}

template <std::size_t N>
bool ContainsAny(const std::string& iText, const std::array<std::string_view, N>& iWords) {
    return std::any_of(iWords.begin(), iWords.end(), [&](std::string_view word) {
        return iText.find(word) != std::string::npos;
    });
}

/// The path without a packed ending, in lower case.
std::string UnpackedName(const std::string& iPath) {
    std::string name = LowerCase(iPath);
    if (name.ends_with(kPackedEnding)) name.resize(name.size() - kPackedEnding.size());
    return name;
}

/// One readable line out of an importer's message, which may quote the file.
std::string OneLine(std::string_view iMessage) {
    std::string line;
    for (const char c : iMessage) {
        const bool printable = c > ' ' && c <= '~';
        if (printable) {
            line += c;
        } else if (!line.empty() && line.back() != ' ') {
            line += ' ';
        }
        if (line.size() == kLongestMessage) return line + "...";
    }
    while (!line.empty() && line.back() == ' ') line.pop_back();
    return line;
}

/// Collects what the importer says about the geometry: a repair makes the file a failure, anything
/// else becomes a note.
class GeometryLog : public Assimp::LogStream {
public:
    explicit GeometryLog(ImportedFile& ioFile) : _file(ioFile) {}

    /// @param iMessage  "Error, T0: text" or "Warn,  T0: text"
    void write(const char* iMessage) override {
        const char* text = std::strstr(iMessage, ": ");
        const std::string line = OneLine(text != nullptr ? text + 2 : iMessage);
        for (const Repair& repair : kRepairs) {
            if (line.find(repair.words) == std::string::npos) continue;
            _file.status = Status::PartFailed(std::string(repair.reason) + line);
            return;
        }
        if (ContainsAny(line, kGeometryWords) && !ContainsAny(line, kOtherWords)) {
            _file.notes.push_back(line);
        }
    }

private:
    ImportedFile& _file;
};

/// Routes the importer's messages to a GeometryLog while it lives.
class LogCapture {
public:
    explicit LogCapture(ImportedFile& ioFile) {
        Assimp::DefaultLogger::create(nullptr, Assimp::Logger::NORMAL, 0);
        // The logger takes the stream over.
        Assimp::DefaultLogger::get()->attachStream(
            new GeometryLog(ioFile), Assimp::Logger::Err | Assimp::Logger::Warn);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture() { Assimp::DefaultLogger::kill(); }
};

/// Reads the scene as the file gives it, without any step that would hide a defect. The importer
/// gets a packed or unaligned file from memory; any other by its path, as it may name more files.
Status ReadScene(Assimp::Importer& ioImporter, const std::string& iPath, const aiScene*& oScene) {
    const std::string name = UnpackedName(iPath);
    const std::string format = name.substr(name.rfind('.') + 1);
    const bool packed = name.size() < iPath.size();
    if (packed || (format == "glb" && HasUnalignedChunk(iPath))) {
        std::string bytes;
        Status status = ReadBytes(iPath, bytes);
        if (status.Failed()) return status;
        bytes = AlignChunks(bytes);
        oScene = ioImporter.ReadFileFromMemory(bytes.data(), bytes.size(), 0, format.c_str());
    } else {
        oScene = ioImporter.ReadFile(iPath, 0);
    }
    if (oScene != nullptr) return {};
    const std::string reason = OneLine(ioImporter.GetErrorString());
    // The importer keeps of an exception nothing but its text.
    if (reason == "std::bad_alloc") throw std::bad_alloc();
    return Status::PartFailed(reason);
}

/// Fails at the first index out of range. The importer itself checks the indices of some formats
/// only.
Status CheckIndices(const aiScene& iScene) {
    for (unsigned int m = 0; m < iScene.mNumMeshes; ++m) {
        const aiMesh& mesh = *iScene.mMeshes[m];
        for (unsigned int f = 0; f < mesh.mNumFaces; ++f) {
            const aiFace& face = mesh.mFaces[f];
            for (unsigned int c = 0; c < face.mNumIndices; ++c) {
                if (face.mIndices[c] < mesh.mNumVertices) continue;
                return Status::PartFailed(
                    "index out of range: face " + std::to_string(f) + " names vertex " +
                    std::to_string(face.mIndices[c]) + " of " + std::to_string(mesh.mNumVertices));
            }
        }
    }
    return {};
}

/// Triangles that the faces of a mesh amount to, and faces with fewer than 3 corners.
struct FaceCount {
    std::uint64_t nTriangles = 0;
    std::uint64_t nTooSmall = 0;
};

FaceCount CountFaces(const aiMesh& iMesh) {
    FaceCount count;
    for (unsigned int f = 0; f < iMesh.mNumFaces; ++f) {
        const unsigned int nCorners = iMesh.mFaces[f].mNumIndices;
        if (nCorners < 3) {
            ++count.nTooSmall;
        } else {
            count.nTriangles += nCorners - 2;
        }
    }
    return count;
}

std::vector<FaceCount> CountFaces(const aiScene& iScene) {
    std::vector<FaceCount> counts(iScene.mNumMeshes);
    for (unsigned int m = 0; m < iScene.mNumMeshes; ++m) counts[m] = CountFaces(*iScene.mMeshes[m]);
    return counts;
}

/// Transformed in double, rounded to float once: exact for the identity. Overflow becomes an
/// infinity.
IDX_Point Transformed(const WorldTransform& iWorld, const aiVector3D& iVertex) {
    const aiVector3t<double> placed = iWorld * aiVector3t<double>(iVertex.x, iVertex.y, iVertex.z);
    return {
        static_cast<float>(placed.x), static_cast<float>(placed.y), static_cast<float>(placed.z)};
}

/// Turns the nodes of a triangulated scene into parts.
class PartCollector {
public:
    /// @param iFaces  the faces of each mesh before they were triangulated
    PartCollector(const aiScene& iScene, const std::vector<FaceCount>& iFaces)
        : _scene(iScene), _faces(iFaces) {}

    /// Parts of a node and of all below it.
    std::uint64_t CountParts(const aiNode& iNode) const {
        std::uint64_t count = CarriesTriangles(iNode) ? 1 : 0;
        for (unsigned int c = 0; c < iNode.mNumChildren; ++c)
            count += CountParts(*iNode.mChildren[c]);
        return count;
    }

    /// Sends the parts of a node and of all below it to a receiver.
    /// @param iNumber  number of the node among its siblings, from 1
    void SendParts(
        const aiNode& iNode,
        unsigned int iNumber,
        const std::string& iParentPath,
        const WorldTransform& iParent,
        MeshReceiver& ioReceiver) {
        const WorldTransform world = iParent * WorldTransform(iNode.mTransformation);
        const std::string path = (iParentPath + NodeName(iNode, iNumber)).substr(0, kLongestPath);
        if (CarriesTriangles(iNode)) {
            MeshPart part;
            part.nodePath = _paths.Make(ValidUtf8(path));
            for (unsigned int m = 0; m < iNode.mNumMeshes; ++m) {
                AddMesh(iNode.mMeshes[m], world, part);
            }
            ioReceiver.ReceivePart(part);
        }
        for (unsigned int c = 0; c < iNode.mNumChildren; ++c) {
            SendParts(*iNode.mChildren[c], c + 1, path + "/", world, ioReceiver);
        }
    }

private:
    static std::string NodeName(const aiNode& iNode, unsigned int iNumber) {
        return iNode.mName.length > 0 ? iNode.mName.C_Str() : "node" + std::to_string(iNumber);
    }

    bool CarriesTriangles(const aiNode& iNode) const {
        return std::any_of(iNode.mMeshes, iNode.mMeshes + iNode.mNumMeshes, [this](unsigned int m) {
            return _faces[m].nTriangles > 0;
        });
    }

    /// Adds the triangles of a mesh in the coordinates of the scene. What can't be drawn is
    /// counted: the faces before and after triangulation differ by what a polygon with crossing
    /// edges leaves over.
    void AddMesh(unsigned int iMesh, const WorldTransform& iWorld, MeshPart& ioPart) const {
        const aiMesh& mesh = *_scene.mMeshes[iMesh];
        const std::uint64_t before = ioPart.triangles.size();
        VertexJoiner joiner(ioPart.points, mesh.mNumVertices);
        for (unsigned int f = 0; f < mesh.mNumFaces; ++f) {
            const aiFace& face = mesh.mFaces[f];
            if (face.mNumIndices != 3) continue;
            IDX_Point corners[3];
            for (unsigned int c = 0; c < 3; ++c) {
                corners[c] = Transformed(iWorld, mesh.mVertices[face.mIndices[c]]);
            }
            if (!std::all_of(corners, corners + 3, HasFiniteCoordinates)) continue;
            ioPart.triangles.push_back({
                {joiner.Add(corners[0]), joiner.Add(corners[1]), joiner.Add(corners[2])}
            });
        }
        const std::uint64_t nDrawn = ioPart.triangles.size() - before;
        ioPart.nSkipped += _faces[iMesh].nTooSmall + _faces[iMesh].nTriangles - nDrawn;
    }

    const aiScene& _scene;
    const std::vector<FaceCount>& _faces;
    UniqueNames _paths{"~"};
};

/// A scene of triangles, and what was there before.
struct TriangleScene {
    const aiScene* scene = nullptr;  ///< belongs to the importer
    std::vector<FaceCount> faces;    ///< of each mesh before it was triangulated
};

/// Reads and triangulates the scene.
/// @param iLogged  filled by the importer's messages meanwhile
Status ReadTriangles(
    Assimp::Importer& ioImporter,
    const std::string& iPath,
    const ImportedFile& iLogged,
    TriangleScene& oTriangles) {
    const aiScene* scene = nullptr;
    Status status = ReadScene(ioImporter, iPath, scene);
    if (!status.Failed()) status = iLogged.status;
    if (!status.Failed()) status = CheckIndices(*scene);
    if (status.Failed()) return status;
    oTriangles.faces = CountFaces(*scene);
    oTriangles.scene = ioImporter.ApplyPostProcessing(aiProcess_Triangulate);
    if (oTriangles.scene == nullptr) {
        return Status::PartFailed(OneLine(ioImporter.GetErrorString()));
    }
    return iLogged.status;
}

/// The same, with everything that the importer may throw made a failure.
/// @param oLogged  what the importer said
Status TryToReadTriangles(
    Assimp::Importer& ioImporter,
    const std::string& iPath,
    ImportedFile& oLogged,
    TriangleScene& oTriangles) {
    try {
        const LogCapture log(oLogged);
        return ReadTriangles(ioImporter, iPath, oLogged, oTriangles);
    } catch (const std::bad_alloc&) {
        return Status::PartFailed("the import needs more memory than it may use");
    } catch (const std::exception& error) {
        return Status::PartFailed(OneLine(error.what()));
    }
}

}  // namespace

bool IsMeshFileName(const std::string& iPath) {
    const std::string name = UnpackedName(iPath);
    return std::any_of(kMeshEndings.begin(), kMeshEndings.end(), [&](std::string_view ending) {
        return name.ends_with(ending);
    });
}

bool IsZUpFileName(const std::string& iPath) {
    const std::string name = UnpackedName(iPath);
    return name.ends_with(".stl") || name.ends_with(".3mf");
}

/// The parts are counted before the first is sent: the receiver knows how many come.
void ImportMeshFile(const std::string& iPath, MeshReceiver& ioReceiver) {
    Assimp::Importer importer;
    ImportedFile file;
    TriangleScene triangles;
    file.status = TryToReadTriangles(importer, iPath, file, triangles);
    if (file.status.Failed()) {
        file.notes.clear();
        return ioReceiver.ReceiveFile(file);
    }
    PartCollector collector(*triangles.scene, triangles.faces);
    const aiNode* root = triangles.scene->mRootNode;
    if (root != nullptr) file.nParts = collector.CountParts(*root);
    if (file.nParts == 0) {
        file.status = Status::PartFailed("holds no triangle");
        file.notes.clear();
    }
    ioReceiver.ReceiveFile(file);
    if (file.nParts > 0) collector.SendParts(*root, 1, {}, WorldTransform(), ioReceiver);
}
