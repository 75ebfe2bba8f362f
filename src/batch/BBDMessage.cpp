#include "BBDMessage.h"

#include <algorithm>

int BBDMessage::_stackSize = 0;

void BBDMessage::Push(
    BBDMessageSeverity iSeverity, const VEXString& iCode, const VEXUnicodeString& iText) {
    while (_stackSize >= kRoom) {
        std::move(_messages + 1, _messages + _stackSize, _messages);
        --_stackSize;
    }
    _messages[_stackSize] = {iSeverity, iCode, iText};
    ++_stackSize;
}

bool BBDMessage::Pop(BBDMessageSeverity& oSeverity, VEXString& oCode, VEXUnicodeString& oText) {
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
