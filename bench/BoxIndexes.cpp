#include "BoxIndexes.h"

#include "IDX_WT_File.h"
#include "IDX_WT_RTree.h"

#include "formats/RTreeImage.h"

#include <emmintrin.h>
#include <stdexcept>

#ifdef BENCH_BOOST
#include <boost/geometry.hpp>
#include <boost/geometry/index/detail/rtree/utilities/view.hpp>
#include <boost/geometry/index/rtree.hpp>
#include <boost/iterator/function_output_iterator.hpp>
#endif
#ifdef BENCH_SPATIALINDEX
#include <spatialindex/SpatialIndex.h>
#endif
#ifdef BENCH_SQLITE
#include <sqlite3.h>
#endif

namespace {

using Box = IDX_Base_BoundingBox;

void Check(bool iDone) {
    if (!iDone) throw std::runtime_error("an index failed");
}

/// Takes an image into memory.
struct ImageFile : IDX_WT_File {
    std::vector<unsigned char> bytes;

    unsigned int GetSize() const override { return static_cast<unsigned int>(bytes.size()); }
    IDX_Bool Write(const void* iData, unsigned int iSize) override {
        return WriteAt(GetSize(), iData, iSize);
    }
    IDX_Bool WriteAt(unsigned int iOffset, const void* iData, unsigned int iSize) override {
        bytes.resize(iOffset + std::size_t{iSize});
        std::memcpy(bytes.data() + iOffset, iData, iSize);
        return IDX_True;
    }
};

class GridloomIndex : public BoxIndex {
public:
    GridloomIndex(unsigned int iMinFill, unsigned int iFanOut) {
        Check(
            _tree.Init(
                static_cast<unsigned short>(iMinFill), static_cast<unsigned short>(iFanOut)) ==
            IDX_True);
    }

    void Insert(const Box& iBox, std::uint32_t iValue) override {
        Check(_tree.Insert(iBox, iValue) == IDX_True);
    }

    void Finish() override {
        unsigned int offset = 0;
        Check(_tree.Save(_file, offset) == IDX_True);
    }

    std::size_t CountHits(const Box& iWindow) override {
        std::size_t hits = 0;
        Search(iWindow, [&hits](const RTreeImage::Entry&) { ++hits; });
        return hits;
    }

    std::size_t CountNodes(const Box& iWindow) override {
        return Search(iWindow, [](const RTreeImage::Entry&) {});
    }

private:
    template <class Take>
    std::size_t Search(const Box& iWindow, const Take& iTake) const {
        const IDX_Point low = iWindow.GetLow();
        const IDX_Point high = iWindow.GetHigh();
        const __m128 windowLow = _mm_setr_ps(low.x, low.y, low.z, 0.0f);
        const __m128 windowHigh = _mm_setr_ps(high.x, high.y, high.z, 0.0f);
        // The fourth lanes hold what follows on the corners and don't count.
        const auto touches = [&](const unsigned char* iEntry) {
            const __m128 startsBefore = _mm_cmple_ps(FourFloats(iEntry), windowHigh);
            const __m128 endsAfter =
                _mm_cmpge_ps(FourFloats(iEntry + sizeof(IDX_Point)), windowLow);
            return (_mm_movemask_ps(_mm_and_ps(startsBefore, endsAfter)) & 7) == 7;
        };
        return RTreeImage(_file.bytes.data()).SearchBytes(touches, iTake);
    }

    static __m128 FourFloats(const unsigned char* iAt) {
        return _mm_loadu_ps(reinterpret_cast<const float*>(iAt));
    }

    IDX_WT_RTree _tree;
    ImageFile _file;
};

#ifdef BENCH_BOOST
namespace bg = boost::geometry;
namespace bgi = boost::geometry::index;
using PeerPoint = bg::model::point<float, 3, bg::cs::cartesian>;
using PeerBox = bg::model::box<PeerPoint>;
using PeerTree = bgi::rtree<std::pair<PeerBox, std::uint32_t>, bgi::dynamic_quadratic>;

PeerBox PeerBoxFrom(const Box& iBox) {
    const IDX_Point low = iBox.GetLow();
    const IDX_Point high = iBox.GetHigh();
    return {PeerPoint(low.x, low.y, low.z), PeerPoint(high.x, high.y, high.z)};
}

using PeerView = bgi::detail::rtree::utilities::view<PeerTree>;

/// Follows a search and counts the nodes.
struct NodeCounter : PeerView::members_holder::visitor_const {
    using Inner = PeerView::members_holder::internal_node;
    using Leaf = PeerView::members_holder::leaf;

    explicit NodeCounter(const PeerBox& iWindow) : window(iWindow) {}

    void operator()(const Inner& iNode) {
        ++nodes;
        for (const auto& element : bgi::detail::rtree::elements(iNode)) {
            if (bg::intersects(element.first, window)) {
                bgi::detail::rtree::apply_visitor(*this, *element.second);
            }
        }
    }
    void operator()(const Leaf&) { ++nodes; }

    PeerBox window;
    std::size_t nodes = 0;
};

class BoostIndex : public BoxIndex {
public:
    BoostIndex(unsigned int iMinFill, unsigned int iFanOut)
        : _tree(bgi::dynamic_quadratic(iFanOut, iMinFill)) {}

    void Insert(const Box& iBox, std::uint32_t iValue) override {
        _tree.insert(std::make_pair(PeerBoxFrom(iBox), iValue));
    }

    std::size_t CountHits(const Box& iWindow) override {
        std::size_t hits = 0;
        const auto count = [&hits](const PeerTree::value_type&) { ++hits; };
        _tree.query(
            bgi::intersects(PeerBoxFrom(iWindow)), boost::make_function_output_iterator(count));
        return hits;
    }

