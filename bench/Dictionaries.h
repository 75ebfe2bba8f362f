#ifndef Dictionaries_h
#define Dictionaries_h

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

using Key = std::array<unsigned char, 16>;
using Record = std::array<unsigned char, 32>;

/// An ordered dictionary in a file, ours or a peer's. Throws when something fails.
class Dictionary {
public:
    virtual ~Dictionary() = default;

    /// Makes an empty one, or opens one that was closed for reading. A path is used for one kind alone.
    virtual void Create(const std::string& iPath) = 0;
    virtual void Open(const std::string& iPath) = 0;

    virtual void Insert(const Key& iKey, const Record& iRecord) = 0;
    virtual bool Find(const Key& iKey) = 0;

    /// Goes through all of it, in order; gives how many there were.
    virtual std::size_t Enumerate() = 0;

    /// The file is then complete; nothing is synced to the disk.
    virtual void Close() = 0;
};

struct DictionaryKind {
    std::string name;
    std::unique_ptr<Dictionary> (*make)();
    bool isSlow;  ///< measured on the smaller data alone
};

/// Ours first, then the peers that are there.
std::vector<DictionaryKind> DictionaryKinds();

#endif
