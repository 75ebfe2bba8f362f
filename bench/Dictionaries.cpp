#include "Dictionaries.h"

#include "IDX_WT_Tree234.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <stdexcept>

#ifdef BENCH_LMDB
#include <lmdb.h>
#endif
#ifdef BENCH_SQLITE
#include <sqlite3.h>
#endif

namespace {

void Check(bool iDone, const char* iWhat) {
    if (!iDone) throw std::runtime_error(std::string("a dictionary failed: ") + iWhat);
}

/// Our tree on one of its stores, or on one that is handed in.
class Tree final : public IDX_WT_Tree234, public Dictionary {
public:
    explicit Tree(bool iInMemory, std::unique_ptr<IDX_WT_File> iStore = nullptr)
        : IDX_WT_Tree234(sizeof(Record), sizeof(IDX_234Struct_Manifest), iInMemory),
          _store(std::move(iStore)) {
        if (_store != nullptr) m_file = _store.get();
    }
    ~Tree() override { IDX_WT_Tree234::Close(); }

    const char* GetIndexName() const override { return "bench"; }

    void Create(const std::string& iPath) override {
        std::filesystem::remove(iPath);
        Check(OpenWrite(iPath.c_str()) == IDX_True, "OpenWrite");
    }
    void Open(const std::string& iPath) override {
        Check(OpenRead(iPath.c_str()) == IDX_True, "OpenRead");
    }
    void Insert(const Key& iKey, const Record& iRecord) override {
        IDX_234Struct_ItemSlot record[2];
        static_assert(sizeof record == sizeof iRecord);
        std::memcpy(record, iRecord.data(), sizeof record);
        unsigned int item = 0;
        _id.SetData(iKey.data(), static_cast<unsigned int>(iKey.size()));
        Check(IDX_WT_Tree234::Insert(record, _id, item) == IDX_True, "Insert");
    }
    bool Find(const Key& iKey) override {
        unsigned int item = 0;
        _id.SetData(iKey.data(), static_cast<unsigned int>(iKey.size()));
        Check(Query(_id, item) == IDX_True, "Query");
        return item != 0;
    }
    std::size_t Enumerate() override {
        std::size_t count = 0;
        const ItemCallback add = [](IDX_WT_Tree234*, unsigned int, void* ioCount) {
            ++*static_cast<std::size_t*>(ioCount);
            return IDX_True;
        };
        Check(EnumItems(add, &count) == IDX_True, "EnumItems");
        return count;
    }
    void Close() override { IDX_WT_Tree234::Close(); }

private:
    std::unique_ptr<IDX_WT_File> _store;
    IDX_WT_Identifier _id;
};

/// A store that seeks in a stream before each access.
class StreamStore final : public IDX_WT_File {
public:
    ~StreamStore() override { StreamStore::Close(); }

    IDX_Bool OpenRead(const char* iPath) override { return OpenStream(iPath, "rb"); }
    IDX_Bool OpenWrite(const char* iPath) override { return OpenStream(iPath, "wb+"); }
    IDX_Bool Close() override {
        if (_stream != nullptr) (void)std::fclose(_stream);
        _stream = nullptr;
        return IDX_True;
    }
    void Flush() override { (void)std::fflush(_stream); }
    unsigned int GetSize() const override { return _size; }
    IDX_Bool ReadAt(unsigned int iOffset, void* oData, unsigned int iDataSize) override {
        return Answer(Seek(iOffset) && std::fread(oData, 1, iDataSize, _stream) == iDataSize);
    }
    IDX_Bool Write(const void* iData, unsigned int iDataSize) override {
        return WriteAt(_size, iData, iDataSize);
    }
    IDX_Bool WriteAt(unsigned int iOffset, const void* iData, unsigned int iDataSize) override {
        if (iOffset + iDataSize > _size) _size = (iOffset + iDataSize + 3) & ~3U;
        return Answer(Seek(iOffset) && std::fwrite(iData, 1, iDataSize, _stream) == iDataSize);
    }

private:
    static IDX_Bool Answer(bool iDone) { return iDone ? IDX_True : IDX_False; }

