#ifndef BBDMessage_h
#define BBDMessage_h

#include "GridloomExport.h"
#include "VEXString.h"
#include "VEXUnicodeString.h"

/// How grave a message is. Any value of 32 bits: it means what those who push and pop agree on.
enum BBDMessageSeverity : int {};
static_assert(sizeof(BBDMessageSeverity) == 4, "a severity has 32 bits");

/// One message, as it was pushed.
struct BBDMessageElem {
    BBDMessageSeverity severity = BBDMessageSeverity();
    VEXString code;
    VEXUnicodeString text;
};

/// The stack of the process's ten latest messages. It never fails: a push on a full stack drops the
/// oldest message. The library itself neither pushes nor pops. All of it is static; an object of this
/// class holds nothing.
///
/// There before the first use of the library, and until the process has taken down all else that it
/// shares: src/ProcessObjects.cpp. One thread only.
class GRIDLOOM_API BBDMessage {
public:
    /// Puts a copy of the message on top.
    static void Push(
        BBDMessageSeverity iSeverity, const VEXString& iCode, const VEXUnicodeString& iText);

    /// Takes the newest message off the stack.
    /// @return false on an empty stack; then the arguments are as before
    static bool Pop(BBDMessageSeverity& oSeverity, VEXString& oCode, VEXUnicodeString& oText);

    /// Forgets all messages.
    static void Empty();

private:
    static constexpr int kRoom = 10;

    static BBDMessageElem _messages[kRoom];  ///< the oldest first; what was popped stays behind
    static int _stackSize;                   ///< messages held
};

#endif
