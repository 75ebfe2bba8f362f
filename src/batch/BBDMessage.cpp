#include "BBDMessage.h"

#include <algorithm>

int BBDMessage::_stackSize = 0;

void BBDMessage::Push(
    BBDMessageSeverity iSeverity, const VEXString& iCode, const VEXUnicodeString& iText) {
    // A full stack drops its oldest message: the others move down by one.
    while (_stackSize >= kMaxMessages) {
        std::move(_messages + 1, _messages + _stackSize, _messages);
        --_stackSize;
    }
    _messages[_stackSize] = {iSeverity, iCode, iText};
    ++_stackSize;
}

bool BBDMessage::Pop(BBDMessageSeverity& oSeverity, VEXString& oCode, VEXUnicodeString& oText) {
    // The message is copied, not moved: a place above the stack keeps its texts until it is used
    // again.
    if (_stackSize == 0) return false;
    const BBDMessageElem& newest = _messages[_stackSize - 1];
    oSeverity = newest.severity;
    oCode = newest.code;
    oText = newest.text;
    --_stackSize;
    return true;
}

void BBDMessage::Empty() {
    _stackSize = 0;
}