    std::size_t CountNodes(const Box& iWindow) override {
        NodeCounter counter(PeerBoxFrom(iWindow));
        PeerView(_tree).apply_visitor(counter);
        return counter.nodes;
    }

private:
    PeerTree _tree;
};
#endif

#ifdef BENCH_SPATIALINDEX
/// Counts what a search of libspatialindex finds.
struct HitCounter : SpatialIndex::IVisitor {
    void visitNode(const SpatialIndex::INode&) override { ++nodes; }
    void visitData(const SpatialIndex::IData&) override { ++hits; }
    void visitData(std::vector<const SpatialIndex::IData*>&) override {}

    std::size_t hits = 0;
    std::size_t nodes = 0;
};

class SpatialIndexIndex : public BoxIndex {
public:
    SpatialIndexIndex(unsigned int iMinFill, unsigned int iFanOut)
        : _storage(SpatialIndex::StorageManager::createNewMemoryStorageManager()),
          _tree(SpatialIndex::RTree::createNewRTree(
              *_storage,
              iMinFill / static_cast<double>(iFanOut),
              iFanOut,
              iFanOut,
              3,
              SpatialIndex::RTree::RV_QUADRATIC,
              _id)) {}

    void Insert(const Box& iBox, std::uint32_t iValue) override {
        _tree->insertData(0, nullptr, RegionFrom(iBox), iValue);
    }

    std::size_t CountHits(const Box& iWindow) override { return Search(iWindow).hits; }
    std::size_t CountNodes(const Box& iWindow) override { return Search(iWindow).nodes; }

private:
    static SpatialIndex::Region RegionFrom(const Box& iBox) {
        const IDX_Point a = iBox.GetLow();
        const IDX_Point b = iBox.GetHigh();
        const double low[] = {a.x, a.y, a.z};
        const double high[] = {b.x, b.y, b.z};
        return {low, high, 3};
    }

    HitCounter Search(const Box& iWindow) {
        HitCounter counter;
        _tree->intersectsWithQuery(RegionFrom(iWindow), counter);
        return counter;
    }

    SpatialIndex::id_type _id = 0;
    std::unique_ptr<SpatialIndex::IStorageManager> _storage;
    std::unique_ptr<SpatialIndex::ISpatialIndex> _tree;
};
#endif

#ifdef BENCH_SQLITE
/// An R*Tree table in memory, all insertions in one transaction. Chooses the fan-out itself.
class SqliteIndex : public BoxIndex {
public:
    SqliteIndex(unsigned int, unsigned int) {
        Check(sqlite3_open(":memory:", &_database) == SQLITE_OK);
        Run("CREATE VIRTUAL TABLE boxes USING rtree(id, x0, x1, y0, y1, z0, z1)");
        Run("BEGIN");
        _insert = Prepare("INSERT INTO boxes VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)");
        _search = Prepare(
            "SELECT count(*) FROM boxes WHERE x1 >= ?2 AND x0 <= ?3 AND y1 >= ?4 AND y0 <= ?5 "
            "AND z1 >= ?6 AND z0 <= ?7 AND id >= ?1");
    }
    ~SqliteIndex() override {
        sqlite3_finalize(_insert);
        sqlite3_finalize(_search);
        sqlite3_close(_database);
    }
    SqliteIndex(const SqliteIndex&) = delete;
    SqliteIndex& operator=(const SqliteIndex&) = delete;

    void Insert(const Box& iBox, std::uint32_t iValue) override {
        Bind(_insert, iBox, iValue);
        Check(sqlite3_step(_insert) == SQLITE_DONE);
        sqlite3_reset(_insert);
    }

    void Finish() override { Run("COMMIT"); }

    std::size_t CountHits(const Box& iWindow) override {
        Bind(_search, iWindow, 0);
        Check(sqlite3_step(_search) == SQLITE_ROW);
        const auto hits = static_cast<std::size_t>(sqlite3_column_int64(_search, 0));
        sqlite3_reset(_search);
        return hits;
    }

private:
    void Run(const char* iText) {
        Check(sqlite3_exec(_database, iText, nullptr, nullptr, nullptr) == SQLITE_OK);
    }

    sqlite3_stmt* Prepare(const char* iText) {
        sqlite3_stmt* statement = nullptr;
        Check(sqlite3_prepare_v2(_database, iText, -1, &statement, nullptr) == SQLITE_OK);
        return statement;
    }

    static void Bind(sqlite3_stmt* ioStatement, const Box& iBox, std::uint32_t iValue) {
        const IDX_Point a = iBox.GetLow();
        const IDX_Point b = iBox.GetHigh();
        sqlite3_bind_int64(ioStatement, 1, iValue);
        int place = 2;
        for (const float coordinate : {a.x, b.x, a.y, b.y, a.z, b.z}) {
            sqlite3_bind_double(ioStatement, place++, static_cast<double>(coordinate));
        }
    }

    sqlite3* _database = nullptr;
    sqlite3_stmt* _insert = nullptr;
    sqlite3_stmt* _search = nullptr;
};
#endif

template <class Index>
std::unique_ptr<BoxIndex> Make(unsigned int iMinFill, unsigned int iFanOut) {
    return std::make_unique<Index>(iMinFill, iFanOut);
}

}  // namespace

std::vector<BoxIndexKind> BoxIndexKinds() {
    return {
        {"Gridloom",        &Make<GridloomIndex>,     false},
#ifdef BENCH_BOOST
        {"Boost",           &Make<BoostIndex>,        false},
#endif
#ifdef BENCH_SPATIALINDEX
        {"libspatialindex", &Make<SpatialIndexIndex>, true },
#endif
#ifdef BENCH_SQLITE
        {"SQLite",          &Make<SqliteIndex>,       true },
#endif
    };
}
