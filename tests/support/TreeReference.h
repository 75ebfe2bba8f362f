#ifndef TreeReference_h
#define TreeReference_h

#include <string>

/// The identifier tree written down flat: one string of bytes, read and changed in place, numbers in the byte
/// order of this machine. Slow, and without any check.
class TreeReference {
public:
    TreeReference(unsigned int itemSize, unsigned int manifestSize);

    unsigned int Insert(const std::string& record, const std::string& id);

    /// The file, filled up to a multiple of 4 behind its last byte, as the memory store leaves it, or not.
    std::string File(bool filledUp) const;

private:
    unsigned int At(unsigned int offset) const;
    void Set(unsigned int offset, unsigned int number);
    unsigned int Append(const std::string& data);
    void SplitChild(unsigned int parent, unsigned int index);
    int Order(const std::string& id, unsigned int item) const;

    unsigned int _itemSize;
    std::string _bytes;    ///< its length is a multiple of 4
    std::size_t _end = 0;  ///< of the last append
};

#endif