    IDX_Bool OpenStream(const char* iPath, const char* iMode) {
        _stream = std::fopen(iPath, iMode);
        if (_stream == nullptr || std::fseek(_stream, 0, SEEK_END) != 0) return IDX_False;
        _size = static_cast<unsigned int>(std::ftell(_stream));
        return IDX_True;
    }
    bool Seek(unsigned int iOffset) {
        return std::fseek(_stream, static_cast<long>(iOffset), SEEK_SET) == 0;
    }

    FILE* _stream = nullptr;
    unsigned int _size = 0;
};

/// A map in memory, written in one go and read in one.
class Map final : public Dictionary {
public:
    void Create(const std::string& iPath) override { _path = iPath; }
    void Open(const std::string& iPath) override {
        FILE* file = std::fopen(iPath.c_str(), "rb");
        Check(file != nullptr, "fopen");
        std::pair<Key, Record> entry;
        while (std::fread(&entry, sizeof entry, 1, file) == 1) _map.insert(_map.end(), entry);
        (void)std::fclose(file);
    }
    void Insert(const Key& iKey, const Record& iRecord) override { _map[iKey] = iRecord; }
    bool Find(const Key& iKey) override { return _map.find(iKey) != _map.end(); }
    std::size_t Enumerate() override {
        std::size_t count = 0;
        for (const auto& entry : _map) count += entry.second.back() + 1U;  // 0 in all
        return count;
    }
    void Close() override {
        if (_path.empty()) return;
        std::vector<std::pair<Key, Record>> entries(_map.begin(), _map.end());
        FILE* file = std::fopen(_path.c_str(), "wb");
        Check(file != nullptr, "fopen");
        Check(
            std::fwrite(entries.data(), sizeof entries[0], entries.size(), file) == entries.size(),
            "fwrite");
        Check(std::fclose(file) == 0, "fclose");
        _path.clear();
    }

private:
    std::string _path;
    std::map<Key, Record> _map;
};

#ifdef BENCH_LMDB

/// One transaction, which isn't synced.
class Lmdb final : public Dictionary {
public:
    ~Lmdb() override { Lmdb::Close(); }
    void Create(const std::string& iPath) override {
        std::filesystem::remove(iPath);
        Start(iPath, MDB_NOSUBDIR | MDB_NOSYNC | MDB_NOLOCK, 0);
    }
    void Open(const std::string& iPath) override {
        Start(iPath, MDB_NOSUBDIR | MDB_RDONLY | MDB_NOLOCK, MDB_RDONLY);
    }
    void Insert(const Key& iKey, const Record& iRecord) override {
        MDB_val key = Value(iKey);
        MDB_val record = Value(iRecord);
        Check(mdb_put(_transaction, _table, &key, &record, 0) == 0, "mdb_put");
    }
    bool Find(const Key& iKey) override {
        MDB_val key = Value(iKey);
        MDB_val record;
        return mdb_get(_transaction, _table, &key, &record) == 0;
    }
    std::size_t Enumerate() override {
        MDB_cursor* cursor = nullptr;
        Check(mdb_cursor_open(_transaction, _table, &cursor) == 0, "mdb_cursor_open");
        MDB_val key;
        MDB_val record;
        std::size_t count = 0;
        while (mdb_cursor_get(cursor, &key, &record, MDB_NEXT) == 0) ++count;
        mdb_cursor_close(cursor);
        return count;
    }
    void Close() override {
        if (_environment == nullptr) return;
        Check(mdb_txn_commit(_transaction) == 0, "mdb_txn_commit");
        mdb_env_close(_environment);
        _environment = nullptr;
    }

private:
    template <class Bytes>
    static MDB_val Value(const Bytes& iBytes) {
        return {iBytes.size(), const_cast<unsigned char*>(iBytes.data())};
    }
    void Start(const std::string& iPath, unsigned int iFlags, unsigned int iTransactionFlags) {
        constexpr std::size_t kMapSize = std::size_t{1} << 30U;
        Check(mdb_env_create(&_environment) == 0, "mdb_env_create");
        Check(mdb_env_set_mapsize(_environment, kMapSize) == 0, "mdb_env_set_mapsize");
        Check(mdb_env_open(_environment, iPath.c_str(), iFlags, 0644) == 0, "mdb_env_open");
        Check(
            mdb_txn_begin(_environment, nullptr, iTransactionFlags, &_transaction) == 0,
            "mdb_txn_begin");
        Check(mdb_dbi_open(_transaction, nullptr, 0, &_table) == 0, "mdb_dbi_open");
    }

