#ifndef OpenRTree_h
#define OpenRTree_h

#include "Images.h"

#include "IDX_WT_File.h"
#include "IDX_WT_RTree.h"

#include <cstring>
#include <gtest/gtest.h>

/// A piece of the X axis with a square section of 1: its volume is its length.
inline IDX_Base_BoundingBox Bar(float from, float to) {
    return IDX_Base_BoundingBox({from, 0, 0}, {to, 1, 1});
}

/// Inserts the bars `first` to `end` of a line that jumps to and fro, all of one shape.
inline void InsertBars(IDX_WT_RTree& tree, unsigned int first, unsigned int end) {
    for (unsigned int i = first; i < end; ++i) {
        const auto x = static_cast<float>(i * 37 % 101);
        ASSERT_EQ(tree.Insert(Bar(x, x + 2), i), IDX_True);
    }
}

/// An R-tree that shows its storage.
struct OpenRTree : IDX_WT_RTree {
    OpenRTree() = default;
    OpenRTree(unsigned int minFill, unsigned int maxChildren) {
        (void)Init(static_cast<unsigned short>(minFill), static_cast<unsigned short>(maxChildren));
    }

    using IDX_WT_RTree::m_nodeSize;
    using IDX_WT_RTree::m_root;
    using IDX_WT_RTree::m_storage;

    Bytes Nodes() const { return Bytes(m_storage, m_storage + GetSize()); }
};

/// A file that is a list of bytes.
struct BytesFile : IDX_WT_File {
    Bytes bytes;

    unsigned int GetSize() const override { return static_cast<unsigned int>(bytes.size()); }

    IDX_Bool ReadAt(unsigned int offset, void* data, unsigned int size) override {
        if (offset > bytes.size() || size > bytes.size() - offset) return IDX_False;
        std::memcpy(data, bytes.data() + offset, size);
        return IDX_True;
    }
    IDX_Bool Write(const void* data, unsigned int size) override {
        return BytesFile::WriteAt(GetSize(), data, size);
    }
    IDX_Bool WriteAt(unsigned int offset, const void* data, unsigned int size) override {
        if (data == nullptr) return IDX_False;
        if (bytes.size() < offset + size) bytes.resize(offset + size);
        std::memcpy(bytes.data() + offset, data, size);
        return IDX_True;
    }
};

/// The tree as it leaves the process: 12 bytes and the nodes.
inline Bytes ImageOf(IDX_WT_RTree& tree) {
    BytesFile file;
    unsigned int offset = 0;
    (void)tree.Save(file, offset);
    return file.bytes;
}

inline IDX_Bool LoadBytes(IDX_WT_RTree& tree, const Bytes& image) {
    BytesFile file;
    file.bytes = image;
    return tree.Load(file, 0);
}

#endif
