#ifndef BBDMessage_h
#define BBDMessage_h

#include "GridloomExport.h"
#include "VEXString.h"
#include "VEXUnicodeString.h"

/// How serious a message is. Any value of 32 bits; its meaning is agreed between the callers of
/// Push() and Pop().
enum BBDMessageSeverity : int {};
static_assert(sizeof(BBDMessageSeverity) == 4, "a severity has 32 bits");

/// One message.
struct BBDMessageElem {
    BBDMessageSeverity severity = BBDMessageSeverity();
    VEXString code;
    VEXUnicodeString text;
};

/// The stack of the ten latest messages of the process. It never fails: a push on a full stack
/// drops the oldest message. The library itself neither pushes nor pops. All members are static.
///
/// The stack exists before all other process-wide objects and is destroyed after them
/// (src/ProcessObjects.cpp). One thread only.
class GRIDLOOM_API BBDMessage {
public:
    /// Puts a copy of the message on top.
    static void Push(
        BBDMessageSeverity iSeverity, const VEXString& iCode, const VEXUnicodeString& iText);

    /// Removes the newest message and copies it to the arguments.
    /// @return false on an empty stack; then the arguments are unchanged
    static bool Pop(BBDMessageSeverity& oSeverity, VEXString& oCode, VEXUnicodeString& oText);

    /// Forgets all messages.
    static void Empty();

private:
    static constexpr int kMaxMessages = 10;

    static BBDMessageElem
        _messages[kMaxMessages];  ///< the oldest first; removed ones stay at the end
    static int _stackSize;        ///< messages held
};

#endif
