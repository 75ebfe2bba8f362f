#ifndef Tree234Records_h
#define Tree234Records_h

#include "formats/IdentifierTreeFile.h"

// What an insertion does to a node.

/// Moves the items from `iPlace` on to the right, for one that goes there. Until then it keeps what it had.
inline void OpenGapInItems(Tree234Node& ioNode, unsigned int iPlace) {
    for (unsigned int i = Tree234Node::kMaxItems - 1; i > iPlace; --i) {
        ioNode.items[i] = ioNode.items[i - 1];
    }
}

/// The same with the children right of these items.
inline void OpenGap(Tree234Node& ioNode, unsigned int iPlace) {
    OpenGapInItems(ioNode, iPlace);
    for (unsigned int i = Tree234Node::kMaxItems; i > iPlace + 1; --i) {
        ioNode.children[i] = ioNode.children[i - 1];
    }
}

#endif