    MDB_env* _environment = nullptr;
    MDB_txn* _transaction = nullptr;
    MDB_dbi _table = 0;
};

#endif

#ifdef BENCH_SQLITE

/// One transaction, no journal, no sync.
class Sqlite final : public Dictionary {
public:
    ~Sqlite() override { Sqlite::Close(); }
    void Create(const std::string& iPath) override {
        std::filesystem::remove(iPath);
        Start(iPath);
        Run("CREATE TABLE t (k BLOB PRIMARY KEY, r BLOB) WITHOUT ROWID; BEGIN");
        _statement = Prepare("INSERT OR REPLACE INTO t VALUES (?, ?)");
    }
    void Open(const std::string& iPath) override {
        Start(iPath);
        Run("BEGIN");
        _statement = Prepare("SELECT r FROM t WHERE k = ?");
    }
    void Insert(const Key& iKey, const Record& iRecord) override {
        Bind(1, iKey);
        Bind(2, iRecord);
        Check(sqlite3_step(_statement) == SQLITE_DONE, "INSERT");
        sqlite3_reset(_statement);
    }
    bool Find(const Key& iKey) override {
        Bind(1, iKey);
        const bool isFound = sqlite3_step(_statement) == SQLITE_ROW;
        sqlite3_reset(_statement);
        return isFound;
    }
    std::size_t Enumerate() override {
        sqlite3_stmt* all = Prepare("SELECT k, r FROM t ORDER BY k");
        std::size_t count = 0;
        while (sqlite3_step(all) == SQLITE_ROW) ++count;
        sqlite3_finalize(all);
        return count;
    }
    void Close() override {
        if (_database == nullptr) return;
        sqlite3_finalize(_statement);
        Run("COMMIT");
        sqlite3_close(_database);
        _database = nullptr;
    }

private:
    void Start(const std::string& iPath) {
        Check(sqlite3_open(iPath.c_str(), &_database) == SQLITE_OK, "sqlite3_open");
        Run("PRAGMA synchronous = OFF; PRAGMA journal_mode = OFF; PRAGMA cache_size = -262144;"
            "PRAGMA mmap_size = 268435456");
    }
    void Run(const char* iCommands) {
        Check(
            sqlite3_exec(_database, iCommands, nullptr, nullptr, nullptr) == SQLITE_OK, iCommands);
    }
    sqlite3_stmt* Prepare(const char* iCommand) {
        sqlite3_stmt* statement = nullptr;
        Check(
            sqlite3_prepare_v2(_database, iCommand, -1, &statement, nullptr) == SQLITE_OK,
            iCommand);
        return statement;
    }
    template <class Bytes>
    void Bind(int iPlace, const Bytes& iBytes) {
        sqlite3_bind_blob(
            _statement, iPlace, iBytes.data(), static_cast<int>(iBytes.size()), nullptr);
    }

    sqlite3* _database = nullptr;
    sqlite3_stmt* _statement = nullptr;
};

#endif

template <class Kind>
std::unique_ptr<Dictionary> Make() {
    return std::make_unique<Kind>();
}

template <bool InMemory>
std::unique_ptr<Dictionary> MakeTree() {
    return std::make_unique<Tree>(InMemory);
}

std::unique_ptr<Dictionary> MakeTreeOnStream() {
    return std::make_unique<Tree>(false, std::make_unique<StreamStore>());
}

}  // namespace

std::vector<DictionaryKind> DictionaryKinds() {
    return {
        {"memory", &MakeTree<true>,   false},
        {"disk",   &MakeTree<false>,  false},
#ifdef BENCH_LMDB
        {"LMDB",   &Make<Lmdb>,       false},
#endif
#ifdef BENCH_SQLITE
        {"SQLite", &Make<Sqlite>,     false},
#endif
        {"map",    &Make<Map>,        false},
        {"stream", &MakeTreeOnStream, true },
    };
}
