#ifndef Tree234Records_h
#define Tree234Records_h

#include "formats/IdentifierTreeFile.h"

// How an insertion makes room in a node. Stored nodes show each step, so the order of moves is
// fixed.

/// Moves the items from `iPlace` on by one place to the right. The place keeps its old item until
/// the caller stores the new one.
inline void OpenGapInItems(Tree234Node& ioNode, unsigned int iPlace) {
    for (unsigned int i = Tree234Node::kMaxItems - 1; i > iPlace; --i) {
        ioNode.items[i] = ioNode.items[i - 1];
    }
}

/// The same, together with the child after each of these items.
inline void OpenGap(Tree234Node& ioNode, unsigned int iPlace) {
    OpenGapInItems(ioNode, iPlace);
    for (unsigned int i = Tree234Node::kMaxItems; i > iPlace + 1; --i) {
        ioNode.children[i] = ioNode.children[i - 1];
    }
}

#endif
